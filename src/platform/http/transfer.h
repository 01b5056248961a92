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
/// what has come of the answer, and whether it is worth another try. Its library handle is made
/// ready in transfer_options.cpp.
class Transfer {
  public:
    Transfer(HttpRequest request, HttpCompletion completion, HttpLimits limits);
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() = default;

    /// What forbids sending the request, if anything does.
    [[nodiscard]] const char* refusal() const;

    /// Takes `easy` and prepares it for the request. False when the library refused an option.
    bool prepare(EasyHandle&& easy, TrustStore& trustStore, OpenSockets& openSockets);

    [[nodiscard]] CURL* easy() const { return easy_.get(); }
    EasyHandle releaseEasy() { return std::move(easy_); }

    /// When it is time to go on to other addresses, while the ones that are being connected to do
    /// not answer.
    [[nodiscard]] clock::TimePoint addressDeadline() const;

    /// There are no other addresses: those that are tried from now on have all the time.
    void noteNoOtherAddress() { mayBeMoreAddresses_ = false; }

    /// When the exchange is overdue unless something happens first.
    [[nodiscard]] clock::TimePoint deadline() const;

    [[nodiscard]] bool isOverdue() const { return deadline() <= clock::monotonicNow(); }

    /// How the exchange ended when the library says `code`: to it, a connection that is closed
    /// within the header is no error, and one that takes no frame is an error of the protocol.
    [[nodiscard]] CURLcode outcome(CURLcode code) const;

    /// Whether the request is to be sent once more, now that it ended with `code`: no byte of an
    /// answer came, and it is the connection that is to blame, not the server. It had served
    /// before, its peer is dead or cannot reach us any more, or HTTP/2 broke off as it does when
    /// the server stops taking requests. The library sends some of these again by itself, which
    /// ones depends on its version; it is sent twice at most, in any case.
    [[nodiscard]] bool isToBeSentAgain(CURLcode code) const;

    /// The connection that the request went out on, if it has, was cut off by ourselves.
    void noteCutOff() { isCutOff_ = !isConnecting_; }

    /// All limits count from here.
    void startLimits();

    /// Ends the exchange as the library says it ended; `ownError` overrides libcurl's error text.
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
    /// Whether the system gave the connection up.
    [[nodiscard]] bool isPeerDead() const;
    /// The status by which a proxy refused a tunnel; 0 when none did.
    [[nodiscard]] long proxyRefusal() const;
    [[nodiscard]] std::string errorText(CURLcode code) const;
    [[nodiscard]] bool hasMalformedStatus() const { return status_ == 0 && !atStatusLine_; }

    void touch() { lastActivity_ = clock::monotonicNow(); }
    bool append(std::string_view part);
    void reserveExpectedSize();
    bool addHeaderLine(std::string_view line);

    // The library's callbacks; `self` is the transfer.
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
    bool isConnecting_ = true;  ///< there is no connection yet that the request could be sent on
    std::optional<clock::TimePoint> firstSocketAt_;  ///< of this try to connect
    bool mayBeMoreAddresses_ = true;
    int timesSent_ = 0;
    bool isCutOff_ = false;
    bool wasKept_ = false;  ///< the connection that was used last had served before
    OpenSockets* openSockets_ = nullptr;
    HeaderList headers_;
    std::array<char, CURL_ERROR_SIZE> errorBuffer_{};
    std::string body_;
    curl_off_t bytesSeen_ = 0;
    std::size_t headerBytes_ = 0;
    bool atStatusLine_ = true;  ///< what comes next is the first line of a header
    long status_ = 0;
    bool headerComplete_ = false;
    bool tooLarge_ = false;
    EasyHandle easy_;  ///< last, so that it goes before what it points to
};

}  // namespace orvane
