// Linked into programs that tests trace, and whose descriptors they count: lets an account do that
// with its own processes, as with any other program. The daemon as it ships is closed to it.
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

extern "C" int prctl(int option, ...) noexcept {
    va_list rest;
    va_start(rest, option);
    const auto second = va_arg(rest, unsigned long);
    const auto third = va_arg(rest, unsigned long);
    const auto fourth = va_arg(rest, unsigned long);
    const auto fifth = va_arg(rest, unsigned long);
    va_end(rest);
    return option == PR_SET_DUMPABLE
               ? 0
               : static_cast<int>(::syscall(SYS_prctl, option, second, third, fourth, fifth));
}
