#include "wallet/coins/ordinal_guard.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "base/clock.h"

namespace brickfall {
namespace {

struct OrdinalGuardEntry {
    bool ok = false;         // the scan answered
    int64_t scanned_at = 0;  // monotonic nanoseconds
    bool covers = false;     // a good scan has seen what the address lists
};

// By address. Guarded by wallet_mutex, as are the values below.
std::unordered_map<std::string, OrdinalGuardEntry>& ordinal_guard =
    *new std::unordered_map<std::string, OrdinalGuardEntry>;

// Outpoint keys, in both byte orders, of what a scan has found to be an ordinal or a token.
std::unordered_set<std::string>& named_ordinals = *new std::unordered_set<std::string>;
std::optional<int64_t>& scan_failed_at = *new std::optional<int64_t>;  // monotonic nanoseconds
bool ordinals_outage = false;
int64_t ordinals_outage_at = 0;

bool IsYoung(int64_t since) { return MonotonicNs() - since < kGuardFreshNs; }

const OrdinalGuardEntry* FreshGuard(std::string_view address) {
    const auto place = ordinal_guard.find(std::string(address));
    return place != ordinal_guard.end() && IsYoung(place->second.scanned_at) ? &place->second : nullptr;
}

}  // namespace

void StoreOrdinalGuard(const std::string& address, const std::set<std::string>& keys, bool ok) {
    const int64_t now = MonotonicNs();
    OrdinalGuardEntry& entry = ordinal_guard[address];
    entry = {ok, now, ok || entry.covers};
    for (const std::string& key : keys) {
        named_ordinals.insert(key);
        const std::size_t colon = std::min(key.find(':'), key.size());
        const std::string flipped = FlipTxidHex(key.substr(0, colon));
        if (!flipped.empty()) named_ordinals.insert(flipped + key.substr(colon));
    }
    if (ok) return;
    ordinals_outage = true;
    ordinals_outage_at = now;
}

bool OrdinalsOutageRunning() { return ordinals_outage && IsYoung(ordinals_outage_at); }

bool HasFreshGuard(std::string_view address) { return FreshGuard(address) != nullptr; }

void NoteListing(const std::string& address) {
    if (const auto place = ordinal_guard.find(address); place != ordinal_guard.end()) {
        place->second.covers = false;
    }
}

void NoteFailedScan() { scan_failed_at = MonotonicNs(); }

bool IsCovered(std::string_view address) {
    const auto place = ordinal_guard.find(std::string(address));
    return place != ordinal_guard.end() && place->second.covers;
}

bool ScanFailedLately() { return scan_failed_at && IsYoung(*scan_failed_at); }

bool IsOrdinalForAddress(std::string_view address, const Utxo& utxo) {
    if (named_ordinals.contains(OutpointKey(utxo.txid, utxo.vout))) return true;
    // Most inscriptions and tokens ride on single satoshis, so without a scan to speak for it each is
    // suspect.
    if (utxo.value != 1) return false;
    const OrdinalGuardEntry* guard = FreshGuard(address);
    return OrdinalsOutageRunning() || guard == nullptr || !guard->ok;
}

bool IsOrdinalAnywhere(const Utxo& utxo) {
    return named_ordinals.contains(OutpointKey(utxo.txid, utxo.vout)) ||
           (OrdinalsOutageRunning() && utxo.value == 1);
}

void ClearGuardState() {
    ordinal_guard.clear();
    named_ordinals.clear();
    scan_failed_at.reset();
    ordinals_outage = false;
    ordinals_outage_at = 0;
}

}  // namespace brickfall
