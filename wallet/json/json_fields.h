// json_fields.h - reads the optional fields of a foreign object.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace brickfall {

// Reads the optional fields of a foreign object, and remembers whether one had the wrong JSON type.
struct FieldReader {
    const nlohmann::json& object;
    bool wrong_type = false;

    std::string Text(const char* key);
    int64_t Integer(const char* key, int64_t missing);
    std::optional<uint32_t> Index(const char* key);  // 0 when the key is missing
};

}  // namespace brickfall
