// answers.h - the network of a fuzz target, for its one source to include. It stands in libcurl's place: each
// request is answered out of the input, in the order of the requests, and the product's own client reads it.
#pragma once

#include <curl/curl.h>

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC diagnostic ignored "-Wvarargs"  // libcurl names its options by an enumeration

namespace brickfall {

struct Answer {
    long status = 0;  // 0: none comes
    std::string body = {};
};
inline std::vector<Answer> answers;
inline std::size_t requests_made = 0;
inline curl_write_callback write_body = nullptr;  // of the request that is made, as are the next two
inline void* body_sink = nullptr;
inline long body_status = 0;

// The input cut at each byte 0x1E. The first byte of a piece says the status: of 2, 4, 5 and 9 that of 200,
// 400, 500 and 429, of any other none.
inline void AnswerWith(std::string_view input) {
    answers.clear();
    requests_made = 0;
    while (!input.empty()) {
        const std::string_view piece = input.substr(0, input.find('\x1E'));
        input.remove_prefix(piece.size() < input.size() ? piece.size() + 1 : input.size());
        const char c = piece.empty() ? '0' : piece.front();
        const long status = c == '2' || c == '4' || c == '5' ? 100 * (c - '0') : c == '9' ? 429 : 0;
        answers.push_back({status, std::string(piece.substr(piece.empty() ? 0 : 1))});
    }
}

inline Answer AnswerAt(std::size_t at) { return at < answers.size() ? answers[at] : Answer{}; }

}  // namespace brickfall

extern "C" {
CURL* curl_easy_init() { return &brickfall::answers; }
void curl_easy_cleanup(CURL*) {}
CURLcode curl_easy_setopt(CURL*, CURLoption option, ...) {
    va_list value;
    va_start(value, option);
    if (option == CURLOPT_WRITEFUNCTION) brickfall::write_body = va_arg(value, curl_write_callback);
    if (option == CURLOPT_WRITEDATA) brickfall::body_sink = va_arg(value, void*);
    va_end(value);
    return CURLE_OK;
}
CURLcode curl_easy_perform(CURL*) {
    auto [status, body] = brickfall::AnswerAt(brickfall::requests_made++);
    brickfall::body_status = status;
    if (status == 0) return CURLE_COULDNT_CONNECT;
    const bool taken =
        brickfall::write_body(body.data(), 1, body.size(), brickfall::body_sink) == body.size();
    return taken ? CURLE_OK : CURLE_WRITE_ERROR;
}
CURLcode curl_easy_getinfo(CURL*, CURLINFO status, ...) {  // nothing else is asked for
    va_list place;
    va_start(place, status);
    *va_arg(place, long*) = brickfall::body_status;
    va_end(place);
    return CURLE_OK;
}
const char* curl_easy_strerror(CURLcode) { return "no answer"; }
curl_slist* curl_slist_append(curl_slist*, const char*) { return reinterpret_cast<curl_slist*>(1); }
void curl_slist_free_all(curl_slist*) {}
CURLcode curl_global_init(long) { return CURLE_OK; }
void curl_global_cleanup() {}
}
