#include "wallet/coins/reservations.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "wallet/json/json_fields.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxReserveName = 64;

bool IsFileNameByte(char c) { return IsAsciiLetterOrDigit(c) || c == '-' || c == '_'; }

std::string WalletIdOrNone() {
    std::string id = WalletId();
    return id.empty() ? "none" : id;
}

std::string OfferFilePath() {
    std::string name = WalletIdOrNone();
    std::erase_if(name, [](char c) { return !IsFileNameByte(c); });
    if (name.empty()) name = "none";
    const std::string folder = StoreRoot() + "/gallery";
    MakeFolders(folder);
    return folder + "/offer_locks_" + name + ".json";
}

std::string ReserveFilePath(const char* shop) {
    std::string name = WalletIdOrNone();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !IsFileNameByte(c); }, '_');
    name.resize(std::min(name.size(), kMaxReserveName));
    const std::string folder = StoreRoot() + shop;
    MakeFolders(folder);
    return folder + "/reserves_" + name + ".json";
}

// What a row reserves, as ReserveKeys. The fields that the guard does not need are read for their type alone.
std::vector<std::string> ReadEmporiumRow(FieldReader& fields) {
    std::vector<std::string> keys{ReserveKey(fields.Text("utxo"))};
    fields.Text("origin");
    fields.Text("listing");
    fields.Integer("exp", 0);
    return keys;
}

std::vector<std::string> ReadGalleryRow(FieldReader& fields) {
    std::vector<std::string> keys{ReserveKey(fields.Text("pic_utxo")), ReserveKey(fields.Text("cert_utxo"))};
    const int64_t exp = fields.Integer("exp", 0);  // Unix seconds; 0: no end
    fields.Text("pic");
    fields.Text("cert");
    fields.Integer("price_sats", -1);
    fields.Index("spot");
    const bool dropped = keys.front().empty();
    const bool expired = exp > 0 && exp < UnixSeconds();
    if (dropped || expired) keys.clear();
    return keys;
}

// The keys of all rows before the first malformed one. False when the file is there and cannot be read.
bool ReadReserveFile(const std::string& path, std::vector<std::string> (*read)(FieldReader&),
                     std::unordered_set<std::string>& reserved) {
    reserved.clear();
    const StoreFile file = ReadStoreFile(path);
    if (file.state == FileState::kUnreadable) return false;
    const json* rows = FindJsonKey(file.document, "reserves");
    if (rows == nullptr || !rows->is_array()) return true;
    for (const json& element : *rows) {
        if (!element.is_object()) continue;
        FieldReader fields{element};
        std::vector<std::string> keys = read(fields);
        if (fields.wrong_type) break;
        for (std::string& key : keys) reserved.insert(std::move(key));
    }
    return true;
}

std::string ReserveKeyOf(std::string_view txid, uint32_t vout) {
    return ReserveKey(OfferLockKey(txid, vout));
}

}  // namespace

std::string OfferLockKey(std::string_view txid, uint32_t vout) {
    return Lower(txid) + "_" + std::to_string(vout);
}

std::string ReserveKey(std::string_view text) {
    std::string key = Lower(text);
    std::replace(key.begin(), key.end(), ':', '_');
    return key;
}

bool LoadOfferLocks(std::unordered_set<std::string>& list) {
    list.clear();
    const StoreFile file = ReadStoreFile(OfferFilePath());
    if (file.state == FileState::kUnreadable) return false;
    const json* locks = FindJsonKey(file.document, "utxos");
    if (locks == nullptr || !locks->is_array()) return true;
    for (const json& lock : *locks) {
        if (!lock.is_string()) continue;
        std::string key = Lower(lock.get_ref<const std::string&>());
        if (!key.empty()) list.insert(std::move(key));
    }
    return true;
}

bool LoadReserves(Reserves& reserves, std::string& error) {
    const std::string emporium = ReserveFilePath("/emporium"), gallery = ReserveFilePath("/gallery");
    error.clear();
    if (!ReadReserveFile(emporium, ReadEmporiumRow, reserves.emporium)) {
        error = CannotReadText(emporium);
    } else if (!ReadReserveFile(gallery, ReadGalleryRow, reserves.gallery)) {
        error = CannotReadText(gallery);
    } else if (!LoadOfferLocks(reserves.offer_locks)) {
        error = CannotReadText(OfferFilePath());
    }
    return error.empty();
}

bool IsEmporiumReserved(const Reserves& reserves, std::string_view txid, uint32_t vout) {
    return reserves.emporium.contains(ReserveKeyOf(txid, vout));
}

bool IsGalleryReserved(const Reserves& reserves, std::string_view txid, uint32_t vout) {
    return reserves.gallery.contains(ReserveKeyOf(txid, vout));
}

bool IsReserved(const Reserves& reserves, std::string_view txid, uint32_t vout) {
    const auto named = [&](std::string_view id) {
        return IsEmporiumReserved(reserves, id, vout) || IsGalleryReserved(reserves, id, vout) ||
               reserves.offer_locks.contains(OfferLockKey(id, vout));
    };
    const std::string flipped = FlipTxidHex(txid);
    return named(txid) || (!flipped.empty() && named(flipped));
}

}  // namespace brickfall
