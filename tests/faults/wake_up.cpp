// Keeps what is done to the daemon's writes from outside off those that only wake up the HTTP
// worker. Newer versions of the HTTP library write(2) to an eventfd for that, which is no file: no
// disk can make it fail. Here the call goes by another name.
#include "platform/system_calls.h"

#include <curl/curl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

thread_local bool isWakingUp = false;

}  // namespace

extern "C" {

CURLMcode curl_multi_wakeup(CURLM* multi) {
    static auto* const real = orvane::test::realCall<CURLMcode(CURLM*)>("curl_multi_wakeup");
    isWakingUp = true;
    const CURLMcode code = real(multi);
    isWakingUp = false;
    return code;
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
    if (isWakingUp) {
        const iovec part{const_cast<void*>(bytes), size};
        return ::writev(descriptor, &part, 1);
    }
    static auto* const real =
        orvane::test::realCall<ssize_t(int, const void*, std::size_t)>("write");
    return real(descriptor, bytes, size);
}

}  // extern "C"
