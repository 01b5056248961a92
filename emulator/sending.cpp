#include "emulator/sending.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <tuple>
#include <utility>

namespace orvane::emulator {
namespace {

constexpr std::size_t blockSize = std::size_t{64} * 1024;

/// An MHD_ContentReaderCallback for a reply with a rest.
ssize_t readReply(void* context, std::uint64_t at, char* buffer, size_t most) {
    const auto& reply = *static_cast<const Reply*>(context);
    if (at < reply.body.size()) {
        return static_cast<ssize_t>(reply.body.copy(buffer, most, at));
    }
    if (reply.rest == Rest::lost) {
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    const auto count = std::min<std::uint64_t>(most, reply.promised - at);
    std::memset(buffer, ' ', count);
    return static_cast<ssize_t>(count);
}

void freeReply(void* context) {
    const std::unique_ptr<Reply> reply(static_cast<Reply*>(context));
}

MHD_Response* responseFor(Reply& reply) {
    if (reply.rest == Rest::nothing) {
        return MHD_create_response_from_buffer(reply.body.size(), reply.body.data(),
                                               MHD_RESPMEM_MUST_COPY);
    }
    return MHD_create_response_from_callback(reply.promised, blockSize, readReply,
                                             std::make_unique<Reply>(reply).release(), freeReply);
}

}  // namespace

MHD_Result send(MHD_Connection* connection, Reply reply) {
    MHD_Response* const response = responseFor(reply);
    if (response == nullptr) {
        return MHD_NO;
    }
    if (!reply.body.empty()) {
        MHD_add_response_header(response, "Content-Type", reply.contentType.c_str());
        MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    }
    MHD_add_response_header(response, "Cache-Control", "no-store");
    for (const auto& [name, value] : reply.headers) {
        MHD_add_response_header(response, name.c_str(), value.c_str());
    }
    const MHD_Result queued = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    return queued;
}

MHD_Result send(MHD_Connection* connection, const Drop& drop) {
    const int socket =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    // Where the peer is gone already there is nobody to send it to.
    std::ignore = ::send(socket, drop.bytes.data(), drop.bytes.size(), MSG_DONTWAIT);
    return MHD_NO;
}

}  // namespace orvane::emulator
