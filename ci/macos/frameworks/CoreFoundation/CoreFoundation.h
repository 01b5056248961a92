// Declarations for cross-checking, and for tests on other systems, only: our own words, not an
// Apple header, and no more than the daemon uses. Never on the include path of a build that has an
// SDK.
#pragma once

#include <cstdint>

extern "C" {

using Boolean = unsigned char;
using CFIndex = long;
using CFTypeRef = const void*;
using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFArrayRef = const struct __CFArray*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFNumberRef = const struct __CFNumber*;
using CFURLRef = const struct __CFURL*;
using CFErrorRef = struct __CFError*;
using CFRunLoopRef = struct __CFRunLoop*;
using CFRunLoopSourceRef = struct __CFRunLoopSource*;
using CFStringEncoding = std::uint32_t;
using CFTimeInterval = double;
using CFRunLoopMode = CFStringRef;
using CFNumberType = CFIndex;
using CFRunLoopRunResult = std::int32_t;

constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
constexpr CFNumberType kCFNumberIntType = 9;

struct CFStreamClientContext {
    CFIndex version;
    void* info;
    void* (*retain)(void* info);
    void (*release)(void* info);
    CFStringRef (*copyDescription)(void* info);
};

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
Boolean CFEqual(CFTypeRef one, CFTypeRef other);

CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                      CFStringEncoding encoding);
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                           CFStringEncoding encoding);
CFURLRef CFURLCreateWithBytes(CFAllocatorRef allocator, const std::uint8_t* bytes, CFIndex length,
                              CFStringEncoding encoding, CFURLRef base);

CFRunLoopRef CFRunLoopGetCurrent();
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopStop(CFRunLoopRef loop);
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);

}  // extern "C"
