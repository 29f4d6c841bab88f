// ordinal_guard.h - the outputs that must not be spent since they carry an ordinal or a token, or may.
// wallet_mutex is held by the caller.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "wallet/protocol/outpoint.h"

namespace brickfall {

inline constexpr int64_t kGuardFreshNs = 20'000'000'000;

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

void ClearGuardState();

}  // namespace brickfall
