#include "platform/process/environment.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace orvane {

std::int32_t processId() {
    return getpid();
}

std::string environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::size_t terminalWidth() {
    constexpr std::size_t usual = 80;
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
        return 0;
    }
    return size.ws_col == 0 ? usual : size.ws_col;
}

void unsetVariable(const char* name) {
    (void)::unsetenv(name);
}

void ignoreWriteSignals() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
}

void occupyStandardDescriptors() {
    int number = 0;
    do {
        number = ::open("/dev/null", O_RDWR);  // takes the lowest free number
    } while (number >= 0 && number <= STDERR_FILENO);
    if (number >= 0) {
        (void)::close(number);
    }
}

}  // namespace orvane
