#include "platform/http/proxy.h"

#include <CFNetwork/CFNetwork.h>
#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace orvane {

namespace {

/// How long an automatic configuration may take, from fetching it to its answer.
constexpr CFTimeInterval configurationLimit = 10;

struct Releaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// An object that is released at the end.
template <typename Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Releaser>;

Owned<CFURLRef> urlOf(const std::string& text) {
    return Owned<CFURLRef>(
        CFURLCreateWithBytes(nullptr, reinterpret_cast<const std::uint8_t*>(text.data()),
                             static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, nullptr));
}

template <typename Reference>
Reference valueOf(CFDictionaryRef dictionary, CFStringRef key) {
    return static_cast<Reference>(CFDictionaryGetValue(dictionary, key));
}

std::string textOf(CFStringRef string) {
    constexpr std::size_t longestName = 1025;
    std::array<char, longestName> text{};
    const bool fits = string != nullptr &&
                      CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()),
                                         kCFStringEncodingUTF8) != 0;
    return fits ? text.data() : "";
}

/// `scheme`, host and port of a proxy; absent when it has no host.
std::optional<std::string> addressOf(const char* scheme, CFDictionaryRef proxy) {
    std::string host = textOf(valueOf<CFStringRef>(proxy, kCFProxyHostNameKey));
    if (host.empty()) {
        return std::nullopt;
    }
    if (host.find(':') != std::string::npos && host.front() != '[') {
        host = "[" + host + "]";
    }
    int port = 0;
    const auto* const number = valueOf<CFNumberRef>(proxy, kCFProxyPortNumberKey);
    if (number == nullptr || CFNumberGetValue(number, kCFNumberIntType, &port) == 0) {
        return scheme + host;
    }
    return scheme + host + ":" + std::to_string(port);
}

std::optional<std::string> firstOf(CFArrayRef proxies, CFURLRef target, bool isConfigured);

/// What an automatic configuration has answered.
struct Answer {
    CFRunLoopRef loop;
    Owned<CFArrayRef> proxies;
};

void takeAnswer(void* answer, CFArrayRef proxies, CFErrorRef /*error*/) {
    auto& taken = *static_cast<Answer*>(answer);
    if (proxies != nullptr) {
        taken.proxies.reset(static_cast<CFArrayRef>(CFRetain(proxies)));
    }
    CFRunLoopStop(taken.loop);
}

/// Has the script at `script` say how `target` is reached.
std::optional<std::string> askScript(CFURLRef script, CFURLRef target) {
    Answer answer{CFRunLoopGetCurrent(), nullptr};
    CFStreamClientContext context{0, &answer, nullptr, nullptr, nullptr};
    const Owned<CFRunLoopSourceRef> source(
        CFNetworkExecuteProxyAutoConfigurationURL(script, target, &takeAnswer, &context));
    const Owned<CFStringRef> mode(
        CFStringCreateWithCString(nullptr, "dev.orvane.proxy", kCFStringEncodingUTF8));
    if (source == nullptr || mode == nullptr) {
        return std::nullopt;
    }
    // A mode of its own: nothing else runs meanwhile.
    CFRunLoopAddSource(answer.loop, source.get(), mode.get());
    (void)CFRunLoopRunInMode(mode.get(), configurationLimit, 0);
    CFRunLoopRemoveSource(answer.loop, source.get(), mode.get());
    return answer.proxies != nullptr ? firstOf(answer.proxies.get(), target, true) : std::nullopt;
}

/// The first of `proxies` that there is a way to use. A script that another script names is not
/// asked.
std::optional<std::string> firstOf(CFArrayRef proxies, CFURLRef target, bool isConfigured) {
    for (CFIndex i = 0; i < CFArrayGetCount(proxies); ++i) {
        const auto* const proxy = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(proxies, i));
        const auto* const type = valueOf<CFStringRef>(proxy, kCFProxyTypeKey);
        const auto is = [&](CFStringRef other) {
            return type != nullptr && CFEqual(type, other) != 0;
        };
        std::optional<std::string> found;
        if (is(kCFProxyTypeNone)) {
            found = "";
        } else if (is(kCFProxyTypeHTTP) || is(kCFProxyTypeHTTPS)) {
            found = addressOf("http://", proxy);  // the type is that of the target
        } else if (is(kCFProxyTypeSOCKS)) {
            found = addressOf("socks5h://", proxy);
        } else if (is(kCFProxyTypeAutoConfigurationURL) && !isConfigured) {
            if (const auto* const script =
                    valueOf<CFURLRef>(proxy, kCFProxyAutoConfigurationURLKey)) {
                found = askScript(script, target);
            }
        }
        if (found) {
            return found;
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> systemProxyFor(const std::string& origin) {
    const Owned<CFDictionaryRef> settings(CFNetworkCopySystemProxySettings());
    const Owned<CFURLRef> target = urlOf(origin);
    if (settings == nullptr || target == nullptr) {
        return std::nullopt;
    }
    const Owned<CFArrayRef> proxies(CFNetworkCopyProxiesForURL(target.get(), settings.get()));
    return proxies != nullptr ? firstOf(proxies.get(), target.get(), false) : std::nullopt;
}

}  // namespace orvane
