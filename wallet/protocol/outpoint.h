// outpoint.h - an output, and the texts that name it in either byte order. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

struct Utxo {
    std::string txid;  // 64 hex digits, display byte order, case as the service wrote it
    uint32_t vout = 0;
    int64_t value = 0;  // satoshis, above 0
};

// The order of every list of coins. What is spent first must not be what strangers sent last: a coin of a few
// satoshis costs more to spend than it brings. Coins of one value keep the order that they came in.
inline bool IsLarger(const Utxo& a, const Utxo& b) { return a.value > b.value; }

std::string OutpointKey(std::string_view txid, uint32_t vout);  // lower(txid) ":" vout
std::string FlipTxidHex(std::string_view txid);                 // bytes reversed; empty unless 64 characters

// The same text for both byte orders of an id: two outpoints are SameOutpoint when these are equal.
std::string EitherOrderKey(std::string_view txid, uint32_t vout);
void KeepFirstOfEach(std::vector<Utxo>& list);  // of those that are SameOutpoint

// Both sides have `txid` and `vout`; equal in either byte order.
template <typename A, typename B>
bool SameOutpoint(const A& a, const B& b);
bool SameOutpointText(std::string_view txid_a, std::string_view txid_b);  // the ids alone

template <typename A, typename B>
bool SameOutpoint(const A& a, const B& b) {
    return a.vout == b.vout && SameOutpointText(a.txid, b.txid);
}

}  // namespace brickfall
