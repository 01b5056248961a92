#include "support/in_child.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <stdexcept>

namespace orvane::test {

namespace {

void writeAll(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count <= 0) {
            return;
        }
        done += static_cast<std::size_t>(count);
    }
}

std::string readToEnd(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

[[noreturn]] void runChild(const std::function<std::string()>& body, int answer) {
    int status = 0;
    try {
        writeAll(answer, body());
    } catch (const std::exception& error) {
        writeAll(answer, error.what());
        status = 1;
    }
    ::_exit(status);
}

void dropPrivileges() {
    constexpr uid_t nobody = 65534;
    if (::geteuid() == 0 &&
        (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
        throw std::runtime_error("cannot drop privileges");
    }
}

}  // namespace

std::string inChild(const std::function<std::string()>& body) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(ends[0]);
        runChild(body, ends[1]);
    }
    ::close(ends[1]);
    std::string answer = readToEnd(ends[0]);
    ::close(ends[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (pid < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("the child failed: " + answer);
    }
    return answer;
}

std::string inUnprivilegedChild(const std::function<std::string()>& body) {
    return inChild([&] {
        dropPrivileges();
        return body();
    });
}

bool asOrdinaryUser(const std::function<bool()>& condition) {
    return inUnprivilegedChild([&] { return condition() ? "yes" : "no"; }) == "yes";
}

}  // namespace orvane::test
