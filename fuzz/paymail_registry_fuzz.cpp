// The same bytes as a paymail name and as the whole file of names that another program may have written.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/files.h"
#include "base/text.h"
#include "fuzz/support.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

constexpr char kKey[] = "02ad";
constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";

void CheckName(std::string_view text) {
    const std::string name = SanitizePaymailName(text);
    Require(SanitizePaymailName(name) == name);
    Require(std::ranges::all_of(name, [](char c) {
        return (IsAsciiLetterOrDigit(c) && (c < 'A' || c > 'Z')) || c == '_' || c == '-' || c == '.';
    }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const FuzzStore store;
    const std::string file = store.Path() + "/Orvane/orvane_paymail.json";
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    CheckName(bytes);

    Require(ReplaceFile(file, bytes, Flush::kLater));
    const std::string found = FindNameForPubkey(kKey);
    Require(SanitizePaymailName(found) == found);
    if (RegisterPaymail("ada", kKey, kAddress).empty()) {
        Require(FindNameForPubkey(kKey) == "ada");
    } else {
        Require(ReadFile(file) == bytes);
    }

    Require(ReplaceFile(file, bytes, Flush::kLater));
    if (ReadStoreFile(file).state == FileState::kUnreadable) return 0;
    wallet_keys.identity_pub = kKey;
    wallet_keys.ord_avatar = "avatar_0";
    SetOrdAddress(kAddress);
    SetHostRole("dev");
    Require(SyncAvatar().empty());
    const std::string written = ReadFile(file).value_or("");
    SetOrdAddress(kAddress);
    SetHostRole("Dev");
    Require(SyncAvatar().empty());
    Require(ReadFile(file) == written);
    return 0;
}
