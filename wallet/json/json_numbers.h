// json_numbers.h - values of foreign JSON, the numbers brought into the program's integers with a defined
// outcome for every value that the text form can hold. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace brickfall {

inline constexpr int64_t kMaxSatoshis = 2'100'000'000'000'000;  // all the coins that there can be

// An output index: the number truncated, when that lies in 0 to 2^32-1.
std::optional<uint32_t> JsonIndex(const nlohmann::json& number);

// The index under a key: 0 when the key holds no number, nothing when it holds one that is no index.
std::optional<uint32_t> JsonIndexOr0(const nlohmann::json& object, const char* key);

// An amount: the number read as floating point and truncated, when that lies in 1 to kMaxSatoshis.
std::optional<int64_t> JsonSatoshis(const nlohmann::json& number);

// The same for a number in hand, rounded to the nearest integer.
std::optional<int64_t> RoundToSatoshis(double amount);

// The number truncated, and moved to the nearer end of the range when it lies outside.
int64_t JsonClampedInt64(const nlohmann::json& number);
int32_t JsonClampedInt32(const nlohmann::json& number);

// The integer, when it fits; nothing for any other JSON type, floating point included.
std::optional<int64_t> JsonExactInt64(const nlohmann::json& value);

// The value under a key, or nullptr when `object` is none or lacks the key. A null under it is the same as no
// key: services write either.
const nlohmann::json* FindJsonKey(const nlohmann::json& object, std::string_view key);

// The value under a key when it is a number, else nullptr.
const nlohmann::json* FindJsonNumber(const nlohmann::json& object, const char* key);

// Leaves `text` alone when the key is missing. False when the key holds no string.
bool ReadJsonText(const nlohmann::json& object, std::string_view key, std::string& text);

// The sum of two amounts that are not negative, at most the largest integer.
constexpr int64_t AddSatoshis(int64_t a, int64_t b) { return a > INT64_MAX - b ? INT64_MAX : a + b; }

}  // namespace brickfall
