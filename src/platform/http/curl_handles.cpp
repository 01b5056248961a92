#include "platform/http/curl_handles.h"

#include <new>

namespace orvane {

namespace {

// By number, for the headers of the oldest libraries we take have no name for it.
constexpr auto quickExitOfAll = static_cast<CURLMoption>(CURLOPTTYPE_LONG + 21);

}  // namespace

void initialiseLibraryOnce() {
    static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)done;
}

MultiHandle makeMulti() {
    MultiHandle multi(curl_multi_init());
    // Without descriptors to wake it up by, older libraries make one that sleeps through `send`.
    if (multi != nullptr && curl_multi_wakeup(multi.get()) != CURLM_OK) {
        multi.reset();
    }
    if (multi != nullptr) {
        // From 8.20 on, its name lookups have threads of their own, and its end waits for a name
        // server that hangs. Older ones do not know the option.
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
