#include "platform/http/transfer.h"

#include "platform/http/error_text.h"
#include "platform/text/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

namespace orvane {

namespace {

using std::chrono::milliseconds;

static_assert(HttpSession::headerValueLimit == 65'536);
constexpr const char* valueTooLong = "a header value is longer than 65536 bytes";

/// Enough to connect and shake hands over a slow link.
constexpr std::chrono::seconds connectLimit(30);

/// An address that does not answer gets this fraction of it, while there may be others to try.
constexpr int triesWithinConnectLimit = 3;

/// The status in a status line: three digits after the version, then a space or the line end.
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

/// Newer versions of the library retry by themselves what a GOAWAY leaves out. To them CURLE_HTTP2
/// is the end of a connection.
bool leavesGoAwayToUs() {
    constexpr unsigned int withRetry = 0x080e00;
    return curl_version_info(CURLVERSION_NOW)->version_num < withRetry;
}

bool isLostConnection(CURLcode code) {
    constexpr std::array lost{CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR,
                              CURLE_PARTIAL_FILE, CURLE_HTTP2};
    return std::find(lost.begin(), lost.end(), code) != lost.end();
}

}  // namespace

Transfer::Transfer(HttpRequest request, HttpCompletion completion, HttpLimits limits)
    : request_(std::move(request)),
      completion_(std::move(completion)),
      inactivityLimit_(request_.inactivityLimit.value_or(limits.inactivity)),
      totalLimit_(limits.total) {
    startLimits();
}

const char* Transfer::refusal() const {
    if (!request_.url.isFetchable()) {
        return "unsupported URL";
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

clock::TimePoint Transfer::addressDeadline() const {
    return isConnecting_ && mayBeMoreAddresses_ && firstSocketAt_
               ? *firstSocketAt_ + longestConnecting() / triesWithinConnectLimit
               : clock::TimePoint::max();
}

clock::TimePoint Transfer::deadline() const {
    const milliseconds limit = isConnecting_ ? longestConnecting() : inactivityLimit_;
    return std::min(lastActivity_ + limit, end_);
}

CURLcode Transfer::outcome(CURLcode code) const {
    if (code == CURLE_HTTP2 && std::string_view(errorBuffer_.data()).starts_with("Send failure")) {
        return CURLE_SEND_ERROR;
    }
    return code == CURLE_OK && !headerComplete_ ? CURLE_GOT_NOTHING : code;
}

bool Transfer::isToBeSentAgain(CURLcode code) const {
    if (timesSent_ != 1 || headerBytes_ != 0) {
        return false;
    }
    return (code == CURLE_HTTP2 && leavesGoAwayToUs()) ||
           (isLostConnection(code) && (wasKept_ || isCutOff_ || isPeerDead()));
}

void Transfer::startLimits() {
    isConnecting_ = true;
    firstSocketAt_.reset();
    mayBeMoreAddresses_ = true;
    lastActivity_ = clock::monotonicNow();
    end_ = lastActivity_ + totalLimit_;
}

void Transfer::complete(CURLcode code, const char* ownError) {
    if (code == CURLE_OK) {
        completion_(HttpResult(HttpResponse{.status = status_, .body = std::move(body_)}));
        return;
    }
    std::optional<HttpResponse> partial;
    if (headerComplete_) {
        partial = HttpResponse{.status = status_, .body = std::nullopt};
    }
    completion_(HttpResult(ownError != nullptr ? ownError : errorText(code), std::move(partial)));
}

milliseconds Transfer::longestConnecting() const {
    return std::min<milliseconds>(inactivityLimit_, connectLimit);
}

bool Transfer::isPeerDead() const {
    constexpr std::array dead{ETIMEDOUT, EHOSTUNREACH, ENETUNREACH};
    // The text is that of the first failure. CURLINFO_OS_ERRNO is that of the last one: saying
    // goodbye to a dead peer fails as well.
    const std::string_view reason = errorBuffer_.data();
    return std::any_of(dead.begin(), dead.end(), [=](int error) {
        return reason.ends_with(std::generic_category().message(error));
    });
}

long Transfer::proxyRefusal() const {
    constexpr long firstRefusal = 300;
    long status = 0;
    (void)curl_easy_getinfo(easy_.get(), CURLINFO_HTTP_CONNECTCODE, &status);
    return isConnecting_ && status >= firstRefusal ? status : 0;
}

std::string Transfer::errorText(CURLcode code) const {
    const std::string shortage = isConnecting_ ? descriptorShortage() : "";
    HttpFailure failure;
    failure.code = code;
    failure.libraryReason = errorBuffer_.data();
    failure.host = request_.url.host();
    failure.descriptorShortage = shortage;
    failure.proxyRefusal = proxyRefusal();
    failure.isBodyTooLarge = tooLarge_;
    failure.isHeaderTooLarge = headerBytes_ > HttpSession::headerLimit;
    failure.hasMalformedStatus = hasMalformedStatus();
    failure.isAtStatusLine = atStatusLine_;
    return orvane::errorText(failure);
}

bool Transfer::append(std::string_view part) {
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

void Transfer::reserveExpectedSize() {
    constexpr curl_off_t most =
        curl_off_t{64} * 1024 * 1024;  // do not trust a larger Content-Length
    curl_off_t expected = 0;
    (void)curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &expected);
    body_.reserve(static_cast<std::size_t>(std::clamp<curl_off_t>(expected, 0, most)));
}

std::size_t Transfer::takeBody(char* data, std::size_t size, std::size_t count, void* self) {
    try {
        const bool taken = static_cast<Transfer*>(self)->append({data, size * count});
        return taken ? size * count : 0;
    } catch (const std::bad_alloc&) {  // artificial branch: any other exception
        return 0;  // ends the exchange with an error; nothing may be thrown through the library
    }
}

std::size_t Transfer::takeHeader(const char* data, std::size_t size, std::size_t count,
                                 void* self) {
    const bool taken = static_cast<Transfer*>(self)->addHeaderLine({data, size * count});
    return taken ? size * count : 0;
}

/// False when it ends the exchange.
bool Transfer::addHeaderLine(std::string_view line) {
    touch();
    headerBytes_ += line.size();
    if (request_.onHeaderLine) {
        request_.onHeaderLine(line);
    }
    if (std::exchange(atStatusLine_, false)) {
        status_ = statusOf(line);
    }
    if (line == "\r\n" || line == "\n") {
        // What ends an interim response (1xx) is not the end of the header.
        constexpr long firstFinal = 200;
        atStatusLine_ = status_ < firstFinal;
        headerComplete_ = !atStatusLine_;
    }
    // libcurl keeps every line, and some versions have no limit for trailers.
    return headerBytes_ <= HttpSession::headerLimit && !hasMalformedStatus();
}

/// If libcurl retries the request by itself, it may open a new connection for that.
int Transfer::noteConnecting(void* self, curl_socket_t /*socket*/,
                             curlsocktype /*purpose*/) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    if (!transfer.isConnecting_) {
        transfer.startLimits();
    }
    if (!transfer.firstSocketAt_) {
        transfer.firstSocketAt_ = clock::monotonicNow();
    }
    return CURL_SOCKOPT_OK;
}

int Transfer::noteSending(void* self, char* /*peer*/, char* /*own*/, int /*peersPort*/,
                          int /*ownPort*/) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    constexpr int timesAtMost = 2;
    if (transfer.timesSent_ == timesAtMost) {
        return CURL_PREREQFUNC_ABORT;
    }
    if (!transfer.isConnecting_) {
        transfer.startLimits();  // libcurl retries it on another connection
    }
    long connectionsMade = 0;
    (void)curl_easy_getinfo(transfer.easy_.get(), CURLINFO_NUM_CONNECTS, &connectionsMade);
    transfer.wasKept_ = connectionsMade == 0;
    transfer.openSockets_->noteSending();
    ++transfer.timesSent_;
    transfer.isConnecting_ = false;
    return CURL_PREREQFUNC_OK;
}

/// Also sees bytes that decompression has not output yet.
int Transfer::noteProgress(void* self, curl_off_t /*downloadTotal*/, curl_off_t downloaded,
                           curl_off_t /*uploadTotal*/, curl_off_t uploaded) {
    auto& transfer = *static_cast<Transfer*>(self);
    if (std::exchange(transfer.bytesSeen_, downloaded + uploaded) != downloaded + uploaded) {
        transfer.touch();
    }
    return 0;
}

}  // namespace orvane
