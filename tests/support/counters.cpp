// Linked into programs of a build that counts coverage (ORVANE_COVERAGE). libgcov writes the
// counters when a program ends by exit(3). The daemon never does, nor do children of a test, so
// they are written here wherever else a program of ours ends; it ends just the same.
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

// libgcov's.
extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

namespace {

const uid_t userAtStart = ::geteuid();

void dump() {
    // A child that has given up its privileges cannot write them.
    if (::geteuid() == userAtStart) {
        // What libgcov has to say, of counters of an earlier build for example, is not for the log.
        (void)::setenv("GCOV_ERROR_FILE", "/dev/null", 1);
        __gcov_dump();
    }
}

void dumpAndEnd(int signal) {
    // The program may have been stopped where writing is not safe; then SIGALRM ends it.
    constexpr unsigned seconds = 20;
    (void)::alarm(seconds);
    dump();
    (void)std::signal(signal, SIG_DFL);
    (void)std::raise(signal);
}

[[gnu::constructor]] void install() {
    (void)std::signal(SIGTERM, dumpAndEnd);
    (void)std::signal(SIGABRT, dumpAndEnd);
    (void)std::atexit(dump);
    // A child counts what it does itself.
    (void)::pthread_atfork(nullptr, nullptr, __gcov_reset);
}

}  // namespace

// In front of the C library's.
extern "C" void _exit(int status) {
    dump();
    for (;;) {
        (void)::syscall(SYS_exit_group, status);
    }
}

extern "C" void _Exit(int status) {
    ::_exit(status);
}
