// chain.h - a small chain: blocks, a mempool, every output with what spent it, and the rules by which a
// transaction is taken or refused. No lock of its own: the caller guards it. A copy is a snapshot.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sandbox/server/raw_transaction.h"
#include "sandbox/server/script_check.h"

namespace brickfall::sandbox {

inline constexpr int64_t kMaxMoney = 2'100'000'000'000'000;  // satoshis; all the coins that there can be
inline constexpr int kFirstHeight = 800'000;                 // of the block before the first one

enum class TxFault {
    kNone,
    kDecodeFailed,
    kAlreadyKnown,
    kNoInputs,
    kNoOutputs,
    kCoinbase,
    kDuplicateInput,
    kNegativeOutput,
    kOutputTooLarge,
    kTotalTooLarge,
    kNotFinal,
    kMempoolConflict,
    kMissingInputs,
    kOutputsAboveInputs,
    kFeeTooLow,
    kBadScript,
};

struct Verdict {
    TxFault fault = TxFault::kNone;
    ScriptFault script = ScriptFault::kNone;
    int64_t fee = 0;           // satoshis; set once the inputs are known
    int64_t required_fee = 0;  // satoshis; the same
    Digest rival{};            // the mempool transaction in the way, for kMempoolConflict

    bool Accepted() const { return fault == TxFault::kNone; }
};

std::string ReasonText(const Verdict& verdict);  // a node's words; empty when accepted

struct ChainTx {
    ParsedTx tx;
    Bytes raw;
    int height = 0;  // 0: in the mempool
    bool funding = false;
    int64_t fee = 0;
};

struct Block {
    int64_t time = 0;  // Unix seconds
    Digest id{};
    std::vector<Digest> transactions;
};

struct ChainCoin {
    TxOutput output;
    bool spent = false;
    Digest spender{};  // meaningful when spent
};

// Transactions are shared between a chain and its snapshots; a change of one replaces the pointer.
using ChainTxPtr = std::shared_ptr<const ChainTx>;

struct Chain {
    int64_t fee_per_kilobyte = 100;
    std::vector<Block> blocks;
    std::vector<Digest> order;  // every transaction of the chain, as accepted
    std::map<Digest, ChainTxPtr> transactions;
    std::map<Outpoint, ChainCoin> coins;               // spent ones too
    std::map<KeyHash, std::vector<Outpoint>> paid_to;  // P2PKH outputs, as accepted
    std::map<KeyHash, std::vector<Digest>> touched;    // transactions that pay or spend, as accepted
    int64_t total_funded = 0;                          // satoshis
    int64_t total_fees = 0;
};

Verdict Judge(const Chain& chain, const ParsedTx& tx, std::size_t raw_size);

// Judges, and takes what is good into the mempool.
Verdict Submit(Chain& chain, const Bytes& raw, Digest& id);

// A transaction that creates money for an address, with eight bytes of chance so that no two are the same.
Bytes MakeFundingTx(const Chain& chain, const KeyHash& to, int64_t satoshis);
// Takes such a transaction in a block of its own. False when it is none, or would make too much money.
bool AddFunding(Chain& chain, const Bytes& raw, int64_t block_time);

void MineBlock(Chain& chain, int64_t block_time);  // everything in the mempool

// Drops a mempool transaction and everything that spends from it. False when there is none of that id.
bool ForgetTransaction(Chain& chain, const Digest& id);

const ChainTx* FindTransaction(const Chain& chain, const Digest& id);
inline bool IsMempoolTransaction(const Chain& chain, const Digest& id) {
    const ChainTx* found = FindTransaction(chain, id);
    return found != nullptr && found->height == 0;
}
std::vector<Digest> TransactionsOf(const Chain& chain, const KeyHash& owner);
std::vector<Outpoint> UnspentOf(const Chain& chain, const KeyHash& owner);
int64_t UnspentTotal(const Chain& chain);  // satoshis, over all scripts

}  // namespace brickfall::sandbox
