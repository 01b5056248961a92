// The log: os_log on macOS; on Linux the journal if standard error is connected to it, otherwise
// one line per message on standard error.
#pragma once

#include "platform/log/log_format.h"

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace orvane {

/// What a message is for. All levels are emitted; filtering is left to the log.
enum class LogLevel { standard, debug, error };

/// Writes messages under one subsystem and category. Copies are cheap and share the destination.
/// Every operation may be called from any thread, writes one message and blocks until all of it is
/// written. Failures are not reported, because a failing log must not stop the daemon; only
/// std::bad_alloc may be thrown.
class Logger {
  public:
    Logger(std::string subsystem, std::string category);

    /// Default level: progress. Formats are literals; see log_format.h.
    template <typename... Arguments>
    void log(LogFormat<std::type_identity_t<Arguments>...> format,
             const Arguments&... arguments) const {
        render(LogLevel::standard, format.text(), arguments...);
    }

    /// Debug level: routine non-events.
    template <typename... Arguments>
    void debug(LogFormat<std::type_identity_t<Arguments>...> format,
               const Arguments&... arguments) const {
        render(LogLevel::debug, format.text(), arguments...);
    }

    /// Error level: failures.
    template <typename... Arguments>
    void error(LogFormat<std::type_identity_t<Arguments>...> format,
               const Arguments&... arguments) const {
        render(LogLevel::error, format.text(), arguments...);
    }

  private:
    class Destination;

    template <typename... Arguments>
    void render(LogLevel level, std::string_view format, const Arguments&... arguments) const {
        const std::array<LogArgument, sizeof...(Arguments)> all{argumentOf(arguments)...};
        write(level, renderMessage(format, all));
    }

    static LogArgument argumentOf(bool value) { return value; }
    static LogArgument argumentOf(std::int32_t value) { return std::int64_t{value}; }
    static LogArgument argumentOf(std::int64_t value) { return value; }
    static LogArgument argumentOf(std::string_view value) { return value; }
    // Without this one a pointer would become a bool.
    static LogArgument argumentOf(const char* value) { return std::string_view(value); }

    void write(LogLevel level, const std::string& message) const;

    std::shared_ptr<const Destination> destination_;
};

}  // namespace orvane
