#include "emulator/front/h2_connection.h"

#include "emulator/front/front.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::front {
namespace {

H2Connection& connectionAt(void* self) {
    return *static_cast<H2Connection*>(self);
}

std::string_view textAt(const std::uint8_t* bytes, std::size_t length) {
    return {reinterpret_cast<const char*>(bytes), length};
}

/// The library copies what it is about.
nghttp2_nv pair(std::string_view name, std::string_view value) {
    const auto bytesOf = [](std::string_view text) {
        return reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
    };
    return {bytesOf(name), bytesOf(value), name.size(), value.size(), NGHTTP2_NV_FLAG_NONE};
}

}  // namespace

H2Connection::H2Connection(Wire& client, const Backend& backend)
    : client_(client), backend_(backend), session_(nullptr, nghttp2_session_del) {
    nghttp2_session_callbacks* callbacks = nullptr;
    nghttp2_session_callbacks_new(&callbacks);
    nghttp2_session_callbacks_set_on_begin_headers_callback(callbacks, onBegin);
    nghttp2_session_callbacks_set_on_header_callback(callbacks, onHeader);
    nghttp2_session_callbacks_set_on_frame_recv_callback(callbacks, onFrame);
    nghttp2_session_callbacks_set_on_data_chunk_recv_callback(callbacks, onData);
    nghttp2_session_callbacks_set_on_stream_close_callback(callbacks, onClose);
    nghttp2_session* session = nullptr;
    nghttp2_session_server_new(&session, callbacks, this);
    nghttp2_session_callbacks_del(callbacks);
    session_.reset(session);
    const nghttp2_settings_entry settings{NGHTTP2_SETTINGS_MAX_CONCURRENT_STREAMS, 100};
    nghttp2_submit_settings(session, NGHTTP2_FLAG_NONE, &settings, 1);
}

bool H2Connection::advance() {
    if (isBroken_) {
        return false;
    }
    bool hasMoved = receive();
    for (auto& [id, stream] : streams_) {
        hasMoved |= advance(id, stream);
    }
    hasMoved |= send();
    if (lastBytes_) {
        client_.send(*lastBytes_);
        isBroken_ = true;
    }
    return hasMoved;
}

End H2Connection::end() const {
    if (!client_.isFlushed()) {
        return End::none;
    }
    if (isBroken_) {
        return End::abrupt;
    }
    const bool isDone = nghttp2_session_want_read(session_.get()) == 0 &&
                        nghttp2_session_want_write(session_.get()) == 0;
    return isDone ? End::orderly : End::none;
}

bool H2Connection::receive() {
    std::string& received = client_.received();
    if (received.empty()) {
        return false;
    }
    const auto taken = nghttp2_session_mem_recv(
        session_.get(), reinterpret_cast<const std::uint8_t*>(received.data()), received.size());
    isBroken_ |= taken < 0;
    received.clear();
    return true;
}

bool H2Connection::advance(std::int32_t id, H2Stream& stream) {
    const bool hasMoved = stream.advance();
    if (const auto head = stream.takeHead()) {
        answer(id, stream, *head);
        return true;
    }
    if (hasMoved && stream.isUnanswered()) {
        breakOff(id, stream);
    }
    if (hasMoved) {
        nghttp2_session_resume_data(session_.get(), id);
    }
    return hasMoved;
}

void H2Connection::answer(std::int32_t id, H2Stream& stream, const AnswerHead& head) {
    const std::string status = std::to_string(head.status);
    std::vector<nghttp2_nv> headers{pair(":status", status)};
    std::transform(head.headers.begin(), head.headers.end(), std::back_inserter(headers),
                   [](const auto& header) { return pair(header.first, header.second); });
    if (head.status < 200) {
        nghttp2_submit_headers(session_.get(), NGHTTP2_FLAG_NONE, id, nullptr, headers.data(),
                               headers.size(), nullptr);
        return;
    }
    const nghttp2_data_provider body{{.ptr = &stream}, onSend};
    nghttp2_submit_response(session_.get(), id, headers.data(), headers.size(),
                            stream.hasBody() ? &body : nullptr);
}

void H2Connection::breakOff(std::int32_t id, const H2Stream& stream) {
    if (stream.sentInstead() == goAway) {
        // Clients' streams have odd numbers.
        nghttp2_submit_goaway(session_.get(), NGHTTP2_FLAG_NONE, std::max(id - 2, 0),
                              NGHTTP2_NO_ERROR, nullptr, 0);
        return;
    }
    lastBytes_ = stream.sentInstead();
}

/// Puts the frames that are ready where they are to be sent.
bool H2Connection::send() {
    bool hasSent = false;
    const std::uint8_t* frames = nullptr;
    while (!isBroken_ && !client_.isFull()) {
        const auto length = nghttp2_session_mem_send(session_.get(), &frames);
        if (length <= 0) {
            isBroken_ |= length < 0;
            break;
        }
        client_.send(textAt(frames, static_cast<std::size_t>(length)));
        hasSent = true;
    }
    return hasSent;
}

int H2Connection::onBegin(nghttp2_session*, const nghttp2_frame* frame, void* self) {
    connectionAt(self).streams_.try_emplace(frame->hd.stream_id);
    return 0;
}

int H2Connection::onHeader(nghttp2_session*, const nghttp2_frame* frame, const std::uint8_t* name,
                           std::size_t nameLength, const std::uint8_t* value,
                           std::size_t valueLength, std::uint8_t, void* self) {
    const auto found = connectionAt(self).streams_.find(frame->hd.stream_id);
    if (found != connectionAt(self).streams_.end() &&
        frame->headers.cat == NGHTTP2_HCAT_REQUEST) {  // not a trailer
        found->second.request.headers.emplace_back(textAt(name, nameLength),
                                                   textAt(value, valueLength));
    }
    return 0;
}

int H2Connection::onFrame(nghttp2_session*, const nghttp2_frame* frame, void* self) {
    H2Connection& connection = connectionAt(self);
    const auto found = connection.streams_.find(frame->hd.stream_id);
    const bool isOfRequest = frame->hd.type == NGHTTP2_HEADERS || frame->hd.type == NGHTTP2_DATA;
    if (found != connection.streams_.end() && isOfRequest) {
        found->second.send(connection.backend_, (frame->hd.flags & NGHTTP2_FLAG_END_STREAM) != 0);
    }
    return 0;
}

int H2Connection::onData(nghttp2_session*, std::uint8_t, std::int32_t id, const std::uint8_t* bytes,
                         std::size_t length, void* self) {
    const auto found = connectionAt(self).streams_.find(id);
    if (found != connectionAt(self).streams_.end()) {
        found->second.sendBody(textAt(bytes, length));
    }
    return 0;
}

int H2Connection::onClose(nghttp2_session*, std::int32_t id, std::uint32_t, void* self) {
    connectionAt(self).streams_.erase(id);
    return 0;
}

/// An nghttp2_data_source_read_callback.
ssize_t H2Connection::onSend(nghttp2_session*, std::int32_t, std::uint8_t* buffer, std::size_t most,
                             std::uint32_t* flags, nghttp2_data_source* source, void*) {
    auto& stream = *static_cast<H2Stream*>(source->ptr);
    const std::size_t count = stream.takeBody(buffer, most);
    if (stream.isBodyOver()) {
        *flags |= NGHTTP2_DATA_FLAG_EOF;
    } else if (count == 0) {
        return stream.isCutOff() ? NGHTTP2_ERR_TEMPORAL_CALLBACK_FAILURE : NGHTTP2_ERR_DEFERRED;
    }
    return static_cast<ssize_t>(count);
}

}  // namespace orvane::front
