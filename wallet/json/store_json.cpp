#include "wallet/json/store_json.h"

#include <nlohmann/json.hpp>

namespace brickfall {
namespace {

using nlohmann::json;

}  // namespace

std::string StoreText(const json& object, const char* key) {
    if (!object.is_object()) return {};
    const auto entry = object.find(key);
    if (entry == object.end() || !entry->is_string()) return {};
    return entry->get<std::string>();
}

std::string StoreDump(const json& document) {
    return document.dump(2, ' ', false, json::error_handler_t::replace);
}

}  // namespace brickfall
