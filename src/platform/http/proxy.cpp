#include "platform/http/proxy.h"

#include "platform/process/environment.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace orvane {

namespace {

/// Whether the environment names a proxy for any scheme; no_proxy is only its exceptions.
bool environmentNamesProxy() {
    constexpr std::array names{"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                               "ALL_PROXY"};
    return std::any_of(names.begin(), names.end(),
                       [](const char* name) { return !environmentValue(name).empty(); });
}

/// Scheme, host and port alone: a script that picks proxies may come from anywhere on the network,
/// and the rest of the URL is none of its business.
std::string originOf(const std::string& url) {
    const std::size_t start = url.find("//") + 2;
    const std::size_t end = std::min(url.find_first_of("/?#", start), url.size());
    const std::string authority = url.substr(start, end - start);
    return url.substr(0, start) + authority.substr(authority.rfind('@') + 1) + "/";
}

}  // namespace

std::optional<std::string> proxyFor(const Url& url) {
    if (isLoopbackHost(url.host())) {
        return "";
    }
    return environmentNamesProxy() ? std::nullopt : systemProxyFor(originOf(url.text()));
}

}  // namespace orvane
