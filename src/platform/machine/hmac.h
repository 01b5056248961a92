// Keyed hashes.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace orvane {

using Sha256 = std::array<std::uint8_t, 32>;

/// HMAC-SHA-256 (RFC 2104, FIPS 180-4) of `message` under `key`. Allocates nothing and cannot fail.
Sha256 hmacSha256(std::span<const std::uint8_t> key, std::span<const std::uint8_t> message);

}  // namespace orvane
