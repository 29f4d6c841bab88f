#include "wallet/coins/spent_set.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "base/files.h"
#include "wallet/json/json_numbers.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {

std::unordered_set<std::string>& spent_set = *new std::unordered_set<std::string>;

namespace {

using nlohmann::json;

// The spent file is there and could not be read: what it holds is not in the set. Guarded by wallet_mutex.
bool spent_file_unread = false;

std::string SpentFolder() { return StoreRoot() + "/ord_snap"; }
std::string SpentPath(const std::string& cache_id) { return SpentFolder() + "/" + cache_id + "_spent.json"; }

}  // namespace

void DropSpent(std::vector<Utxo>& list) {
    std::erase_if(list, [](const Utxo& utxo) { return IsSpent(utxo.txid, utxo.vout); });
}

bool IsSpent(std::string_view txid, uint32_t vout) {
    if (spent_set.contains(OutpointKey(txid, vout))) return true;
    const std::string flipped = FlipTxidHex(txid);
    return !flipped.empty() && spent_set.contains(OutpointKey(flipped, vout));
}

void MarkSpentInMemory(std::string_view txid, uint32_t vout) {
    spent_set.insert(OutpointKey(txid, vout));
    const std::string flipped = FlipTxidHex(txid);
    if (!flipped.empty()) spent_set.insert(OutpointKey(flipped, vout));
}

void MarkSpent(std::span<const SpendInput> inputs) {
    for (const SpendInput& input : inputs) MarkSpentInMemory(input.txid, input.vout);
    SaveSpentSet();
}

void SaveSpentSet() {
    const std::string cache_id = WalletCacheId();
    if (cache_id.empty() || cache_id == "wallet") return;
    const StoreLock lock;
    if (!LoadSpentSet()) return;
    MakeFolders(SpentFolder());
    const json document = {{"outpoints", spent_set}};
    WriteStoreFile(SpentPath(cache_id), document.dump(-1, ' ', false, json::error_handler_t::replace));
}

bool LoadSpentSet() {
    const StoreFile file = ReadStoreFile(SpentPath(WalletCacheId()));
    spent_file_unread = file.state == FileState::kUnreadable;
    const json* outpoints = FindJsonKey(file.document, "outpoints");
    if (outpoints == nullptr || !outpoints->is_array()) return !spent_file_unread;
    for (const json& outpoint : *outpoints) {
        if (!outpoint.is_string()) continue;
        std::string key = outpoint.get<std::string>();
        if (!key.empty()) spent_set.insert(std::move(key));
    }
    return true;
}

bool EnsureSpentSet(std::string& error) {
    if (!spent_file_unread || LoadSpentSet()) return true;
    error = CannotReadText(SpentPath(WalletCacheId()));
    return false;
}

void ClearSpentSet() {
    spent_set.clear();
    spent_file_unread = false;
}

}  // namespace brickfall
