#include "support/log_capture.h"

#include <fcntl.h>
#include <unistd.h>

#include <ostream>
#include <sstream>
#include <stdexcept>

namespace orvane::test {

std::vector<LoggedMessage> parseLog(const std::string& content) {
    std::vector<LoggedMessage> messages;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string category;
        std::string pid;
        LoggedMessage message;
        words >> message.time >> message.level >> category >> pid;
        words.get();
        std::getline(words, message.text);
        messages.push_back(message);
    }
    return messages;
}

LogCapture::LogCapture() : original_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    const auto file = directory_.path() / "stderr";
    captured_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (captured_ < 0 || ::dup2(captured_, STDERR_FILENO) < 0) {
        throw std::runtime_error("cannot capture standard error");
    }
}

LogCapture::~LogCapture() {
    const std::string content = raw();
    (void)::dup2(original_, STDERR_FILENO);
    (void)::close(original_);
    (void)::close(captured_);
    (void)!::write(STDERR_FILENO, content.data(), content.size());
}

std::string LogCapture::raw() const {
    return readFile(directory_.path() / "stderr");
}

void LogCapture::clear() const {
    (void)!::ftruncate(captured_, 0);
}

}  // namespace orvane::test
