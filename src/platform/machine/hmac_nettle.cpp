#include "platform/machine/hmac.h"

#include <nettle/hmac.h>

namespace orvane {

Sha256 hmacSha256(std::span<const std::uint8_t> key, std::span<const std::uint8_t> message) {
    hmac_sha256_ctx context{};
    hmac_sha256_set_key(&context, key.size(), key.data());
    hmac_sha256_update(&context, message.size(), message.data());
    Sha256 digest{};
    hmac_sha256_digest(&context, digest.size(), digest.data());
    return digest;
}

}  // namespace orvane
