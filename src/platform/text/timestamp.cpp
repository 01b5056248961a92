#include "platform/text/timestamp.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace orvane {

std::string iso8601(std::chrono::nanoseconds sinceEpoch) {
    using std::chrono::milliseconds;
    const auto rounded =
        std::chrono::floor<milliseconds>(sinceEpoch + std::chrono::microseconds(500));
    const auto whole = std::chrono::floor<std::chrono::seconds>(rounded);
    const std::time_t seconds = whole.count();
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> date{};
    std::array<char, 40> full{};
    (void)std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    (void)std::snprintf(full.data(), full.size(), "%s.%03dZ", date.data(),
                        static_cast<int>((rounded - whole).count()));
    return full.data();
}

std::int64_t wholeMilliseconds(double seconds) {
    const double milliseconds = seconds * 1000.0;
    // 2^63 is exact as a double; NaN fails both comparisons.
    constexpr double limit = 9223372036854775808.0;
    if (!(milliseconds >= -limit && milliseconds < limit)) {
        (void)std::fputs("elapsed time does not fit in 64 bits\n", stderr);
        std::abort();
    }
    return static_cast<std::int64_t>(milliseconds);
}

}  // namespace orvane
