#include "support/allocation_limit.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace orvane::test {

namespace {

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> mostAtOnce = unlimited;

}  // namespace

AllocationLimit::AllocationLimit(std::size_t most) {
    mostAtOnce = most;
}

AllocationLimit::~AllocationLimit() {
    mostAtOnce = unlimited;
}

}  // namespace orvane::test

// The program's own, which all other forms of new and delete come down to.
void* operator new(std::size_t size) {
    void* const memory =
        size > orvane::test::mostAtOnce ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
