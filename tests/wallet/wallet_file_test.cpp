#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "deployment/deployment.h"
#include "tests/support/temp_folder.h"
#include "wallet/app_binds.h"
#include "wallet/ov_pouch_wallet.h"
#include "wallet/secret_json.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kPhrase[] =
    "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon about";
constexpr char kAddress0[] = "18pBoqRpHUYf9udsab5G9LT3vQUPxEyMFf";
constexpr char kAddress4[] = "1DJkfQg5c5CCdwQe9jefqKABYWYAJiNacF";
constexpr char kIdentity[] = "1Hg7Jm7G3DUetk4vxbAdjSf49qq3zbp8g6";

// The key of the generator's point.
const std::string kPriv = std::string(63, '0') + "1";
constexpr char kPub[] = "0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";
constexpr char kLegacyAddress[] = "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH";

struct WalletFileTest : testing::Test {
    WalletFileTest() {
        ClearWalletState();
        SetWalletId("w1");
        MakeFolders(data.Path() + "/Orvane/wallets/w1");
    }
    ~WalletFileTest() override {
        ClearWalletState();
        ResetBindingForTest();
    }

    static bool Load(const std::string& text) {
        ClearWalletState();
        EXPECT_TRUE(WriteFile(WalletFilePath(), text));
        return LoadWallet();
    }
    static bool Load(const json& document) { return Load(document.dump()); }
    static bool LoadHd(const json& members) {
        json document = {{"mnemonic", kPhrase}};
        document.update(members);
        return Load(document);
    }
    static json Saved() {
        EXPECT_TRUE(SaveWallet());
        return json::parse(ReadFile(WalletFilePath()).value_or(""), nullptr, false);
    }

    const TempUserData data;
    const WalletLock lock{wallet_mutex};
};

TEST_F(WalletFileTest, LoadsDefaultsFromTheWordsAlone) {
    ASSERT_TRUE(LoadHd(json::object()));
    EXPECT_TRUE(wallet_keys.is_hd);
    EXPECT_FALSE(wallet_keys.backup);
    EXPECT_EQ(wallet_keys.recv, (std::array<uint32_t, 6>{}));
    EXPECT_EQ(wallet_keys.show, 0u);
    EXPECT_EQ(wallet_keys.address, kAddress0);
    EXPECT_EQ(wallet_keys.identity_address, kIdentity);
    EXPECT_EQ(CurrentAddress(), kAddress0);
}

TEST_F(WalletFileTest, ReadsEveryForm) {
    const json full = {{"version", "any"},
                       {"backup", true},
                       {"recv", {9, 4, -1, 3.0, 2147483648, 7, 8}},
                       {"show", 4},
                       {"identity", 5},
                       {"address", 5},
                       {"paymail", "ada"},
                       {"ord_avatar", "o1"},
                       {"ord_owned",
                        {{{"origin", "a_0"}, {"txid", "t"}, {"vout", 3}, {"hidden", false}},
                         {{"origin", ""}, {"txid", "dropped"}},
                         {{"txid", "dropped too"}},
                         "no object",
                         {{"origin", "b_1"},
                          {"type", "ty"},
                          {"address", "ad"},
                          {"name", "na"},
                          {"icon", "ic"},
                          {"hidden", true},
                          {"created", false}}}},
                       {"contacts",
                        {{{"dest", "  @Grace@" + std::string(kPaymailDomain) + " \r\n"},
                          {"note", "\t " + std::string(100, 'n')}},
                         {{"dest", " @$ "}, {"note", "dropped"}},
                         17,
                         {{"dest", "1AbCdEfGhIjKlMnOpQrStUvWxYzAAA@x"}}}}};
    ASSERT_TRUE(LoadHd(full));
    EXPECT_TRUE(wallet_keys.backup);
    EXPECT_EQ(wallet_keys.recv, (std::array<uint32_t, 6>{9, 4, 0, 0, 0, 7}));
    EXPECT_EQ(wallet_keys.address, kAddress4);
    EXPECT_EQ(wallet_keys.paymail, "ada");

    const json saved = Saved();
    const json wanted = {{"version", 2},
                         {"mnemonic", kPhrase},
                         {"backup", true},
                         {"recv", {9, 4, 0, 0, 0, 7}},
                         {"show", 4},
                         {"identity", kIdentity},
                         {"address", kAddress4},
                         {"paymail", "ada"},
                         {"ord_avatar", "o1"},
                         {"ord_owned",
                          {{{"origin", "a_0"}, {"txid", "t"}, {"vout", 3}, {"created", true}},
                           {{"origin", "b_1"},
                            {"txid", ""},
                            {"vout", 0},
                            {"type", "ty"},
                            {"address", "ad"},
                            {"name", "na"},
                            {"icon", "ic"},
                            {"hidden", true},
                            {"created", false}}}},
                         {"contacts",
                          {{{"dest", "grace"}, {"note", std::string(80, 'n')}},
                           {{"dest", "1AbCdEfGhIjKlMnOpQrStUvWxYzAAA@x"}}}}};
    EXPECT_EQ(saved, wanted);
}

TEST_F(WalletFileTest, CountersOutOfRangeCountAsMissing) {
    struct Row {
        json recv;
        json show;
        uint32_t recv_1;
        uint32_t show_read;
    };
    const Row rows[] = {
        {{0, 5}, nullptr, 5, 5},    {{0, 5}, 2, 5, 2},          {{0, 5}, 9, 5, 5},
        {{0, 5}, "2", 5, 5},        {{0, 5}, 2.0, 5, 5},        {{0, 5}, -1, 5, 5},
        {{0, 5}, 2147483648, 5, 5}, {{0, "5"}, 1, 0, 0},        {{0, true}, 0, 0, 0},
        {{0, 1e300}, 0, 0, 0},      {{0, UINT64_MAX}, 0, 0, 0}, {{0, 2147483647}, 3, 2147483647, 3},
        {{{"1", 5}}, 0, 0, 0},      {json::array(), 0, 0, 0},
    };
    for (const Row& row : rows) {
        ASSERT_TRUE(LoadHd({{"recv", row.recv}, {"show", row.show}})) << row.recv << row.show;
        EXPECT_EQ(wallet_keys.recv[1], row.recv_1) << row.recv;
        EXPECT_EQ(wallet_keys.show, row.show_read) << row.show;
    }
}

TEST_F(WalletFileTest, AWrongTypeIsNoWalletAndNoException) {
    const json bad[] = {
        {{"mnemonic", 5}},
        {{"mnemonic", nullptr}},
        {{"mnemonic", "twelve wrong words"}},
        {{"mnemonic", kPhrase}, {"backup", 1}},
        {{"mnemonic", kPhrase}, {"ord_owned", {{{"origin", 5}}}}},
        {{"mnemonic", kPhrase}, {"ord_owned", {{{"origin", "a"}, {"vout", "0"}}}}},
        {{"mnemonic", kPhrase}, {"ord_owned", {{{"origin", "a"}, {"vout", 2147483648}}}}},
        {{"mnemonic", kPhrase}, {"ord_owned", {{{"origin", "a"}, {"vout", 1e300}}}}},
        {{"mnemonic", kPhrase}, {"ord_owned", {{{"origin", "a"}, {"hidden", 0}}}}},
        {{"mnemonic", kPhrase}, {"contacts", {{{"dest", {1}}}}}},
        {{"mnemonic", kPhrase}, {"contacts", {{{"dest", "a"}, {"note", nullptr}}}}},
        {{"priv", 5}, {"address", kLegacyAddress}},
        {{"priv", kPriv}, {"pub", 5}},
        {{"priv", kPriv}, {"address", 5}},
        {{"priv", kPriv}, {"address", nullptr}},
        {{"priv", kPriv.substr(1)}, {"address", kLegacyAddress}},
        {{"priv", kPriv + "0"}, {"address", kLegacyAddress}},
        {{"priv", std::string(64, 'g')}},
        {{"priv", kPriv}, {"pub", "02"}},
        json::object(),
        json::array(),
        {kPriv},
        "text",
        nullptr,
    };
    for (const json& document : bad) {
        EXPECT_FALSE(Load(document)) << document;
        EXPECT_FALSE(LoadWallet()) << "nothing of it passes for a loaded wallet: " << document;
        EXPECT_TRUE(wallet_keys.priv.empty() && wallet_keys.mnemonic.empty() && wallet_keys.address.empty());
    }
    // Values at places that are read leniently.
    for (const char* key : {"paymail", "ord_avatar", "ord_owned", "contacts", "recv", "show"}) {
        EXPECT_TRUE(LoadHd({{key, 5}})) << key;
    }
}

TEST_F(WalletFileTest, LegacyFillsInWhatIsMissing) {
    ASSERT_TRUE(Load(json{{"priv", kPriv}, {"paymail", "bob"}, {"contacts", {{{"dest", "$ann"}}}}}));
    EXPECT_FALSE(wallet_keys.is_hd);
    EXPECT_EQ(wallet_keys.pub, kPub);
    EXPECT_EQ(wallet_keys.address, kLegacyAddress);
    EXPECT_EQ(wallet_keys.identity_pub, "");
    EXPECT_EQ(wallet_keys.contacts.at(0).dest, "ann");

    // Taken as they stand in the file.
    ASSERT_TRUE(Load(json{{"priv", kPriv}, {"pub", "p"}, {"address", "a"}}));
    EXPECT_EQ(wallet_keys.pub, "p");
    EXPECT_EQ(CurrentAddress(), "a");
    const auto before = ReadFile(WalletFilePath());
    EXPECT_FALSE(SaveWallet()) << "a legacy file is never rewritten";
    EXPECT_EQ(ReadFile(WalletFilePath()), before);
}

TEST_F(WalletFileTest, ALoadedWalletStaysUntilCleared) {
    ASSERT_TRUE(LoadHd(json::object()));
    RemoveFile(WalletFilePath());
    EXPECT_TRUE(LoadWallet());
    EXPECT_EQ(CurrentAddress(), kAddress0);
    ClearWalletState();
    EXPECT_FALSE(LoadWallet());
    EXPECT_EQ(CurrentAddress(), "");

    for (const char* unparsable : {"", "{", "{\"mnemonic\":\"abandon", "{\"mnemonic\":\"\xff\"}", "{} {}"}) {
        EXPECT_FALSE(Load(std::string(unparsable))) << unparsable;
    }
    EXPECT_FALSE(Load(std::string(200'000, '['))) << "deeper than any stack";
    SetWalletId("");
    EXPECT_FALSE(LoadHd(json::object())) << "the file of older installations is not loaded";
}

TEST_F(WalletFileTest, SavesForItsUserAloneInAFolderOfItsOwn) {
    // A tab between the words has to be escaped.
    ASSERT_TRUE(Load(json{{"mnemonic",
                           "abandon abandon abandon abandon abandon abandon abandon abandon "
                           "abandon abandon\tabandon  about"},
                          {"paymail", "\"mnemonic\": \"\""},
                          {"unknown", 1}}));
    const SecretString words = wallet_keys.mnemonic;
    SetWalletId("w2");
    const json saved = Saved();
    EXPECT_EQ(SecretString(saved.at("mnemonic").get<std::string>()), words);
    EXPECT_EQ(saved.at("paymail"), "\"mnemonic\": \"\"");
    EXPECT_FALSE(saved.contains("unknown") || saved.contains("ord_avatar") || saved.contains("ord_owned") ||
                 saved.contains("contacts"));
    EXPECT_EQ(*ReadFile(WalletFilePath()), saved.dump(2)) << "indent of 2, ascending keys, no newline";
    struct stat status = {};
    ASSERT_EQ(::stat(WalletFilePath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);

    ClearWalletState();
    ASSERT_TRUE(LoadWallet());
    EXPECT_EQ(wallet_keys.mnemonic, words);
    SetWalletId("");
    EXPECT_FALSE(SaveWallet());
    SetWalletId("w1/wallet.json");  // a file is in the way of the folder
    EXPECT_FALSE(SaveWallet());
}

TEST_F(WalletFileTest, HintsFollowTheFile) {
    const auto rewrite = [](const std::string& text) {
        WriteFile(WalletFilePath(), text);
        ReloadWalletHints();
    };
    ASSERT_TRUE(LoadHd({{"recv", {1, 2}}, {"show", 0}, {"paymail", "ada"}, {"ord_avatar", "o1"}}));
    for (const char* unusable : {"", "{", "[1]", "5"}) {
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
    EXPECT_EQ(OwnedAddresses().size(), 6u);
    ASSERT_NE(FindOwnedAddress(kAddress4), nullptr);
    EXPECT_EQ(wallet_keys.address, kAddress0);

    ClearWalletState();
    ReloadWalletHints();
    EXPECT_EQ(wallet_keys.paymail, "") << "hints load no wallet";
}

TEST_F(WalletFileTest, SummaryLooksIntoTheFileWithoutLoading) {
    struct Row {
        json document;
        bool known;
        const char* address;
        const char* name;
        bool is_hd;
    };
    const Row rows[] = {
        {{{"mnemonic", "any words"}, {"address", "A"}, {"paymail", "ada"}}, true, "A", "ada", true},
        {{{"priv", "k"}, {"address", "B"}}, true, "B", "", false},
        {{{"priv", "k"}, {"paymail", 5}}, true, "", "", false},
        {{{"priv", "k"}, {"address", 5}}, false, "", "", false},
        {{{"mnemonic", 5}, {"address", "A"}}, false, "", "", false},
        {{{"address", "A"}}, false, "", "", false},
        {json::array(), false, "", "", false},
    };
    std::string address, paymail;
    bool is_hd = false;
    for (const Row& row : rows) {
        ClearWalletState();
        WriteFile(WalletFilePath(), row.document.dump());
        EXPECT_EQ(WalletSummary(address, paymail, is_hd), row.known) << row.document;
        EXPECT_EQ(address, row.address);
        EXPECT_EQ(paymail, *row.name ? std::string(row.name) + "@" + kPaymailDomain : "");
        EXPECT_EQ(is_hd, row.is_hd);
        EXPECT_TRUE(wallet_keys.address.empty());
    }
    ASSERT_TRUE(LoadHd({{"paymail", "ada"}}));
    RemoveFile(WalletFilePath());
    EXPECT_TRUE(WalletSummary(address, paymail, is_hd)) << "from memory";
    EXPECT_EQ(address, kAddress0);
    EXPECT_EQ(paymail, std::string("ada@") + kPaymailDomain);
    EXPECT_TRUE(is_hd);
}

TEST(ContactDest, IsBareOrAnAddress) {
    const std::string domain = kPaymailDomain;
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"@", ""},
        {" @$@ Bob\t", "bob"},
        {"Bob@" + domain, "bob"},
        {"Bob@" + domain + "@" + domain, "bob@" + domain + "@" + domain},
        {"bob@elsewhere.example", "bob@elsewhere.example"},
        {"bob@" + domain + "x", "bob@" + domain + "x"},
        {"@" + domain, domain},
        {"1" + std::string(24, 'A'), "1" + std::string(24, 'a')},
        {"$1" + std::string(25, 'A'), "1" + std::string(25, 'A')},
        {"\vbob", "\vbob"},
    };
    for (const auto& [text, wanted] : rows) EXPECT_EQ(NormalizeContactDest(text), wanted) << text;
}

TEST(SecretJson, TakesWhatTheParserWouldHaveReadAndBlanksIt) {
    struct Row {
        const char* text;
        const char* secret;    // of the key "priv"
        const char* document;  // as compact JSON; nullptr when the text does not parse
    };
    const Row rows[] = {
        {R"({"priv":"abc 123","a":"abc"})", "abc 123", R"({"a":"abc","priv":"xxx xxx"})"},
        {R"({"\u0070riv":"a\u0062\t\"\\\/\u00e9\ud83d\ude00"})", "ab\t\"\\/\xc3\xa9\xf0\x9f\x98\x80",
         R"({"priv":"xx\t\"\\/\u00e9\ud83d\ude00"})"},
        {R"({"priv" : "one", "priv": "two"})", "two", R"({"priv":"xxx"})"},
        {R"({"priv":"one","priv":2})", "", R"({"priv":2})"},
        {R"({"a":"priv","b":"key"})", "", R"({"a":"priv","b":"key"})"},
        {R"([{"priv":"no"},"yes",{"b":["yes"]}])", "", R"([{"priv":"xx"},"yes",{"b":["yes"]}])"},
        {R"({"priv":{"b":["no",{"c":"no"}]},"d":"yes"})", "",
         R"({"d":"yes","priv":{"x":["xx",{"x":"xx"}]}})"},
        {R"({"priv":"one)", "", nullptr},
        {R"({"priv":"one\)", "", nullptr},
        {R"({"priv":"\u12"})", "", nullptr},
        {R"({"priv":"\ud83dab"})", "", nullptr},
        {R"({"priv":"\q"})", "", nullptr},
        {"{\"priv\":\"a\nb\"}", "", nullptr},
        {"{\"priv\":\"\x80\"}", "", nullptr},
        {R"({"priv":"one"}})", "", nullptr},
        {R"("priv":"one")", "", nullptr},
        {R"(]"priv":"one")", "", nullptr},
    };
    for (const Row& row : rows) {
        SecretString text(row.text);
        SecretMember secrets[] = {{"priv", "old"}};
        const json document = ParseWithSecrets(text, secrets);
        EXPECT_EQ(secrets[0].value, SecretString(row.secret)) << row.text;
        if (row.document == nullptr) {
            EXPECT_TRUE(document.is_discarded()) << row.text;
        } else {
            EXPECT_EQ(document, json::parse(row.document)) << row.text;
        }
        EXPECT_EQ(text.find("one"), SecretString::npos) << "not blanked: " << row.text;
    }
}

}  // namespace
}  // namespace brickfall
