// Looks through the memory that this process can write for the secrets of a wallet that it no longer holds.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/files.h"
#include "base/text.h"
#include "tests/support/memory_search.h"
#include "tests/support/shadow_memory.h"
#include "tests/support/temp_folder.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/bip32.h"
#include "wallet/keys/bip39_words.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/encryption_key.h"
#include "wallet/session/identity_signature.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/wallet_file.h"

namespace brickfall {
namespace {

// A phrase that no other test of this program uses, as its places in the list, so that it stands nowhere in
// the program as text.
constexpr std::size_t kPhrasePlaces[] = {993, 1914, 574, 181, 1331, 547, 1626, 1217, 1436, 1921, 1872, 1494};

SecretString Phrase() {
    SecretString phrase;
    phrase.reserve(120);
    for (const std::size_t place : kPhrasePlaces) {
        if (!phrase.empty()) phrase += ' ';
        phrase += kBip39Words[place];
    }
    return phrase;
}

struct Secrets : testing::Test, StoreFixture {
    void SetUp() override {
        SetWalletId("w1");
#ifdef BRICKFALL_SHADOW_MEMORY
        GTEST_SKIP() << "the sanitizer's own memory is too large to search, and keeps what is freed";
#endif
    }

    bool Load(std::string_view before, const SecretString& secret, std::string_view behind) const {
        ClearWalletState();
        SecretString text;
        text.reserve(before.size() + secret.size() + behind.size());
        text.append(before).append(secret).append(behind);
        data.Put("wallets/w1/wallet.json", text);
        return LoadWallet();
    }
    void ExpectNothingLeft(const char* when) const {
        EXPECT_EQ(needles.Find(), std::vector<std::string>{}) << when;
    }

    const WalletLock lock{wallet_mutex};
    Needles needles;
};

constexpr char kHdBegin[] = R"({"version":2,"recv":[0,3,0,0,0,1],"paymail":"ada","mnemonic":")";

// Every key that the wallet in memory can come to, by way of the state itself.
void AddKeysOfWallet(Needles& needles) {
    needles.Add("seed", wallet_keys.seed);
    ExtendedKey node = wallet_keys.master, child;
    const WipeAtExit wipe_node(node), wipe_child(child);
    needles.Add("master key", node.key);
    needles.Add("master chain code", node.chain_code);
    for (std::size_t level = 0; level < 4; ++level) {
        ASSERT_TRUE(DeriveChildKey(node, kReceivePath[level], child));
        node = child;
        needles.Add("node", node.key);
        needles.Add("chain code of a node", node.chain_code);
    }
    SecretString private_hex;
    std::string public_hex, address;
    for (const KeyPath& path : {ReceivePath(0), ReceivePath(3), kIdentityPath, kEncryptionPath}) {
        ASSERT_TRUE(DeriveAtPath(path, private_hex, public_hex, address));
        needles.AddKey("private key", private_hex);
    }
}

// What a session does with the keys.
void UseWallet() {
    EXPECT_EQ(OwnedAddresses().size(), 5u);
    std::string public_hex, text, error;
    SecretString private_hex;
    EXPECT_TRUE(SignIdentityMessage("row", public_hex, text, error));
    EXPECT_TRUE(DeriveEncryptionKey(public_hex, private_hex, error));
    std::vector<SpendInput> inputs(1);
    inputs[0].txid = std::string(64, 'a');
    inputs[0].value = 10'000;
    EXPECT_TRUE(SignInput(inputs[0], inputs, {}, Hash160{}, wallet_keys.priv, wallet_keys.pub));
    EXPECT_TRUE(SaveWallet());
    ReloadWalletHints();
    RefreshDerivedKeys();
}

TEST_F(Secrets, NothingOfAWalletIsLeftOnceItIsClearedOrItsLoadFails) {
    needles.Add("words", AsBytes(Phrase()));
    ExpectNothingLeft("before the wallet is loaded");
    ASSERT_TRUE(Load(kHdBegin, Phrase(), "\"}"));
    AddKeysOfWallet(needles);
    UseWallet();
    const std::vector<std::string> held = needles.Find();
    for (const char* name : {"words", "seed", "master key", "private key hex", "node"}) {
        EXPECT_TRUE(std::count(held.begin(), held.end(), name)) << "the search is blind to the " << name;
    }
    ClearWalletState();
    ExpectNothingLeft("once it is cleared");
    std::string address, paymail;
    bool is_hd = false;
    EXPECT_TRUE(WalletSummary(address, paymail, is_hd));
    ExpectNothingLeft("a look into the file");

    const struct {
        const char *before, *behind, *why;
    } rows[] = {
        {kHdBegin, " about\"}", "a word too many"},
        {kHdBegin, "\",\"contacts\":[{\"dest\":5}]}", "a wrong type in a list"},
        {kHdBegin, "", "the file ends in the words"},
        {kHdBegin, "\\q\"}", "an escape that is none"},
        {kHdBegin, "\xff\"}", "a byte that is no text"},
        {"{\"mnemonic\":[\"", "\"]}", "words in an array"},
        {"{\"wallet\":{\"mnemonic\":\"", "\"}}", "an object too deep"},
        {"{\"priv\":\"", "\"}", "words as a key"},
        {"{\"mnemonic\":5,\"mnemonic\":\"", "\",\"mnemonic\":5}", "a key three times"},
        {"", "", "no JSON at all"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(Load(row.before, Phrase(), row.behind)) << row.why;
        ExpectNothingLeft(row.why);
    }
}

// Crashes in a child that holds the wallet as this process does. With `permitted` the core file that the
// wallet forbids is allowed once more. Its bytes, or nothing where there is none.
std::optional<std::string> CoreOfACrash(bool permitted) {
    const TempFolder folder;
    const pid_t child = ::fork();
    if (child == 0) {
        if (::chdir(folder.Path().c_str()) != 0) ::_exit(1);
        if (permitted) {
            const rlimit all = {RLIM_INFINITY, RLIM_INFINITY};
            ::setrlimit(RLIMIT_CORE, &all);
            ::prctl(PR_SET_DUMPABLE, 1);
        }
        std::signal(SIGABRT, SIG_DFL);
        std::abort();
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        std::string bytes;
        if (ReadFile(entry.path().string(), bytes, std::size_t{1} << 30) == FileState::kRead) return bytes;
    }
    return std::nullopt;
}

// Whether a core file would lie in the folder of the crash, and the limits let it.
bool CoreFilesAreWritten() {
    std::string pattern;
    rlimit limit = {};
    return ReadFile("/proc/sys/kernel/core_pattern", pattern) == FileState::kRead &&
           pattern.find_first_of("|/") == std::string::npos && ::getrlimit(RLIMIT_CORE, &limit) == 0 &&
           limit.rlim_max == RLIM_INFINITY;
}

TEST_F(Secrets, ACrashWritesNoneOfThem) {
    ASSERT_TRUE(Load(kHdBegin, Phrase(), "\"}"));
    needles.Add("words", AsBytes(Phrase()));
    AddKeysOfWallet(needles);
    UseWallet();
    EXPECT_EQ(::prctl(PR_GET_DUMPABLE), 0);
    if (CoreFilesAreWritten()) {
        EXPECT_EQ(CoreOfACrash(/*permitted=*/false), std::nullopt);
        const std::string beside = std::string("what is ") + "no secret is in it";
        Needles plain;
        plain.Add("plain", AsBytes(beside));
        const std::optional<std::string> core = CoreOfACrash(/*permitted=*/true);
        ASSERT_TRUE(core);
        EXPECT_EQ(plain.FindIn(AsBytes(*core)), std::vector<std::string>{"plain"});
        EXPECT_EQ(needles.FindIn(AsBytes(*core)), std::vector<std::string>{});
    }
    ClearWalletState();
    EXPECT_EQ(::prctl(PR_GET_DUMPABLE), 1);
}

TEST_F(Secrets, NothingOfALegacyWalletIsLeft) {
    // A key in hexadecimal that this program holds nowhere: a hash of the phrase.
    Hash256 bytes = Sha256Once(AsBytes(Phrase()));
    SecretString key;
    AppendHex(key, bytes);
    OPENSSL_cleanse(bytes.data(), bytes.size());
    needles.AddKey("private key", key);
    const std::pair<const char*, bool> rows[] = {
        {"\"}", true}, {"\",\"address\":5}", false}, {"\",\"pub\":\"02\"}", false}, {"0\"}", false}};
    for (const auto& [behind, loads] : rows) EXPECT_EQ(Load("{\"priv\":\"", key, behind), loads) << behind;
    ClearWalletState();
    WipeString(key);
    ExpectNothingLeft("of a key");
}

}  // namespace
}  // namespace brickfall
