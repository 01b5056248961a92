// Declarations for ci/macos/cross-check only: our own words, not an Apple header.
// Never installed; never on the include path of a build that has an SDK.
#pragma once

#if !defined(__APPLE__) || !defined(__clang__) || !defined(__cplusplus)
#error "cross-check header: C++, clang, Darwin target only"
#endif
#if __has_include_next(<os/log.h>)
#error "an SDK provides <os/log.h>: drop the cross-check include path"
#endif

#include <os/object.h>

#include <cstdint>

extern "C" {
OS_OBJECT_DECL_CLASS(os_log);
OS_ENUM(os_log_type, std::uint8_t, OS_LOG_TYPE_DEFAULT = 0x00, OS_LOG_TYPE_INFO = 0x01,
        OS_LOG_TYPE_DEBUG = 0x02, OS_LOG_TYPE_ERROR = 0x10, OS_LOG_TYPE_FAULT = 0x11);
extern struct mach_header __dso_handle;
os_log_t os_log_create(const char* subsystem, const char* category);
bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void _os_log_impl(void* dso, os_log_t log, os_log_type_t type, const char* format,
                  std::uint8_t* buffer, std::uint32_t size);
}

// The compiler's built-ins check the format against its arguments, as with Apple's header.
#define os_log_with_type(log, type, format, ...)                                                   \
    __extension__({                                                                                \
        os_log_t xc_log = (log);                                                                   \
        os_log_type_t xc_type = (type);                                                            \
        if (os_log_type_enabled(xc_log, xc_type)) {                                                \
            __attribute__((section(                                                                \
                "__TEXT,__oslogstring,cstring_literals"))) static const char xc_format[] = format; \
            alignas(16) std::uint8_t                                                               \
                xc_buffer[__builtin_os_log_format_buffer_size(format __VA_OPT__(, ) __VA_ARGS__)]; \
            _os_log_impl(&__dso_handle, xc_log, xc_type, xc_format,                                \
                         static_cast<std::uint8_t*>(__builtin_os_log_format(                       \
                             xc_buffer, format __VA_OPT__(, ) __VA_ARGS__)),                       \
                         static_cast<std::uint32_t>(sizeof xc_buffer));                            \
        }                                                                                          \
    })
