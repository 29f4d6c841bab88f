// spend_guard.h - everything that tells the wallet what it must not spend, and the only road from the UTXO
// cache to the inputs of a payment. wallet_mutex is held by the caller for all but ScanOrdinals.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "wallet/transaction.h"
#include "wallet/utxo_discovery.h"

namespace brickfall {

inline constexpr int64_t kGuardFreshNs = 20'000'000'000;

struct Collection {
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    std::vector<std::string> offer_locks;
};

std::string OfferLockKey(std::string_view txid, uint32_t vout);  // lower(txid) "_" vout
std::string ReserveKey(std::string_view text);                   // lower case, ":" becomes "_"

void MarkSpent(std::string_view txid, uint32_t vout);          // both byte orders, and saves the file
void MarkSpentInMemory(std::string_view txid, uint32_t vout);  // without the save
void SaveSpentSet();
void LoadSpentSet();

std::string OriginOf(const nlohmann::json& object);
bool ScanOrdinals(const std::string& address, std::set<std::string>& keys);  // network; no lock
void StoreOrdinalGuard(const std::string& address, const std::set<std::string>& keys, bool ok);
bool OrdinalsOutageRunning();
bool HasFreshGuard(std::string_view address);  // an entry younger than kGuardFreshNs
bool IsOrdinalForAddress(std::string_view address, const Utxo& utxo);
bool IsOrdinalAnywhere(const Utxo& utxo);

void LoadOfferLocks(std::vector<std::string>& list);
bool IsEmporiumReserved(std::string_view txid, uint32_t vout);
bool IsGalleryReserved(std::string_view txid, uint32_t vout);

void AddCandidate(Collection& collection, const Utxo& utxo, const SecretString& priv, const std::string& pub,
                  const Hash160& hash, std::string_view address);
void AddPendingCandidates(Collection& collection);
bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total);
bool RecoverOutputsFromTx(std::string_view txid);  // network, under the lock

void ClearGuardState();

}  // namespace brickfall
