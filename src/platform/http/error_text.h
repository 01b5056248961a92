// Why an exchange failed, in English.
#pragma once

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace orvane {

constexpr const char* timedOut = "The request timed out.";

/// What is known of an exchange that failed.
struct HttpFailure {
    CURLcode code = CURLE_OK;        ///< libcurl's
    std::string_view libraryReason;  ///< libcurl's own message; may be empty
    std::string_view host;
    std::string_view descriptorShortage;  ///< empty while there are enough
    long proxyRefusal = 0;                ///< the status by which a proxy refused a tunnel, or 0
    bool isBodyTooLarge = false;
    bool isHeaderTooLarge = false;
    bool hasMalformedStatus = false;
    bool isAtStatusLine = false;  ///< no line of a response has arrived yet
};

std::string errorText(const HttpFailure& failure);

}  // namespace orvane
