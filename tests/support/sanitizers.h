// Which sanitizers the tests are built with, for tests that make no sense under them.
#pragma once

#include <gtest/gtest.h>

#include <string_view>

namespace orvane::test {

inline constexpr std::string_view sanitizers = ORVANE_SANITIZERS;  ///< as -fsanitize takes them
inline constexpr bool isSanitized = !sanitizers.empty();
inline constexpr bool isThreadSanitized = sanitizers.find("thread") != std::string_view::npos;

}  // namespace orvane::test

/// In a test or a fixture's SetUp: skips the test for `reason` if it is built with any sanitizer.
#define ORVANE_SKIP_UNDER_SANITIZERS(reason)     \
    if constexpr (::orvane::test::isSanitized) { \
        GTEST_SKIP() << (reason);                \
    }                                            \
    static_assert(true)
/// The same for ThreadSanitizer alone.
#define ORVANE_SKIP_UNDER_THREAD_SANITIZER(reason)     \
    if constexpr (::orvane::test::isThreadSanitized) { \
        GTEST_SKIP() << (reason);                      \
    }                                                  \
    static_assert(true)
