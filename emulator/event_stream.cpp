#include "emulator/event_stream.h"

#include <utility>

namespace orvane::emulator {
namespace {

constexpr std::size_t eventBlockSize = std::size_t{16} * 1024;

struct EventStream {
    EventSource& source;
    MHD_Connection* connection;
    Cursor cursor{};
    bool gone = false;
    std::string text{"retry: 1000\n\n"};  // Not sent yet, from `at` on.
    std::size_t at = 0;
};

/// An MHD_ContentReaderCallback.
ssize_t readEvents(void* context, std::uint64_t /*at*/, char* buffer, size_t most) {
    auto& stream = *static_cast<EventStream*>(context);
    if (stream.at == stream.text.size()) {
        auto more = stream.source.eventsAfter(stream.cursor, stream.connection, stream.gone);
        if (!more) {
            return MHD_CONTENT_READER_END_OF_STREAM;
        }
        stream.text = std::move(*more);
        stream.at = 0;
    }
    const std::size_t count = stream.text.copy(buffer, most, stream.at);
    stream.at += count;
    return static_cast<ssize_t>(count);
}

void freeEvents(void* context) {
    const std::unique_ptr<EventStream> stream(static_cast<EventStream*>(context));
}

}  // namespace

MHD_Result sendEvents(MHD_Connection* connection, EventSource& source) {
    MHD_Response* const response = MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, eventBlockSize, readEvents,
        std::make_unique<EventStream>(EventStream{source, connection}).release(), freeEvents);
    if (response == nullptr) {
        return MHD_NO;
    }
    MHD_add_response_header(response, "Content-Type", "text/event-stream");
    MHD_add_response_header(response, "Cache-Control", "no-store");
    const MHD_Result queued = MHD_queue_response(connection, MHD_HTTP_OK, response);
    MHD_destroy_response(response);
    return queued;
}

}  // namespace orvane::emulator
