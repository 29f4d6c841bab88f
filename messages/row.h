// row.h - the flat JSON object that is said on chain, and the canonical string that its signature covers.
// Pure; no function throws, whatever the row holds.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace brickfall {

std::string JsonString(const nlohmann::json& row, std::string_view key, std::string_view alt_key = {});
int64_t JsonInt(const nlohmann::json& row, std::string_view key);
std::string NormalizeHandle(std::string_view text);
std::string CanonicalMessage(const nlohmann::json& row);

// The compact JSON text that goes on chain: raw UTF-8, keys in ascending byte order. Bytes that are no UTF-8
// become U+FFFD.
std::string DumpRow(const nlohmann::json& row);

}  // namespace brickfall
