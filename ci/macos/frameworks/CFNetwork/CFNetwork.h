// Declarations for cross-checking, and for tests on other systems, only: our own words, not an
// Apple header, and no more than the daemon uses. Never on the include path of a build that has an
// SDK.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

using CFProxyAutoConfigurationResultCallback = void (*)(void* client, CFArrayRef proxies,
                                                        CFErrorRef error);

extern const CFStringRef kCFProxyTypeKey;
extern const CFStringRef kCFProxyHostNameKey;
extern const CFStringRef kCFProxyPortNumberKey;
extern const CFStringRef kCFProxyAutoConfigurationURLKey;
extern const CFStringRef kCFProxyTypeNone;
extern const CFStringRef kCFProxyTypeHTTP;
extern const CFStringRef kCFProxyTypeHTTPS;
extern const CFStringRef kCFProxyTypeSOCKS;
extern const CFStringRef kCFProxyTypeAutoConfigurationURL;

CFDictionaryRef CFNetworkCopySystemProxySettings();
CFArrayRef CFNetworkCopyProxiesForURL(CFURLRef url, CFDictionaryRef settings);
CFRunLoopSourceRef CFNetworkExecuteProxyAutoConfigurationURL(
    CFURLRef script, CFURLRef target, CFProxyAutoConfigurationResultCallback done,
    CFStreamClientContext* context);

}  // extern "C"
