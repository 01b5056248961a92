// By which proxy a request goes.
#pragma once

#include "platform/http/url.h"

#include <optional>
#include <string>

namespace orvane {

/// The proxy for `url`, which has a host, as a URL itself: empty for none, absent for what the HTTP
/// library makes of the environment. This machine itself is reached directly; then the environment
/// counts, if it names a proxy at all, then the system's settings. May block for some seconds,
/// where an automatic configuration has to be fetched. Safe on any thread.
std::optional<std::string> proxyFor(const Url& url);

/// What the system's settings say for scheme, host and port of `origin`, a URL: as above, absent
/// when they say nothing or the system has none.
std::optional<std::string> systemProxyFor(const std::string& origin);

}  // namespace orvane
