// The options of libcurl for an exchange.
#include "platform/http/proxy.h"
#include "platform/http/tcp_socket.h"
#include "platform/http/transfer.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace orvane {

namespace {

// Numeric, because the oldest libcurl headers we support lack these names.
constexpr auto protocolsByName = static_cast<CURLoption>(CURLOPTTYPE_STRINGPOINT + 318);
constexpr auto quickExit = static_cast<CURLoption>(CURLOPTTYPE_LONG + 322);
constexpr auto keepaliveProbes = static_cast<CURLoption>(CURLOPTTYPE_LONG + 326);

/// How long, in seconds, a connection may have been idle to be used once more. Common servers close
/// theirs after 5 s or more, and a request that crosses that is lost. The pauses within a poll
/// cycle, and between one poll and the next, are shorter.
constexpr long longestIdle = 3;

/// Longer than any exchange. After connecting, libcurl keeps the timer of this limit, and of half
/// of it for a name with several addresses, and would wake up for it during a held poll. The worker
/// enforces the real limit.
constexpr long connectLimitOfLibrary = 3'600'000;

curl_socket_t openSocket(void* sockets, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept {
    return static_cast<OpenSockets*>(sockets)->open(
        address->family, address->socktype, address->protocol, &address->addr, address->addrlen);
}

int closeSocket(void* sockets, curl_socket_t socket) noexcept {
    return static_cast<OpenSockets*>(sockets)->close(socket);
}

}  // namespace

bool Transfer::prepare(EasyHandle&& easy, TrustStore& trustStore, OpenSockets& openSockets) {
    easy_ = std::move(easy);
    openSockets_ = &openSockets;
    firstSocketAt_.reset();
    if (headers_.get() == nullptr) {
        listHeaders();
    }
    return setWhatIsAsked() && setHowItTravels() && setTrust(trustStore) && setCallbacks();
}

void Transfer::listHeaders() {
    for (const HttpHeader& header : request_.headers) {
        // An empty value takes a semicolon; otherwise libcurl removes the header.
        const bool isBlank = header.value.find_first_not_of(' ') == std::string::npos;
        headers_.add(isBlank ? header.name + ";" : header.name + ": " + header.value);
    }
    const bool asksForAccept =
        std::any_of(request_.headers.begin(), request_.headers.end(),
                    [](const HttpHeader& header) { return header.name == "Accept"; });
    if (!asksForAccept) {
        headers_.add("Accept:");  // removes libcurl's own
    }
}

bool Transfer::setWhatIsAsked() {
    const std::string url = request_.url.text();
    return set(CURLOPT_URL, url.c_str()) && set(CURLOPT_HTTPHEADER, headers_.get()) &&
           set(CURLOPT_USERAGENT, "OrvanePolicyDaemon/" ORVANE_VERSION) &&
           // Offer and decode all that the library can; policies compress well.
           set(CURLOPT_ACCEPT_ENCODING, "") &&
           // The library would remove "." and ".." from a path that is valid as it is.
           set(CURLOPT_PATH_AS_IS, 1L) &&
           // A redirect could take the credential headers to another origin.
           set(CURLOPT_FOLLOWLOCATION, 0L) &&
           // Do not turn userinfo in the URL into an Authorization header.
           set(CURLOPT_HTTPAUTH, CURLAUTH_NONE) &&
           // By this the worker finds the transfer of a handle that has finished.
           set(CURLOPT_PRIVATE, static_cast<void*>(this));
}

bool Transfer::setHowItTravels() {
    // Null lets the library read the environment; an empty string would not.
    const std::optional<std::string> proxy = proxyFor(request_.url);
    if (!set(CURLOPT_PROXY, proxy ? proxy->c_str() : nullptr)) {
        return false;
    }
    // A library too old to know these two (before 7.85 and 7.87) is still usable: refusal() has
    // checked the URL's scheme as well, and without the other one a name server that hangs delays
    // the end of an overdue exchange.
    (void)set(protocolsByName, "http,https");
    (void)set(quickExit, 1L);
    // From 8.9 on it sets a number of its own; before, the one that the socket has stays.
    (void)set(keepaliveProbes, long{tcpProbes});
    // The library leaves signal handlers alone, which belong to the whole process.
    return set(CURLOPT_NOSIGNAL, 1L) &&
           // The system probes a silent peer, which costs this process no wake-up. See
           // openTcpSocket for when it gives the peer up.
           set(CURLOPT_TCP_KEEPALIVE, 1L) && set(CURLOPT_TCP_KEEPIDLE, 30L) &&
           set(CURLOPT_TCP_KEEPINTVL, 10L) && set(CURLOPT_MAXAGE_CONN, longestIdle) &&
           // A second attempt must not end up on another connection that is dead, too.
           set(CURLOPT_FRESH_CONNECT, timesSent_ == 0 ? 0L : 1L) &&
           // A proxy's answer to CONNECT is not the server's, and has no part in its status.
           set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) &&
           // Connections are rare, and after an outage the name may have moved.
           set(CURLOPT_DNS_CACHE_TIMEOUT, 0L) &&
           // HTTP/2 as agreed in the TLS handshake; over plain HTTP it would take an upgrade.
           set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS)) &&
           set(CURLOPT_CONNECTTIMEOUT_MS, connectLimitOfLibrary);
}

// libcurl uses its own bundle unless that is removed.
bool Transfer::setTrust(TrustStore& trustStore) {
    const std::string& directory = trustStore.directory();
    const auto setForBoth = [&](CURLoption option, CURLoption forProxies, const char* path) {
        return set(option, path) && set(forProxies, path);
    };
    if (!directory.empty() &&
        !setForBoth(CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH, directory.c_str())) {
        return false;
    }
    if (!trustStore.readsBundle() && !setForBoth(CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO, nullptr)) {
        return false;
    }
    // The first two are the library's defaults. They are set all the same, because everything that
    // keeps the key secret depends on them.
    return set(CURLOPT_SSL_VERIFYPEER, 1L) && set(CURLOPT_SSL_VERIFYHOST, 2L) &&
           set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
}

bool Transfer::setCallbacks() {
    errorBuffer_.front() = '\0';  // the library writes to it only on failure
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

}  // namespace orvane
