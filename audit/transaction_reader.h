// transaction_reader.h - a transaction as the auditor knows it, read from raw bytes or from a service's
// decoded JSON. Whatever allows it is held against the id that was asked for. Pure functions; any thread;
// nothing throws but std::bad_alloc.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wallet/protocol/encodings.h"

namespace brickfall {

struct AuditOutput {
    int64_t satoshis = 0;
    ByteBuffer script;
};

inline constexpr int64_t kLastBlockTime =
    253'402'300'799;  // the end of the year 9999; nobody tells later ones

// The block of a transaction, as far as somebody told of it.
struct BlockPlace {
    bool told = false;   // false: nobody said whether it is mined
    int64_t height = 0;  // 0: not mined
    int64_t time = 0;    // of the block, Unix seconds; 0: not mined, or not told
    bool IsMined() const { return height > 0; }
};

struct AuditTransaction {
    std::string txid;  // 64 lower-case digits, display byte order
    std::vector<AuditOutput> outputs;
    BlockPlace block;
    ByteBuffer raw;  // empty where the id could not be reckoned from what was told
};

// As a node does: nothing missing, nothing left over, every length in its shortest form. The id is reckoned.
std::optional<AuditTransaction> ReadRawTransaction(std::span<const uint8_t> raw);

// The decoded form of either service. Where it holds the whole transaction, as hex or piece by piece, the id
// is reckoned from that, and a transaction told under another id than asked for is refused; so is one whose
// scripts are cut. On false `error` says why. `txid`: 64 digits of either case.
bool ReadDecodedTransaction(const nlohmann::json& decoded, std::string_view txid,
                            AuditTransaction& transaction, std::string& error);

// A height and a time that somebody told, brought into the range that real ones have.
BlockPlace ToldBlock(int64_t height, int64_t time);

// What ReadDecodedTransaction reads back, but for the block: for a transaction that has no raw form.
nlohmann::json DecodedForm(const AuditTransaction& transaction);

}  // namespace brickfall
