// Expected values were computed by another program: the curve by hand, hashes from a library, ciphers by the
// command-line tool. Private keys and draws are hashes of words.
#include "messages/direct_message.h"

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "base/files.h"
#include "tests/support/memory_search.h"
#include "tests/support/sealed_message.h"
#include "tests/support/shadow_memory.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using nlohmann::json;

// The recipient: SHA-256 of "recipient" as the private key.
constexpr char kRecipientPrivate[] = "665d0698dbc8fb95afc25c3a4d9cf280d87a585b7999243ca6008fd03258975f";
const std::string kRecipientX = "befb68703f3927062d65dd0139fd2b2c6be2fdf31a1adeb3a5e9c7e2cae0b6f1";
const std::string kRecipient = "02" + kRecipientX;
const std::string kRecipientY = "7c366ff7b0f2f1d492eaaf330dcbf2bf20c625d68461a92168a0268851515c2c";

// m/44'/236'/101'/0/0 of the test phrase.
constexpr char kOwnPrivate[] = "a90296c62fa6d7cc8a8813d3d18e4c4ea82c9f9420bdad446b26de813c9c1b13";
constexpr char kOwn[] = "0343bdc4700d96c8084bff1ac971ecfd505e2c606e56b158e92b232a2af92b56ad";

// The draws: SHA-256 of "ephemeral" for the first sealing, 5a throughout for every later one.
constexpr char kEphemeral[] = "8341425cafede9d24b0599aefdfdeff1c1526ed75b07217eb99bf8c0b7498b81";
constexpr char kContentKey[] = "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f";
constexpr char kVector[] = "a0a1a2a3a4a5a6a7a8a9aaabacadaeaf";
const std::string kZero(64, '0');
constexpr char kFailure[] = "";

// What SealToKey gives for the content key, to the recipient.
constexpr char kSealedContentKey[] =
    "42494531039c7a3a75b43dfa0c28c911a4ff1ff157a176116c4e4d00ca15fead57b4806c03198f59cecbbd9e83b6e1010a38f1b6"
    "069c0cb1708b83f455ce56f83e78f781feadc9d95853a76dc3d101e24457c971a2d2203090486f677f3d7fefe37658eef2f150ae"
    "fbb1465a5961b04a9e7f8344e8";

// Every draw of this process comes from here in its scope. The curve's own arithmetic draws 32 bytes as well,
// behind the first draw of a sealing: they change no result.
class FixedDraws {
  public:
    // Hexadecimal draws of 32 bytes; an empty one fails. Each byte is given XOR `mask`.
    explicit FixedDraws(std::deque<std::string> draws, uint8_t mask = 0) : former_(RAND_get_rand_method()) {
        draws_ = std::move(draws);
        mask_ = mask;
        static const RAND_METHOD method = {nullptr, Give, nullptr, nullptr, Give, Ready};
        RAND_set_rand_method(&method);
    }
    ~FixedDraws() { RAND_set_rand_method(former_); }
    FixedDraws(const FixedDraws&) = delete;
    FixedDraws& operator=(const FixedDraws&) = delete;

  private:
    static int Give(unsigned char* out, int size) {
        if (size == 16) return Put(out, kVector, 0);
        std::fill_n(out, size, uint8_t{0x5a});
        if (draws_.empty()) return 1;
        const std::string draw = draws_.front();
        draws_.pop_front();
        return size == 32 && !draw.empty() ? Put(out, draw, mask_) : 0;
    }
    static int Put(unsigned char* out, std::string_view hex, uint8_t mask) {
        for (const uint8_t byte : HexDecode(hex)) *out++ = byte ^ mask;
        return 1;
    }
    static int Ready() { return 1; }

    static inline std::deque<std::string> draws_;
    static inline uint8_t mask_;
    const RAND_METHOD* const former_;
};

std::string Seal(std::string_view data, const std::string& key = kRecipient) {
    std::string sealed = "former";
    const bool done = SealToKey(AsBytes(data), key, sealed);
    EXPECT_EQ(done, !sealed.empty());
    return sealed;
}

std::string ContentKeyText() {
    const ByteBuffer bytes = HexDecode(kContentKey);
    return {bytes.begin(), bytes.end()};
}

TEST(Sealing, FormsOfAKey) {
    const std::string upper = "02BEFB68703F3927062D65DD0139FD2B2C6BE2FDF31A1ADEB3A5E9C7E2CAE0B6F1";
    const std::string beyond_the_field = "02" + std::string(64, 'f');
    // And whether it is good to seal to.
    const std::tuple<std::string, std::string, bool> rows[] = {
        {kRecipient, kRecipient, true},
        {" \v\f0x" + upper.substr(0, 7) + "\n " + upper.substr(7) + "\r\t", kRecipient, true},
        {"04" + kRecipientX + kRecipientY, "", true},
        {"04" + kRecipientX + kRecipientX, "", false},  // no point of the curve
        {beyond_the_field, beyond_the_field, false},
        {"05" + kRecipientX, "05" + kRecipientX, false},
        {"00", "", false},  // the point at infinity
        {kRecipientX, "", false},
        {kRecipient + "0", "", false},
        {kRecipient.substr(1) + "g", "", false},
        {"0x0x" + kRecipient, "", false},
        {"", "", false},
    };
    for (const auto& [text, canonical, good] : rows) {
        const FixedDraws draws({kEphemeral});
        EXPECT_EQ(Seal(ContentKeyText(), text), good ? kSealedContentKey : "") << text;
        EXPECT_EQ(CanonicalEncryptionKey(text), canonical) << text;
    }
}

TEST(Sealing, ADrawOfZeroIsDrawnAgainUpToEightTimes) {
    std::deque<std::string> draws(7, kZero);
    draws.push_back(kEphemeral);
    EXPECT_EQ((FixedDraws(draws), Seal(ContentKeyText())), kSealedContentKey);
    draws.push_front(kZero);
    EXPECT_EQ((FixedDraws(draws), Seal(ContentKeyText())), "");
    EXPECT_EQ((FixedDraws({kZero, kFailure}), Seal("")), "");
}

// A working folder and a wallet named "ada"; no key is known.
struct DirectMessage : testing::Test {
    DirectMessage() { ClearEncryptionKeys(); }
    ~DirectMessage() override { ClearEncryptionKeys(); }

    static std::string FileOf(const std::string& name) { return "userinfo/encpub-" + name + ".txt"; }

    bool Encrypt(const MessageParts& parts, const std::string& to = "bob") {
        row = {{"type", "report"}};
        error = "former";
        return EncryptDirectMessage(parts, "ada", to, row, error);
    }

    const WorkingFolder folder;
    WalletFixture wallet{"ada"};
    json row;
    std::string error;
    std::string public_hex;
    SecretString private_hex;
};

TEST_F(DirectMessage, AWholeMessageOfFixedDraws) {
    StoreEncryptionKey("@Bob", kRecipient, 5);
    ASSERT_TRUE(LoadEncryptionKeys(public_hex, private_hex, error)) << error;
    const FixedDraws draws({kContentKey, kEphemeral});
    ASSERT_TRUE(Encrypt({std::string(15, 'r'), std::string(16, 'r')})) << error;
    EXPECT_EQ(error, "");
    const std::string vector = kVector;
    const json expected = {
        {"type", "report"},
        {"pmessage1", vector + "a76c569fea8ba325cb3779ba6ea2b154"},
        {"pmessage2", vector + "8d744351e70f6d93fd9c0fb66bb1e3a60fce79cf70d067f1f7d412efbb74fe6c"},
        {"enc_v", 2},
        {"enc_pub", kOwn},
        {"wrap_to", kSealedContentKey},
        {"wrap_me",
         "42494531029c5530e4385ebc41cdaf8257edf9a2baaf8506a4099103211e6ed7382103ed67a10a03e6d1095a09d19339026"
         "567ed6501fd4c3d360cb8d92ea4efbf0a83c8ffdf4a8fd92b1e76c2c2d83fc5e9dec5c4f1315bcef66037b226c2ae896854"
         "a35277d523a2f6af4923fdea58e63d93d015"},
    };
    EXPECT_EQ(row, expected);
}

TEST_F(DirectMessage, PartsEndAtTheFirstEmptyOne) {
    StoreEncryptionKey("bob", kRecipient, 5);
    const std::string bytes("\0\xff\n", 3);
    ASSERT_TRUE(Encrypt({"one ", bytes, std::string(2'000, 'x'), "", "never"})) << error;
    EXPECT_EQ(row.size(), 8u) << "three parts, four fields and what the caller had set";
    for (const auto& [wrap, key] : {std::pair("wrap_to", kRecipientPrivate), {"wrap_me", kOwnPrivate}}) {
        EXPECT_EQ(OpenMessage(row, wrap, key), "one " + bytes + std::string(2'000, 'x'));
    }
    ASSERT_TRUE(Encrypt({"1", "2", "3", "4", "5", "6", "7", "8"})) << error;
    EXPECT_EQ(OpenMessage(row, "wrap_to", kRecipientPrivate), "12345678");
    ASSERT_TRUE(Encrypt({"", "never"}));
    EXPECT_FALSE(row.contains("pmessage1") || row.contains("pmessage2"));
}

TEST_F(DirectMessage, TwoOfOneTextShareNothing) {
    StoreEncryptionKey("bob", kRecipient, 5);
    const std::string text(48, 'r');
    std::vector<std::string> seen;  // every 16 bytes behind the magic: points, vectors, blocks and codes
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(Encrypt({text, text})) << error;
        for (const char* const key : {"pmessage1", "pmessage2", "wrap_to", "wrap_me"}) {
            const std::string hex = row[key].get<std::string>().substr(key[0] == 'w' ? 10 : 0);
            for (std::size_t at = 0; at + 32 <= hex.size(); at += 32) seen.push_back(hex.substr(at, 32));
        }
    }
    EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()).size(), seen.size());
    EXPECT_EQ(seen.size(), 2u * (2 * 5 + 2 * 7));
}

// The words for a missing key and for one that is no point stand in the stories of reports.
TEST_F(DirectMessage, EveryFailureHasItsWords) {
    EXPECT_FALSE(Encrypt({"text"}, " @Bob"));
    EXPECT_EQ(FindEncryptionKey("ada"), kOwn) << "the sender's own key stays";
    EXPECT_FALSE(Encrypt({"text"}, ""));

    StoreEncryptionKey("bob", kRecipient, 6);
    EXPECT_FALSE((FixedDraws({kFailure}), Encrypt({"text"})));
    EXPECT_EQ(error, "RNG failed");
    EXPECT_FALSE((FixedDraws({kContentKey, kFailure}), Encrypt({"text"})));
    EXPECT_EQ(error, "failed to wrap direct-message key");
    wallet.clock.AdvanceMs(5'000);
    EXPECT_TRUE(Encrypt({"text"})) << error;
    EXPECT_EQ(ReadFile(FileOf("ada")), kOwn + std::string("\n1790000005\n")) << "known good at each message";

    json no_object = json::array();
    EXPECT_FALSE(EncryptDirectMessage({"text"}, "ada", "bob", no_object, error));
    json nothing_yet;
    EXPECT_TRUE(EncryptDirectMessage({"text"}, "ada", "bob", nothing_yet, error)) << error;
    EXPECT_EQ(OpenMessage(nothing_yet, "wrap_to", kRecipientPrivate), "text");
    ClearEncryptionKeys();
    {
        const WalletLock lock(wallet_mutex);
        WipeString(wallet_keys.mnemonic);
    }
    EXPECT_FALSE(Encrypt({"text"}));
    EXPECT_EQ(error, "could not derive Pouch encryption key");
    UnbindWallet();
    EXPECT_FALSE(Encrypt({"text"}));
    EXPECT_EQ(error, "Connect Pouch");
}

TEST_F(DirectMessage, TheOwnPairIsDerivedOnceForAName) {
    ASSERT_TRUE(LoadEncryptionKeys(public_hex, private_hex, error)) << error;
    EXPECT_EQ(public_hex, kOwn);
    EXPECT_EQ(private_hex, kOwnPrivate);
    EXPECT_EQ(ReadFile(FileOf("ada")), kOwn + std::string("\n1790000000\n"));

    // From memory: another phrase under the same name is not looked at.
    const auto load_from = [&](const json& file) {
        {
            const WalletLock lock(wallet_mutex);
            ClearWalletState();
            EXPECT_TRUE(WriteFile(WalletFilePath(), file.dump()) && LoadWallet());
        }
        error.clear();
        return LoadEncryptionKeys(public_hex, private_hex, error);
    };
    constexpr char kOther[] = "legal winner thank year wave sausage worth useful legal winner thank yellow";
    EXPECT_TRUE(load_from({{"mnemonic", kOther}, {"paymail", "ada"}}));
    EXPECT_EQ(public_hex, kOwn);
    EXPECT_TRUE(load_from({{"mnemonic", kOther}, {"paymail", "eve"}}));
    EXPECT_NE(public_hex, kOwn);
    EXPECT_EQ(FindEncryptionKey("eve"), public_hex);
    EXPECT_EQ(FindEncryptionKey("ada"), kOwn);

    // Without a name the pair is forgotten, and a wallet of one key has none.
    constexpr char kThird[] =
        "letter advice cage absurd amount doctor acoustic avoid letter advice cage above";
    const std::string address = AddressFromPublicKey(kOwn);
    for (const json& file :
         {json{{"mnemonic", kThird}, {"paymail", ""}},
          json{{"priv", kOwnPrivate}, {"pub", kOwn}, {"address", address}, {"paymail", "eve"}}}) {
        EXPECT_FALSE(load_from(file));
        EXPECT_EQ(error, "Connect Pouch");
    }
    EXPECT_TRUE(load_from({{"mnemonic", kTestPhrase}, {"paymail", "eve"}}));
    EXPECT_EQ(public_hex, kOwn);
}

// The plain cases stand in the stories of reports.
TEST_F(DirectMessage, FileAndMemoryTheNewerKeyWins) {
    struct Row {
        const char* why;
        std::string file;
        int64_t memory_ts;  // of the own key as the recipient's; -1: nothing known
        std::string found;
    };
    const std::string blanks = " 0x02 " + kRecipientX.substr(0, 9) + "\t" + kRecipientX.substr(9) + "\r";
    const Row rows[] = {
        {"both as new: the file", kRecipient + "\n7\n", 7, kRecipient},
        {"no second line, but it is as new", kRecipient, 0, kRecipient},
        {"a bad second line", kRecipient + "\n9x\n", 7, kOwn},
        {"a time out of range", kRecipient + "\n99999999999999999999\n", 7, kOwn},
        {"blanks and line ends of another system", blanks + "\n 8\r\n", 7, kRecipient},
        {"no key, and nothing known", "\xff\n8\n", -1, ""},
    };
    MakeFolders("userinfo");
    for (const Row& shown : rows) {
        ClearEncryptionKeys();
        if (shown.memory_ts >= 0) StoreEncryptionKey("bob", kOwn, shown.memory_ts);
        ASSERT_TRUE(WriteFile(FileOf("bob"), shown.file));
        EXPECT_EQ(FindEncryptionKey("bob"), shown.found) << shown.why;
        RemoveFile(FileOf("bob"));
        EXPECT_EQ(FindEncryptionKey("@BOB "), shown.found) << shown.why << ", once the file is gone";
    }
    ASSERT_TRUE(WriteFile(FileOf("bob"), kRecipient + "\n9\n"));
    EXPECT_EQ(FindEncryptionKey(" $Bob"), kRecipient) << "a file that has come since is seen at once";
    EXPECT_EQ(FindEncryptionKey("@@bob"), "") << "another handle";
    EXPECT_EQ(FindEncryptionKey(" @ "), "");
}

TEST_F(DirectMessage, WhatIsStoredStandsInItsFile) {
    StoreEncryptionKey("@Bob", " 0x" + kRecipient, 7);
    EXPECT_EQ(ReadFile(FileOf("bob")), kRecipient + "\n7\n");
    StoreEncryptionKey("bob", kOwn, 6);
    EXPECT_EQ(ReadFile(FileOf("bob")), kRecipient + "\n7\n") << "an older key";
    EXPECT_EQ(FindEncryptionKey("bob"), kRecipient);
    RemoveFile(FileOf("bob"));
    StoreEncryptionKey("bob", kRecipient, 7);
    EXPECT_FALSE(FileExists(FileOf("bob"))) << "nothing new";
    StoreEncryptionKey("bob", kOwn, 7);
    EXPECT_EQ(ReadFile(FileOf("bob")), kOwn + std::string("\n7\n")) << "another key, as new";

    StoreEncryptionKey("", kOwn, 7);
    StoreEncryptionKey("eve", "no key", 7);
    StoreEncryptionKey("..//../x", kOwn, 7);
    StoreEncryptionKey(std::string_view("bob.txt\0", 8), kRecipient, 9);
    EXPECT_EQ(FindEncryptionKey("bob"), kOwn) << "no handle writes to another's file";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("userinfo"), {}), 1);

    std::filesystem::create_directory(FileOf("carol"));
    StoreEncryptionKey("carol", kOwn, 7);
    EXPECT_EQ(FindEncryptionKey("carol"), kOwn) << "memory has it all the same";
}

// Runs `work` below a frame that nothing overwrites afterwards.
[[gnu::noinline]] bool RunDeep(const std::function<bool()>& work) {
    volatile char room[16'384];
    room[0] = 0;
    const bool done = work();
    room[1] = room[0];
    return done;
}

TEST_F(DirectMessage, NoSecretIsLeftInMemory) {
#ifdef BRICKFALL_SHADOW_MEMORY
    GTEST_SKIP() << "the sanitizer's own memory is too large to search, and keeps what is freed";
#endif
    constexpr char kMaskedContentKey[] = "61404c6baa8963a2df22e5e4629e091edbb6e1652e4bd4f5fc90f380556b2500";
    constexpr char kMaskedEphemeral[] = "623f445db820266a6e446f73a05b01a8af72250306bd173827798848965f6f24";
    Needles secrets;
    secrets.AddMasked("content key", HexDecode(kMaskedContentKey));
    secrets.AddMasked("ephemeral key", HexDecode(kMaskedEphemeral));
    secrets.AddMasked("shared point",
                      HexDecode("09b308eed13ea3fe302aadc5f197676b7d78bb372ea5162801ad878bdc66a89c"));
    secrets.AddMasked("derived keys",
                      HexDecode("6c34a4b16e927343103fd69ff477f382eeaa199c1ca0ad18c2dfb8a3cdfbbf54"
                                "dde3919b43d3a314c34e3dbce7130f9243ade06850c52ffc11be292348cf337e"));
    const auto expect_nothing_left = [&](std::deque<std::string> script, const std::function<bool()>& work) {
        const FixedDraws draws(std::move(script), kSecretMask);
        // On a thread of its own, which keeps its stack as the work has left it until the search is over.
        std::promise<bool> done;
        std::promise<void> searched;
        std::thread worker([&] {
            done.set_value(RunDeep(work));
            searched.get_future().wait();
        });
        EXPECT_TRUE(done.get_future().get());
        EXPECT_EQ(secrets.Find(), std::vector<std::string>());
        searched.set_value();
        worker.join();
    };
    StoreEncryptionKey("bob", kRecipient, 5);
    ASSERT_TRUE(LoadEncryptionKeys(public_hex, private_hex, error)) << error;
    expect_nothing_left({kMaskedContentKey, kMaskedEphemeral}, [&] { return Encrypt({"text"}); });
    // Alone, since a second sealing covers up what the first one leaves.
    std::string sealed;
    expect_nothing_left({kMaskedEphemeral}, [&] { return SealToKey(AsBytes("text"), kRecipient, sealed); });

    ByteBuffer seen = HexDecode(kMaskedContentKey);
    for (uint8_t& byte : seen) byte ^= kSecretMask;
    EXPECT_EQ(secrets.Find(), std::vector<std::string>{"content key"}) << "the search is blind";

    // The own private key is kept until its wallet is gone. It is of a phrase whose key stands nowhere in
    // this program as text.
    constexpr char kPhrase[] = "zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo zoo wrong";
    ASSERT_TRUE(WriteFile(WalletFilePath(), json{{"mnemonic", kPhrase}, {"paymail", "zoe"}}.dump()));
    wallet.Restart();
    ASSERT_TRUE(LoadEncryptionKeys(public_hex, private_hex, error)) << error;
    Needles own;
    own.Add("own key", AsBytes(private_hex));
    WipeString(private_hex);
    EXPECT_EQ(own.Find(), std::vector<std::string>{"own key"});
    UnbindWallet();
    EXPECT_FALSE(LoadEncryptionKeys(public_hex, private_hex, error));
    EXPECT_EQ(own.Find(), std::vector<std::string>());
}

}  // namespace
}  // namespace brickfall
