// The least that libcurl can be asked to do: the daemon's poll, the same bytes on the wire, as a
// bare loop of curl_easy_perform.
//
//   bench-easy-loop URL TIMES
#include <curl/curl.h>
#include <stdlib.h>

static size_t drop(char* data, size_t size, size_t count, void* to) {
    (void)data;
    (void)to;
    return size * count;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    CURL* const easy = curl_easy_init();
    struct curl_slist* headers = curl_slist_append(NULL, "X-Orv-Key: key-0123456789abcdef");
    headers = curl_slist_append(headers, "Accept: application/json");
    headers = curl_slist_append(headers, "If-None-Match: \"v1\"");
    curl_easy_setopt(easy, CURLOPT_URL, argv[1]);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "OrvanePolicyDaemon/1.0.0");
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, drop);
    for (long times = atol(argv[2]); times > 0; --times) {
        if (curl_easy_perform(easy) != CURLE_OK) {
            return 1;
        }
    }
    return 0;
}
