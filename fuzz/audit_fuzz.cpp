// Any bytes as a file of evidence, as a raw and as a decoded transaction, and as text on a terminal: whatever
// is read is judged, a sound row is signed and paid for, what is saved is read back to the same report, an id
// is that of its bytes, and what is shown stays in its columns.
#include "audit/display_text.h"
#include "audit/report.h"
#include "base/foreign_json.h"
#include "fuzz/support.h"
#include "game/input_tape.h"
#include "game/replay.h"
#include "messages/row.h"
#include "wallet/protocol/transaction.h"

namespace {

using namespace brickfall;
using nlohmann::json;

// A replay of the longest tape takes some two seconds.
constexpr uint32_t kLongestRunMs = 600'000;

bool ReplaysSoon(const Evidence& evidence) {
    ByteBuffer bytes;
    InputTape tape;
    if (!HexToBytes(NormalizeHex(JsonString(evidence.row, "tape")), bytes)) return true;
    ReadTape(bytes, tape);
    return tape.events.empty() || tape.events.back().tick_ms <= kLongestRunMs;
}

void CheckEvidence(std::string_view text) {
    Collected collected;
    std::string error;
    if (!ReadEvidence(text, 1, collected, error)) return Require(!error.empty());
    for (const Evidence& one : collected.evidence) {
        if (!ReplaysSoon(one)) return;
    }
    collected.listed = true;
    const AuditReport report = MakeReport(collected, 1);
    Require(report.rows.size() == collected.judged);
    for (const RowAudit& row : report.rows) {
        if (row.Status() != AuditStatus::kSound) continue;
        Require(row.has_row && row.run && row.run->score == row.score && row.public_key.size() == 66);
    }
    Require(SafeText(ReportText(report, false), 1).size() <= 4);
    const json told = ReportJson(report);
    Require(ReadEvidence(WriteEvidence(collected), 1, collected, error));
    collected.listed = true;
    Require(JsonText(ReportJson(MakeReport(collected, 1)).at("rows")) == JsonText(told.at("rows")));
}

void CheckTransactions(std::span<const uint8_t> bytes, std::string_view text) {
    if (const auto raw = ReadRawTransaction(bytes)) Require(raw->txid == TxidOf(bytes));
    const json decoded = ParseForeignJson(text, {.bytes = text.size(), .values = 100'000});
    const std::string txid =
        JsonString(decoded, "txid").size() == 64 ? JsonString(decoded, "txid") : std::string(64, 'a');
    AuditTransaction transaction;
    std::string error;
    if (!ReadDecodedTransaction(decoded, txid, transaction, error)) return Require(!error.empty());
    Require(transaction.raw.empty() || TxidOf(transaction.raw) == transaction.txid);
    Require(transaction.block.time >= 0 && transaction.block.time <= kLastBlockTime);
}

void CheckText(std::string_view text) {
    const std::string safe = SafeText(text, 20);
    Require(DisplayColumns(safe) <= 20 && SafeText(safe, 20) == safe);
    for (const char c : safe) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const CostBound cost(40'000, size, 300);
    const std::string_view text = AsText(data, size);
    CheckEvidence(text);
    CheckTransactions({data, size}, text);
    CheckText(text);
    return 0;
}
