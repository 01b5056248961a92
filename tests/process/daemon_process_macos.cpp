// What the system knows of a process, from libproc and sysctl(3).
#include "process/daemon_process.h"

#include <libproc.h>
#include <sys/sysctl.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace orvane::test {

namespace {

proc_taskinfo taskOf(pid_t pid) {
    proc_taskinfo task{};
    constexpr int size = sizeof task;
    if (::proc_pidinfo(pid, PROC_PIDTASKINFO, 0, &task, size) != size) {
        throw std::runtime_error("no such process");
    }
    return task;
}

rusage_info_v4 usageOf(pid_t pid) {
    rusage_info_v4 usage{};
    auto* const generic = reinterpret_cast<rusage_info_t*>(&usage);
    if (::proc_pid_rusage(pid, RUSAGE_INFO_V4, generic) != 0) {
        throw std::runtime_error("no such process");
    }
    return usage;
}

/// What `call` puts into a buffer; it returns how many bytes that is.
template <typename Entry, typename Call>
std::vector<Entry> listed(Call call) {
    std::vector<Entry> entries(10'000);
    const int bytes = call(entries.data(), static_cast<int>(entries.size() * sizeof(Entry)));
    entries.resize(bytes > 0 ? static_cast<std::size_t>(bytes) / sizeof(Entry) : 0);
    return entries;
}

}  // namespace

std::size_t DaemonProcess::descriptorCount() const {
    return listed<proc_fdinfo>([this](void* buffer, int size) {
               return ::proc_pidinfo(pid_, PROC_PIDLISTFDS, 0, buffer, size);
           })
        .size();
}

std::size_t DaemonProcess::threadCount() const {
    return static_cast<std::size_t>(taskOf(pid_).pti_threadnum);
}

// Pages of 16 KiB, and an allocator that keeps some of them back for each thread.
const std::size_t DaemonProcess::slackKiB = 1024;

// Not what is resident, which counts pages of the system's libraries that every process shares.
std::size_t DaemonProcess::residentKiB() const {
    return usageOf(pid_).ri_phys_footprint / 1024;
}

std::size_t DaemonProcess::peakKiB() const {
    return usageOf(pid_).ri_lifetime_max_phys_footprint / 1024;
}

std::size_t DaemonProcess::contextSwitches() const {
    return static_cast<std::size_t>(taskOf(pid_).pti_csw);
}

std::vector<pid_t> DaemonProcess::children() const {
    return listed<pid_t>([this](void* buffer, int size) {
        return ::proc_listpids(PROC_PPID_ONLY, static_cast<std::uint32_t>(pid_), buffer, size);
    });
}

std::string DaemonProcess::commandLine() const {
    // The count of words, the program's path, NULs, the words, the environment.
    std::array<int, 3> name{CTL_KERN, KERN_PROCARGS2, pid_};
    std::string content(std::size_t{1} << 20U, '\0');
    std::size_t size = content.size();
    int count = 0;
    if (::sysctl(name.data(), name.size(), content.data(), &size, nullptr, 0) != 0 ||
        size < sizeof count) {
        throw std::runtime_error("no such process");
    }
    std::memcpy(&count, content.data(), sizeof count);
    std::size_t at = content.find('\0', sizeof count);
    at = content.find_first_not_of('\0', at);
    std::size_t end = at;
    for (; count > 0 && end < size; --count) {
        end = content.find('\0', end) + 1;
    }
    return content.substr(at, end - at);
}

}  // namespace orvane::test
