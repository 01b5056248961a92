// Annotations for clang's thread-safety analysis (-Wthread-safety), which checks at compile time
// that what a mutex guards is used only while it is held. Other compilers ignore them.
#pragma once

#if defined(__clang__)
#define ORVANE_GUARDED_BY(mutex) __attribute__((guarded_by(mutex)))
#define ORVANE_REQUIRES(mutex) __attribute__((requires_capability(mutex)))
#else
#define ORVANE_GUARDED_BY(mutex)
#define ORVANE_REQUIRES(mutex)
#endif
