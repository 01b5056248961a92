#pragma once

#include <microhttpd.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace orvane::emulator {

/// How much of what there is to tell a stream has been told.
struct Cursor {
    std::uint64_t policy = 0;
    std::uint64_t faults = 0;
    std::uint64_t devices = 0;
};

/// Where the events of streams come from.
class EventSource {
  public:
    virtual ~EventSource() = default;

    /// Events after `cursor`, which it moves: text as the format of server-sent events has it.
    ///
    /// When there are none, it suspends the connection and returns an empty string; the connection
    /// is resumed when there are. Absent when the stream has to end; so it does once `gone`, which
    /// becomes true while suspended if the peer hangs up.
    virtual std::optional<std::string> eventsAfter(Cursor& cursor, MHD_Connection* connection,
                                                   bool& gone) = 0;
};

/// Answers with a stream of server-sent events. `source` has to outlive the connection.
MHD_Result sendEvents(MHD_Connection* connection, EventSource& source);

}  // namespace orvane::emulator
