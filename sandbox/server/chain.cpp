#include "sandbox/server/chain.h"

#include <openssl/rand.h>

#include <algorithm>
#include <set>
#include <utility>

namespace brickfall::sandbox {
namespace {

constexpr uint32_t kFinalSequence = 0xffffffff;
constexpr std::string_view kFundingMark = "/Brickfall sandbox/";

// What can be said of a transaction without looking at the chain.
TxFault CheckForm(const ParsedTx& tx) {
    if (tx.inputs.empty()) return TxFault::kNoInputs;
    if (tx.outputs.empty()) return TxFault::kNoOutputs;
    if (IsCoinbase(tx)) return TxFault::kCoinbase;
    std::set<Outpoint> seen;
    bool final = tx.lock_time == 0;
    for (const TxInput& input : tx.inputs) {
        if (!seen.insert(input.spent).second) return TxFault::kDuplicateInput;
        final = final || input.sequence == kFinalSequence;
    }
    int64_t total = 0;
    for (const TxOutput& output : tx.outputs) {
        if (output.value < 0) return TxFault::kNegativeOutput;
        if (output.value > kMaxMoney) return TxFault::kOutputTooLarge;
        if (output.value > kMaxMoney - total) return TxFault::kTotalTooLarge;
        total += output.value;
    }
    return final ? TxFault::kNone : TxFault::kNotFinal;
}

Verdict CheckInputs(const Chain& chain, const ParsedTx& tx) {
    bool missing = false;
    for (const TxInput& input : tx.inputs) {
        const auto coin = chain.coins.find(input.spent);
        if (coin == chain.coins.end()) {
            missing = true;
        } else if (coin->second.spent) {
            if (IsMempoolTransaction(chain, coin->second.spender)) {
                return {.fault = TxFault::kMempoolConflict, .rival = coin->second.spender};
            }
            missing = true;
        }
    }
    return {.fault = missing ? TxFault::kMissingInputs : TxFault::kNone};
}

// Full size, rounded down, but never free.
int64_t RequiredFee(const Chain& chain, std::size_t raw_size) {
    return std::max<int64_t>(chain.fee_per_kilobyte * static_cast<int64_t>(raw_size) / 1000, 1);
}

std::vector<KeyHash> OwnersIn(const Chain& chain, const ParsedTx& tx) {
    std::set<KeyHash> owners;
    for (const TxInput& input : tx.inputs) {
        const auto coin = chain.coins.find(input.spent);
        if (coin == chain.coins.end()) continue;
        if (const auto owner = PaidKeyHash(coin->second.output.locking)) owners.insert(*owner);
    }
    for (const TxOutput& output : tx.outputs) {
        if (const auto owner = PaidKeyHash(output.locking)) owners.insert(*owner);
    }
    return {owners.begin(), owners.end()};
}

void Insert(Chain& chain, ChainTx entry) {
    const Digest id = entry.tx.id;
    for (const KeyHash& owner : OwnersIn(chain, entry.tx)) chain.touched[owner].push_back(id);
    for (const TxInput& input : entry.tx.inputs) {
        const auto coin = chain.coins.find(input.spent);
        if (coin == chain.coins.end()) continue;
        coin->second.spent = true;
        coin->second.spender = id;
    }
    for (uint32_t index = 0; index < entry.tx.outputs.size(); ++index) {
        const TxOutput& output = entry.tx.outputs[index];
        const Outpoint outpoint = {id, index};
        chain.coins[outpoint].output = output;
        if (const auto owner = PaidKeyHash(output.locking)) chain.paid_to[*owner].push_back(outpoint);
    }
    chain.total_fees += entry.fee;
    chain.order.push_back(id);
    chain.transactions[id] = std::make_shared<const ChainTx>(std::move(entry));
}

template <typename T>
void EraseValue(std::vector<T>& list, const T& value) {
    list.erase(std::remove(list.begin(), list.end(), value), list.end());
}

void Remove(Chain& chain, const ChainTx& entry) {
    const Digest id = entry.tx.id;
    for (const KeyHash& owner : OwnersIn(chain, entry.tx)) EraseValue(chain.touched[owner], id);
    for (const TxInput& input : entry.tx.inputs) {
        const auto coin = chain.coins.find(input.spent);
        if (coin != chain.coins.end()) coin->second = {std::move(coin->second.output), false, {}};
    }
    for (uint32_t index = 0; index < entry.tx.outputs.size(); ++index) {
        const Outpoint outpoint = {id, index};
        if (const auto owner = PaidKeyHash(entry.tx.outputs[index].locking)) {
            EraseValue(chain.paid_to[*owner], outpoint);
        }
        chain.coins.erase(outpoint);
    }
    chain.total_fees -= entry.fee;
    EraseValue(chain.order, id);
}

void AddBlock(Chain& chain, std::vector<Digest> transactions, int64_t block_time) {
    Bytes header;
    PutU32(header, static_cast<uint32_t>(chain.blocks.size()));
    if (!chain.blocks.empty()) PutBytes(header, chain.blocks.back().id);
    PutU64(header, static_cast<uint64_t>(block_time));
    for (const Digest& id : transactions) PutBytes(header, id);
    chain.blocks.push_back({block_time, DoubleSha256(header), {}});
    const int height = kFirstHeight + static_cast<int>(chain.blocks.size());
    for (const Digest& id : transactions) {
        ChainTx mined = *chain.transactions[id];
        mined.height = height;
        chain.transactions[id] = std::make_shared<const ChainTx>(std::move(mined));
    }
    chain.blocks.back().transactions = std::move(transactions);
}

}  // namespace

std::string ReasonText(const Verdict& verdict) {
    switch (verdict.fault) {
        case TxFault::kNone:
            return "";
        case TxFault::kDecodeFailed:
            return "TX decode failed";
        case TxFault::kAlreadyKnown:
            return "257: txn-already-known";
        case TxFault::kNoInputs:
            return "16: bad-txns-vin-empty";
        case TxFault::kNoOutputs:
            return "16: bad-txns-vout-empty";
        case TxFault::kCoinbase:
            return "16: coinbase";
        case TxFault::kDuplicateInput:
            return "16: bad-txns-inputs-duplicate";
        case TxFault::kNegativeOutput:
            return "16: bad-txns-vout-negative";
        case TxFault::kOutputTooLarge:
            return "16: bad-txns-vout-toolarge";
        case TxFault::kTotalTooLarge:
            return "16: bad-txns-txouttotal-toolarge";
        case TxFault::kNotFinal:
            return "64: non-final";
        case TxFault::kMempoolConflict:
            return "258: txn-mempool-conflict";
        case TxFault::kMissingInputs:
            return "Missing inputs";
        case TxFault::kOutputsAboveInputs:
            return "16: bad-txns-in-belowout";
        case TxFault::kFeeTooLow:
            return "66: insufficient priority";
        case TxFault::kBadScript:
            return std::string("16: mandatory-script-verify-flag-failed (") +
                   ScriptFaultText(verdict.script) + ")";
    }
    return "";
}

Verdict Judge(const Chain& chain, const ParsedTx& tx, std::size_t raw_size) {
    if (const TxFault fault = CheckForm(tx); fault != TxFault::kNone) return {.fault = fault};
    if (chain.transactions.contains(tx.id)) return {.fault = TxFault::kAlreadyKnown};
    Verdict verdict = CheckInputs(chain, tx);
    if (!verdict.Accepted()) return verdict;

    // No sum here can wrap: all inputs together are at most what was funded, all outputs at most kMaxMoney.
    for (const TxInput& input : tx.inputs) verdict.fee += chain.coins.at(input.spent).output.value;
    for (const TxOutput& output : tx.outputs) verdict.fee -= output.value;
    verdict.required_fee = RequiredFee(chain, raw_size);
    if (verdict.fee < 0) {
        verdict.fault = TxFault::kOutputsAboveInputs;
    } else if (verdict.fee < verdict.required_fee) {
        verdict.fault = TxFault::kFeeTooLow;
    }
    if (!verdict.Accepted()) return verdict;

    const SharedDigests shared = DigestsOf(tx);
    for (std::size_t i = 0; i < tx.inputs.size(); ++i) {
        const TxOutput& spent = chain.coins.at(tx.inputs[i].spent).output;
        verdict.script = CheckInput(tx, i, shared, spent.locking, spent.value);
        if (verdict.script != ScriptFault::kNone) {
            verdict.fault = TxFault::kBadScript;
            break;
        }
    }
    return verdict;
}

Verdict Submit(Chain& chain, const Bytes& raw, Digest& id) {
    std::optional<ParsedTx> tx = ParseTransaction(raw);
    if (!tx) return {.fault = TxFault::kDecodeFailed};
    id = tx->id;
    const Verdict verdict = Judge(chain, *tx, raw.size());
    if (verdict.Accepted()) Insert(chain, {std::move(*tx), raw, 0, false, verdict.fee});
    return verdict;
}

Bytes MakeFundingTx(const Chain& chain, const KeyHash& to, int64_t satoshis) {
    Bytes unlocking = {8};
    unlocking.resize(9);
    if (RAND_bytes(unlocking.data() + 1, 8) != 1) return {};
    PutU32(unlocking, static_cast<uint32_t>(chain.blocks.size()));
    PutBytes(unlocking, ViewOf(kFundingMark));
    ParsedTx tx;
    tx.version = 1;
    tx.inputs.push_back({kNoOutpoint, unlocking, kFinalSequence});
    tx.outputs.push_back({satoshis, PayToKeyHash(to)});
    return WriteTransaction(tx);
}

bool AddFunding(Chain& chain, const Bytes& raw, int64_t block_time) {
    std::optional<ParsedTx> tx = ParseTransaction(raw);
    if (!tx || tx->inputs.size() != 1 || tx->outputs.size() != 1 || !IsCoinbase(*tx)) return false;
    const Digest id = tx->id;
    const int64_t satoshis = tx->outputs[0].value;
    if (satoshis <= 0 || satoshis > kMaxMoney - chain.total_funded) return false;
    if (chain.transactions.contains(id)) return false;
    Insert(chain, {std::move(*tx), raw, 0, true, 0});
    chain.total_funded += satoshis;
    AddBlock(chain, {id}, block_time);
    return true;
}

void MineBlock(Chain& chain, int64_t block_time) {
    std::vector<Digest> waiting;
    for (const Digest& id : chain.order) {
        if (IsMempoolTransaction(chain, id)) waiting.push_back(id);
    }
    AddBlock(chain, std::move(waiting), block_time);
}

bool ForgetTransaction(Chain& chain, const Digest& id) {
    if (!IsMempoolTransaction(chain, id)) return false;
    // A spender stands behind what it spends from in the order, so one walk finds all of them.
    std::set<Digest> doomed = {id};
    for (const Digest& each : chain.order) {
        const ParsedTx& tx = chain.transactions.at(each)->tx;
        const auto is_doomed = [&doomed](const TxInput& input) { return doomed.contains(input.spent.id); };
        if (std::any_of(tx.inputs.begin(), tx.inputs.end(), is_doomed)) doomed.insert(each);
    }
    const std::vector<Digest> order = chain.order;
    for (auto each = order.rbegin(); each != order.rend(); ++each) {
        if (!doomed.contains(*each)) continue;
        const ChainTxPtr entry = chain.transactions.at(*each);
        chain.transactions.erase(*each);
        Remove(chain, *entry);
    }
    return true;
}

const ChainTx* FindTransaction(const Chain& chain, const Digest& id) {
    const auto found = chain.transactions.find(id);
    return found != chain.transactions.end() ? found->second.get() : nullptr;
}

std::vector<Digest> TransactionsOf(const Chain& chain, const KeyHash& owner) {
    const auto found = chain.touched.find(owner);
    return found != chain.touched.end() ? found->second : std::vector<Digest>();
}

std::vector<Outpoint> UnspentOf(const Chain& chain, const KeyHash& owner) {
    std::vector<Outpoint> unspent;
    const auto found = chain.paid_to.find(owner);
    if (found == chain.paid_to.end()) return unspent;
    for (const Outpoint& outpoint : found->second) {
        if (!chain.coins.at(outpoint).spent) unspent.push_back(outpoint);
    }
    return unspent;
}

int64_t UnspentTotal(const Chain& chain) {
    int64_t total = 0;
    for (const auto& [outpoint, coin] : chain.coins) {
        if (!coin.spent) total += coin.output.value;
    }
    return total;
}

}  // namespace brickfall::sandbox
