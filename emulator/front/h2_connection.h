#pragma once

#include "emulator/front/h2_stream.h"
#include "emulator/front/protocol.h"

#include <nghttp2/nghttp2.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace orvane::front {

/// HTTP/2 with one client (RFC 9113).
class H2Connection : public Protocol {
  public:
    H2Connection(Wire& client, const Backend& backend);

    bool advance() override;
    End end() const override;

  private:
    // What the library calls; `self` is the H2Connection.
    static int onBegin(nghttp2_session* session, const nghttp2_frame* frame, void* self);
    static int onHeader(nghttp2_session* session, const nghttp2_frame* frame,
                        const std::uint8_t* name, std::size_t nameLength, const std::uint8_t* value,
                        std::size_t valueLength, std::uint8_t flags, void* self);
    static int onFrame(nghttp2_session* session, const nghttp2_frame* frame, void* self);
    static int onData(nghttp2_session* session, std::uint8_t flags, std::int32_t id,
                      const std::uint8_t* bytes, std::size_t length, void* self);
    static int onClose(nghttp2_session* session, std::int32_t id, std::uint32_t code, void* self);
    static ssize_t onSend(nghttp2_session* session, std::int32_t id, std::uint8_t* buffer,
                          std::size_t most, std::uint32_t* flags, nghttp2_data_source* source,
                          void* self);

    bool receive();
    bool advance(std::int32_t id, H2Stream& stream);
    void answer(std::int32_t id, H2Stream& stream, const AnswerHead& head);
    void breakOff(std::int32_t id, const H2Stream& stream);
    bool send();

    Wire& client_;
    const Backend& backend_;
    std::unique_ptr<nghttp2_session, decltype(&nghttp2_session_del)> session_;
    std::map<std::int32_t, H2Stream> streams_;  // By their id.
    std::optional<std::string> lastBytes_;      // What is sent before the connection is lost.
    bool isBroken_ = false;
};

}  // namespace orvane::front
