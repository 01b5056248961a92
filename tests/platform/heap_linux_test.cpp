#include "platform/process/heap.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace orvane::test {
namespace {

/// What the C library reports about its heaps, in XML (malloc_info(3)).
std::string heaps() {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = ::open_memstream(&text, &size);
    (void)::malloc_info(0, stream);
    (void)std::fclose(stream);
    std::string copy(text, size);
    std::free(text);
    return copy;
}

TEST(HeapTest, ThreadsShareOne) {
    keepHeapSmall();
    std::thread([] { std::free(std::malloc(1000)); }).join();
    EXPECT_NE(heaps().find("<heap nr=\"0\">"), std::string::npos) << heaps();
    EXPECT_EQ(heaps().find("<heap nr=\"1\">"), std::string::npos) << heaps();
}

}  // namespace
}  // namespace orvane::test
