#include "platform/clock.h"
#include "platform/http_session.h"
#include "platform/open_sockets.h"
#include "platform/paths.h"
#include "platform/text.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <deque>
#include <filesystem>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace orvane {

namespace {

using std::chrono::milliseconds;

constexpr const char* timedOut = "The request timed out.";
constexpr const char* unsupportedUrl = "unsupported URL";
constexpr long proxyAuthenticationRequired = 407;
constexpr const char* noStatusLine = "the response does not start with a valid HTTP status line";

static_assert(HttpSession::headerValueLimit == 65'536);
constexpr const char* valueTooLong = "a header value is longer than 65536 bytes";

// By number, for the headers of the oldest libraries we take have no name for them.
constexpr auto protocolsByName = static_cast<CURLoption>(CURLOPTTYPE_STRINGPOINT + 318);
constexpr auto quickExit = static_cast<CURLoption>(CURLOPTTYPE_LONG + 322);
constexpr auto quickExitOfAll = static_cast<CURLMoption>(CURLOPTTYPE_LONG + 21);

/// Enough to connect and shake hands over a slow link. Of a name's addresses the library gives the
/// first one half of it.
constexpr std::chrono::seconds connectLimit(30);

/// How long, in seconds, a connection may have been idle to be used once more. Common servers close
/// theirs after 5 s or more, and a request that crosses that is lost; within a turn, and from a
/// poll to the next one, less goes by.
constexpr long longestIdle = 3;

/// While a connection is being made: libcurl 7.88 sets no timer to go on to a name's next address.
constexpr std::chrono::seconds connectingTick(1);

struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using EasyHandle = std::unique_ptr<CURL, EasyDeleter>;

struct MultiDeleter {
    void operator()(CURLM* multi) const { (void)curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;

/// Empty when there is no memory for it, or no descriptors.
MultiHandle makeMulti() {
    MultiHandle multi(curl_multi_init());
    // Without descriptors to wake it up by, older libraries make one that sleeps through `send`.
    if (multi != nullptr && curl_multi_wakeup(multi.get()) != CURLM_OK) {
        multi.reset();
    }
    if (multi != nullptr) {
        // From 8.20 on, its name lookups have threads of their own, and its end waits for a name
        // server that hangs. Older ones do not know the option.
        (void)curl_multi_setopt(multi.get(), quickExitOfAll, 1L);
    }
    return multi;
}

/// A curl_slist(3) of request headers.
class HeaderList {
  public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() { curl_slist_free_all(list_); }

    void add(const std::string& line) {
        curl_slist* longer = curl_slist_append(list_, line.c_str());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        list_ = longer;
    }
    [[nodiscard]] curl_slist* get() const { return list_; }

  private:
    curl_slist* list_ = nullptr;
};

void initialiseLibraryOnce() {
    static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)done;
}

/// Whether `directory` holds certificates under their hashed names ("5ed36f99.0"). Looking them up
/// there spares reading the whole bundle; an empty directory would trust nobody.
bool hasHashedCertificates(const std::filesystem::path& directory) {
    constexpr std::size_t hashLength = 8;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.size() == hashLength + 2 && name[hashLength] == '.' &&
            name.find_first_not_of("0123456789abcdef") == hashLength) {
            return true;
        }
    }
    return false;
}

/// The status in a status line: three digits behind the version, then a space or the line end.
/// 0 for any other line; libraries read "2000" as 200, as 2000 or not at all.
long statusOf(std::string_view line) {
    constexpr std::size_t digits = 3;
    const std::size_t start = line.find(' ') + 1;
    const std::size_t end = std::min(line.find_first_not_of("0123456789", start), line.size());
    const bool isNumber = line.find_first_of(" \r\n", end) == end;
    long status = 0;
    if (isNumber && end - start == digits) {
        (void)std::from_chars(line.data() + start, line.data() + end, status);
    }
    return status;
}

curl_socket_t openSocket(void* sockets, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept {
    return static_cast<OpenSockets*>(sockets)->open(
        address->family, address->socktype, address->protocol, &address->addr, address->addrlen);
}

int closeSocket(void* sockets, curl_socket_t socket) noexcept {
    return static_cast<OpenSockets*>(sockets)->close(socket);
}

/// One exchange, owned by the worker from `send` until its completion has been called.
class Transfer {
  public:
    Transfer(HttpRequest request, HttpCompletion completion, HttpLimits limits)
        : request_(std::move(request)),
          completion_(std::move(completion)),
          inactivityLimit_(request_.inactivityLimit.value_or(limits.inactivity)),
          totalLimit_(limits.total) {
        startLimits();
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() = default;

    /// What forbids sending the request, if anything does.
    [[nodiscard]] const char* refusal() const {
        if (!request_.url.isFetchable()) {
            return unsupportedUrl;
        }
        for (const HttpHeader& header : request_.headers) {
            if (text::hasControlCharacter(header.value)) {
                return "a header value contains a control character";
            }
            if (header.value.size() > HttpSession::headerValueLimit) {
                return valueTooLong;
            }
        }
        return nullptr;
    }

    /// Takes `easy` and prepares it for the request. False when the library refused an option.
    bool prepare(EasyHandle&& easy, const std::string& certificateDirectory, bool readsBundle,
                 OpenSockets& openSockets) {
        easy_ = std::move(easy);
        openSockets_ = &openSockets;
        if (headers_.get() == nullptr) {
            listHeaders();
        }
        return setWhatIsAsked() && setHowItTravels() &&
               setTrust(certificateDirectory, readsBundle) && setCallbacks();
    }

    [[nodiscard]] CURL* easy() const { return easy_.get(); }
    EasyHandle releaseEasy() { return std::move(easy_); }

    /// Whether there is no connection yet that the request could be sent on.
    [[nodiscard]] bool isConnecting() const { return isConnecting_; }

    /// When the exchange is overdue unless something happens first.
    [[nodiscard]] clock::TimePoint deadline() const {
        const milliseconds limit = isConnecting_ ? longestConnecting() : inactivityLimit_;
        return std::min(lastActivity_ + limit, end_);
    }

    [[nodiscard]] bool isOverdue() const { return deadline() <= clock::monotonicNow(); }

    /// How the exchange ended when the library says `code`: to it, a connection that is closed
    /// within the header is no error, and one that takes no frame is an error of the protocol.
    [[nodiscard]] CURLcode outcome(CURLcode code) const {
        if (code == CURLE_HTTP2 &&
            std::string_view(errorBuffer_.data()).starts_with("Send failure")) {
            return CURLE_SEND_ERROR;
        }
        return code == CURLE_OK && !headerComplete_ ? CURLE_GOT_NOTHING : code;
    }

    /// Whether the request is to be sent once more, now that it ended with `code`: no byte of an
    /// answer came, and it is the connection that is to blame, not the server. It had served
    /// before, its peer is dead, or HTTP/2 broke off as it does when the server stops taking
    /// requests. The library sends some of these again by itself, which ones depends on its
    /// version; it is twice in all whoever does it.
    [[nodiscard]] bool isToBeSentAgain(CURLcode code) const {
        if (timesSent_ != 1 || headerBytes_ != 0) {
            return false;
        }
        return code == CURLE_HTTP2 || (isLostConnection(code) && (wasKept_ || isPeerDead()));
    }

    /// All limits count from here.
    void startLimits() {
        isConnecting_ = true;
        lastActivity_ = clock::monotonicNow();
        end_ = lastActivity_ + totalLimit_;
    }

    /// Ends the exchange as the library says it ended; `ownError` puts a failure in other words.
    void complete(CURLcode code, const char* ownError) {
        HttpResult result;
        if (code != CURLE_OK) {
            result.error = ownError != nullptr ? ownError : errorText(code);
        }
        if (headerComplete_) {
            result.response = HttpResponse{status_, std::nullopt};
            if (!result.error) {
                result.response->body = std::move(body_);
            }
        }
        completion_(std::move(result));
    }

  private:
    template <typename Value>
    bool set(CURLoption option, Value value) {
        return curl_easy_setopt(easy_.get(), option, value) == CURLE_OK;
    }

    void listHeaders() {
        for (const HttpHeader& header : request_.headers) {
            // Without a value the library wants a semicolon, or it would take the header out.
            const bool isBlank = header.value.find_first_not_of(' ') == std::string::npos;
            headers_.add(isBlank ? header.name + ";" : header.name + ": " + header.value);
        }
        const bool asksForAccept =
            std::any_of(request_.headers.begin(), request_.headers.end(),
                        [](const HttpHeader& header) { return header.name == "Accept"; });
        if (!asksForAccept) {
            headers_.add("Accept:");  // takes the library's own one out
        }
    }

    bool setWhatIsAsked() {
        const std::string url = request_.url.text();
        return set(CURLOPT_URL, url.c_str()) && set(CURLOPT_HTTPHEADER, headers_.get()) &&
               set(CURLOPT_USERAGENT, "OrvanePolicyDaemon/" ORVANE_VERSION) &&
               set(CURLOPT_ACCEPT_ENCODING, "") && set(CURLOPT_PATH_AS_IS, 1L) &&
               set(CURLOPT_FOLLOWLOCATION, 0L) &&
               // What stands before an "@" in the URL is not made into a header.
               set(CURLOPT_HTTPAUTH, CURLAUTH_NONE) &&
               set(CURLOPT_PRIVATE, static_cast<void*>(this));
    }

    bool setHowItTravels() {
        if (isLoopbackHost(request_.url.host()) && !set(CURLOPT_PROXY, "")) {
            return false;
        }
        // A library too old to know these two (7.85, 7.87) is no reason to send nothing: refusal()
        // has looked at the URL's scheme too, and such a library lets a name server that hangs hold
        // up the end of an overdue exchange.
        (void)set(protocolsByName, "http,https");
        (void)set(quickExit, 1L);
        return set(CURLOPT_NOSIGNAL, 1L) && set(CURLOPT_TCP_KEEPALIVE, 1L) &&
               set(CURLOPT_TCP_KEEPIDLE, 30L) && set(CURLOPT_TCP_KEEPINTVL, 10L) &&
               set(CURLOPT_MAXAGE_CONN, longestIdle) &&
               set(CURLOPT_FRESH_CONNECT, timesSent_ == 0 ? 0L : 1L) &&
               set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) && set(CURLOPT_DNS_CACHE_TIMEOUT, 0L) &&
               set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS)) &&
               set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(longestConnecting().count()));
    }

    /// The library's own bundle counts unless it is taken out.
    bool setTrust(const std::string& certificateDirectory, bool readsBundle) {
        const auto setForBoth = [&](CURLoption option, CURLoption forProxies, const char* path) {
            return set(option, path) && set(forProxies, path);
        };
        if (!certificateDirectory.empty() &&
            !setForBoth(CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH, certificateDirectory.c_str())) {
            return false;
        }
        if (!readsBundle && !setForBoth(CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO, nullptr)) {
            return false;
        }
        return set(CURLOPT_SSL_VERIFYPEER, 1L) && set(CURLOPT_SSL_VERIFYHOST, 2L) &&
               set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    }

    bool setCallbacks() {
        errorBuffer_.front() = '\0';
        return set(CURLOPT_ERRORBUFFER, errorBuffer_.data()) && set(CURLOPT_NOPROGRESS, 0L) &&
               set(CURLOPT_OPENSOCKETFUNCTION, &openSocket) &&
               set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(openSockets_)) &&
               set(CURLOPT_CLOSESOCKETFUNCTION, &closeSocket) &&
               set(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(openSockets_)) &&
               set(CURLOPT_SOCKOPTFUNCTION, &Transfer::noteConnecting) &&
               set(CURLOPT_SOCKOPTDATA, static_cast<void*>(this)) &&
               set(CURLOPT_PREREQFUNCTION, &Transfer::noteSending) &&
               set(CURLOPT_PREREQDATA, static_cast<void*>(this)) &&
               set(CURLOPT_WRITEFUNCTION, &Transfer::takeBody) &&
               set(CURLOPT_WRITEDATA, static_cast<void*>(this)) &&
               set(CURLOPT_HEADERFUNCTION, &Transfer::takeHeader) &&
               set(CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
               set(CURLOPT_XFERINFOFUNCTION, &Transfer::noteProgress) &&
               set(CURLOPT_XFERINFODATA, static_cast<void*>(this));
    }

    [[nodiscard]] milliseconds longestConnecting() const {
        return std::min<milliseconds>(inactivityLimit_, connectLimit);
    }

    static bool isLostConnection(CURLcode code) {
        constexpr std::array lost{CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR,
                                  CURLE_PARTIAL_FILE};
        return std::find(lost.begin(), lost.end(), code) != lost.end();
    }

    /// The last error of a system call on the connection; a successful one leaves it as it is.
    [[nodiscard]] long systemError() const {
        long error = 0;
        (void)curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &error);
        return error;
    }

    /// Whether the system gave the connection up since the request was sent.
    [[nodiscard]] bool isPeerDead() const {
        constexpr std::array dead{ETIMEDOUT, EHOSTUNREACH, ENETUNREACH};
        const long error = systemError();
        return error != systemErrorBefore_ &&
               std::find(dead.begin(), dead.end(), error) != dead.end();
    }

    std::string errorText(CURLcode code) const {
        // To the library that may look like a name that does not exist, or a certificate that
        // nobody has signed.
        if (const std::string shortage = isConnecting_ ? descriptorShortage() : "";
            !shortage.empty()) {
            return "No file descriptor is left. (" + shortage + ")";
        }
        if (tooLarge_) {
            return "the response is larger than " + std::to_string(HttpSession::bodyLimit) +
                   " bytes";
        }
        if (headerBytes_ > HttpSession::headerLimit) {
            return "the header of the response is larger than " +
                   std::to_string(HttpSession::headerLimit) + " bytes";
        }
        // Libraries differ in which lines they refuse themselves, and in what they say then.
        // Nothing else makes them say that they do not support a protocol: refusal() has seen the
        // URL's.
        if (hasMalformedStatus() || code == CURLE_UNSUPPORTED_PROTOCOL ||
            (code == CURLE_WEIRD_SERVER_REPLY && atStatusLine_)) {
            return noStatusLine;
        }
        if (const long status = proxyRefusal()) {
            return (status == proxyAuthenticationRequired
                        ? "The proxy requires a user name and password (HTTP "
                        : "The proxy refused to connect to the server (HTTP ") +
                   std::to_string(status) + ").";
        }
        // Since TLS 1.3 this alert comes after the handshake.
        const std::string_view reason = errorBuffer_.data();
        if (reason.find("alert certificate required") != std::string_view::npos) {
            return "The server requires a client certificate, and none is ever sent (TLS alert "
                   "116).";
        }
        switch (code) {
            case CURLE_OPERATION_TIMEDOUT:
                return timedOut;
            case CURLE_COULDNT_RESOLVE_HOST:
                return "A server with the specified hostname could not be found.";
            case CURLE_COULDNT_CONNECT:
                return "Could not connect to the server.";
            case CURLE_ABORTED_BY_CALLBACK:  // by noteSending
            case CURLE_GOT_NOTHING:
            case CURLE_SEND_ERROR:
            case CURLE_RECV_ERROR:
            case CURLE_PARTIAL_FILE:
                return "The network connection was lost.";
            case CURLE_SSL_CONNECT_ERROR:
                return "An SSL error has occurred and a secure connection to the server cannot be "
                       "made. (" +
                       libraryText(code) + ")";
            case CURLE_PEER_FAILED_VERIFICATION:
                return "The certificate for this server is invalid. You might be connecting to a "
                       "server "
                       "that is pretending to be “" +
                       request_.url.host() +
                       "” which could put your confidential information at risk. (" +
                       libraryText(code) + ")";
            default:
                return libraryText(code);
        }
    }

    /// The status by which a proxy refused a tunnel; 0 when none did.
    [[nodiscard]] long proxyRefusal() const {
        constexpr long firstRefusal = 300;
        long status = 0;
        (void)curl_easy_getinfo(easy_.get(), CURLINFO_HTTP_CONNECTCODE, &status);
        return isConnecting_ && status >= firstRefusal ? status : 0;
    }

    /// What the library says of the failure, in its own words.
    [[nodiscard]] std::string libraryText(CURLcode code) const {
        return errorBuffer_.front() != '\0' ? errorBuffer_.data() : curl_easy_strerror(code);
    }

    void touch() { lastActivity_ = clock::monotonicNow(); }

    bool append(std::string_view part) {
        touch();
        if (part.size() > HttpSession::bodyLimit - body_.size()) {
            tooLarge_ = true;
            return false;
        }
        if (body_.empty()) {
            reserveExpectedSize();
        }
        body_ += part;
        return true;
    }

    void reserveExpectedSize() {
        constexpr curl_off_t most =
            curl_off_t{64} * 1024 * 1024;  // a server's word is not worth more
        curl_off_t expected = 0;
        (void)curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &expected);
        body_.reserve(static_cast<std::size_t>(std::clamp<curl_off_t>(expected, 0, most)));
    }

    static std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* self) {
        try {
            const bool taken = static_cast<Transfer*>(self)->append({data, size * count});
            return taken ? size * count : 0;
        } catch (const std::bad_alloc&) {
            return 0;  // ends the exchange with an error; nothing may be thrown through the library
        }
    }

    static std::size_t takeHeader(const char* data, std::size_t size, std::size_t count,
                                  void* self) {
        const bool taken = static_cast<Transfer*>(self)->addHeaderLine({data, size * count});
        return taken ? size * count : 0;
    }

    /// False when it ends the exchange.
    bool addHeaderLine(std::string_view line) {
        touch();
        headerBytes_ += line.size();
        if (std::exchange(atStatusLine_, false)) {
            status_ = statusOf(line);
        }
        if (line == "\r\n" || line == "\n") {
            // What ends an interim response (1xx) is not the end of the header.
            constexpr long firstFinal = 200;
            atStatusLine_ = status_ < firstFinal;
            headerComplete_ = !atStatusLine_;
        }
        // The library keeps every line, and some versions have no limit for trailers.
        return headerBytes_ <= HttpSession::headerLimit && !hasMalformedStatus();
    }

    [[nodiscard]] bool hasMalformedStatus() const { return status_ == 0 && !atStatusLine_; }

    /// When the library sends the request again by itself, it may open a new connection for that.
    static int noteConnecting(void* self, curl_socket_t /*socket*/,
                              curlsocktype /*purpose*/) noexcept {
        auto& transfer = *static_cast<Transfer*>(self);
        if (!transfer.isConnecting_) {
            transfer.startLimits();
        }
        return CURL_SOCKOPT_OK;
    }

    static int noteSending(void* self, char* /*peer*/, char* /*own*/, int /*peersPort*/,
                           int /*ownPort*/) noexcept {
        auto& transfer = *static_cast<Transfer*>(self);
        constexpr int timesAtMost = 2;
        if (transfer.timesSent_ == timesAtMost) {
            return CURL_PREREQFUNC_ABORT;
        }
        if (!transfer.isConnecting_) {
            transfer.startLimits();  // the library has found another connection to send it again on
        }
        long connectionsMade = 0;
        (void)curl_easy_getinfo(transfer.easy_.get(), CURLINFO_NUM_CONNECTS, &connectionsMade);
        transfer.wasKept_ = connectionsMade == 0;
        transfer.systemErrorBefore_ = transfer.systemError();
        transfer.openSockets_->noteSending();
        ++transfer.timesSent_;
        transfer.isConnecting_ = false;
        transfer.touch();
        return CURL_PREREQFUNC_OK;
    }

    /// Sees bytes that have not come out of decompression yet.
    static int noteProgress(void* self, curl_off_t /*downloadTotal*/, curl_off_t downloaded,
                            curl_off_t /*uploadTotal*/, curl_off_t uploaded) {
        auto& transfer = *static_cast<Transfer*>(self);
        if (std::exchange(transfer.bytesSeen_, downloaded + uploaded) != downloaded + uploaded) {
            transfer.touch();
        }
        return 0;
    }

    HttpRequest request_;
    HttpCompletion completion_;
    milliseconds inactivityLimit_;
    milliseconds totalLimit_;
    clock::TimePoint lastActivity_;
    clock::TimePoint end_;
    bool isConnecting_ = true;
    int timesSent_ = 0;
    bool wasKept_ = false;        ///< the connection that was used last had served before
    long systemErrorBefore_ = 0;  ///< and the last error when the request was handed to it
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

}  // namespace

class HttpSession::Worker {
  public:
    explicit Worker(HttpLimits limits) : limits_(limits) {}
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker() {
        if (thread_.joinable()) {
            {
                const std::lock_guard lock(mutex_);
                stopping_ = true;
                (void)curl_multi_wakeup(multi_.get());
            }
            thread_.join();
        }
    }

    void send(HttpRequest request, HttpCompletion completion) {
        auto transfer =
            std::make_unique<Transfer>(std::move(request), std::move(completion), limits_);
        const std::lock_guard lock(mutex_);
        if (!startThread()) {
            transfer->complete(CURLE_FAILED_INIT, nullptr);
            return;
        }
        incoming_.push_back(std::move(transfer));
        (void)curl_multi_wakeup(multi_.get());
    }

    void endFlood() {
        if (clock::monotonicNow() - busySince_.load() >= HttpSession::grace) {
            openSockets_.shutDown();
        }
    }

    [[nodiscard]] milliseconds completionLimit() const { return limits_.total + grace; }

  private:
    /// Later than any time.
    static constexpr clock::TimePoint notBusy = clock::TimePoint::max();

    bool startThread() {
        if (thread_.joinable()) {
            return true;
        }
        initialiseLibraryOnce();
        multi_ = makeMulti();
        if (multi_ == nullptr && std::exchange(couldNotStart_, true)) {
            // OpenSSL does not try again what it once had no memory to set up. A new process does.
            throw std::bad_alloc();
        }
        try {
            if (multi_ != nullptr) {
                thread_ = std::thread([this] { run(); });
            }
        } catch (const std::system_error&) {
            return false;  // no thread to be had right now
        }
        return thread_.joinable();
    }

    void run() {
        while (takeIncoming()) {
            int running = 0;
            busySince_ = clock::monotonicNow();
            (void)curl_multi_perform(multi_.get(), &running);
            busySince_ = notBusy;
            completeFinished();
            completeOverdue();
            if (dropConnections_ && active_.empty() && replaceMulti()) {
                continue;  // `send` may have woken up the handle that is gone
            }
            (void)curl_multi_poll(multi_.get(), nullptr, 0, waitLimit(), nullptr);
        }
        for (const auto& transfer : active_) {
            (void)curl_multi_remove_handle(multi_.get(), transfer->easy());
            transfer->complete(CURLE_ABORTED_BY_CALLBACK, "cancelled");
        }
    }

    /// False when the session is being destroyed.
    bool takeIncoming() {
        std::deque<std::unique_ptr<Transfer>> arrived;
        {
            const std::lock_guard lock(mutex_);
            if (stopping_) {
                for (auto& transfer : incoming_) {
                    transfer->complete(CURLE_ABORTED_BY_CALLBACK, "cancelled");
                }
                return false;
            }
            arrived.swap(incoming_);
        }
        for (auto& transfer : arrived) {
            begin(std::move(transfer));
        }
        return true;
    }

    /// Closes every connection. False when there is no memory for it now.
    bool replaceMulti() {
        MultiHandle fresh = makeMulti();
        if (fresh == nullptr) {
            return false;
        }
        const std::lock_guard lock(mutex_);  // `send` wakes the handle up from other threads
        multi_ = std::move(fresh);
        certificateDirectory_.reset();
        bundleIsWanted_ = false;
        dropConnections_ = false;
        return true;
    }

    void begin(std::unique_ptr<Transfer> transfer) {
        if (const char* refusal = transfer->refusal()) {
            transfer->complete(CURLE_URL_MALFORMAT, refusal);
            return;
        }
        openSockets_.noteStart(std::exchange(connectingTookTooLong_, false));
        if (!start(*transfer)) {
            transfer->complete(CURLE_FAILED_INIT, nullptr);
            return;
        }
        active_.push_back(std::move(transfer));
    }

    /// Hands `transfer` to the library. False when that does not take it.
    bool start(Transfer& transfer) {
        EasyHandle easy = spareEasy_ ? std::move(spareEasy_) : EasyHandle(curl_easy_init());
        return easy != nullptr &&
               transfer.prepare(std::move(easy), certificateDirectory(), readsBundle(),
                                openSockets_) &&
               curl_multi_add_handle(multi_.get(), transfer.easy()) == CURLM_OK;
    }

    /// Starts `transfer`, which ended with `code`, once more if that is worthwhile.
    bool startAgain(Transfer& transfer, CURLcode code) {
        if (transfer.isOverdue()) {
            return false;
        }
        const bool isLost = transfer.isToBeSentAgain(code);
        const bool isToTryAllAddresses =
            code == CURLE_COULDNT_CONNECT && openSockets_.forgetSilent();
        const bool isToReadBundle =
            code == CURLE_PEER_FAILED_VERIFICATION && !readsBundle() && hasBundle(transfer);
        if (!isLost && !isToTryAllAddresses && !isToReadBundle) {
            return false;
        }
        if (isToReadBundle) {
            bundleIsWanted_ = true;
        }
        if (isLost) {
            transfer.startLimits();
        }
        (void)curl_multi_remove_handle(multi_.get(), transfer.easy());
        return start(transfer);
    }

    /// The directory to look certificates up in; empty for the library's own bundle.
    const std::string& certificateDirectory() {
        if (!certificateDirectory_) {
            const auto directory = paths::certificateDirectory();
            certificateDirectory_ =
                hasHashedCertificates(directory) ? directory.string() : std::string();
        }
        return *certificateDirectory_;
    }

    /// Whether the library's bundle is read, certificate by certificate. Mostly
    /// the directory, in which the one that is needed is looked up, will do.
    bool readsBundle() { return bundleIsWanted_ || certificateDirectory().empty(); }

    /// Whether the library has a bundle that can be read.
    static bool hasBundle(const Transfer& transfer) {
        const char* path = nullptr;
        (void)curl_easy_getinfo(transfer.easy(), CURLINFO_CAINFO, &path);
        return path != nullptr && ::access(path, R_OK) == 0;
    }

    void completeFinished() {
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
            if (message->msg == CURLMSG_DONE) {
                void* owner = nullptr;
                (void)curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &owner);
                auto* const transfer = static_cast<Transfer*>(owner);
                const CURLcode code = transfer->outcome(message->data.result);
                if (!startAgain(*transfer, code)) {
                    // What `endFlood` cut off looks like a connection that was lost.
                    finish(transfer, code, transfer->isOverdue() ? timedOut : nullptr);
                }
            }
        }
    }

    void completeOverdue() {
        std::vector<Transfer*> overdue;
        for (const auto& transfer : active_) {
            if (transfer->isOverdue()) {
                overdue.push_back(transfer.get());
            }
        }
        for (Transfer* transfer : overdue) {
            finish(transfer, CURLE_OPERATION_TIMEDOUT, timedOut);
        }
    }

    void finish(const Transfer* finished, CURLcode code, const char* ownError) {
        const auto place = std::find_if(active_.begin(), active_.end(), [=](const auto& transfer) {
            return transfer.get() == finished;
        });
        const std::unique_ptr<Transfer> transfer = std::move(*place);
        active_.erase(place);
        (void)curl_multi_remove_handle(multi_.get(), transfer->easy());
        transfer->complete(code, ownError);
        if (code == CURLE_OK) {
            spareEasy_ = transfer->releaseEasy();
            curl_easy_reset(spareEasy_.get());
        } else {
            dropConnections_ = true;
            connectingTookTooLong_ = transfer->isConnecting() && code == CURLE_OPERATION_TIMEDOUT;
        }
    }

    [[nodiscard]] int waitLimit() const {
        milliseconds limit(INT_MAX);
        for (const auto& transfer : active_) {
            limit = std::min(limit, clock::blockLimit(transfer->deadline()));
            if (transfer->isConnecting()) {
                limit = std::min<milliseconds>(limit, connectingTick);
            }
        }
        return static_cast<int>(limit.count());
    }

    const HttpLimits limits_;
    std::mutex mutex_;  ///< guards incoming_, stopping_, the start and the replacing of multi_
    std::deque<std::unique_ptr<Transfer>> incoming_;
    bool stopping_ = false;
    bool couldNotStart_ = false;
    OpenSockets openSockets_;  ///< stays longer than the connections of multi_
    MultiHandle multi_;
    std::thread thread_;
    std::atomic<clock::TimePoint> busySince_ = notBusy;  ///< when the library was last called
    // The worker thread's own:
    std::vector<std::unique_ptr<Transfer>> active_;
    EasyHandle spareEasy_;
    std::optional<std::string> certificateDirectory_;
    bool bundleIsWanted_ = false;  ///< the directory alone did not do
    bool dropConnections_ = false;
    bool connectingTookTooLong_ = false;  ///< of the exchange that ended last
};

HttpSession::HttpSession(HttpLimits limits) : worker_(std::make_unique<Worker>(limits)) {}

HttpSession::~HttpSession() = default;

void HttpSession::send(HttpRequest request, HttpCompletion completion) {
    worker_->send(std::move(request), std::move(completion));
}

std::chrono::milliseconds HttpSession::completionLimit() const {
    return worker_->completionLimit();
}

void HttpSession::endFlood() {
    worker_->endFlood();
}

HttpSession& HttpSession::shared() {
    // The default limits of the reference platform are a minute of silence and a week in all. A
    // week of lingering answers nobody waits for would pile up connections; six minutes is all that
    // any exchange of this program gets.
    static constexpr HttpLimits limits{std::chrono::seconds(60), std::chrono::seconds(360)};
    static auto* const session =
        new HttpSession(limits);  // NOLINT(cppcoreguidelines-owning-memory)
    return *session;
}

}  // namespace orvane
