#include "sandbox/companion.h"

#include <openssl/rand.h>

#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/files.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/bip39_words.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/mnemonic.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/protocol/hashes.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_file.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::string_view kRequestEnd = ".req.json";
constexpr std::string_view kReplyEnd = ".rep.json";

std::string ConnectFolder() { return StoreRoot() + "/connect"; }

// BIP39: 128 bits of entropy and the first 4 bits of their SHA-256, as twelve words of 11 bits.
SecretString FreshPhrase() {
    std::array<uint8_t, 17> bits{};
    const WipeAtExit wipe_bits(bits);
    if (RAND_bytes(bits.data(), 16) != 1) return {};
    Hash256 checksum = Sha256Once(std::span(bits).first(16));
    const WipeAtExit wipe_checksum(checksum);
    bits[16] = checksum[0];
    SecretString phrase;
    phrase.reserve(12 * 9);
    for (std::size_t word = 0; word < 12; ++word) {
        std::size_t index = 0;
        for (std::size_t bit = 11 * word; bit < 11 * word + 11; ++bit) {
            index = index << 1 | (bits[bit / 8] >> (7 - bit % 8) & 1);
        }
        if (word > 0) phrase += ' ';
        phrase += kBip39Words[index];
    }
    return phrase;
}

// Caller holds wallet_mutex for both. Fills the wallet state as a first load of the new wallet would; false
// when a derivation fails.
bool FillWalletKeys(std::string_view paymail) {
    wallet_keys.mnemonic = FreshPhrase();
    if (!ValidateMnemonic()) return false;
    wallet_keys.is_hd = true;
    wallet_keys.paymail = paymail;
    SecretString identity_key;
    return DeriveAtPath(ReceivePath(0), wallet_keys.priv, wallet_keys.pub, wallet_keys.address) &&
           DeriveAtPath(kIdentityPath, identity_key, wallet_keys.identity_pub, wallet_keys.identity_address);
}

bool WriteNewWallet(const std::string& wallet_id, std::string_view paymail) {
    ClearWalletState();
    const std::string former_id = WalletId();
    SetWalletId(wallet_id);
    const bool written = FillWalletKeys(paymail) && SaveWallet();
    ClearWalletState();
    SetWalletId(former_id);
    return written;
}

bool ReadRequest(const std::string& id, ConnectRequest& request) {
    const json document = ReadStoreJson(ConnectFolder() + "/" + id + std::string(kRequestEnd));
    if (!document.is_object()) return false;
    request = {id, StoreText(document, "app"), StoreText(document, "instance")};
    return true;
}

bool WriteReply(const ConnectAnswer& answer) {
    json reply = {{"ok", answer.approved}};
    if (!answer.wallet_id.empty()) reply["wallet_id"] = answer.wallet_id;
    const std::string path = ConnectFolder() + "/" + answer.request_id + std::string(kReplyEnd);
    return WriteStoreFile(path, StoreDump(reply));
}

ConnectAnswer MakeAnswer(const std::string& request_id, bool approved, const WalletChoice& choose_wallet) {
    if (!approved) return {request_id, false, {}};
    std::optional<std::string> wallet_id = choose_wallet();
    if (!wallet_id) return {request_id, false, {}};
    return {request_id, true, std::move(*wallet_id)};
}

}  // namespace

std::string CreateCompanionWallet(std::string_view paymail) {
    const WalletLock wallet_lock(wallet_mutex);
    const StoreLock store_lock;
    StoreFile file = ReadRegistry();
    if (file.state == FileState::kUnreadable) return {};
    json& registry = file.document;
    json& wallets = registry["wallets"];
    const std::string id = NewStoreId();
    const std::string name =
        paymail.empty() ? "Wallet " + std::to_string(wallets.size() + 1) : std::string(paymail);
    // The file first: whoever reads the new registry entry finds the wallet in place.
    if (!WriteNewWallet(id, paymail)) return {};
    wallets.push_back({{"id", id}, {"name", name}});
    registry["active"] = id;
    return WriteRegistry(registry) ? id : std::string();
}

std::string OfferedWallet() {
    const StoreLock lock;
    const std::string active = StoreText(ReadRegistry().document, "active");
    const std::vector<WalletInfo> wallets = ListWallets();
    for (const WalletInfo& wallet : wallets) {
        if (wallet.id == active) return active;
    }
    return wallets.empty() ? std::string() : wallets.front().id;
}

std::string CompanionAddress(std::string_view wallet_id) {
    const WalletLock lock(wallet_mutex);
    ClearWalletState();
    const std::string former_id = WalletId();
    SetWalletId(wallet_id);
    std::string address;
    std::string paymail;
    bool is_hd = false;
    if (!WalletSummary(address, paymail, is_hd)) address.clear();
    SetWalletId(former_id);
    return address;
}

std::set<std::string> OpenRequestIds() {
    std::set<std::string> ids;
    const std::string folder = ConnectFolder();
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::string name = entry->path().filename().string();
        if (!name.ends_with(kRequestEnd)) continue;
        name.resize(name.size() - kRequestEnd.size());
        if (!FileExists(folder + "/" + name + std::string(kReplyEnd))) ids.insert(std::move(name));
    }
    return ids;
}

std::set<std::string> AbandonedRequestIds() {
    constexpr int64_t kWaitSeconds = kConnectPollMs * kConnectPollCount / 1000;
    std::set<std::string> ids = OpenRequestIds();
    const int64_t now = UnixSeconds();
    std::erase_if(ids, [now](const std::string& id) {
        const json document = ReadStoreJson(ConnectFolder() + "/" + id + std::string(kRequestEnd));
        const json* made = FindJsonKey(document, "ts");
        const std::optional<int64_t> made_at = made != nullptr ? JsonExactInt64(*made) : std::nullopt;
        return made_at && *made_at >= now - kWaitSeconds;
    });
    return ids;
}

std::vector<ConnectAnswer> AnswerRequests(std::set<std::string>& ignored, const RequestDecision& decide,
                                          const WalletChoice& choose_wallet) {
    std::vector<ConnectAnswer> answers;
    for (const std::string& id : OpenRequestIds()) {
        ConnectRequest request;
        if (ignored.contains(id) || !ReadRequest(id, request)) continue;
        const std::optional<bool> approved = decide(request);
        if (!approved) continue;
        ignored.insert(id);
        ConnectAnswer answer = MakeAnswer(id, *approved, choose_wallet);
        if (WriteReply(answer)) answers.push_back(std::move(answer));
    }
    return answers;
}

}  // namespace brickfall
