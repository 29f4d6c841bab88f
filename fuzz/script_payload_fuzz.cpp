// Any text as a script: a payload is a part of the script, never empty and never beyond OP_PUSHDATA2.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "board/watch_reader.h"
#include "fuzz/support.h"
#include "wallet/protocol/encodings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace brickfall;
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const std::string& script : {text, HexEncode({data, size})}) {
        std::string payload;
        if (ExtractPushPayload(script, payload)) {
            Require(!payload.empty() && payload.size() <= 65'535);
            Require(Lower(script).find(HexEncode(AsBytes(payload))) != std::string::npos);
        } else {
            Require(payload.empty());
        }
        nlohmann::json row;
        if (FindScorePayload({{"vout", {{{"hex", script}}}}}, row)) {
            Require(row.is_object() && nlohmann::json::parse(payload) == row);
        }
    }
    const nlohmann::json transaction = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    nlohmann::json row;
    FindScorePayload(transaction, row);
    return 0;
}
