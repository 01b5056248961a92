// The HTTP library's calls that the session makes, open to a test that lets them fail.
#pragma once

#include <curl/curl.h>

#include <functional>
#include <string_view>

namespace orvane::test {

/// Called on the thread that makes the call, which they may hold; true refuses it.
struct HttpLibraryHooks {
    std::function<bool(CURLoption option)> refuseOption = [](CURLoption) { return false; };
    std::function<bool(std::string_view name)> refuseCall = [](std::string_view) { return false; };
    /// Called before the session waits for something to do.
    std::function<void(CURLM* multi)> wait = [](CURLM*) {};
    /// The version that the library says it has, as curl_version_info(3) has it; 0 for its own.
    unsigned int version = 0;
};

/// Puts hooks in place for its lifetime, one at a time. Outlives the sessions that are to see them.
class WithHttpLibraryHooks {
  public:
    explicit WithHttpLibraryHooks(HttpLibraryHooks hooks);
    WithHttpLibraryHooks(const WithHttpLibraryHooks&) = delete;
    WithHttpLibraryHooks& operator=(const WithHttpLibraryHooks&) = delete;
    ~WithHttpLibraryHooks();
};

}  // namespace orvane::test
