#include "platform/http/curl_handles.h"

#include <new>

namespace orvane {

namespace {

// Numeric, because the oldest libcurl headers we support lack the name.
constexpr auto quickExitOfAll = static_cast<CURLMoption>(CURLOPTTYPE_LONG + 21);

}  // namespace

void initializeLibraryOnce() {
    // branch of a race: another thread initializes it
    static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)done;
}

MultiHandle makeMulti() {
    MultiHandle multi(curl_multi_init());
    // Older versions return a handle even without a descriptor to wake it up by, and its wait would
    // not notice `send`.
    if (multi != nullptr && curl_multi_wakeup(multi.get()) != CURLM_OK) {
        multi.reset();
    }
    if (multi != nullptr) {
        // From 8.20 on, name lookups run on the handle's own threads, and its cleanup would wait
        // for a name server that hangs. Older versions do not know the option.
        (void)curl_multi_setopt(multi.get(), quickExitOfAll, 1L);
    }
    return multi;
}

void HeaderList::add(const std::string& line) {
    curl_slist* longer = curl_slist_append(list_, line.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    list_ = longer;
}

}  // namespace orvane
