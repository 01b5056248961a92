#include "platform/log/logger.h"

#include <os/log.h>

namespace orvane {

namespace {

os_log_type_t typeOf(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return OS_LOG_TYPE_DEBUG;
        case LogLevel::error:
            return OS_LOG_TYPE_ERROR;
        case LogLevel::standard:
            break;
    }
    return OS_LOG_TYPE_DEFAULT;
}

}  // namespace

class Logger::Destination {
  public:
    Destination(const std::string& subsystem, const std::string& category)
        : log_(os_log_create(subsystem.c_str(), category.c_str())) {}

    // The message has been rendered by the same code as on Linux, with the privacy marks applied,
    // so all of it is public now.
    void write(LogLevel level, const std::string& message) const {
        os_log_with_type(log_, typeOf(level), "%{public}s", message.c_str());
    }

  private:
    os_log_t log_;
};

// On Linux the strings are kept.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Logger::Logger(std::string subsystem, std::string category)
    : destination_(std::make_shared<const Destination>(subsystem, category)) {}

void Logger::write(LogLevel level, const std::string& message) const {
    destination_->write(level, message);
}

}  // namespace orvane
