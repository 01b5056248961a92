// The machine's clock, but for its sleep, which returns at once and adds a line with the seconds to
// ORVANE_ROOT/sleeps.
#include "platform/machine/clock.h"
#include "platform/machine/continuous_time.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace orvane::clock {

TimePoint monotonicNow() {
    return TimePoint(continuousTime());
}

std::chrono::nanoseconds sinceEpoch() {
    return std::chrono::system_clock::now().time_since_epoch();
}

void sleep(double seconds) {
    const std::string file = std::string(std::getenv("ORVANE_ROOT")) + "/sleeps";
    const std::string line = std::to_string(static_cast<long>(seconds)) + "\n";
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const bool written = ::write(descriptor, line.data(), line.size()) > 0;
    (void)::close(descriptor);
    if (!written) {
        throw std::runtime_error("cannot write to " + file);
    }
}

std::chrono::milliseconds blockLimit(TimePoint deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - monotonicNow());
    return std::max(left, std::chrono::milliseconds::zero());
}

}  // namespace orvane::clock
