// raw_transaction.h - reads a transaction from its bytes as a node does: nothing missing, nothing left over,
// every length in its shortest form. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sandbox/server/bytes.h"

namespace brickfall::sandbox {

struct Outpoint {
    Digest id{};  // in the byte order of the chain
    uint32_t index = 0;
    auto operator<=>(const Outpoint&) const = default;
};

// What the only input of a coinbase names, since it spends nothing.
inline constexpr Outpoint kNoOutpoint = {{}, 0xffffffff};

struct TxInput {
    Outpoint spent;
    Bytes unlocking;
    uint32_t sequence = 0;
};

struct TxOutput {
    int64_t value = 0;  // satoshis as written, so it can be negative or absurd
    Bytes locking;
};

struct ParsedTx {
    uint32_t version = 0;
    std::vector<TxInput> inputs;
    std::vector<TxOutput> outputs;
    uint32_t lock_time = 0;
    Digest id{};
};

std::optional<ParsedTx> ParseTransaction(ByteView raw);
Bytes WriteTransaction(const ParsedTx& tx);

bool IsCoinbase(const ParsedTx& tx);

}  // namespace brickfall::sandbox
