// Any bytes as a file that says what a wallet has and may spend: the spent file, the promises of other
// programs, the last balance, the wallet itself; and as a connect request, which the companion reads. What is
// read is what the document says, nothing is lost where it is written again, and a file that cannot be read
// is left alone.
#include <algorithm>

#include "base/text.h"
#include "fuzz/support.h"
#include "sandbox/companion.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/reservations.h"
#include "wallet/coins/spent_set.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_file.h"

namespace {

using namespace brickfall;
using nlohmann::json;

constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";

json At(const json& object, const char* key) {
    const json* const value = FindJsonKey(object, key);
    return value != nullptr ? *value : json();
}

// What a list of texts holds; empty for another value.
std::unordered_set<std::string> Texts(const json& list) {
    std::unordered_set<std::string> texts;
    for (const json& element : list.is_array() ? list : json::array()) {
        if (element.is_string() && element != "") texts.insert(element.get<std::string>());
    }
    return texts;
}

// True where it is written again: then nothing of it may be lost.
bool CheckSpent(const json& document, bool unreadable) {
    ClearSpentSet();
    Require(LoadSpentSet() == !unreadable && spent_set == Texts(At(document, "outpoints")));
    MarkSpentInMemory(std::string(64, 'a'), 1);
    SaveSpentSet();
    if (unreadable) return false;
    const auto wanted = spent_set;
    ClearSpentSet();
    Require(LoadSpentSet() && spent_set == wanted && IsSpent(std::string(64, 'A'), 1));
    return true;
}

// The same document as the file of each shop.
bool CheckPromises(const json& document, bool unreadable) {
    std::string error;
    Reserves reserves;
    Require(LoadReserves(reserves, error) == !unreadable && error.empty() == !unreadable);
    std::unordered_set<std::string> locks;
    for (const std::string& text : Texts(At(document, "utxos"))) locks.insert(Lower(text));
    Require(unreadable || reserves.offer_locks == locks);
    for (const auto* const keys : {&reserves.emporium, &reserves.gallery}) {
        Require(keys->size() <= 2 * At(document, "reserves").size());
        for (const std::string& key : *keys) Require(ReserveKey(key) == key);
    }
    return false;
}

bool CheckBalance(const json& document, bool unreadable) {
    wallet_keys.address = kAddress;
    const json sats = At(document, "sats");
    const bool own = At(document, "address") == json(kAddress);
    const bool whole = own && sats.is_number_integer() && sats >= 0 && sats <= INT64_MAX;
    Require(ReadFaceBalance(kAddress) == (whole ? sats.get<int64_t>() : -1));
    WriteFaceBalance(77);
    Require(ReadFaceBalance(kAddress) == (unreadable ? -1 : 77));
    ResetWalletKeys();
    return !unreadable;
}

bool CheckWallet(const json&, bool) {
    const WalletKeys& keys = wallet_keys;
    const bool loaded = ReadWallet(), hd = keys.is_hd;
    std::string key;
    Require(loaded == !keys.priv.empty() && (loaded || !hd) && keys.show <= keys.recv[1]);
    Require(!hd || (PublicKeyFromPrivate(keys.priv, key) && AddressFromPublicKey(key) == keys.address));
    const std::string address = keys.address, name = keys.paymail;
    const std::size_t entries = keys.ord_owned.size() + keys.contacts.size();
    const auto counters = keys.recv;
    Require(SaveWallet() == hd);
    Require(!hd ||
            (ReadWallet() && keys.address == address && keys.paymail == name && keys.recv == counters));
    Require(entries == keys.ord_owned.size() + keys.contacts.size());
    ResetWalletKeys();
    return hd;
}

bool CheckRequest(const json& document, bool) {
    const json ts = At(document, "ts");
    const bool waits = ts.is_number_integer() && ts >= kFuzzNow - 60 && ts <= INT64_MAX;
    Require(AbandonedRequestIds().contains("w2") == !waits);
    std::set<std::string> ignored;
    const auto decide = [](const ConnectRequest& request) { return request.app.size() % 2 == 0; };
    const auto answers = AnswerRequests(ignored, decide, [] { return std::string("w1"); });
    Require(answers.size() == (document.is_object() ? 1u : 0u) &&
            OpenRequestIds().size() == 1 - answers.size());
    return false;
}

constexpr struct {
    bool (*check)(const json& document, bool unreadable);
    std::initializer_list<const char*> files;
} kReaders[] = {
    {CheckSpent, {"/ord_snap/w1_spent.json"}},
    {CheckPromises,
     {"/emporium/reserves_w1.json", "/gallery/reserves_w1.json", "/gallery/offer_locks_w1.json"}},
    {CheckBalance, {"/tx_hist/w1_face.json"}},
    {CheckWallet, {"/wallets/w1/wallet.json"}},
    {CheckRequest, {"/connect/w2.req.json"}},
};

}  // namespace

// The first byte chooses the reader.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const FuzzStore store;
    static const bool ready = (StopClock(), BindAtStart("/fuzz", "Fuzz"), SetWalletId("w1"), true);
    Require(ready);
    const std::string root = store.Path() + "/Orvane";
    const std::string_view bytes = AsText(data, size).substr(size > 0 ? 1 : 0);
    const auto& reader = kReaders[(size > 0 ? data[0] : 0) % std::size(kReaders)];
    // A control byte of what is refused is eight characters in the parser's message.
    const CostBound cost(150'000, size, 2'000);
    StoreFile read;
    for (const std::string file : reader.files) {
        Require(MakeFolders(std::filesystem::path(root + file).parent_path()));
        Require(ReplaceFile(root + file, bytes, Flush::kLater));
        read = ReadStoreFile(root + file);
    }
    RemoveFile(root + "/connect/w2.rep.json");
    if (!reader.check(read.document, read.state == FileState::kUnreadable))
        Require(ReadFile(root + *reader.files.begin()) == bytes);
    return 0;
}
