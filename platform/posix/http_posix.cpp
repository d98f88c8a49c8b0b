// HTTP POST through libcurl.
#include "platform/http.h"

#include <curl/curl.h>

#include <algorithm>
#include <mutex>

namespace platform {

namespace {

constexpr size_t kMaxBody = 4096;

size_t Collect(char* data, size_t size, size_t count, void* user) {
    std::string* body = static_cast<std::string*>(user);
    const size_t n = size * count;
    if (body->size() < kMaxBody) body->append(data, std::min(n, kMaxBody - body->size()));
    return n;
}

// libcurl asks at least once a second, also while it waits for the server.
int Progress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const std::atomic<bool>* cancel = static_cast<const std::atomic<bool>*>(user);
    return cancel && cancel->load() ? 1 : 0;
}

}  // namespace

HttpReply HttpPost(const std::string& url, const std::string& body, const char* contentType, int timeoutMs,
                   const std::atomic<bool>* cancel) {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    HttpReply reply;
    CURL* curl = curl_easy_init();
    if (!curl) {
        reply.error = "the HTTP client could not be started";
        return reply;
    }
    char errorText[CURL_ERROR_SIZE] = {0};
    curl_slist* headers = curl_slist_append(nullptr, (std::string("Content-Type: ") + contentType).c_str());
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(timeoutMs));
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeoutMs));
    // Only web addresses: a settings file must not make the program read local files.
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "Ardentium");
    if (cancel) {
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, Progress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, const_cast<std::atomic<bool>*>(cancel));
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    }
    CURLcode rc = curl_easy_perform(curl);
    if (rc == CURLE_OK) {
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        reply.answered = true;
        reply.status = static_cast<int>(status);
    } else if (rc == CURLE_ABORTED_BY_CALLBACK) {
        reply.error = "cancelled";
    } else {
        reply.error = errorText[0] ? errorText : curl_easy_strerror(rc);
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return reply;
}

}  // namespace platform
