#include "wallet/json/json_fields.h"

#include <nlohmann/json.hpp>

#include "wallet/json/json_numbers.h"

namespace brickfall {
namespace {

using nlohmann::json;

}  // namespace

std::string FieldReader::Text(const char* key) {
    const json* value = FindJsonKey(object, key);
    if (value == nullptr) return {};
    if (value->is_string()) return value->get<std::string>();
    wrong_type = true;
    return {};
}

int64_t FieldReader::Integer(const char* key, int64_t missing) {
    const json* value = FindJsonKey(object, key);
    if (value == nullptr) return missing;
    if (value->is_number()) return JsonClampedInt64(*value);
    wrong_type = true;
    return missing;
}

std::optional<uint32_t> FieldReader::Index(const char* key) {
    const json* value = FindJsonKey(object, key);
    if (value == nullptr) return 0;
    wrong_type = wrong_type || !value->is_number();
    return JsonIndex(*value);
}

}  // namespace brickfall
