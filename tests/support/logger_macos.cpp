// The log of tests and of the demo on macOS: standard error, where it can be read back.
#include "platform/log/logger.h"

#include "platform/log/message_line.h"

#include <utility>

namespace orvane {

class Logger::Destination {
  public:
    explicit Destination(std::string category) : category_(std::move(category)) {}

    void write(LogLevel level, const std::string& message) const {
        writeMessageLine(level, category_, message);
    }

  private:
    std::string category_;
};

Logger::Logger(std::string /*subsystem*/, std::string category)
    : destination_(std::make_shared<const Destination>(std::move(category))) {}

void Logger::write(LogLevel level, const std::string& message) const {
    destination_->write(level, message);
}

}  // namespace orvane
