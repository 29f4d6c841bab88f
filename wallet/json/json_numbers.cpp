#include "wallet/json/json_numbers.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace brickfall {
namespace {

using nlohmann::json;

// Truncates, when the result lies between the bounds. Both must be exact as double.
std::optional<int64_t> TruncateWithin(double value, double low, double high) {
    if (!std::isfinite(value)) return std::nullopt;
    const double whole = std::trunc(value);
    if (whole < low || whole > high) return std::nullopt;
    return static_cast<int64_t>(whole);
}

}  // namespace

std::optional<uint32_t> JsonIndex(const json& number) {
    if (!number.is_number()) return std::nullopt;
    const std::optional<int64_t> index = TruncateWithin(number.get<double>(), 0, UINT32_MAX);
    if (!index) return std::nullopt;
    return static_cast<uint32_t>(*index);
}

std::optional<uint32_t> JsonIndexOr0(const json& object, const char* key) {
    const json* number = FindJsonNumber(object, key);
    return number == nullptr ? 0 : JsonIndex(*number);
}

std::optional<int64_t> JsonSatoshis(const json& number) {
    if (!number.is_number()) return std::nullopt;
    return TruncateWithin(number.get<double>(), 1, static_cast<double>(kMaxSatoshis));
}

std::optional<int64_t> RoundToSatoshis(double amount) {
    return TruncateWithin(std::round(amount), 1, static_cast<double>(kMaxSatoshis));
}

int32_t JsonClampedInt32(const json& number) {
    return static_cast<int32_t>(std::clamp<int64_t>(JsonClampedInt64(number), INT32_MIN, INT32_MAX));
}

int64_t JsonClampedInt64(const json& number) {
    constexpr double kLimit = 9'223'372'036'854'775'808.0;  // 2^63
    if (number.is_number_unsigned()) {
        const uint64_t value = number.get<uint64_t>();
        return value > INT64_MAX ? INT64_MAX : static_cast<int64_t>(value);
    }
    if (number.is_number_integer()) return number.get<int64_t>();
    if (!number.is_number_float()) return 0;
    const double value = number.get<double>();
    if (std::isnan(value)) return 0;
    if (value >= kLimit) return INT64_MAX;
    if (value < -kLimit) return INT64_MIN;
    return static_cast<int64_t>(value);
}

std::optional<int64_t> JsonExactInt64(const json& value) {
    if (value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX) return std::nullopt;
    if (!value.is_number_integer()) return std::nullopt;
    return value.get<int64_t>();
}

const json* FindJsonKey(const json& object, std::string_view key) {
    if (!object.is_object()) return nullptr;
    const auto entry = object.find(key);
    return entry == object.end() || entry->is_null() ? nullptr : &*entry;
}

const json* FindJsonNumber(const json& object, const char* key) {
    const json* value = FindJsonKey(object, key);
    return value != nullptr && value->is_number() ? value : nullptr;
}

bool ReadJsonText(const json& object, std::string_view key, std::string& text) {
    const json* found = FindJsonKey(object, key);
    if (found == nullptr) return true;
    if (!found->is_string()) return false;
    text = found->get<std::string>();
    return true;
}

}  // namespace brickfall
