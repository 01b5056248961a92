// What the daemon uses of macOS's <os/log.h>, for tests that run elsewhere: it is written down.
#pragma once

#include <cstdint>

struct FakeLog;
using os_log_t = const FakeLog*;

enum os_log_type_t : std::uint8_t {
    OS_LOG_TYPE_DEFAULT = 0x00,
    OS_LOG_TYPE_DEBUG = 0x02,
    OS_LOG_TYPE_ERROR = 0x10
};

os_log_t os_log_create(const char* subsystem, const char* category);
void fakeLogWithType(os_log_t log, os_log_type_t type, const char* format, const char* text);

#define os_log_with_type(log, type, format, text) fakeLogWithType(log, type, format, text)
