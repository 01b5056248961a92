#include "platform/http/error_text.h"

#include "platform/http/http_session.h"

namespace orvane {

namespace {

constexpr long proxyAuthenticationRequired = 407;

/// libcurl's own description.
std::string libraryText(const HttpFailure& failure) {
    return failure.libraryReason.empty() ? curl_easy_strerror(failure.code)
                                         : std::string(failure.libraryReason);
}

std::string proxyText(long status) {
    return (status == proxyAuthenticationRequired
                ? "The proxy requires a user name and password (HTTP "
                : "The proxy refused to connect to the server (HTTP ") +
           std::to_string(status) + ").";
}

/// For failures with a code of their own.
std::string textOfCode(const HttpFailure& failure) {
    switch (failure.code) {
        case CURLE_OPERATION_TIMEDOUT:
            return timedOut;
        case CURLE_COULDNT_RESOLVE_HOST:
            return "A server with the specified hostname could not be found.";
        case CURLE_COULDNT_CONNECT:
            return "Could not connect to the server.";
        case CURLE_ABORTED_BY_CALLBACK:  // by us, before it was sent a third time
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_PARTIAL_FILE:
            return "The network connection was lost.";
        case CURLE_SSL_CONNECT_ERROR:
            return "An SSL error has occurred and a secure connection to the server cannot be "
                   "made. (" +
                   libraryText(failure) + ")";
        case CURLE_PEER_FAILED_VERIFICATION:
            return "The certificate for this server is invalid. You might be connecting to a "
                   "server that is pretending to be “" +
                   std::string(failure.host) +
                   "” which could put your confidential information at risk. (" +
                   libraryText(failure) + ")";
        default:
            return libraryText(failure);
    }
}

}  // namespace

std::string errorText(const HttpFailure& failure) {
    // libcurl may report that as a name that does not exist, or as a certificate that no authority
    // has signed.
    if (!failure.descriptorShortage.empty()) {
        return "No file descriptor is left. (" + std::string(failure.descriptorShortage) + ")";
    }
    if (failure.isBodyTooLarge) {
        return "the response is larger than " + std::to_string(HttpSession::bodyLimit) + " bytes";
    }
    if (failure.isHeaderTooLarge) {
        return "the header of the response is larger than " +
               std::to_string(HttpSession::headerLimit) + " bytes";
    }
    // Versions of libcurl differ in which status lines they refuse themselves, and in the code they
    // do it with. Nothing else yields CURLE_UNSUPPORTED_PROTOCOL here: the URL's scheme has been
    // checked.
    if (failure.hasMalformedStatus || failure.code == CURLE_UNSUPPORTED_PROTOCOL ||
        (failure.code == CURLE_WEIRD_SERVER_REPLY && failure.isAtStatusLine)) {
        return "the response does not start with a valid HTTP status line";
    }
    if (failure.proxyRefusal != 0) {
        return proxyText(failure.proxyRefusal);
    }
    // Since TLS 1.3 this alert comes after the handshake.
    if (failure.libraryReason.find("alert certificate required") != std::string_view::npos) {
        return "The server requires a client certificate, and none is ever sent (TLS alert 116).";
    }
    return textOfCode(failure);
}

}  // namespace orvane
