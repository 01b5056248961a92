#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace orvane::emulator {

struct Answer {
    CURLcode result = CURLE_OK;
    long status = 0;
    long version = 0;  ///< a CURL_HTTP_VERSION_...
    std::string body;
    std::string headers;
};

inline std::size_t collect(char* bytes, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(bytes, size * count);
    return size * count;
}

/// One HTTP request with libcurl, set up in steps and sent at the end.
class Call {
  public:
    explicit Call(const std::string& url) {
        curl_easy_setopt(curl_.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl_.get(), CURLOPT_NOPROXY, "*");
        curl_easy_setopt(curl_.get(), CURLOPT_NOSIGNAL, 1L);
    }

    Call& header(const std::string& line) {
        headers_.reset(curl_slist_append(headers_.release(), line.c_str()));
        return *this;
    }
    Call& method(const std::string& name) {
        curl_easy_setopt(curl_.get(), CURLOPT_CUSTOMREQUEST, name.c_str());
        return *this;
    }
    Call& body(const std::string& text) {
        curl_easy_setopt(curl_.get(), CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(text.size()));
        curl_easy_setopt(curl_.get(), CURLOPT_COPYPOSTFIELDS, text.c_str());
        return *this;
    }
    Call& trust(const std::filesystem::path& certificate) {
        curl_easy_setopt(curl_.get(), CURLOPT_CAINFO, certificate.c_str());
        return *this;
    }
    Call& offerOnly(long version) {
        curl_easy_setopt(curl_.get(), CURLOPT_HTTP_VERSION, version);
        return *this;
    }
    Call& withoutBody() {
        curl_easy_setopt(curl_.get(), CURLOPT_NOBODY, 1L);
        return *this;
    }
    Call& giveUpAfter(std::chrono::milliseconds time) {
        curl_easy_setopt(curl_.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(time.count()));
        return *this;
    }

    Answer send() {
        Answer answer;
        answer.result = curl_easy_perform(handle(answer));
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &answer.status);
        curl_easy_getinfo(curl_.get(), CURLINFO_HTTP_VERSION, &answer.version);
        return answer;
    }

    /// What libcurl sends the request with, whose answer goes to `answer`.
    CURL* handle(Answer& answer) {
        curl_easy_setopt(curl_.get(), CURLOPT_HTTPHEADER, headers_.get());
        curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, &answer.body);
        curl_easy_setopt(curl_.get(), CURLOPT_HEADERFUNCTION, collect);
        curl_easy_setopt(curl_.get(), CURLOPT_HEADERDATA, &answer.headers);
        return curl_.get();
    }

    /// Sends the request and ends it when `received`, which gets the body as it comes, has `text`.
    void until(std::string text, std::string& received) {
        Expectation expectation{std::move(text), received};
        curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, expect);
        curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, &expectation);
        curl_easy_setopt(curl_.get(), CURLOPT_TIMEOUT, 30L);
        curl_easy_perform(curl_.get());
    }

  private:
    struct Expectation {
        std::string text;
        std::string& received;
    };

    /// A CURLOPT_WRITEFUNCTION.
    static std::size_t expect(char* bytes, std::size_t size, std::size_t count, void* context) {
        auto& expectation = *static_cast<Expectation*>(context);
        expectation.received.append(bytes, size * count);
        const bool isThere = expectation.received.find(expectation.text) != std::string::npos;
        return isThere ? 0 : size * count;
    }

    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_{curl_easy_init(), curl_easy_cleanup};
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers_{nullptr,
                                                                         curl_slist_free_all};
};

}  // namespace orvane::emulator
