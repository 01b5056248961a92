// URLs as the control plane's address is written: strict RFC 3986.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace orvane {

/// A name and its value in a query, neither encoded.
struct QueryItem {
    std::string name;
    std::string value;
};

/// A parsed URI reference. A text without scheme or host, even the empty one, is a valid reference;
/// it fails when somebody tries to fetch it. Immutable in the parts it was parsed into; a plain
/// value.
class Url {
  public:
    /// Absent when `text` is not a URI reference by RFC 3986 (a blank, a raw non-ASCII byte, a port
    /// that is not a number, ...).
    static std::optional<Url> parse(std::string_view text);

    /// With the relative `component` appended to the path, just one "/" between the two. Query and
    /// fragment stay behind it.
    [[nodiscard]] Url appendingPath(std::string_view component) const;

    /// With `items` as the whole query, in their order. Names and values keep letters, digits and
    /// - . _ ~ ! $ ' ( ) * , / : ? @; every other byte is written as %XX. Without any item the URL
    /// stays as it is, a query it came with included.
    [[nodiscard]] Url withQuery(std::span<const QueryItem> items) const;

    /// The URL as text, fragment included.
    [[nodiscard]] std::string text() const;

    /// The host as written, an IPv6 address without its brackets; empty when there is none.
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

/// Whether `host` is this very machine in any spelling that the system takes: localhost and names
/// below it, ip6-localhost and ip6-loopback, each with or without a final dot, 127.0.0.0/8, ::1,
/// and the unspecified addresses, which lead here too. IPv4 addresses count as inet_aton(3) reads
/// them and as mapped into IPv6. Other names are not looked up, whatever hosts(5) says of them.
bool isLoopbackHost(std::string_view host);

}  // namespace orvane
