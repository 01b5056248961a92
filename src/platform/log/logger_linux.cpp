#include "platform/log/logger.h"

#include "platform/files/descriptor.h"
#include "platform/files/uninterrupted.h"
#include "platform/log/message_line.h"
#include "platform/process/environment.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace orvane {

namespace {

constexpr std::string_view journalSocket = "/run/systemd/journal/socket";
constexpr std::string_view identifier = "OrvanePolicyDaemon";

/// syslog(3) priorities: err, notice, debug.
std::string_view priorityOf(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return "7";
        case LogLevel::error:
            return "3";
        case LogLevel::standard:
            break;
    }
    return "5";
}

/// systemd.exec(5): JOURNAL_STREAM is "device:inode" of the stream that the service manager set up.
/// Only if that is our standard error are we the service; a shell may merely have inherited the
/// variable.
bool standardErrorIsJournal() {
    struct stat status {};
    return ::fstat(STDERR_FILENO, &status) == 0 &&
           environmentValue("JOURNAL_STREAM") ==
               std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

Descriptor connectToJournal() {
    Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(journalSocket.begin(), journalSocket.end(), std::begin(address.sun_path));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the sockets API wants it.
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (!socket.isOpen() || ::connect(socket.number(), generic, sizeof address) != 0) {
        return Descriptor();
    }
    return socket;
}

}  // namespace

class Logger::Destination {
  public:
    Destination(std::string subsystem, std::string category)
        : subsystem_(std::move(subsystem)), category_(std::move(category)) {
        if (standardErrorIsJournal()) {
            journal_ = connectToJournal();
        }
    }

    void write(LogLevel level, const std::string& message) const {
        if (!journal_.isOpen() || !sendToJournal(level, message)) {
            writeMessageLine(level, category_, message);
        }
    }

  private:
    /// The journal's native protocol: one datagram of FIELD=value lines. A rendered message
    /// contains no line break, so the simple form is always enough. False if it was not accepted
    /// (too large, or the journal is restarting).
    [[nodiscard]] bool sendToJournal(LogLevel level, const std::string& message) const {
        std::string entry;
        const auto add = [&entry](std::string_view field, std::string_view value) {
            entry.append(field).append("=").append(value).append("\n");
        };
        add("PRIORITY", priorityOf(level));
        add("SYSLOG_IDENTIFIER", identifier);
        add("SUBSYSTEM", subsystem_);
        add("CATEGORY", category_);
        add("MESSAGE", message);
        return uninterrupted([&] {
                   return ::send(journal_.number(), entry.data(), entry.size(), MSG_NOSIGNAL);
               }) >= 0;
    }

    std::string subsystem_;
    std::string category_;
    Descriptor journal_;
};

Logger::Logger(std::string subsystem, std::string category)
    : destination_(std::make_shared<const Destination>(std::move(subsystem), std::move(category))) {
}

void Logger::write(LogLevel level, const std::string& message) const {
    destination_->write(level, message);
}

}  // namespace orvane
