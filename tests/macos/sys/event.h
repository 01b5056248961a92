// What the daemon uses of macOS's <sys/event.h>, for tests that run elsewhere.
#pragma once

#include <cstdint>
#include <ctime>

struct kevent {
    std::uintptr_t ident;
    std::int16_t filter;
    std::uint16_t flags;
    std::uint32_t fflags;
    std::intptr_t data;
    void* udata;
};

#define EV_SET(event, a, b, c, d, e, f) *(event) = {a, b, c, d, e, f}
#define EVFILT_TIMER (-7)
#define EV_ADD 0x0001
#define EV_DELETE 0x0002
#define EV_ONESHOT 0x0010
#define NOTE_ABSOLUTE 0x00000008U
#define NOTE_MACH_CONTINUOUS_TIME 0x00000080U
#define NOTE_MACHTIME 0x00000100U

int kqueue();
int kevent(int queue, const struct kevent* changes, int changeCount, struct kevent* events,
           int eventCount, const timespec* timeout);
