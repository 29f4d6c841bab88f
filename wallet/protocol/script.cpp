#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

constexpr uint8_t kOpDup = 118;
constexpr uint8_t kOpHash160 = 169;
constexpr uint8_t kOpEqualVerify = 136;
constexpr uint8_t kOpCheckSig = 172;
constexpr uint8_t kOpPushData1 = 76;

void AppendLe(ByteBuffer& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

constexpr uint8_t kOpFalse = 0;
constexpr uint8_t kOpReturn = 106;

// What stands before the bytes of a push.
void AppendPushPrefix(ByteBuffer& out, std::size_t length) {
    if (length < kOpPushData1) {
        AppendLe(out, length, 1);
    } else if (length <= 0xFF) {
        out.push_back(kOpPushData1);
        AppendLe(out, length, 1);
    } else if (length <= 0xFFFF) {
        out.push_back(kOpPushData1 + 1);
        AppendLe(out, length, 2);
    } else {
        out.push_back(kOpPushData1 + 2);
        AppendU32Le(out, static_cast<uint32_t>(length));
    }
}

}  // namespace

void AppendU32Le(ByteBuffer& out, uint32_t value) { AppendLe(out, value, 4); }

void AppendU64Le(ByteBuffer& out, uint64_t value) { AppendLe(out, value, 8); }

void AppendVarInt(ByteBuffer& out, uint64_t value) {
    if (value < 253) {
        out.push_back(static_cast<uint8_t>(value));
    } else if (value <= 0xFFFF) {
        out.push_back(253);
        AppendLe(out, value, 2);
    } else if (value <= 0xFFFFFFFF) {
        out.push_back(254);
        AppendU32Le(out, static_cast<uint32_t>(value));
    } else {
        out.push_back(255);
        AppendU64Le(out, value);
    }
}

void AppendPushData(ByteBuffer& out, std::span<const uint8_t> data) {
    AppendPushPrefix(out, data.size());
    out.insert(out.end(), data.begin(), data.end());
}

ByteBuffer P2pkhScript(const Hash160& hash) {
    ByteBuffer script{kOpDup, kOpHash160};
    AppendPushData(script, hash);
    script.insert(script.end(), {kOpEqualVerify, kOpCheckSig});
    return script;
}

ByteBuffer DataCarrierScript(std::string_view payload) {
    ByteBuffer script{kOpFalse, kOpReturn};
    AppendPushData(script, AsBytes(payload));
    return script;
}

std::size_t DataCarrierSize(std::size_t payload_bytes) {
    ByteBuffer prefix;
    AppendPushPrefix(prefix, payload_bytes);
    return 2 + prefix.size() + payload_bytes;
}

}  // namespace brickfall
