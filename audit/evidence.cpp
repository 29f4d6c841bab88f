#include "audit/evidence.h"

#include <algorithm>
#include <utility>

#include "base/foreign_json.h"
#include "base/text.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/input_tape.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

using nlohmann::json;

// A full tape in hexadecimal and all else that a row has. A row is flat, of some twenty values.
constexpr JsonLimits kAnyRow = {.bytes = 4 << 20, .values = 1'000};

bool PaysWatchAddress(const AuditTransaction& transaction) {
    Hash160 watch{};
    if (!DecodeAddress(kArcadeWatchAddress, watch)) return false;
    const ByteBuffer script = P2pkhScript(watch);
    return std::ranges::any_of(transaction.outputs,
                               [&script](const AuditOutput& output) { return output.script == script; });
}

// Whether an output holds a row of a size that is looked for. `unread` tells of a payload that is no object.
bool FindRow(Evidence& evidence, PushSize size, bool& unread) {
    std::string_view payload;
    for (const AuditOutput& output : evidence.transaction.outputs) {
        if (!FindPushPayload(output.script, size, payload)) continue;
        json found = ParseForeignJson(payload, kAnyRow);
        unread = unread || !found.is_object();
        if (!found.is_object() || JsonString(found, "type") != "arcade_score") continue;
        evidence.row = std::move(found);
        evidence.row_bytes = payload.size();
        return true;
    }
    return false;
}

}  // namespace

void ReadRow(Evidence& evidence) {
    bool unread = false;
    if (FindRow(evidence, PushSize::kBoard, unread) || FindRow(evidence, PushSize::kAny, unread)) {
        evidence.row_state = RowState::kRow;
    } else if (unread && PaysWatchAddress(evidence.transaction)) {
        evidence.row_state = RowState::kUnreadable;
    } else {
        evidence.row_state = RowState::kNone;
    }
}

std::string EntryTxid(const Evidence& evidence) {
    const std::string entry = Lower(JsonString(evidence.row, "entry"));
    return IsTxidText(entry) ? entry : std::string();
}

std::string SignerName(const Evidence& evidence) {
    return IdentityName(JsonString(evidence.row, "actor"), JsonString(evidence.row, "paymail"));
}

std::string EventsKey(const Evidence& evidence) {
    ByteBuffer tape;
    if (!HexToBytes(NormalizeHex(JsonString(evidence.row, "tape")), tape) || tape.size() <= kTapeHeaderBytes)
        return {};
    return HexEncode(Sha256Once(std::span(tape).subspan(kTapeHeaderBytes)));
}

}  // namespace brickfall
