#include "wallet/store/wallet_file.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "base/files.h"
#include "deployment/deployment.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/events/wallet_events.h"
#include "wallet/json/secret_json.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kAddress0[] = "18pBoqRpHUYf9udsab5G9LT3vQUPxEyMFf";
constexpr char kAddress4[] = "1DJkfQg5c5CCdwQe9jefqKABYWYAJiNacF";
constexpr char kIdentity[] = "1Hg7Jm7G3DUetk4vxbAdjSf49qq3zbp8g6";

// The key of the generator's point.
const std::string kGeneratorPriv = std::string(63, '0') + "1";
constexpr char kGeneratorPub[] = "0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";
constexpr char kLegacyAddress[] = "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH";

struct WalletFileTest : testing::Test, StoreFixture {
    WalletFileTest() {
        SetWalletId("w1");
        MakeFolders(data.InStore("wallets/w1"));
    }

    static bool Load(const std::string& text) {
        ClearWalletState();
        EXPECT_TRUE(WriteFile(WalletFilePath(), text));
        return LoadWallet();
    }
    static bool LoadHd(const json& members) {
        json document = {{"mnemonic", kTestPhrase}};
        document.update(members);
        return Load(document.dump());
    }
    static json Saved() {
        EXPECT_TRUE(SaveWallet());
        return json::parse(ReadFile(WalletFilePath()).value_or(""), nullptr, false);
    }

    const WalletLock lock{wallet_mutex};
};

TEST_F(WalletFileTest, ReadsEveryForm) {
    const std::string address = "1AbCdEfGhIjKlMnOpQrStUvWxYzAAA";
    json full = json::parse(R"({"version":"any","backup":true,"recv":[9,4,-1,3.0,2147483648,7,8],"show":4,
        "identity":5,"address":5,"paymail":"ada","ord_avatar":"o1",
        "ord_owned":[{"origin":"a_0","txid":"t","vout":3,"hidden":false},
                     {"origin":"","txid":"dropped"},{"txid":"dropped too"},"no object",
                     {"origin":"b_1","type":"ty","address":"ad","name":"na","icon":"ic","hidden":true,
                      "created":false}]})");
    full["contacts"] = {{{"dest", "  @Grace@" + std::string(kPaymailDomain) + " \r\n"},
                         {"note", "\t " + std::string(100, 'n')}},
                        {{"dest", " @$ "}, {"note", "dropped"}},
                        17,
                        {{"dest", address + "@x"}}};
    ASSERT_TRUE(LoadHd(full));
    EXPECT_TRUE(wallet_keys.backup);
    EXPECT_EQ(wallet_keys.recv, (std::array<uint32_t, 6>{9, 4, 0, 0, 0, 7}));
    EXPECT_EQ(wallet_keys.address, kAddress4);
    EXPECT_EQ(wallet_keys.paymail, "ada");

    json wanted = json::parse(R"({"version":2,"backup":true,"recv":[9,4,0,0,0,7],"show":4,
        "paymail":"ada","ord_avatar":"o1",
        "ord_owned":[{"origin":"a_0","txid":"t","vout":3,"created":true},
                     {"origin":"b_1","txid":"","vout":0,"type":"ty","address":"ad","name":"na","icon":"ic",
                      "hidden":true,"created":false}]})");
    wanted.update({{"mnemonic", kTestPhrase}, {"identity", kIdentity}, {"address", kAddress4}});
    wanted["contacts"] = {{{"dest", "grace"}, {"note", std::string(80, 'n')}}, {{"dest", address + "@x"}}};
    EXPECT_EQ(Saved(), wanted);
}

TEST_F(WalletFileTest, CountersOutOfRangeCountAsMissing) {
    // `recv`, `show`, and recv[1] and show as they are read.
    const std::tuple<const char*, const char*, uint32_t, uint32_t> rows[] = {
        {"[0,5]", "2", 5, 2},     {"[0,100000]", "3", 100'000, 3}, {"[0,5]", "null", 5, 5},
        {"[0,5]", "9", 5, 5},     {"[0,5]", "2.0", 5, 5},          {"[0,5]", "-1", 5, 5},
        {"[0,\"5\"]", "1", 0, 0}, {"[0,1e300]", "1", 0, 0},        {"[0,2147483648]", "1", 0, 0},
        {"{\"1\":5}", "1", 0, 0}};
    for (const auto& [recv, show, last_receive, shown] : rows) {
        EXPECT_TRUE(LoadHd({{"recv", json::parse(recv)}, {"show", json::parse(show)}})) << recv << show;
        EXPECT_EQ(std::pair(wallet_keys.recv[1], wallet_keys.show), std::pair(last_receive, shown))
            << recv << show;
    }
}

TEST_F(WalletFileTest, AWalletOfCountlessAddressesIsNotOpenedAndSaysSoOnce) {
    int told = 0;
    const auto install = [](WalletHook hook) {
        const std::lock_guard sink(wallet_sink_mutex);
        wallet_log_hook = std::move(hook);
    };
    install([&told](std::string_view text) {
        told += text == "The wallet has more than 100,000 receive addresses. This cabinet cannot open it.";
    });
    EXPECT_FALSE(LoadHd({{"recv", {0, 100'001}}}));
    EXPECT_FALSE(LoadWallet());
    EXPECT_TRUE(wallet_keys.mnemonic.empty());
    EXPECT_EQ(told, 1);
    ASSERT_TRUE(LoadHd({{"recv", {0, 4}}}));
    WriteFile(WalletFilePath(), R"({"recv":[0,100001,0,0,0,9]})");
    ReloadWalletHints();
    EXPECT_EQ(wallet_keys.recv[1], 4u) << "a hint beyond it is none";
    install(nullptr);
}

TEST_F(WalletFileTest, AWrongTypeIsNoWalletAndNoException) {
    const auto refuse = [](const std::string& document) {
        SCOPED_TRACE(document.substr(0, 200));
        EXPECT_FALSE(Load(document));
        EXPECT_FALSE(LoadWallet()) << "nothing of it passes for a loaded wallet";
        EXPECT_TRUE(wallet_keys.priv.empty() && wallet_keys.mnemonic.empty() && wallet_keys.address.empty());
    };
    for (const char* members :
         {R"("backup":1)", R"("ord_owned":[{"origin":5}])", R"("ord_owned":[{"origin":"a","vout":"0"}])",
          R"("ord_owned":[{"origin":"a","hidden":0}])", R"("contacts":[{"dest":[1]}])",
          R"("contacts":[{"dest":"a","note":7}])"}) {
        refuse(R"({"mnemonic":")" + std::string(kTestPhrase) + "\"," + members + "}");
    }
    for (const char* behind :
         {R"(","pub":5})", R"(","address":5})", R"(","pub":"02"})", R"(0","pub":"p","address":"a"})"}) {
        refuse(R"({"priv":")" + kGeneratorPriv + behind);
    }
    refuse(R"({"priv":")" + kGeneratorPriv.substr(1) + R"(","pub":"p","address":"a"})");
    refuse(R"({"priv":")" + std::string(64, 'g') + "\"}");
    for (const char* document :
         {R"({"mnemonic":5})", R"({"mnemonic":"twelve wrong words"})", R"({"priv":5,"address":"a"})", "{}",
          R"(["priv"])", "", "{\"mnemonic\":\"\xff\"}"}) {
        refuse(document);
    }
    refuse(std::string(200'000, '['));  // deeper than any stack
    // Values at places that are read leniently.
    for (const char* key : {"paymail", "ord_avatar", "ord_owned", "contacts", "recv", "show"}) {
        EXPECT_TRUE(LoadHd({{key, 5}})) << key;
    }
    // A number of any size is one, and null is as good as nothing.
    ASSERT_TRUE(LoadHd({{"backup", nullptr},
                        {"contacts", {{{"dest", "a"}, {"note", nullptr}}}},
                        {"ord_owned", json::parse(R"([{"origin":"a","vout":-7.9},
                            {"origin":"a","vout":2147483648},{"origin":"a","vout":-1e300},
                            {"origin":"a","vout":null,"txid":null,"created":null,"hidden":null}])")}}));
    std::vector<int32_t> indices;
    for (const OrdOwnedEntry& entry : wallet_keys.ord_owned) indices.push_back(entry.vout);
    EXPECT_EQ(indices, (std::vector<int32_t>{-7, INT32_MAX, INT32_MIN, 0}));
    EXPECT_TRUE(wallet_keys.ord_owned.back().created);
    EXPECT_TRUE(Load(R"({"priv":")" + kGeneratorPriv + R"(","pub":null,"address":null})"));
    EXPECT_EQ(wallet_keys.address, kLegacyAddress);
}

TEST_F(WalletFileTest, ALegacyFileIsTakenAsItStandsAndNeverRewritten) {
    ASSERT_TRUE(Load(R"({"priv":")" + kGeneratorPriv + R"(","paymail":"bob","contacts":[{"dest":"$ann"}]})"));
    EXPECT_FALSE(wallet_keys.is_hd);
    EXPECT_EQ(wallet_keys.pub + wallet_keys.address, std::string(kGeneratorPub) + kLegacyAddress);
    EXPECT_EQ(wallet_keys.contacts.at(0).dest + wallet_keys.identity_pub, "ann");
    const std::string document = R"({"priv":")" + kGeneratorPriv + R"(","pub":"p","address":"a"})";
    ASSERT_TRUE(Load(document));
    EXPECT_EQ(wallet_keys.pub + CurrentAddress(), "pa");
    EXPECT_FALSE(SaveWallet());
    EXPECT_EQ(ReadFile(WalletFilePath()), document);
}

TEST_F(WalletFileTest, ALoadedWalletStaysUntilCleared) {
    ASSERT_TRUE(LoadHd(json::object()));
    EXPECT_TRUE(wallet_keys.is_hd && !wallet_keys.backup);
    EXPECT_EQ(wallet_keys.recv, (std::array<uint32_t, 6>{}));
    EXPECT_EQ(wallet_keys.identity_address, kIdentity);
    RemoveFile(WalletFilePath());
    EXPECT_TRUE(LoadWallet());
    EXPECT_EQ(CurrentAddress(), kAddress0);
    ClearWalletState();
    EXPECT_FALSE(LoadWallet());
    EXPECT_EQ(CurrentAddress(), "");
    SetWalletId("");
    EXPECT_FALSE(LoadHd(json::object())) << "the file of older installations is not loaded";
}

TEST_F(WalletFileTest, SavesInAFolderOfItsOwnAndNeverOverAnothersSecret) {
    // A tab between the words has to be escaped.
    ASSERT_TRUE(LoadHd({{"mnemonic",
                         "abandon abandon abandon abandon abandon abandon abandon abandon "
                         "abandon abandon\tabandon  about"},
                        {"paymail", "\"mnemonic\": \"\""},
                        {"unknown", 1}}));
    const SecretString words = wallet_keys.mnemonic;
    SetWalletId("w2");
    const json saved = Saved();
    EXPECT_EQ(SecretString(saved.at("mnemonic").get<std::string>()), words);
    EXPECT_EQ(saved.at("paymail"), "\"mnemonic\": \"\"");
    EXPECT_EQ(saved.size(), 8u) << "neither the unknown member nor what is empty";
    EXPECT_EQ(*ReadFile(WalletFilePath()), saved.dump(2)) << "indent of 2, ascending keys, no newline";

    ClearWalletState();
    ASSERT_TRUE(LoadWallet());
    EXPECT_EQ(wallet_keys.mnemonic, words);
    SetWalletId("");
    EXPECT_FALSE(SaveWallet());
    SetWalletId("w1/wallet.json");  // a file is in the way of the folder
    EXPECT_FALSE(SaveWallet());
    SetWalletId("w1");
    for (const std::string& kept :
         {R"({"mnemonic":"other words"})" + std::string(), R"({"priv":")" + kGeneratorPriv + "\"}"}) {
        WriteFile(WalletFilePath(), kept);
        EXPECT_FALSE(SaveWallet()) << "another's secret";
        EXPECT_EQ(ReadFile(WalletFilePath()), kept);
    }
    WriteFile(WalletFilePath(), R"({"mnemonic":"other wo)");
    EXPECT_TRUE(SaveWallet()) << "a broken file is of no use to anybody";
}

TEST_F(WalletFileTest, HintsFollowTheFile) {
    const auto rewrite = [](const std::string& text) {
        WriteFile(WalletFilePath(), text);
        ReloadWalletHints();
    };
    // What the registry tells of the identity's ordinals; once each, since it is taken out again.
    const auto shared_ord_address = [] {
        const std::string path = StoreRoot() + "/orvane_paymail.json";
        const json names = json::parse(ReadFile(path).value_or("{}"), nullptr, false).value("names", json());
        WriteFile(path, json{{"names", {{"ada", {{"pubkey", wallet_keys.identity_pub}}}}}}.dump());
        return names.is_object() ? names["ada"].value("ordAddress", "") : "";
    };
    ASSERT_TRUE(LoadHd({{"recv", {1, 2}}, {"show", 0}, {"paymail", "ada"}, {"ord_avatar", "o1"}}));
    shared_ord_address();
    ASSERT_TRUE(LoadHd({{"recv", {1, 2}}, {"show", 0}, {"paymail", "ada"}, {"ord_avatar", "o1"}}));
    EXPECT_EQ(shared_ord_address(), DeriveOrdAddress()) << "a load shares it";
    for (const char* unusable : {"{", "[1]"}) {
        rewrite(unusable);
        EXPECT_EQ(wallet_keys.ord_avatar, "o1") << unusable;
    }
    rewrite(R"({"recv":["7","x",5,-1,3.0,6],"show":2,"ord_avatar":"o2"})");
    EXPECT_EQ(wallet_keys.recv, (std::array<uint32_t, 6>{1, 2, 5, 0, 0, 6}));
    EXPECT_EQ(wallet_keys.show, 0u) << "not a hint";
    EXPECT_EQ(wallet_keys.ord_avatar, "o2");
    EXPECT_EQ(wallet_keys.paymail, "ada") << "removing the key does not unname the wallet";
    EXPECT_EQ(OwnedAddresses().size(), 4u);

    rewrite(R"({"recv":[0,4],"paymail":"eve","ord_avatar":5,"backup":"x"})");
    EXPECT_EQ(wallet_keys.ord_avatar, "");
    EXPECT_EQ(wallet_keys.paymail, "eve");
    EXPECT_EQ(WalletShown().name, "eve");
    EXPECT_EQ(OwnedAddresses().size(), 6u);
    EXPECT_EQ(shared_ord_address(), DeriveOrdAddress()) << "so does a counter that has grown";
    ASSERT_NE(FindOwnedAddress(kAddress4), nullptr);
    EXPECT_EQ(wallet_keys.address, kAddress0);

    ClearWalletState();
    ReloadWalletHints();
    EXPECT_EQ(wallet_keys.paymail, "") << "hints load no wallet";
}

TEST_F(WalletFileTest, SummaryLooksIntoTheFileWithoutLoading) {
    // Told as address, name and kind.
    const auto summary = [] {
        std::string address = "old", paymail = "old";
        bool is_hd = true;
        const bool known = WalletSummary(address, paymail, is_hd);
        return address + "|" + paymail + "|" + (is_hd ? "hd" : known ? "legacy" : "none");
    };
    const std::string handle = std::string("ada@") + kPaymailDomain;
    const std::pair<std::string, std::string> rows[] = {
        {R"({"mnemonic":"any words","address":"A","paymail":"ada"})", "A|" + handle + "|hd"},
        {R"({"priv":"k","address":"B"})", "B||legacy"},
        {R"({"priv":"k","paymail":5})", "||legacy"},
        {R"({"priv":"k","address":5})", "||none"},
        {R"({"mnemonic":5,"address":"A"})", "||none"},
    };
    for (const auto& [document, told] : rows) {
        ClearWalletState();
        WriteFile(WalletFilePath(), document);
        EXPECT_EQ(summary(), told) << document;
        EXPECT_TRUE(wallet_keys.address.empty()) << "it was loaded";
    }
    ASSERT_TRUE(LoadHd({{"paymail", "ada"}}));
    RemoveFile(WalletFilePath());
    EXPECT_EQ(summary(), kAddress0 + ("|" + handle + "|hd")) << "from memory";
}

TEST(SecretJson, TakesWhatTheParserWouldHaveReadAndBlanksIt) {
    const struct {
        std::string text, secret;  // of the key "priv"
        const char* document;      // as compact JSON
    } rows[] = {
        {R"({"priv":"abc 123","a":"abc"})", "abc 123", R"({"a":"abc","priv":"xxx xxx"})"},
        {R"({"\u0070riv":"a\u0062\t\"\\\/\u00e9\u20ac\ud800\udc00"})",
         "ab\t\"\\/\xc3\xa9\xe2\x82\xac\xf0\x90\x80\x80", R"({"priv":"xx\t\"\\/\u00e9\u20ac\ud800\udc00"})"},
        {R"({"priv" : "one", "priv": "two"})", "two", R"({"priv":"xxx"})"},
        {R"({"priv":"one"})" + std::string(1, '\0') + R"({"priv":"two"})", "one", R"({"priv":"xxx"})"},
        {R"({"priv":"one","priv":2})", "", R"({"priv":2})"},
        {R"([{"priv":"no"},"yes",{"b":["yes"]}])", "", R"([{"priv":"xx"},"yes",{"b":["yes"]}])"},
        {R"({"priv":{"b":["no",{"c":"no"}]},"d":"yes"})", "",
         R"({"d":"yes","priv":{"x":["xx",{"x":"xx"}]}})"},
    };
    const auto parse = [](SecretString text, SecretString& secret) {
        SecretMember secrets[] = {{"priv", "old"}};
        json document = ParseWithSecrets(text, secrets);
        secret = secrets[0].value;
        EXPECT_EQ(text.find("one"), SecretString::npos) << "not blanked: " << text;
        return document;
    };
    SecretString secret;
    for (const auto& row : rows) {
        EXPECT_EQ(parse(SecretString(row.text), secret), json::parse(row.document)) << row.text;
        EXPECT_EQ(secret, SecretString(row.secret)) << row.text;
    }
    for (const char* broken : {R"({"priv":"one\)", R"({"priv":"\u12"})", R"({"priv":"\ud83dab"})",
                               "{\"priv\":\"a\nb\"}", R"({"priv":"one"}})", R"(]"priv":"one")"}) {
        EXPECT_TRUE(parse(broken, secret).is_discarded()) << broken;
        EXPECT_EQ(secret, "") << broken;
    }
}

}  // namespace
}  // namespace brickfall
