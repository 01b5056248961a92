// What the daemon uses of macOS's <mach/mach_time.h>, for tests that run elsewhere.
#pragma once

#include <cstdint>

struct mach_timebase_info_data_t {
    std::uint32_t numer;
    std::uint32_t denom;
};

int mach_timebase_info(mach_timebase_info_data_t* info);
std::uint64_t mach_continuous_time();
