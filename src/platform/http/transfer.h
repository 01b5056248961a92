// One exchange of an HTTP session.
#pragma once

#include "platform/http/curl_handles.h"
#include "platform/http/http_session.h"
#include "platform/http/open_sockets.h"
#include "platform/http/trust_store.h"
#include "platform/machine/clock.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// One exchange, owned by the worker from `send` until its completion has been called: its limits,
/// what has arrived of the response, and whether it should be retried. transfer_options.cpp
/// prepares its library handle.
class Transfer {
  public:
    Transfer(HttpRequest request, HttpCompletion completion, HttpLimits limits);
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() = default;

    /// Why the request must not be sent; null if it may be.
    [[nodiscard]] const char* refusal() const;

    /// Takes `easy` and prepares it for the request. False when the library refused an option.
    bool prepare(EasyHandle&& easy, TrustStore& trustStore, OpenSockets& openSockets);

    [[nodiscard]] CURL* easy() const { return easy_.get(); }
    EasyHandle releaseEasy() { return std::move(easy_); }

    /// When to try other addresses, while the ones that are being connected to do not answer.
    [[nodiscard]] clock::TimePoint addressDeadline() const;

    /// There are no other addresses: those that are tried from now on get the whole time.
    void noteNoOtherAddress() { mayBeMoreAddresses_ = false; }

    /// When the exchange is overdue unless something happens first.
    [[nodiscard]] clock::TimePoint deadline() const;

    [[nodiscard]] bool isOverdue() const { return deadline() <= clock::monotonicNow(); }

    /// How the exchange really ended if libcurl says `code`: for libcurl, a connection closed
    /// within the header is a success, and one that accepts no frame a protocol error.
    [[nodiscard]] CURLcode outcome(CURLcode code) const;

    /// Whether to retry the request, which ended with `code`: no byte of a response arrived, and
    /// the connection is to blame, not the server. The connection had served before, its peer is
    /// dead or cannot reach us any more, or HTTP/2 ended as it does when the server stops accepting
    /// requests. libcurl retries some of these by itself, depending on its version; in any case a
    /// request is sent at most twice.
    [[nodiscard]] bool isToBeSentAgain(CURLcode code) const;

    /// We cut off the connection that the request was sent on, if it was sent.
    void noteCutOff() { isCutOff_ = !isConnecting_; }

    /// Starts all limits from now.
    void startLimits();

    /// Ends the exchange with `code`; `ownError` overrides libcurl's error text.
    void complete(CURLcode code, const char* ownError);

  private:
    template <typename Value>
    bool set(CURLoption option, Value value) {
        return curl_easy_setopt(easy_.get(), option, value) == CURLE_OK;
    }

    void listHeaders();
    bool setWhatIsAsked();
    bool setHowItTravels();
    bool setTrust(TrustStore& trustStore);
    bool setCallbacks();

    [[nodiscard]] std::chrono::milliseconds longestConnecting() const;
    /// Whether the system has given up the connection.
    [[nodiscard]] bool isPeerDead() const;
    /// The status by which a proxy refused a tunnel; 0 when none did.
    [[nodiscard]] long proxyRefusal() const;
    [[nodiscard]] std::string errorText(CURLcode code) const;
    [[nodiscard]] bool hasMalformedStatus() const { return status_ == 0 && !atStatusLine_; }

    void touch() { lastActivity_ = clock::monotonicNow(); }
    bool append(std::string_view part);
    void reserveExpectedSize();
    bool addHeaderLine(std::string_view line);

    // libcurl's callbacks; `self` is the transfer.
    static std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t takeHeader(const char* data, std::size_t size, std::size_t count,
                                  void* self);
    static int noteConnecting(void* self, curl_socket_t socket, curlsocktype purpose) noexcept;
    static int noteSending(void* self, char* peer, char* own, int peersPort, int ownPort) noexcept;
    static int noteProgress(void* self, curl_off_t downloadTotal, curl_off_t downloaded,
                            curl_off_t uploadTotal, curl_off_t uploaded);

    HttpRequest request_;
    HttpCompletion completion_;
    std::chrono::milliseconds inactivityLimit_;
    std::chrono::milliseconds totalLimit_;
    clock::TimePoint lastActivity_;
    clock::TimePoint end_;
    bool isConnecting_ = true;                       ///< no connection is ready for the request yet
    std::optional<clock::TimePoint> firstSocketAt_;  ///< of this try to connect
    bool mayBeMoreAddresses_ = true;
    int timesSent_ = 0;
    bool isCutOff_ = false;
    bool wasKept_ = false;  ///< the connection used last had served before
    OpenSockets* openSockets_ = nullptr;
    HeaderList headers_;
    std::array<char, CURL_ERROR_SIZE> errorBuffer_{};
    std::string body_;
    curl_off_t bytesSeen_ = 0;
    std::size_t headerBytes_ = 0;
    bool atStatusLine_ = true;  ///< the next line is the first of a header
    long status_ = 0;
    bool headerComplete_ = false;
    bool tooLarge_ = false;
    EasyHandle easy_;  ///< last, to be destroyed before what it points to
};

}  // namespace orvane
