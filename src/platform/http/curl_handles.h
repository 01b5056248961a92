// libcurl's handles, freed on destruction. For the sources of this folder only.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

namespace orvane {

struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using EasyHandle = std::unique_ptr<CURL, EasyDeleter>;

struct MultiDeleter {
    void operator()(CURLM* multi) const { (void)curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;

/// Initializes libcurl on the first call. Required before any handle is created.
void initializeLibraryOnce();

/// Null if there is no memory or no file descriptor for it.
MultiHandle makeMulti();

/// A curl_slist(3) of request headers.
class HeaderList {
  public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() { curl_slist_free_all(list_); }

    void add(const std::string& line);
    [[nodiscard]] curl_slist* get() const { return list_; }

  private:
    curl_slist* list_ = nullptr;
};

}  // namespace orvane
