// Preloaded into a program: its wall clock, and no other, is off by the seconds in the file that
// WALL_CLOCK_STEP names, as long as there is that file.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

time_t step() {
    long seconds = 0;
    const char* const name = std::getenv("WALL_CLOCK_STEP");
    std::FILE* const file = name != nullptr ? std::fopen(name, "re") : nullptr;
    if (file != nullptr) {
        if (std::fscanf(file, "%ld", &seconds) != 1) {
            std::abort();
        }
        (void)std::fclose(file);
    }
    return seconds;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) {
    static auto* const next =
        reinterpret_cast<int (*)(clockid_t, timespec*)>(::dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = next(clock, now);
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
        now->tv_sec += step();
    }
    return result;
}

int gettimeofday(timeval* now, void* /*zone*/) {
    timespec time{};
    const int result = clock_gettime(CLOCK_REALTIME, &time);
    *now = {time.tv_sec, time.tv_nsec / 1000};
    return result;
}

time_t time(time_t* now) {
    timespec time{};
    (void)clock_gettime(CLOCK_REALTIME, &time);
    if (now != nullptr) {
        *now = time.tv_sec;
    }
    return time.tv_sec;
}

// A wait up to a moment of the wall clock would be changed by a step, which this cannot show.
int pthread_cond_timedwait(pthread_cond_t* /*condition*/, pthread_mutex_t* /*mutex*/,
                           const timespec* /*until*/) {
    std::abort();
}

}  // extern "C"
