#include "wallet/protocol/outpoint.h"

#include <algorithm>
#include <cstddef>
#include <unordered_set>

#include "base/text.h"

namespace brickfall {

void KeepFirstOfEach(std::vector<Utxo>& list) {
    std::unordered_set<std::string> kept;
    std::erase_if(list, [&kept](const Utxo& utxo) {
        return !kept.insert(EitherOrderKey(utxo.txid, utxo.vout)).second;
    });
}

std::string OutpointKey(std::string_view txid, uint32_t vout) {
    return Lower(txid) + ":" + std::to_string(vout);
}

std::string FlipTxidHex(std::string_view txid) {
    if (txid.size() != 64) return {};
    const std::string lower = Lower(txid);
    std::string flipped;
    flipped.reserve(lower.size());
    for (std::size_t pair = lower.size(); pair > 0; pair -= 2) flipped.append(lower, pair - 2, 2);
    return flipped;
}

std::string EitherOrderKey(std::string_view txid, uint32_t vout) {
    std::string key = OutpointKey(txid, vout);
    const std::string flipped = FlipTxidHex(txid);
    if (flipped.empty()) return key;
    return std::min(key, OutpointKey(flipped, vout));
}

bool SameOutpointText(std::string_view txid_a, std::string_view txid_b) {
    const std::string lower_b = Lower(txid_b);
    if (Lower(txid_a) == lower_b) return true;
    const std::string flipped_a = FlipTxidHex(txid_a);
    return !flipped_a.empty() && flipped_a == lower_b;
}

}  // namespace brickfall
