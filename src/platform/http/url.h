// URLs by strict RFC 3986.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace orvane {

/// A name and a value in a query, neither of them encoded.
struct QueryItem {
    std::string name;
    std::string value;
};

/// A parsed URI reference. A string without scheme or host, even the empty one, is a valid
/// reference; fetching it fails. An immutable value type.
class Url {
  public:
    /// nullopt if `text` is not a URI reference by RFC 3986 (it contains a space or a raw non-ASCII
    /// byte, its port is not a number, ...).
    [[nodiscard]] static std::optional<Url> parse(std::string_view text);

    /// With the relative `component` appended to the path, exactly one "/" between them; query and
    /// fragment are kept.
    [[nodiscard]] Url appendingPath(std::string_view component) const;

    /// With `items` as the whole query, in their order. Names and values keep letters, digits and
    /// - . _ ~ ! $ ' ( ) * , / : ? @; every other byte is percent-encoded. Without any item the URL
    /// stays as it is, including a query of its own.
    [[nodiscard]] Url withQuery(std::span<const QueryItem> items) const;

    /// The URL as a string, including the fragment.
    [[nodiscard]] std::string text() const;

    /// The host as written, an IPv6 address without brackets; empty if there is none.
    [[nodiscard]] const std::string& host() const { return host_; }

    /// Whether it has the scheme http or https (in any case) and a host.
    [[nodiscard]] bool isFetchable() const;

  private:
    std::string scheme_;
    std::string host_;
    std::string beforeQuery_;
    std::optional<std::string> query_;
    std::optional<std::string> fragment_;
};

/// Whether `host` is a loopback host in any notation that the system accepts: localhost and names
/// below it, ip6-localhost and ip6-loopback, each with or without a final dot, 127.0.0.0/8, ::1,
/// and the unspecified addresses, which also connect to this machine. IPv4 addresses count in every
/// notation of inet_aton(3) and mapped into IPv6. Other names are not looked up, not even in
/// hosts(5).
bool isLoopbackHost(std::string_view host);

}  // namespace orvane
