// The decoded form of a transaction: amounts as decimal coins, scripts as text and as hex.
#include <nlohmann/json.hpp>

#include "sandbox/server/services.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr uint8_t kOpPushData1 = 0x4c;
constexpr uint8_t kOpPushData2 = 0x4d;
constexpr uint8_t kOpPushData4 = 0x4e;
constexpr uint8_t kOpReturn = 0x6a;

// Coins with up to eight decimals and no zeros behind the last digit: exact, which a float is not.
std::string CoinText(int64_t satoshis) {
    std::string digits = std::to_string(satoshis);
    if (digits.size() < 9) digits.insert(0, 9 - digits.size(), '0');
    std::string text = digits.substr(0, digits.size() - 8) + "." + digits.substr(digits.size() - 8);
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
    return text;
}

const char* OpcodeName(uint8_t opcode) {
    switch (opcode) {
        case 0x63:
            return "OP_IF";
        case 0x68:
            return "OP_ENDIF";
        case kOpReturn:
            return "OP_RETURN";
        case 0x76:
            return "OP_DUP";
        case 0x88:
            return "OP_EQUALVERIFY";
        case 0xa9:
            return "OP_HASH160";
        case 0xac:
            return "OP_CHECKSIG";
        default:
            return nullptr;
    }
}

// How many bytes of length stand behind a push's opcode; 0 for the short pushes, whose opcode is the length.
std::size_t LengthBytes(uint8_t opcode) {
    if (opcode == kOpPushData1) return 1;
    if (opcode == kOpPushData2) return 2;
    return opcode == kOpPushData4 ? 4 : 0;
}

std::string AsmText(ByteView script) {
    std::string text;
    for (std::size_t at = 0; at < script.size();) {
        if (!text.empty()) text += ' ';
        const uint8_t opcode = script[at++];
        if (opcode == 0) {
            text += '0';
        } else if (opcode <= kOpPushData4) {
            std::size_t length = opcode;
            if (const std::size_t width = LengthBytes(opcode); width > 0) {
                length = 0;
                if (width > script.size() - at) return text + "[error]";
                for (std::size_t i = 0; i < width; ++i) length |= std::size_t{script[at + i]} << (8 * i);
                at += width;
            }
            if (length > script.size() - at) return text + "[error]";
            text += ToHex(script.subspan(at, length));
            at += length;
        } else if (const char* name = OpcodeName(opcode)) {
            text += name;
        } else if (opcode >= 0x51 && opcode <= 0x60) {
            text += std::to_string(opcode - 0x50);
        } else {
            text += "OP_UNKNOWN";
        }
    }
    return text;
}

bool IsDataCarrier(ByteView script) {
    return (!script.empty() && script[0] == kOpReturn) ||
           (script.size() > 1 && script[0] == 0 && script[1] == kOpReturn);
}

json LockingForm(ByteView script) {
    json form = {
        {"asm", AsmText(script)}, {"hex", ToHex(script)}, {"isTruncated", false}, {"opReturn", nullptr}};
    if (const auto owner = PaidKeyHash(script)) {
        form["type"] = "pubkeyhash";
        form["reqSigs"] = 1;
        form["addresses"] = json::array({AddressText(*owner)});
    } else if (IsDataCarrier(script)) {
        form["type"] = "nulldata";
        form["opReturn"] = {{"type", "OP_RETURN"}, {"action", ""}, {"text", ""}, {"parts", nullptr}};
    } else {
        form["type"] = "nonstandard";
    }
    return form;
}

json InputForm(const TxInput& input, bool funding) {
    if (funding) {
        return {
            {"coinbase", ToHex(input.unlocking)}, {"txid", ""}, {"vout", 0}, {"sequence", input.sequence}};
    }
    return {{"coinbase", ""},
            {"txid", IdText(input.spent.id)},
            {"vout", input.spent.index},
            {"scriptSig", {{"asm", AsmText(input.unlocking)}, {"hex", ToHex(input.unlocking)}}},
            {"sequence", input.sequence}};
}

}  // namespace

std::string DecodedTransaction(const Chain& chain, const ChainTx& entry) {
    const std::string id = IdText(entry.tx.id);
    json form = {{"hex", ""},
                 {"txid", id},
                 {"hash", id},
                 {"version", entry.tx.version},
                 {"size", entry.raw.size()},
                 {"locktime", entry.tx.lock_time},
                 {"vin", json::array()}};
    for (const TxInput& input : entry.tx.inputs) form["vin"].push_back(InputForm(input, entry.funding));
    if (entry.height > 0) {
        const int depth = kFirstHeight + static_cast<int>(chain.blocks.size()) - entry.height;
        const Block& block = chain.blocks[static_cast<std::size_t>(entry.height - kFirstHeight - 1)];
        form["blockhash"] = IdText(block.id);
        form["blockheight"] = entry.height;
        form["confirmations"] = depth + 1;
        form["time"] = block.time;
        form["blocktime"] = block.time;
    }
    std::string text = form.dump();
    text.pop_back();
    text += ",\"vout\":[";
    for (std::size_t i = 0; i < entry.tx.outputs.size(); ++i) {
        const TxOutput& output = entry.tx.outputs[i];
        text += (i > 0 ? ",{\"n\":" : "{\"n\":") + std::to_string(i);
        text += ",\"scriptPubKey\":" + LockingForm(output.locking).dump();
        text += ",\"value\":" + CoinText(output.value) + "}";
    }
    return text + "]}";
}

}  // namespace brickfall::sandbox
