// What the daemon uses of macOS's <notify.h>, in our own words, for the cross-check and the tests
// with fakes: no package carries that header. Never on the include path of a build that has an SDK.
#pragma once

#include <cstdint>

constexpr std::uint32_t NOTIFY_STATUS_OK = 0;

extern "C" {
std::uint32_t notify_register_file_descriptor(const char* name, int* descriptor, int flags,
                                              int* token);
std::uint32_t notify_cancel(int token);
}
