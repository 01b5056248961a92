// The daemon in a process where an allocation fails: the STARVE_AT'th from the start of `main`, or
// all from there on when STARVE_ON is set. It is the C library's malloc that fails, so that the C++
// runtime and every library of the process meet the fault alike.
//
// It ends with the second back-off, neither of which takes any time, so that a poll cycle with a
// fault is followed by one that makes up for it; or with the first when everything fails from then
// on.
#include "memory/starved_daemon.h"

#include "daemon/process_entry.h"
#include "platform/machine/clock.h"
#include "platform/machine/continuous_time.h"

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
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

const char* stackTop = nullptr;
std::size_t stackSize = 0;

/// Tells a full stack from any other bad address.
void noteBadAddress(int signal, siginfo_t* info, void* /*context*/) {
    constexpr std::size_t vicinity = std::size_t{256} * 1024;
    const auto depth = static_cast<std::size_t>(stackTop - static_cast<char*>(info->si_addr));
    if (depth > stackSize - vicinity && depth < stackSize + vicinity) {
        std::_Exit(orvane::test::stackFull);
    }
    (void)std::signal(signal, SIG_DFL);  // it comes again with the instruction
}

/// The main thread's, from the caller's frame on.
void watchStack() {
    static std::array<char, 65536> reserve{};
    rlimit limit{};
    (void)::getrlimit(RLIMIT_STACK, &limit);
    stackTop = static_cast<const char*>(__builtin_frame_address(0));
    stackSize = limit.rlim_cur;
    const stack_t stack{reserve.data(), 0, reserve.size()};
    (void)::sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_sigaction = &noteBadAddress;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    (void)::sigaction(SIGSEGV, &action, nullptr);
}

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
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif
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

}  // extern "C"

// The machine's clock, whose second sleep is the end.
namespace orvane::clock {

TimePoint monotonicNow() {
    return TimePoint(continuousTime());
}

std::chrono::nanoseconds sinceEpoch() {
    return std::chrono::system_clock::now().time_since_epoch();
}

void sleep(double /*seconds*/) {
    static bool isFirst = true;
    if (!std::exchange(isFirst, false) || (struck && goesOn)) {
        std::_Exit(struck ? orvane::test::wentOn : orvane::test::untouched);
    }
}

std::chrono::milliseconds blockLimit(TimePoint deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - monotonicNow());
    return std::max(left, std::chrono::milliseconds::zero());
}

}  // namespace orvane::clock

int main() {
    watchStack();
    goesOn = std::getenv("STARVE_ON") != nullptr;
    if (const char* const number = std::getenv("STARVE_AT")) {
        left = std::atol(number) - 1;
        counting = true;
    }
    orvane::runProcess();
}
