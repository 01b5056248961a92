// Standard error as a list of log messages.
#pragma once

#include "support/test_files.h"

#include <string>
#include <vector>

namespace orvane::test {

struct LoggedMessage {
    std::string level;
    std::string text;
    std::string time = {};  ///< as written; two messages are equal whenever they were logged

    friend bool operator==(const LoggedMessage& a, const LoggedMessage& b) {
        return a.level == b.level && a.text == b.text;
    }
};

/// Parses the lines that the daemon's logger writes to standard error.
std::vector<LoggedMessage> parseLog(const std::string& content);

/// Takes standard error from construction to destruction, when it is passed on.
class LogCapture {
  public:
    LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    [[nodiscard]] std::string raw() const;
    [[nodiscard]] std::vector<LoggedMessage> messages() const { return parseLog(raw()); }
    /// Forgets what was logged so far.
    void clear() const;

  private:
    TempDirectory directory_;
    int original_;
    int captured_;
};

}  // namespace orvane::test
