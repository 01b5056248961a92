#include "platform/http_library_calls.h"

#include "platform/system_calls.h"

#include <cstdarg>
#include <utility>

namespace orvane::test {

namespace {

HttpLibraryHooks* libraryHooks = nullptr;

bool isRefused(const char* name) {
    return libraryHooks != nullptr && libraryHooks->refuseCall(name);
}

}  // namespace

WithHttpLibraryHooks::WithHttpLibraryHooks(HttpLibraryHooks wanted) {
    libraryHooks = new HttpLibraryHooks(std::move(wanted));
}

WithHttpLibraryHooks::~WithHttpLibraryHooks() {
    delete std::exchange(libraryHooks, nullptr);
}

}  // namespace orvane::test

// These take the place of the library's in this program alone.
extern "C" {

using orvane::test::isRefused;
using orvane::test::libraryHooks;
using orvane::test::realCall;

CURL* curl_easy_init() {
    return isRefused("curl_easy_init") ? nullptr
                                       : realCall<decltype(curl_easy_init)>("curl_easy_init")();
}

CURLcode curl_easy_setopt(CURL* easy, CURLoption option, ...) {
    va_list rest;
    // The library has declared it so, and does the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
    va_start(rest, option);
#pragma GCC diagnostic pop
    void* const value = va_arg(rest, void*);
    va_end(rest);
    if (libraryHooks != nullptr && libraryHooks->refuseOption(option)) {
        return CURLE_UNKNOWN_OPTION;
    }
    return realCall<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt")(easy, option, value);
}

curl_version_info_data* curl_version_info(CURLversion wanted) {
    auto* const real = realCall<decltype(curl_version_info)>("curl_version_info")(wanted);
    if (libraryHooks == nullptr || libraryHooks->version == 0) {
        return real;
    }
    static curl_version_info_data pretended;
    pretended = *real;
    pretended.version_num = libraryHooks->version;
    return &pretended;
}

CURLM* curl_multi_init() {
    return isRefused("curl_multi_init") ? nullptr
                                        : realCall<decltype(curl_multi_init)>("curl_multi_init")();
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    return isRefused("curl_multi_add_handle")
               ? CURLM_OUT_OF_MEMORY
               : realCall<decltype(curl_multi_add_handle)>("curl_multi_add_handle")(multi, easy);
}

CURLMcode curl_multi_perform(CURLM* multi, int* running) {
    return isRefused("curl_multi_perform")
               ? CURLM_OUT_OF_MEMORY
               : realCall<decltype(curl_multi_perform)>("curl_multi_perform")(multi, running);
}

CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd* others, unsigned count, int limit,
                          int* ready) {
    if (libraryHooks != nullptr) {
        libraryHooks->wait(multi);
    }
    return realCall<decltype(curl_multi_poll)>("curl_multi_poll")(multi, others, count, limit,
                                                                  ready);
}

curl_slist* curl_slist_append(curl_slist* list, const char* line) {
    return isRefused("curl_slist_append")
               ? nullptr
               : realCall<decltype(curl_slist_append)>("curl_slist_append")(list, line);
}

}  // extern "C"
