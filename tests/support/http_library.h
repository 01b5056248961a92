// Where versions of the HTTP library differ in what a test can see and the daemon cannot help.
#pragma once

#include <curl/curl.h>

#include <cstdio>
#include <utility>

namespace orvane::test::http_library {

inline bool isAtLeast(unsigned int major, unsigned int minor, unsigned int patch) {
    return curl_version_info(CURLVERSION_NOW)->version_num >= (major << 16U | minor << 8U | patch);
}

/// A TLS connection that is cut is not the end of a body without a length: it is lost.
inline bool tellsACutFromAnEnd() {
    return isAtLeast(8, 14, 1);
}

/// What a GOAWAY leaves out is sent again by the library.
inline constexpr unsigned int versionThatRetriesAfterGoAway = 0x080e00;
inline bool retriesAfterGoAway() {
    return curl_version_info(CURLVERSION_NOW)->version_num >= versionThatRetriesAfterGoAway;
}

/// Two lengths that contradict each other are an error in the header. Before that, the last counts.
inline bool refusesTwoLengths() {
    return isAtLeast(8, 17, 0);
}

/// Escapes in a URL's path are sent in upper case ("%7E" for "%7e"), which means the same.
inline bool sendsEscapesInUpperCase() {
    return isAtLeast(8, 20, 0);
}

/// nghttp2 ends a connection with more oddities than it takes per second, such as frames of unknown
/// types, unless the exchange times out first. 1.64 does not, 1.70 does.
inline bool endsOddFloods() {
    return curl_version_info(CURLVERSION_NOW)->nghttp2_ver_num > 0x014000;
}

/// Where OpenSSL finds no memory for a thread's first error, it takes that for another error, and
/// so on until the stack is full (from 3.6 on).
inline bool recursesWithoutMemory() {
    const char* const name = curl_version_info(CURLVERSION_NOW)->ssl_version;
    int major = 0;
    int minor = 0;
    return name != nullptr && std::sscanf(name, "OpenSSL/%d.%d", &major, &minor) == 2 &&
           std::pair(major, minor) >= std::pair(3, 6);
}

}  // namespace orvane::test::http_library
