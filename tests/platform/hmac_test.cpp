#include "platform/machine/hmac.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstddef>
#include <vector>

namespace orvane::test {
namespace {

/// Bytes that are different for each length and seed.
std::vector<std::uint8_t> bytes(std::size_t count, unsigned seed) {
    std::vector<std::uint8_t> all;
    all.reserve(count + 1);  // the other library takes no null pointer for an empty key
    for (std::size_t i = 0; i < count; ++i) {
        all.push_back(static_cast<std::uint8_t>(seed + i * 7 + count));
    }
    return all;
}

TEST(HmacTest, ItIsTheOneOfAnotherLibraryForEveryLength) {
    for (std::size_t keySize = 0; keySize <= 64; ++keySize) {
        for (const std::size_t size : {0U, 1U, 16U, 54U, 55U, 56U, 63U, 64U, 65U, 119U, 1000U}) {
            const auto key = bytes(keySize, 3);
            const auto message = bytes(size, 150);
            Sha256 expected{};
            ASSERT_NE(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), message.data(),
                           message.size(), expected.data(), nullptr),
                      nullptr);
            EXPECT_EQ(hmacSha256(key, message), expected) << keySize << " " << size;
        }
    }
}

}  // namespace
}  // namespace orvane::test
