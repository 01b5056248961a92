// The daemon in a process where an allocation fails: the STARVE_AT'th from the start of `main`, or
// all from there on when STARVE_ON is set. It is the C library's malloc that fails, so that the C++
// runtime and every library of the process meet the fault alike.
//
// It ends with the second back-off, neither of which takes any time, so that a turn with a fault is
// followed by one that makes up for it; or with the first when everything fails from then on.
#include "memory/starved_daemon.h"

#include "daemon/process_entry.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace {

/// Allocations still to succeed; none is counted before `main`.
std::atomic<long> left = -1;
std::atomic<bool> counting = false;
std::atomic<bool> struck = false;
bool goesOn = false;

bool fails() {
    if (!counting) {
        return false;
    }
    const long before = left.fetch_sub(1);
    if (before == 0 || (before < 0 && goesOn)) {
        struck = true;
        errno = ENOMEM;
        return true;
    }
    return false;
}

}  // namespace

extern "C" {

// The C library's own, under the names that it keeps for such cases.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = fails() ? nullptr : __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

int nanosleep(const timespec* /*wanted*/, timespec* /*left*/) {
    static bool isFirst = true;
    if (!std::exchange(isFirst, false) || (struck && goesOn)) {
        std::_Exit(struck ? orvane::test::wentOn : orvane::test::untouched);
    }
    return 0;
}

}  // extern "C"

int main() {
    goesOn = std::getenv("STARVE_ON") != nullptr;
    if (const char* const number = std::getenv("STARVE_AT")) {
        left = std::atol(number) - 1;
        counting = true;
    }
    orvane::runProcess();
}
