#include "net/http_client.h"

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"

namespace brickfall {
namespace {

constexpr int kGetTries = 4;
constexpr int kLookUpTimeoutSeconds = 15;
constexpr long kStatusNotFound = 404;
constexpr long kStatusTooManyRequests = 429;
constexpr int64_t kFirstPauseMs = 400;
constexpr std::size_t kFailureBodyBytes = 120;

struct FreeHandle {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using HandlePtr = std::unique_ptr<CURL, FreeHandle>;
using ListPtr = std::unique_ptr<curl_slist, FreeList>;

enum class HostPin { kFamilyUrls, kBare };

// What a function sets on its handle. What is left at its default is not set, so that libcurl's own default
// holds.
struct RequestOptions {
    int timeout_seconds = 0;
    int connect_timeout_seconds = 0;  // 0: not set
    bool no_signal = false;
    bool follow_redirects = false;
    long max_redirects = 0;  // 0: not set
    const char* user_agent = nullptr;
    const std::string* json_body = nullptr;  // a POST with this body
    HostPin pin = HostPin::kFamilyUrls;
    bool verify_host = true;
};

struct Reply {
    bool started = false;  // false: no handle could be made or set up
    CURLcode result = CURLE_OK;
    long status = 0;

    bool Arrived() const { return started && result == CURLE_OK; }
    bool Succeeded() const { return Arrived() && status >= 200 && status <= 299; }
};

std::atomic<std::size_t> body_bytes_in_flight = 0;

// What one body counts against kMaxBodyBytesInFlight, for the length of its scope.
class BodyCharge {
  public:
    BodyCharge() = default;
    ~BodyCharge() { Clear(); }
    BodyCharge(const BodyCharge&) = delete;
    BodyCharge& operator=(const BodyCharge&) = delete;

    bool Add(std::size_t bytes) {
        bytes_ += bytes;
        return body_bytes_in_flight.fetch_add(bytes) + bytes <= kMaxBodyBytesInFlight;
    }

    void Clear() { body_bytes_in_flight.fetch_sub(std::exchange(bytes_, 0)); }

  private:
    std::size_t bytes_ = 0;
};

// Where an answer's body goes, and how long it may become.
struct BodySink {
    std::string& text;
    std::size_t max_bytes;
    BodyCharge& charge;

    void Clear() {
        text.clear();
        charge.Clear();
    }
};

// libcurl is C: nothing may be thrown through it, and any count but `size` ends the transfer as failed.
std::size_t AppendToBody(char* data, std::size_t, std::size_t size, void* user) noexcept {
    const BodySink& sink = *static_cast<BodySink*>(user);
    if (size > sink.max_bytes - sink.text.size() || !sink.charge.Add(size)) return 0;
    try {
        sink.text.append(data, size);
    } catch (...) {
        return 0;
    }
    return size;
}

bool Append(ListPtr& list, const std::string& text) {
    curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
    if (longer == nullptr) return false;
    static_cast<void>(list.release());  // the longer list holds the former one
    list.reset(longer);
    return true;
}

std::string PinEntry(std::string_view prefix) {
    return std::string(prefix) + kPaymailDomain + ":443:" + kPinnedHostAddress;
}

// The pin decides only which address the family's host is reached at: TLS runs against the name in the URL.
bool PinHost(CURL* handle, std::string_view url, ListPtr& list) {
    const std::string_view domain = kPaymailDomain;
    if (url.size() < domain.size() || url.find(domain) == std::string_view::npos) return true;
    return Append(list, PinEntry("")) && Append(list, PinEntry("www.")) &&
           curl_easy_setopt(handle, CURLOPT_RESOLVE, list.get()) == CURLE_OK &&
           curl_easy_setopt(handle, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4)) == CURLE_OK;
}

bool PinHostBare(CURL* handle, ListPtr& list) {
    return Append(list, PinEntry("")) && curl_easy_setopt(handle, CURLOPT_RESOLVE, list.get()) == CURLE_OK;
}

// Never 0 for a time-out above 0, since 0 is "no limit".
long DividedMs(int seconds, int divisor) {
    return std::max(seconds * 1000L / divisor, seconds > 0 ? 1L : 0L);
}

// One attempt on a handle of its own.
Reply Perform(const std::string& url, const RequestOptions& options, BodySink& sink) {
    // A NUL would cut the URL short and ask for something else.
    if (url.find('\0') != std::string::npos) return {true, CURLE_URL_MALFORMAT, 0};

    const ConnectRoute route = CurrentConnectRoute();
    ListPtr pins;  // the handle points into the lists, so they are freed after it
    ListPtr headers;
    ListPtr connect_to;
    const HandlePtr handle(curl_easy_init());
    if (!handle) return {};

    bool ready = true;
    const auto set = [&](CURLoption option, auto value) {
        ready = ready && curl_easy_setopt(handle.get(), option, value) == CURLE_OK;
    };
    const auto set_timeout = [&](CURLoption in_seconds, CURLoption in_ms, int seconds) {
        if (route.timeout_divisor == 0) return;
        if (route.timeout_divisor > 1) {
            set(in_ms, DividedMs(seconds, route.timeout_divisor));
        } else {
            set(in_seconds, static_cast<long>(seconds));
        }
    };

    set(CURLOPT_URL, url.c_str());
    // Some URLs come from service answers: none may name a file or another protocol of libcurl.
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_WRITEFUNCTION, &AppendToBody);
    set(CURLOPT_WRITEDATA, static_cast<void*>(&sink));
    set_timeout(CURLOPT_TIMEOUT, CURLOPT_TIMEOUT_MS, options.timeout_seconds);
    if (options.connect_timeout_seconds > 0) {
        set_timeout(CURLOPT_CONNECTTIMEOUT, CURLOPT_CONNECTTIMEOUT_MS, options.connect_timeout_seconds);
    }
    if (options.no_signal) set(CURLOPT_NOSIGNAL, 1L);
    if (options.follow_redirects) set(CURLOPT_FOLLOWLOCATION, 1L);
    if (options.max_redirects > 0) set(CURLOPT_MAXREDIRS, options.max_redirects);
    if (options.user_agent != nullptr) set(CURLOPT_USERAGENT, options.user_agent);
    if (options.json_body != nullptr) {
        ready = ready && Append(headers, "Content-Type: application/json");
        set(CURLOPT_HTTPHEADER, headers.get());
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(options.json_body->size()));
        set(CURLOPT_POSTFIELDS, options.json_body->c_str());
    }
    if (!options.verify_host) {
        set(CURLOPT_SSL_VERIFYPEER, 0L);
        set(CURLOPT_SSL_VERIFYHOST, 0L);
    }
    ready = ready && (options.pin == HostPin::kBare ? PinHostBare(handle.get(), pins)
                                                    : PinHost(handle.get(), url, pins));
    if (!route.connect_to.empty()) {
        ready = ready && Append(connect_to, route.connect_to);
        set(CURLOPT_CONNECT_TO, connect_to.get());
    }
    if (!route.ca_file.empty()) set(CURLOPT_CAINFO, route.ca_file.c_str());
    if (!ready) return {};

    Reply reply;
    reply.started = true;
    reply.result = curl_easy_perform(handle.get());
    curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &reply.status);
    return reply;
}

// The attempts of the two wallet functions: only status 429 is tried again, after a pause that doubles.
// `reply` is the last one's.
bool PerformWithRetry(const std::string& url, const RequestOptions& options, int tries, bool allow_404,
                      BodySink& sink, std::string& error, Reply& reply) {
    for (int n = 0; n < tries; ++n) {
        sink.Clear();
        error.clear();
        reply = Perform(url, options, sink);
        if (!reply.started) {
            error = kCurlInitFailedText;
            return false;
        }
        if (reply.result != CURLE_OK) {
            error = curl_easy_strerror(reply.result);
            return false;
        }
        if (reply.status != kStatusTooManyRequests || n + 1 == tries) break;
        SleepMs(kFirstPauseMs << n);
    }
    if (reply.Succeeded() || (allow_404 && reply.status == kStatusNotFound)) return true;
    error = DescribeHttpFailure(reply.status, sink.text);
    return false;
}

bool WalletGet(const std::string& url, BodySink& sink, std::string& error, int timeout_seconds,
               bool allow_404, Reply& reply) {
    RequestOptions options;
    options.timeout_seconds = timeout_seconds;
    options.connect_timeout_seconds = 8;
    options.no_signal = true;
    options.follow_redirects = true;
    options.max_redirects = 5;
    options.user_agent = kWalletUserAgent;
    return PerformWithRetry(url, options, kGetTries, allow_404, sink, error, reply);
}

// True when a status below 400 brought a body that is not empty.
bool FetchBody(const std::string& url, int timeout_seconds, BodySink& sink) {
    RequestOptions options;
    options.timeout_seconds = timeout_seconds;
    options.follow_redirects = true;
    options.user_agent = kCabinetUserAgent;
    const Reply reply = Perform(url, options, sink);
    return reply.Arrived() && reply.status < 400 && !sink.text.empty();
}

bool ParseBody(const std::string& body, const JsonLimits& limits, nlohmann::json& json) {
    try {
        json = ParseForeignJson(body, limits);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return !json.is_discarded();
}

}  // namespace

void StartNetwork() {
    RaiseDescriptorLimit();
    // Workers are not waited for: one may be inside a request while the process exits, so OpenSSL must not
    // take its tables down at exit. Only its very first initialisation is asked.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
#ifdef SIGPIPE
    // libcurl masks it for the length of a request, but for the process and not for the thread: of two
    // requests at once the first to end would expose the other.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    curl_global_init(CURL_GLOBAL_ALL);
}

void StopNetwork() {
    // libcurl must not be taken down beside a running request; the end of the process frees it then.
    if (WorkersRunning() == 0) curl_global_cleanup();
}

bool HttpGet(const std::string& url, std::string& body, std::string& error, int timeout_seconds,
             bool allow_404, std::size_t max_bytes) {
    BodyCharge charge;
    BodySink sink{body, max_bytes, charge};
    Reply reply;
    return WalletGet(url, sink, error, timeout_seconds, allow_404, reply);
}

bool HttpGetAndRead(const std::string& url, std::string& error, int timeout_seconds, std::size_t max_bytes,
                    const std::function<bool(std::string_view)>& read) {
    try {
        std::string body;
        BodyCharge charge;
        BodySink sink{body, max_bytes, charge};
        Reply reply;
        return WalletGet(url, sink, error, timeout_seconds, /*allow_404=*/false, reply) && read(body);
    } catch (const std::bad_alloc&) {
        error = kOutOfMemoryText;
        return false;
    }
}

bool HttpPostJson(const std::string& url, const std::string& request_body, std::string& response,
                  std::string& error, int timeout_seconds, int attempts, std::size_t max_bytes) {
    if (attempts < 1) {
        response.clear();
        error = kRateLimitText;
        return false;
    }
    RequestOptions options;
    options.timeout_seconds = timeout_seconds;
    options.connect_timeout_seconds = 8;
    options.user_agent = kWalletUserAgent;
    options.json_body = &request_body;
    BodyCharge charge;
    BodySink sink{response, max_bytes, charge};
    Reply reply;
    return PerformWithRetry(url, options, attempts, /*allow_404=*/false, sink, error, reply);
}

bool HttpGetOnce(const std::string& url, std::string& body, std::string& error, std::size_t max_bytes) {
    body.clear();
    error.clear();
    RequestOptions options;
    options.timeout_seconds = 12;
    options.follow_redirects = true;
    // A service on this machine may answer with a certificate of its own making.
    options.verify_host = !url.starts_with("https://127.0.0.1") && !url.starts_with("https://localhost");
    BodyCharge charge;
    BodySink sink{body, max_bytes, charge};
    const Reply reply = Perform(url, options, sink);
    if (reply.Succeeded()) return true;
    if (!reply.started) {
        error = kCurlInitFailedText;
    } else if (reply.result != CURLE_OK) {
        error = curl_easy_strerror(reply.result);
    } else {
        error = "HTTP " + std::to_string(reply.status);
    }
    return false;
}

bool FetchJson(const std::string& url, nlohmann::json& json, const JsonLimits& limits) {
    std::string body;
    BodyCharge charge;
    BodySink sink{body, limits.bytes, charge};
    nlohmann::json parsed;
    if (!FetchBody(url, 14, sink) || !ParseBody(body, limits, parsed) || !parsed.is_structured())
        return false;
    json = std::move(parsed);
    return true;
}

bool FetchText(const std::string& url, std::string& body, std::size_t max_bytes) {
    body.clear();
    BodyCharge charge;
    BodySink sink{body, max_bytes, charge};
    return FetchBody(url, 12, sink);
}

bool FetchJsonStrict(const std::string& url, nlohmann::json& json, const JsonLimits& limits) {
    json = nullptr;
    RequestOptions options;
    options.timeout_seconds = 15;
    options.follow_redirects = true;
    options.pin = HostPin::kBare;
    std::string body;
    BodyCharge charge;
    BodySink sink{body, limits.bytes, charge};
    const Reply reply = Perform(url, options, sink);
    if (!reply.Arrived() || reply.status != 200 || body.empty()) return false;
    if (ParseBody(body, limits, json)) return true;
    json = nullptr;
    return false;
}

LookUp LookUpJson(const std::string& url, nlohmann::json& json, std::string& error,
                  const JsonLimits& limits) {
    json = nullptr;
    std::string body;
    BodyCharge charge;
    BodySink sink{body, limits.bytes, charge};
    Reply reply;
    if (!WalletGet(url, sink, error, kLookUpTimeoutSeconds, /*allow_404=*/true, reply))
        return LookUp::kFailed;
    if (reply.status == kStatusNotFound) return LookUp::kNone;
    if (ParseBody(body, limits, json)) return LookUp::kFound;
    json = nullptr;
    error = "an answer that is no JSON, or too much of it";
    return LookUp::kFailed;
}

std::string DescribeHttpFailure(long status, std::string_view body) {
    if (status == kStatusTooManyRequests) return kRateLimitText;
    const std::string text = "HTTP " + std::to_string(status);
    const auto contains = [body](std::string_view word) { return body.find(word) != std::string_view::npos; };
    if (body.empty() || contains("<html") || contains("<HTML") || contains("<!DOCTYPE")) return text;
    return text + " – " + std::string(StripBack(body, "\r\n ").substr(0, kFailureBodyBytes));
}

}  // namespace brickfall
