#include "platform/environment.h"

#include <fcntl.h>
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

bool isTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

void ignoreBrokenPipes() {
    (void)std::signal(SIGPIPE, SIG_IGN);
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
