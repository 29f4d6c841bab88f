// Any bytes as a row: its canonical string depends on the JSON value alone, and nothing unsigned is accepted.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "deployment/sandbox_route.h"
#include "fuzz/support.h"
#include "messages/row.h"
#include "messages/verification.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace brickfall;
    static const bool offline = (SetConnectRoute({"::127.0.0.1:1", "", 1}), true);
    static_cast<void>(offline);

    const std::string text(reinterpret_cast<const char*>(data), size);
    const nlohmann::json row = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!row.is_discarded()) {
        const std::string canonical = CanonicalMessage(row);
        Require(canonical.starts_with("OV1|"));
        const nlohmann::json again = nlohmann::json::parse(DumpRow(row), nullptr, /*allow_exceptions=*/false);
        Require(again == row && CanonicalMessage(again) == canonical);
        Require(!VerifyMessage(row));
    }
    // The parts of a signature, cut out of the same bytes.
    const std::size_t third = size / 3;
    VerifyCompactSignature(text.substr(0, third), text.substr(third, third), text.substr(2 * third));
    ByteBuffer key;
    if (DecodeKeyHex(text, key)) {
        const std::string canonical_key = CanonicalPublicKey(key);
        Require(canonical_key.empty() || canonical_key.size() == 66);
    }
    return 0;
}
