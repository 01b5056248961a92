#include "emulator/wall_time.h"

#include <ctime>
#include <iomanip>
#include <sstream>

namespace orvane::emulator {

std::string wallTime(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::ostringstream text;
    text << std::put_time(&utc, "%FT%T.") << std::setw(3) << std::setfill('0')
         << sinceEpoch.count() % 1000 << 'Z';
    return text.str();
}

}  // namespace orvane::emulator
