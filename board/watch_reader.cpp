#include "board/watch_reader.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "messages/row.h"
#include "wallet/encodings.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr uint8_t kOpFalse = 0x00;
constexpr uint8_t kOpReturn = 0x6A;
constexpr uint8_t kOpPushData1 = 76;
constexpr uint8_t kOpPushData2 = 77;

// The services give the script in different places.
std::string ScriptHex(const json& output) {
    const auto script = output.find("scriptPubKey");
    if (script != output.end()) {
        std::string hex = script->is_string() ? script->get<std::string>() : JsonString(*script, "hex");
        if (!hex.empty()) return hex;
    }
    return JsonString(output, "hex");
}

}  // namespace

bool ExtractPushPayload(std::string_view script_hex, std::string& payload) {
    payload.clear();
    const ByteBuffer script = HexDecode(script_hex);  // empty for text that is no whole bytes
    std::size_t at = !script.empty() && script[0] == kOpFalse ? 1 : 0;
    if (script.size() < at + 2 || script[at] != kOpReturn) return false;
    const uint8_t op = script[at + 1];
    at += 2;
    std::size_t length = op;
    if (op == kOpPushData1) {
        if (script.size() - at < 1) return false;
        length = script[at];
        at += 1;
    } else if (op == kOpPushData2) {
        if (script.size() - at < 2) return false;
        length = static_cast<std::size_t>(script[at] | script[at + 1] << 8);
        at += 2;
    } else if (op > kOpPushData2) {
        return false;
    }
    if (length == 0 || length > script.size() - at) return false;
    payload.assign(reinterpret_cast<const char*>(script.data()) + at, length);
    return true;
}

bool FindScorePayload(const json& transaction, json& row) {
    const auto outputs = transaction.find("vout");
    if (outputs == transaction.end() || !outputs->is_array()) return false;
    std::string payload;
    for (const json& output : *outputs) {
        if (!output.is_object() || !ExtractPushPayload(ScriptHex(output), payload)) continue;
        json found = json::parse(payload, nullptr, /*allow_exceptions=*/false);
        if (!found.is_object() || JsonString(found, "type") != "arcade_score") continue;
        row = std::move(found);
        return true;
    }
    return false;
}

}  // namespace brickfall
