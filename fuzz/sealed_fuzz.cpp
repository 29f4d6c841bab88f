// Any bytes as a text to seal, as a sealed value, as a report on the chain and as a key file: what is sealed
// opens to itself, with one digit changed it does not, nothing opens that was not sealed, and a key is the
// one that the file's first line names.
#include "base/text.h"
#include "fuzz/support.h"
#include "messages/direct_message.h"
#include "sandbox/server/architect.h"
#include "tests/support/sealed_message.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/script.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

const std::string kPrivate = std::string(63, '0') + "5";

void CheckSealing(std::string_view text, const std::string& public_key) {
    const std::array<uint8_t, 32> content_key = {1, 2, 3};
    std::string wrap;
    Require(SealToKey(content_key, public_key, wrap));
    nlohmann::json row = {{"wrap_to", wrap}, {"pmessage1", EncryptPart(text, content_key)}};
    Require(OpenMessage(row, "wrap_to", kPrivate) == text);
    char& digit = wrap[std::hash<std::string_view>()(text) % wrap.size()];
    digit = digit == '0' ? '1' : '0';
    for (const std::string& other : {wrap, std::string(text), HexEncode(AsBytes(text))}) {
        row["wrap_to"] = other;
        Require(!OpenMessage(row, "wrap_to", kPrivate));
    }
    sandbox::ParsedTx transaction;
    transaction.outputs = {{0, DataCarrierScript(text)}, {0, {text.begin(), text.end()}}};
    const auto report = sandbox::ReadReport(transaction, {{"architect", sandbox::ArchitectIdentity()}});
    Require(!report || (!report->refusal.empty() && report->text.empty()));
}

void CheckKeyFile(std::string_view file, const std::string& newer) {
    std::string digits;  // the first line without white space
    for (const char c : file.substr(0, file.find('\n'))) digits += std::string(Trim({&c, 1}));
    if (Lower(digits).starts_with("0x")) digits.erase(0, 2);
    Require(ReplaceFile("userinfo/encpub-ada.txt", file, Flush::kLater));
    ClearEncryptionKeys();
    Require(FindEncryptionKey("@Ada") == (IsHexText(digits, 66) ? Lower(digits) : ""));
    std::string sealed;
    Require(!SealToKey({}, digits, sealed) || IsHexText(digits, 66) || IsHexText(digits, 130));
    StoreEncryptionKey("ada", newer, INT64_MAX);
    Require(FindEncryptionKey("ada") == newer);
    ClearEncryptionKeys();
    SecretString text;  // what no file of the store can be is left alone
    const bool left = ReadStoreText("userinfo/encpub-ada.txt", text) == FileState::kUnreadable;
    Require(left ? ReadFile("userinfo/encpub-ada.txt") == file : FindEncryptionKey("ada") == newer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const WorkingFolder folder;
    static std::string key;
    static const bool ready = MakeFolders("userinfo") && PublicKeyFromPrivate(kPrivate, key);
    Require(ready);
    const CostBound cost(150'000, size, 250);
    CheckSealing(AsText(data, size), key);
    CheckKeyFile(AsText(data, size), key);
    return 0;
}
