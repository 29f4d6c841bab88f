// store_json.h - the JSON text of the store's files. Pure functions; any thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "base/files.h"
#include "base/foreign_json.h"

namespace brickfall {

// Far above any file that the programs of the store make.
inline constexpr JsonLimits kStoreLimits = {.bytes = kMaxFileBytes, .values = 1'000'000};

// The text at a key; empty when `object` is none, the key is missing or holds something else.
std::string StoreText(const nlohmann::json& object, const char* key);

// The text of a JSON file for people: indent of 2, bytes that are no UTF-8 replaced, no newline at the end.
std::string StoreDump(const nlohmann::json& document);

}  // namespace brickfall
