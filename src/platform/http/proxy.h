// Which proxy a request goes through.
#pragma once

#include "platform/http/url.h"

#include <optional>
#include <string>

namespace orvane {

/// The proxy for `url`, which has a host, as a URL: empty for none, absent to let libcurl choose by
/// the environment. This machine itself is reached directly; otherwise the environment counts, if
/// it names any proxy, and then the system's settings. May block for some seconds if an automatic
/// configuration has to be fetched. Safe on any thread.
std::optional<std::string> proxyFor(const Url& url);

/// What the system's settings say for scheme, host and port of `origin`, a URL: as above; absent if
/// they say nothing or the system has none.
std::optional<std::string> systemProxyFor(const std::string& origin);

}  // namespace orvane
