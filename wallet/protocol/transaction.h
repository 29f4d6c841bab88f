// transaction.h - builds and signs a transaction from candidate inputs and wanted outputs, and reckons its
// fee. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/secret.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {

struct PayOutput {
    int64_t value = 0;  // satoshis; 0 is what a data output has
    ByteBuffer script;
};

struct SpendInput {
    std::string txid;  // display byte order
    uint32_t vout = 0;
    int64_t value = 0;
    ByteBuffer script_sig;  // empty until signed
    SharedSecret priv;      // empty: the wallet's current key
    std::string pub;        // empty: the wallet's current public key
    Hash160 hash{};         // owner of the spent output; meaningful when priv is not empty
};

inline constexpr uint8_t kSigHashAllForkId = 0x41;

// Version 1, lock time 0, all integers little-endian. The skeleton form counts each script_sig as the one
// length byte 0x6B with nothing behind it. Empty when an id is no 32 bytes.
ByteBuffer SerializeTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs, bool skeleton);

// Takes candidates in their order until amount and fee are covered, and adds change as the last output. Only
// where all of them do not cover these are coins passed over that cost more than they bring.
// `candidates` becomes the chosen inputs. The fee is one satoshi a byte of the skeleton form. On false
// `error` says why.
bool BuildTransaction(std::vector<SpendInput>& candidates, std::vector<PayOutput>& outputs,
                      const Hash160& change_hash, std::span<const PayOutput> wanted, int64_t& fee,
                      std::string& error);

// The fee that BuildTransaction would come to for coins of these values, in their order, and outputs whose
// scripts have these lengths and whose values sum up to `total_out`, which is not negative.
int64_t EstimateFee(std::span<const int64_t> coins, std::vector<std::size_t> script_sizes, int64_t total_out);

// What the digests of all inputs of one transaction share (BIP143): made once, since each takes in every
// input or output.
struct SharedDigests {
    Hash256 outpoints{};
    Hash256 sequences{};
    Hash256 outputs{};
};

// Nothing when an id is no 32 bytes.
std::optional<SharedDigests> MakeSharedDigests(std::span<const SpendInput> inputs,
                                               std::span<const PayOutput> outputs);

// Writes input.script_sig: the BIP143 digest with the fork id flag 0x41. `input` must be one of the inputs
// that the digests were made of.
bool SignInput(SpendInput& input, const SharedDigests& shared, const Hash160& owner_hash,
               std::string_view private_hex, std::string_view public_hex);

// For one input alone.
bool SignInput(SpendInput& input, std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
               const Hash160& owner_hash, std::string_view private_hex, std::string_view public_hex);

std::string TxidOf(std::span<const uint8_t> raw);  // display byte order

}  // namespace brickfall
