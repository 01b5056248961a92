#pragma once

#include <cstdint>
#include <string>

namespace orvane::emulator {

/// A TCP socket that listens on `address`, an IPv4 or IPv6 address, and on `port`, 0 for any free
/// one. The caller closes it. Throws BadInput when that is not possible, for example because the
/// port is taken.
int listenOn(const std::string& address, std::uint16_t port);

/// The port that `socket` listens on.
std::uint16_t portOf(int socket);

/// `address` and `port` as in a URL.
std::string authorityOf(const std::string& address, std::uint16_t port);

}  // namespace orvane::emulator
