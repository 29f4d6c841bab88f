// http_client.h - the seven blocking HTTPS requests of the program, over libcurl. No lock, any thread, and no
// state but the count of the bytes in flight. Each call makes, uses and frees its own handle. Outputs are
// cleared at the start of a call and of each attempt. A body beyond the limit that the caller gives, or
// beyond what all bodies in flight may hold together, fails as a broken transfer does.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "net/answer_limits.h"

namespace brickfall {

inline constexpr char kWalletUserAgent[] = "Orvane-Pouch/0.1";
inline constexpr char kCabinetUserAgent[] = "Brickfall/1";
inline constexpr char kRateLimitText[] =
    "HTTP 429 – WhatsOnChain is rate-limiting. Wait a few seconds and try again.";
inline constexpr char kCurlInitFailedText[] = "curl init failed";
inline constexpr char kOutOfMemoryText[] = "out of memory";

// Once at program start, before any worker; and once at its end, where no worker may be in a request any
// more.
void StartNetwork();
void StopNetwork();

// GET. True on status 200 to 299, or 404 with `allow_404`. Status 429 is tried up to four times, after pauses
// of 400, 800 and 1,600 ms. On false `error` is the text for the player.
bool HttpGet(const std::string& url, std::string& body, std::string& error, int timeout_seconds,
             bool allow_404 = false, std::size_t max_bytes = kMaxBodyBytes);

// HttpGet of what is long: the body counts as in flight until `read` has read it. True when `read` gives
// true. A false from `read` leaves `error` empty; memory that cannot be had is a failure like any other.
bool HttpGetAndRead(const std::string& url, std::string& error, int timeout_seconds, std::size_t max_bytes,
                    const std::function<bool(std::string_view body)>& read);

// POST of a JSON body. True on status 200 to 299. Status 429 is tried up to `attempts` times in all; below 1
// no request is made. `response` holds the body of a refusal too.
bool HttpPostJson(const std::string& url, const std::string& request_body, std::string& response,
                  std::string& error, int timeout_seconds, int attempts,
                  std::size_t max_bytes = kMaxBodyBytes);

// GET, 12 s, one try. True on status 200 to 299.
bool HttpGetOnce(const std::string& url, std::string& body, std::string& error,
                 std::size_t max_bytes = kMaxBodyBytes);

// GET, 14 s, one try. True when a status below 400 brought a body that parses to an object or an array; only
// then is `json` replaced.
bool FetchJson(const std::string& url, nlohmann::json& json, const JsonLimits& limits = kTransactionAnswer);

// GET, 12 s, one try. True when a status below 400 brought a body that is not empty.
bool FetchText(const std::string& url, std::string& body, std::size_t max_bytes = kMaxBodyBytes);

// GET, 15 s, one try. True when status 200 brought a body that parses, whatever its root. `json` is null
// otherwise.
bool FetchJsonStrict(const std::string& url, nlohmann::json& json,
                     const JsonLimits& limits = kTransactionAnswer);

// What a look-up of something came to. A service that fails has said nothing of it.
enum class LookUp { kFound, kNone, kFailed };

// GET, 15 s a try; status 429 is tried again as by HttpGet. kFound when a status of 200 to 299 brought a body
// that parses; kNone on 404. `json` is null otherwise, and on kFailed `error` says why.
LookUp LookUpJson(const std::string& url, nlohmann::json& json, std::string& error,
                  const JsonLimits& limits = kTransactionAnswer);

// The text for a refused request: never HTML, at most 120 bytes of the body.
std::string DescribeHttpFailure(long status, std::string_view body);

}  // namespace brickfall
