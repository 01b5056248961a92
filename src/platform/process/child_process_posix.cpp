#include "platform/process/child_process.h"

#include "platform/files/descriptor.h"
#include "platform/files/uninterrupted.h"
#include "platform/process/child_descriptors.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

// environ(7): POSIX has the program declare it; glibc declares it, too.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace orvane {

namespace {

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

bool closeOnExec(int descriptor) {
    return uninterrupted([=] { return ::fcntl(descriptor, F_SETFD, FD_CLOEXEC); }) == 0;
}

std::optional<Pipe> makePipe() {
    std::array<int, 2> ends{};
    if (uninterrupted([&] { return ::pipe(ends.data()); }) != 0) {
        return std::nullopt;
    }
    Pipe made{Descriptor(ends[0]), Descriptor(ends[1])};
    if (!closeOnExec(ends[0]) || !closeOnExec(ends[1])) {
        return std::nullopt;
    }
    return made;
}

bool isRegularFile(const std::filesystem::path& path) {
    struct stat status {};
    return uninterrupted([&] { return ::stat(path.c_str(), &status); }) == 0 &&
           S_ISREG(status.st_mode);
}

/// The two settings objects of posix_spawn(3).
class SpawnSettings {
  public:
    SpawnSettings() {
        (void)posix_spawn_file_actions_init(&actions_);
        (void)posix_spawnattr_init(&attributes_);
        (void)posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
        (void)posix_spawnattr_setpgroup(&attributes_, 0);
        // The daemon ignores these signals (environment.h), and ignoring is inherited.
        sigset_t defaults;
        (void)sigemptyset(&defaults);
        (void)sigaddset(&defaults, SIGPIPE);
        (void)sigaddset(&defaults, SIGXFSZ);
        (void)posix_spawnattr_setsigdefault(&attributes_, &defaults);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        (void)posix_spawnattr_destroy(&attributes_);
        (void)posix_spawn_file_actions_destroy(&actions_);
    }

    bool connect(int descriptor, int childDescriptor) {
        return posix_spawn_file_actions_adddup2(&actions_, descriptor, childDescriptor) == 0;
    }

    bool closeAllOthers() { return closeAllOthersInChild(actions_, attributes_); }

    std::optional<pid_t> spawn(const std::filesystem::path& tool,
                               const std::vector<std::string>& arguments) {
        std::vector<std::string> words{tool.string()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        pid_t pid = 0;
        int error = 0;
        do {
            error = posix_spawn(&pid, tool.c_str(), &actions_, &attributes_, argv.data(), environ);
        } while (error == EINTR);
        return error == 0 ? std::optional(pid) : std::nullopt;
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

void waitForExit(pid_t pid) {
    int status = 0;
    (void)uninterrupted([&] { return ::waitpid(pid, &status, 0); });
}

std::string readToEnd(int descriptor) {
    std::string output;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count =
            uninterrupted([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
        if (count <= 0) {
            return output;
        }
        output.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

std::optional<std::string> outputOf(const std::filesystem::path& tool,
                                    const std::vector<std::string>& arguments) {
    auto standardOutput = makePipe();
    auto standardError = makePipe();
    SpawnSettings settings;
    if (!isRegularFile(tool) || !standardOutput || !standardError ||
        !settings.connect(standardOutput->writeEnd.number(), STDOUT_FILENO) ||
        !settings.connect(standardError->writeEnd.number(), STDERR_FILENO) ||
        !settings.closeAllOthers()) {
        return std::nullopt;
    }
    const auto pid = settings.spawn(tool, arguments);
    if (!pid) {
        return std::nullopt;
    }
    (void)standardOutput->writeEnd.close();
    (void)standardError->writeEnd.close();
    waitForExit(*pid);
    return readToEnd(standardOutput->readEnd.number());
}

}  // namespace orvane
