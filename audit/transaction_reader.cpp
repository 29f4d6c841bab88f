#include "audit/transaction_reader.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/text.h"
#include "board/watch_reader.h"
#include "messages/row.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kIdBytes = 32;
constexpr std::size_t kShortestInput = kIdBytes + 4 + 1 + 4;
constexpr std::size_t kShortestOutput = 8 + 1;
constexpr double kSatoshisPerCoin = 1e8;

// Once a read has failed, every later one fails too.
class ByteReader {
  public:
    explicit ByteReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    bool Failed() const { return failed_; }
    bool AtEnd() const { return !failed_ && rest_.empty(); }

    std::span<const uint8_t> Take(uint64_t length) {
        if (length > rest_.size()) failed_ = true;
        if (failed_) return {};
        const auto taken = rest_.first(static_cast<std::size_t>(length));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    uint64_t Integer(std::size_t width) {
        const auto bytes = Take(width);
        uint64_t value = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) value |= uint64_t{bytes[i]} << (8 * i);
        return value;
    }

    // In its shortest form.
    uint64_t CompactSize() {
        const uint64_t first = Integer(1);
        if (first < 0xFD) return first;
        const uint64_t value = Integer(first == 0xFD ? 2 : first == 0xFE ? 4 : 8);
        failed_ = failed_ || value < (first == 0xFD ? 0xFD : first == 0xFE ? 0x10000 : 0x100000000);
        return value;
    }

    // Refused before anything is allocated for it when the bytes left cannot hold as many.
    uint64_t Count(std::size_t shortest) {
        const uint64_t count = CompactSize();
        failed_ = failed_ || count > rest_.size() / shortest;
        return failed_ ? 0 : count;
    }

  private:
    std::span<const uint8_t> rest_;
    bool failed_ = false;
};

// Nothing for what is no amount. 0 is one: data outputs have it.
std::optional<int64_t> CoinsToSatoshis(const json& output) {
    const json* const coins = FindJsonNumber(output, "value");
    if (coins == nullptr) return std::nullopt;
    const double amount = std::round(coins->get<double>() * kSatoshisPerCoin);
    return amount == 0 ? 0 : RoundToSatoshis(amount);
}

BlockPlace PlaceOf(const json& decoded) {
    const auto number = [&decoded](const char* key) {
        const json* const value = FindJsonNumber(decoded, key);
        return value == nullptr ? 0 : JsonClampedInt64(*value);
    };
    const int64_t time = number("blocktime") > 0 ? number("blocktime") : number("time");
    BlockPlace block = ToldBlock(number("blockheight"), time);
    // In a block whose height is kept back it is neither waiting nor to be put in order.
    if (!JsonString(decoded, "blockhash").empty() || number("confirmations") > 0)
        block.told = block.IsMined();
    return block;
}

// Whether a script decodes; an empty one does.
bool TakeHex(std::string_view hex, ByteBuffer& bytes) {
    bytes = HexDecode(hex);
    return !bytes.empty() || hex.empty();
}

bool ReadOutputs(const json& decoded, std::vector<AuditOutput>& outputs, std::string& error) {
    const json* const list = FindJsonKey(decoded, "vout");
    if (list == nullptr || !list->is_array()) {
        error = "a transaction without outputs";
        return false;
    }
    for (const json& element : *list) {
        const std::optional<int64_t> satoshis = CoinsToSatoshis(element);
        AuditOutput output;
        if (!satoshis || !TakeHex(OutputScriptHex(element), output.script)) {
            error = "an output without its value or its script";
            return false;
        }
        const json* const script = FindJsonKey(element, "scriptPubKey");
        const json* const cut = script == nullptr ? nullptr : FindJsonKey(*script, "isTruncated");
        if (cut != nullptr && cut->is_boolean() && cut->get<bool>()) {
            error = "an output whose script is cut";
            return false;
        }
        output.satoshis = *satoshis;
        outputs.push_back(std::move(output));
    }
    return true;
}

void AppendScript(ByteBuffer& raw, const ByteBuffer& script) {
    AppendVarInt(raw, script.size());
    raw.insert(raw.end(), script.begin(), script.end());
}

std::optional<uint32_t> PartOf(const json& object, const char* key) {
    const json* const number = FindJsonNumber(object, key);
    return number == nullptr ? std::nullopt : JsonIndex(*number);
}

// False when a part of the input is not told. A coinbase input is told by its script alone.
bool AppendInput(ByteBuffer& raw, const json& input) {
    const std::string coinbase = JsonString(input, "coinbase");
    const json* const unlocking = FindJsonKey(input, "scriptSig");
    const std::optional<uint32_t> vout = PartOf(input, "vout");
    const std::optional<uint32_t> sequence = PartOf(input, "sequence");
    ByteBuffer id = coinbase.empty() ? HexDecode(JsonString(input, "txid")) : ByteBuffer(kIdBytes);
    ByteBuffer script;
    if (id.size() != kIdBytes || !vout || !sequence || (coinbase.empty() && unlocking == nullptr))
        return false;
    if (!TakeHex(coinbase.empty() ? JsonString(*unlocking, "hex") : coinbase, script)) return false;
    raw.insert(raw.end(), id.rbegin(), id.rend());
    AppendU32Le(raw, coinbase.empty() ? *vout : UINT32_MAX);
    AppendScript(raw, script);
    AppendU32Le(raw, *sequence);
    return true;
}

// The raw form, put together from the pieces of the decoded one; empty when one is missing.
ByteBuffer PutTogether(const json& decoded, const std::vector<AuditOutput>& outputs) {
    const std::optional<uint32_t> version = PartOf(decoded, "version");
    const std::optional<uint32_t> lock_time = PartOf(decoded, "locktime");
    const json* const inputs = FindJsonKey(decoded, "vin");
    if (!version || !lock_time || inputs == nullptr || !inputs->is_array()) return {};
    ByteBuffer raw;
    AppendU32Le(raw, *version);
    AppendVarInt(raw, inputs->size());
    for (const json& input : *inputs) {
        if (!AppendInput(raw, input)) return {};
    }
    AppendVarInt(raw, outputs.size());
    for (const AuditOutput& output : outputs) {
        AppendU64Le(raw, static_cast<uint64_t>(output.satoshis));
        AppendScript(raw, output.script);
    }
    AppendU32Le(raw, *lock_time);
    return raw;
}

}  // namespace

std::optional<AuditTransaction> ReadRawTransaction(std::span<const uint8_t> raw) {
    ByteReader reader(raw);
    AuditTransaction transaction;
    reader.Take(4);  // version
    for (uint64_t left = reader.Count(kShortestInput); left > 0 && !reader.Failed(); --left) {
        reader.Take(kIdBytes + 4);
        reader.Take(reader.CompactSize());
        reader.Take(4);
    }
    for (uint64_t left = reader.Count(kShortestOutput); left > 0 && !reader.Failed(); --left) {
        AuditOutput output;
        output.satoshis = static_cast<int64_t>(reader.Integer(8));
        const auto script = reader.Take(reader.CompactSize());
        output.script.assign(script.begin(), script.end());
        transaction.outputs.push_back(std::move(output));
    }
    reader.Take(4);  // lock time
    if (!reader.AtEnd()) return std::nullopt;
    transaction.txid = TxidOf(raw);
    transaction.raw.assign(raw.begin(), raw.end());
    return transaction;
}

bool ReadDecodedTransaction(const json& decoded, std::string_view txid, AuditTransaction& transaction,
                            std::string& error) {
    transaction = {};
    const std::string asked = Lower(txid);
    const std::string told = JsonString(decoded, "txid");
    const auto refuse = [&error](const char* why) {
        error = why;
        return false;
    };
    if (!told.empty() && Lower(told) != asked) return refuse("another transaction than asked for");
    std::optional<AuditTransaction> whole;
    if (const std::string hex = JsonString(decoded, "hex"); !hex.empty()) {
        whole = ReadRawTransaction(HexDecode(hex));
        if (!whole) return refuse("a raw transaction that is none");
    } else {
        if (!ReadOutputs(decoded, transaction.outputs, error)) return false;
        if (const ByteBuffer raw = PutTogether(decoded, transaction.outputs); !raw.empty())
            whole = ReadRawTransaction(raw);
    }
    if (whole) {
        if (whole->txid != asked) return refuse("a transaction that has another id than asked for");
        transaction = std::move(*whole);
    }
    transaction.txid = asked;
    transaction.block = PlaceOf(decoded);
    return true;
}

BlockPlace ToldBlock(int64_t height, int64_t time) {
    if (height <= 0) return {.told = true};
    return {.told = true, .height = height, .time = std::clamp<int64_t>(time, 0, kLastBlockTime)};
}

json DecodedForm(const AuditTransaction& transaction) {
    json outputs = json::array();
    for (const AuditOutput& output : transaction.outputs) {
        outputs.push_back({{"value", static_cast<double>(output.satoshis) / kSatoshisPerCoin},
                           {"scriptPubKey", {{"hex", HexEncode(output.script)}}}});
    }
    return {{"txid", transaction.txid}, {"vout", std::move(outputs)}};
}

}  // namespace brickfall
