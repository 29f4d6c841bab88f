#include "wallet/coins/balance_cache.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>

#include "base/clock.h"
#include "base/files.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/events/wallet_events.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {

std::atomic<int64_t>& shown_balance = *new std::atomic<int64_t>(-1);

namespace {

using nlohmann::json;

// Guarded by wallet_mutex.
int64_t last_balance = -1;
int64_t spend_floor = -1;
int64_t spend_at = 0;

std::string FaceFolder() { return StoreRoot() + "/tx_hist"; }
std::string FacePath() { return FaceFolder() + "/" + WalletCacheId() + "_face.json"; }

// A service that has not seen the last payment yet still reports what it spent; for a while it is not
// believed.
int64_t ApplyHold(int64_t balance) {
    const bool holding = last_balance >= 0 && spend_floor >= 0 && MonotonicNs() - spend_at < kSpendHoldNs;
    return holding && balance - kSpendHoldMargin > spend_floor ? spend_floor : balance;
}

void Remember(int64_t balance) {
    last_balance = balance;
    shown_balance = balance;
    WriteFaceBalance(balance);
}

int64_t HoldAndRemember(int64_t balance) {
    balance = ApplyHold(balance);
    Remember(balance);
    return balance;
}

}  // namespace

int64_t SpendableBalance() {
    const std::string& address = wallet_keys.address;
    int64_t sum = 0;
    std::unordered_set<std::string> counted;
    const UtxoCacheEntry* entry = FindCacheEntry(address);
    const bool known = entry != nullptr && entry->valid;
    if (known) {
        for (const Utxo& utxo : entry->utxos) {
            if (IsSpent(utxo.txid, utxo.vout) || IsOrdinalForAddress(address, utxo)) continue;
            if (counted.insert(EitherOrderKey(utxo.txid, utxo.vout)).second)
                sum = AddSatoshis(sum, utxo.value);
        }
    }
    Hash160 hash;
    const bool one_owner = DecodeAddress(address, hash);
    for (const PendingOutput& pending : pending_outputs) {
        if (one_owner && pending.hash != hash) continue;
        const Utxo utxo{pending.txid, pending.vout, pending.value};
        if (IsSpent(utxo.txid, utxo.vout) || IsOrdinalAnywhere(utxo)) continue;
        if (counted.insert(EitherOrderKey(utxo.txid, utxo.vout)).second) sum = AddSatoshis(sum, utxo.value);
    }
    return !known && sum == 0 ? -1 : sum;
}

int64_t LastBalance() { return last_balance; }

int64_t ReadBalance() {
    const int64_t balance = SpendableBalance();
    return balance < 0 ? balance : HoldAndRemember(balance);
}

void NoteSpend(int64_t spent) {
    int64_t balance = SpendableBalance();
    if (balance < 0) return;
    if (last_balance >= 0 && spent >= 1) {
        spend_floor = std::max<int64_t>(last_balance - spent, 0);
        spend_at = MonotonicNs();
        const bool too_low = balance < spend_floor - kSpendTolerance;
        const bool too_high = balance - kSpendTolerance > last_balance;
        if (too_low || too_high) balance = spend_floor;
    } else {
        balance = ApplyHold(balance);
    }
    Remember(balance);
    constexpr char kSeparator = '\x1F';
    EmitTaggedLine(std::string("[OV-BALANCE]") + kSeparator + std::to_string(balance) + kSeparator +
                   WalletId());
}

void WriteFaceBalance(int64_t satoshis) {
    if (satoshis < 0 || wallet_keys.address.empty()) return;
    if (ReadFaceBalance(wallet_keys.address) == satoshis) return;
    MakeFolders(FaceFolder());
    const json face = {{"sats", satoshis}, {"address", wallet_keys.address}};
    WriteStoreFile(FacePath(), face.dump(-1, ' ', false, json::error_handler_t::replace));
}

int64_t ReadFaceBalance(std::string_view address) {
    if (address.empty()) return -1;
    const json face = ReadStoreJson(FacePath());
    if (StoreText(face, "address") != address) return -1;
    const json* satoshis = FindJsonKey(face, "sats");
    if (satoshis == nullptr) return -1;
    return std::max<int64_t>(JsonExactInt64(*satoshis).value_or(-1), -1);
}

void ClearBalanceMemory() {
    last_balance = -1;
    shown_balance = -1;
    spend_floor = -1;
    spend_at = 0;
}

}  // namespace brickfall
