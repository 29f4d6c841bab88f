#include "base/foreign_json.h"

#include <nlohmann/json.hpp>

namespace brickfall {

bool IsWithinLimits(std::string_view text, const JsonLimits& limits) {
    if (text.size() > limits.bytes) return false;
    std::size_t depth = 0;
    std::size_t values = 0;
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (in_string) {
            if (c == '\\') {
                ++at;
            } else if (c == '"') {
                in_string = false;
            }
            continue;
        }
        switch (c) {
            case '"':
                in_string = true;
                break;
            case '[':
            case '{':
                if (++depth > limits.depth || ++values > limits.values) return false;
                break;
            case ']':
            case '}':
                if (depth > 0) --depth;
                break;
            case ',':  // an element or a member follows; the first of each is counted with its bracket
                if (++values > limits.values) return false;
                break;
            default:
                break;
        }
    }
    return true;
}

nlohmann::json ParseForeignJson(std::string_view text, const JsonLimits& limits) {
    using nlohmann::json;
    if (!IsWithinLimits(text, limits)) return json(json::value_t::discarded);
    return json::parse(text, nullptr, /*allow_exceptions=*/false);
}

}  // namespace brickfall
