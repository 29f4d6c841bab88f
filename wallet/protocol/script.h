// script.h - the integer writers of the transaction format, pushes, and the scripts that the program pays to.
// Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {

void AppendU32Le(ByteBuffer& out, uint32_t value);
void AppendU64Le(ByteBuffer& out, uint64_t value);
void AppendVarInt(ByteBuffer& out, uint64_t value);  // Bitcoin compact size
void AppendPushData(ByteBuffer& out, std::span<const uint8_t> data);

inline constexpr std::size_t kP2pkhScriptBytes = 25;
ByteBuffer P2pkhScript(const Hash160& hash);

// OP_FALSE OP_RETURN and one push of the payload.
ByteBuffer DataCarrierScript(std::string_view payload);
std::size_t DataCarrierSize(std::size_t payload_bytes);  // the length of that script

}  // namespace brickfall
