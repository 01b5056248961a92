#include "platform/log/message_line.h"

#include "platform/files/uninterrupted.h"
#include "platform/machine/clock.h"
#include "platform/process/environment.h"
#include "platform/text/timestamp.h"

#include <unistd.h>

#include <string>

namespace orvane {

namespace {

std::string_view nameOf(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return "debug";
        case LogLevel::error:
            return "error";
        case LogLevel::standard:
            break;
    }
    return "default";
}

void writeToStandardError(std::string_view line) {
    while (!line.empty()) {
        const ssize_t count =
            uninterrupted([&] { return ::write(STDERR_FILENO, line.data(), line.size()); });
        if (count <= 0) {
            return;
        }
        line.remove_prefix(static_cast<std::size_t>(count));
    }
}

}  // namespace

void writeMessageLine(LogLevel level, std::string_view category, std::string_view message) {
    std::string line = iso8601(clock::sinceEpoch());
    for (const std::string_view part : {nameOf(level), category}) {
        line.append(" ").append(part);
    }
    line.append(" ").append(std::to_string(processId())).append(" ").append(message).append("\n");
    writeToStandardError(line);
}

}  // namespace orvane
