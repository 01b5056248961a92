// Takes the place of the C library's nanosleep(2), which is how the daemon sleeps: returns at once,
// and adds a line with the seconds to ORVANE_ROOT/sleeps.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

extern "C" int nanosleep(const timespec* wanted, timespec* /*left*/) {
    const std::string file = std::string(std::getenv("ORVANE_ROOT")) + "/sleeps";
    const std::string line = std::to_string(wanted->tv_sec) + "\n";
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const bool written = ::write(descriptor, line.data(), line.size()) > 0;
    (void)::close(descriptor);
    return written ? 0 : -1;
}
