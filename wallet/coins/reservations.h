// reservations.h - the outputs that other programs of the family have promised to somebody.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

namespace brickfall {

// As the files stood at one moment.
struct Reserves {
    std::unordered_set<std::string> offer_locks;  // OfferLockKey
    std::unordered_set<std::string> emporium;     // ReserveKey, as is the next
    std::unordered_set<std::string> gallery;      // without those that have run out
};

std::string OfferLockKey(std::string_view txid, uint32_t vout);  // lower(txid) "_" vout
std::string ReserveKey(std::string_view text);                   // lower case, ":" becomes "_"

// Reads the three files afresh. One that is missing or does not parse reserves nothing. False when one is
// there and cannot be read: then nobody knows what is promised, and nothing may be spent. `error` names it.
bool LoadReserves(Reserves& reserves, std::string& error);
bool LoadOfferLocks(std::unordered_set<std::string>& list);  // false: there, and cannot be read
bool IsEmporiumReserved(const Reserves& reserves, std::string_view txid, uint32_t vout);
bool IsGalleryReserved(const Reserves& reserves, std::string_view txid, uint32_t vout);

// By either shop, or locked by an offer; the id in either byte order, as for all that must not be spent.
bool IsReserved(const Reserves& reserves, std::string_view txid, uint32_t vout);

}  // namespace brickfall
