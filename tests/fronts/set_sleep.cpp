// Preloaded into the daemon as it ships, takes the place of the C library's nanosleep(2), which is
// how it sleeps: every sleep lasts for ORVANE_SLEEP seconds.
#include <cmath>
#include <cstdlib>
#include <ctime>

extern "C" int nanosleep(const timespec* /*wanted*/, timespec* left) {
    constexpr double nanosecondsPerSecond = 1e9;
    double wholeSeconds = 0;
    const double rest = std::modf(std::strtod(std::getenv("ORVANE_SLEEP"), nullptr), &wholeSeconds);
    const timespec set{static_cast<std::time_t>(wholeSeconds),
                       static_cast<long>(rest * nanosecondsPerSecond)};
    return ::clock_nanosleep(CLOCK_MONOTONIC, 0, &set, left) == 0 ? 0 : -1;
}
