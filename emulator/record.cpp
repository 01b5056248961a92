#include "emulator/record.h"

#include "emulator/bad_input.h"
#include "emulator/json_text.h"
#include "emulator/wall_time.h"

#include <cerrno>
#include <cstring>

namespace orvane::emulator {

std::string recordLine(const Exchange& exchange, std::chrono::system_clock::time_point at) {
    return jsonText({{"ts", wallTime(at)},
                     {"device", exchange.device},
                     {"method", exchange.method},
                     {"target", exchange.target},
                     {"user_agent", exchange.userAgent},
                     {"if_none_match", exchange.ifNoneMatch},
                     {"http2", exchange.isHttp2},
                     {"status", exchange.status},
                     {"bytes", exchange.bytes},
                     {"held_ms", exchange.held.count()},
                     {"fault", exchange.fault},
                     {"hung_up", exchange.hungUp}});
}

Record::Record(const std::filesystem::path& file) : file_(file, std::ios::app) {
    if (!file_.is_open()) {
        throw BadInput("cannot write the record to " + file.string() + ": " + std::strerror(errno));
    }
}

bool Record::add(const Exchange& exchange) {
    file_ << recordLine(exchange, std::chrono::system_clock::now()) << std::endl;
    return file_.good();
}

}  // namespace orvane::emulator
