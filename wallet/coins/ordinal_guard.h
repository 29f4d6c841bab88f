// spend_guard.h - everything that tells the wallet what it must not spend, and the only road from the UTXO
// cache to the inputs of a payment. wallet_mutex is held by the caller for all but ScanOrdinals.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "wallet/coins/utxo_cache.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

inline constexpr int64_t kGuardFreshNs = 20'000'000'000;

// What other programs of the family have promised to somebody, as their files stood at one moment.
struct Reserves {
    std::unordered_set<std::string> offer_locks;  // OfferLockKey
    std::unordered_set<std::string> emporium;     // ReserveKey, as is the next
    std::unordered_set<std::string> gallery;      // without those that have run out
};

struct Collection {
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    std::unordered_set<std::string> taken;  // EitherOrderKey of each input
    Reserves reserves;
};

std::string OfferLockKey(std::string_view txid, uint32_t vout);  // lower(txid) "_" vout
std::string ReserveKey(std::string_view text);                   // lower case, ":" becomes "_"

void MarkSpent(std::span<const SpendInput> inputs);            // both byte orders of each, and saves the file
void MarkSpentInMemory(std::string_view txid, uint32_t vout);  // without the save

// Adds what the file holds. False when it is there and cannot be read, which CollectSpendable tries again.
bool LoadSpentSet();
// Entries that another installation of this wallet has written meanwhile stay; a file that cannot be read is
// not replaced.
void SaveSpentSet();

std::string OriginOf(const nlohmann::json& object);
bool ScanOrdinals(const std::string& address, std::set<std::string>& keys);  // network; no lock
// What a scan came to, or that none was made (`ok` false, no keys). What any scan has named is held back
// until the wallet is cleared, whatever later ones say: an output never loses what it carries but by being
// spent, so one that a later listing misses is gone, or the service has not caught up.
void StoreOrdinalGuard(const std::string& address, const std::set<std::string>& keys, bool ok);
bool OrdinalsOutageRunning();
bool HasFreshGuard(std::string_view address);  // an entry younger than kGuardFreshNs

// For a payment, which scans before it spends. The outputs of an address are covered when a good scan was
// made with or after the listing that they came with.
void NoteListing(const std::string& address);  // outputs were listed; no scan covers them yet
void NoteFailedScan();                         // the service was asked, and gave nothing
bool IsCovered(std::string_view address);
bool ScanFailedLately();  // within kGuardFreshNs: the service is left alone

bool IsOrdinalForAddress(std::string_view address, const Utxo& utxo);
bool IsOrdinalAnywhere(const Utxo& utxo);

// Reads the three files afresh. One that is missing or does not parse reserves nothing. False when one is
// there and cannot be read: then nobody knows what is promised, and nothing may be spent. `error` names it.
bool LoadReserves(Reserves& reserves, std::string& error);
bool LoadOfferLocks(std::unordered_set<std::string>& list);  // false: there, and cannot be read
bool IsEmporiumReserved(const Reserves& reserves, std::string_view txid, uint32_t vout);
bool IsGalleryReserved(const Reserves& reserves, std::string_view txid, uint32_t vout);
bool IsReserved(const Reserves& reserves, std::string_view txid, uint32_t vout);  // or locked by an offer

void AddCandidate(Collection& collection, const Utxo& utxo, const SecretString& priv, const std::string& pub,
                  const Hash160& hash, std::string_view address);
void AddPendingCandidates(Collection& collection);  // the largest first
// Everything that may be spent, in spending order; of the pending outputs, those that are among it leave
// their list. False with nothing found, or with `error` set: then the guard cannot tell, and nothing may be
// spent.
bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total, std::string& error);
bool RecoverOutputsFromTx(std::string_view txid);  // network, under the lock

void ClearGuardState();

}  // namespace brickfall
