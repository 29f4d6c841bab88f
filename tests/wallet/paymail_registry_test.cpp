#include "wallet/store/paymail_registry.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "deployment/deployment.h"
#include "tests/support/temp_folder.h"
#include "wallet/keys/wallet_keys.h"

namespace brickfall {
namespace {

using nlohmann::json;

const std::string kAda = "02" + std::string(62, '0') + "ad";
const std::string kAdaUpper = "02" + std::string(62, '0') + "AD";
const std::string kBob = "03" + std::string(62, '0') + "b0";
constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";
constexpr char kOrdAddress[] = "1OrdinalsAddressOfThisIdentity";

// The registry's file in a store of its own, with ada as the wallet's identity.
struct PaymailRegistry : testing::Test {
    PaymailRegistry() { std::filesystem::current_path(program.Path()); }
    ~PaymailRegistry() override {
        SetIdentity("", "");
        std::filesystem::current_path(former_path);
    }

    void PutText(std::string_view text) const { data.Put("orvane_paymail.json", text); }
    void Put(const json& document) const { PutText(document.dump()); }
    json Get() const { return json::parse(ReadFile(file).value_or("null"), nullptr, false); }

    static void SetIdentity(const std::string& identity_pub, const std::string& avatar) {
        const WalletLock lock(wallet_mutex);
        wallet_keys.identity_pub = identity_pub;
        wallet_keys.ord_avatar = avatar;
    }

    // `count` names of one identity: n0, n1, ...
    static json Names(int count, const std::string& key) {
        json names = json::object();
        for (int i = 0; i < count; ++i) names["n" + std::to_string(i)] = {{"pubkey", key}};
        return names;
    }

    const std::filesystem::path former_path = std::filesystem::current_path();
    const TempFolder program;
    const TempUserData data;
    const std::string file = data.InStore("orvane_paymail.json");
};

TEST(PaymailName, KeepsOnlyWhatANameMayHold) {
    // Stripped: blanks, line ends, "@" and "$" in front, the domain. Everything else outside the set is
    // dropped where it stands.
    const std::pair<const char*, const char*> rows[] = {
        {"@Ada@pay.example", "ada"}, {" $@ @ada", "ada"},
        {"ada \r\n", "ada"},         {"Bad Name!", "badname"},
        {"a_b-c.9", "a_b-c.9"},      {"\tada\t", "ada"},
        {"\xc3\x84\x64\x61", "da"},  {"@@pay.example@x", "pay.example"},
        {"!@pay.example", ""},
    };
    for (const auto& [text, name] : rows) EXPECT_EQ(SanitizePaymailName(text), name) << text;
    for (const std::string& text : {std::string(kAddress), std::string(26, '1'), std::string(35, '1')}) {
        EXPECT_TRUE(LooksLikeAddress(text)) << text;
    }
    for (const std::string& text : {std::string(25, '1'), std::string(36, '1'), "3" + std::string(29, '1'),
                                    std::string(29, '1') + "_", std::string()}) {
        EXPECT_FALSE(LooksLikeAddress(text)) << text;
    }
}

TEST_F(PaymailRegistry, GrantsLabelsUpToTheQuotaOfTheRole) {
    const json granted = {{"pubkey", kAdaUpper}, {"address", kAddress}};
    const struct {
        const char* role;
        int held;
        std::string holder, limit;  // `limit`: the one that refuses
    } rows[] = {{"", 9, kAda, ""},          {"", 10, kAda, "10"},    {"", 30, kBob, ""},
                {"dev", 19, kAda, ""},      {"dev", 20, kAda, "20"}, {"operator", 10, kAda, "10"},
                {"architect", 60, kAda, ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.role + std::to_string(row.held));
        json document = {{"names", Names(row.held, row.holder)}, {"host_role", row.role}};
        document["names"]["text"] = kAda;  // no object, so no label
        Put(document);
        const std::string answer = RegisterPaymail("ada", kAdaUpper, kAddress);
        if (!row.limit.empty()) {
            EXPECT_EQ(answer, "paymail quota reached (" + row.limit + " free labels per identity)");
            EXPECT_EQ(Get(), document);
            continue;
        }
        EXPECT_EQ(answer, "");
        EXPECT_EQ(Get()["names"]["ada"], granted);
        EXPECT_EQ(Get()["self"], "ada");
    }

    json names = Names(10, kAda);
    names["free"] = {{"address", "1Old"}};
    names["bob"] = {{"pubkey", kBob}};
    Put({{"names", names}});
    EXPECT_EQ(RegisterPaymail("n3", kAdaUpper, kAddress), "") << "an own name at a full quota";
    EXPECT_EQ(RegisterPaymail("free", kAdaUpper, kAddress), "") << "nobody's: quota or not";
    EXPECT_EQ(Get()["names"]["free"], granted);
    const json before = Get();
    EXPECT_EQ(RegisterPaymail("Bob", kAda, kAddress),
              std::string("bob@") + kPaymailDomain + " is already taken");
    EXPECT_EQ(RegisterPaymail("@!", kAda, kAddress), "need a paymail name (letters, numbers, _ - .)");
    EXPECT_EQ(RegisterPaymail("n3", "", kAddress), "no Pouch identity pubkey");
    EXPECT_EQ(Get(), before);
}

TEST_F(PaymailRegistry, ANewEntryTakesOverOrdinalAndAvatar) {
    const json other = {{"pubkey", kAdaUpper}, {"ord", "aa_0"}, {"avatar", "bb_0"}};
    const json own = {{"pubkey", kAda}, {"ord", "cc_0"}, {"avatar", "dd_0"}, {"ordAddress", kOrdAddress}};
    const json silent = {{"pubkey", kAda}, {"ord", 7}, {"avatar", ""}};
    const json avatars = {{kAda, "ee_0"}};
    const json foreign = {{"pubkey", kBob}, {"ord", "aa_0"}, {"avatar", "bb_0"}};
    const struct {
        const char* why;
        json names, avatars, ord, avatar;
    } rows[] = {
        {"its own come first", {{"a", other}, {"ada", own}}, avatars, "cc_0", "dd_0"},
        {"the identity's, and the first", {{"a", silent}, {"b", other}}, avatars, "aa_0", "ee_0"},
        {"another entry's", {{"a", silent}, {"b", other}, {"c", own}}, "none", "aa_0", "bb_0"},
        {"never those of another identity", {{"b", foreign}}, nullptr, nullptr, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Put({{"names", row.names}, {"avatars", row.avatars}});
        EXPECT_EQ(RegisterPaymail("ada", kAdaUpper, ""), "");
        json expected = {{"pubkey", kAdaUpper}};
        if (!row.ord.is_null()) expected.update({{"ord", row.ord}, {"avatar", row.avatar}});
        EXPECT_EQ(Get()["names"]["ada"], expected);
    }
}

TEST_F(PaymailRegistry, FindsTheNameOfAnIdentity) {
    const json names = {{"bee", {{"pubkey", kAdaUpper}}}, {"be", {{"pubkey", kAda}}},
                        {"@A@x", {{"pubkey", kBob}}},     {"cat", {{"pubkey", kAda}}},
                        {"!!", {{"pubkey", kAda}}},       {"aa", kAda}};
    const struct {
        const char* why;
        json document;
        std::string key, name;
    } rows[] = {
        {"self of this identity", {{"names", names}, {"self", "@Cat"}}, kAdaUpper, "cat"},
        {"self of another: the smallest, the shorter first", {{"names", names}, {"self", "a"}}, kAda, "be"},
        {"self that is no entry", {{"names", names}, {"self", "dog"}}, kAda, "be"},
        {"self of a wrong type", {{"names", names}, {"self", 5}}, kAda, "be"},
        {"keys are cleaned", {{"names", names}}, kBob, "a"},
        {"unknown key", {{"names", names}}, "02ff", ""},
        {"no key", {{"names", {{"x", json::object()}}}}, "", ""},
        {"no names", {{"names", json::array({1})}, {"self", "ada"}}, kAda, ""},
    };
    for (const auto& row : rows) {
        Put(row.document);
        EXPECT_EQ(FindNameForPubkey(row.key), row.name) << row.why;
    }
}

TEST_F(PaymailRegistry, KeepsTheHostRole) {
    Put({{"self", "a"}, {"host_role", 3}});
    const std::pair<const char*, const char*> rows[] = {
        {"agent", "agent"}, {"DEFAULT", ""}, {"Operator", "operator"},  {"emperor", ""},
        {"dev", "dev"},     {"", ""},        {"architect", "architect"}};
    for (const auto& [role, kept] : rows) {
        SetHostRole(role);
        json after = {{"self", "a"}};
        if (*kept != 0) after["host_role"] = kept;
        EXPECT_EQ(Get(), after) << role;
    }
    RemoveFile(file);
    SetHostRole("default");
    EXPECT_FALSE(FileExists(file)) << "nothing changed, so nothing is written";
}

TEST_F(PaymailRegistry, SetsTheOrdinalsAddressOfTheIdentitysEntries) {
    const json before = {{"names",
                          {{"address_in_ord", {{"pubkey", kAdaUpper}, {"ord", kAddress}}},
                           {"outpoint_in_ord", {{"pubkey", kAda}, {"ord", std::string(30, '1') + "_0"}}},
                           {"set", {{"pubkey", kAda}, {"ordAddress", kOrdAddress}, {"ord", kAddress}}},
                           {"other", {{"pubkey", kBob}, {"ord", kAddress}}},
                           {"text", kAda}}}};
    json after = before;
    after["names"]["address_in_ord"] = {{"pubkey", kAdaUpper}, {"ordAddress", kOrdAddress}};
    after["names"]["outpoint_in_ord"]["ordAddress"] = kOrdAddress;

    Put(before);
    SetOrdAddress(kOrdAddress);  // nobody's wallet yet
    EXPECT_EQ(Get(), before);
    SetIdentity(kAda, "");
    SetOrdAddress("3NotAnAddress");
    EXPECT_EQ(Get(), before);
    SetOrdAddress(kOrdAddress);
    EXPECT_EQ(Get(), after);
}

TEST_F(PaymailRegistry, AgreesWithTheWalletsAvatar) {
    EXPECT_EQ(SyncAvatar(), "no identity pubkey");
    json document = {{"names",
                      {{"ada", {{"pubkey", kAda}, {"avatar", "old_0"}}},
                       {"bob", {{"pubkey", kBob}, {"avatar", "bob_0"}}}}},
                     {"avatars", {1, 2}}};
    Put(document);
    SetIdentity(kAdaUpper, "new_0");
    EXPECT_EQ(SyncAvatar(), "");
    document["names"]["ada"]["avatar"] = "new_0";
    document["avatars"] = {{kAda, "new_0"}};
    EXPECT_EQ(Get(), document);

    SetIdentity(kAdaUpper, "");
    EXPECT_EQ(SyncAvatar(), "");
    document["names"]["ada"].erase("avatar");
    document["avatars"] = json::object();
    EXPECT_EQ(Get(), document);
}

TEST_F(PaymailRegistry, ReadsAnyFileAsSomething) {
    for (
        const char* content :
        {"", "{[", "[1,2]", "\xff\xfe", R"({"names":"x","self":{},"avatars":7,"host_role":[]})",
         R"({"names":{"ada":{"pubkey":1,"ord":{},"avatar":[]}, "b":null, "":{"pubkey":"x"}},"avatars":[]})"}) {
        SCOPED_TRACE(content);
        SetIdentity(kAda, "av_0");
        PutText(content);
        EXPECT_EQ(FindNameForPubkey(kAda), "");
        SetOrdAddress(kOrdAddress);
        SetHostRole("dev");
        EXPECT_EQ(Get()["host_role"], "dev");
        PutText(content);
        EXPECT_EQ(SyncAvatar(), "");
        EXPECT_EQ(Get()["avatars"][kAda], "av_0");
        PutText(content);
        EXPECT_EQ(RegisterPaymail("ada", kAda, kAddress), "");
        EXPECT_EQ(FindNameForPubkey(kAda), "ada");
    }
}

TEST_F(PaymailRegistry, TakesOverTheFileOfAnOlderInstallationAndLeavesAloneWhatItCannotRead) {
    MakeFolders("userinfo");
    const std::string old_file = "userinfo/orvane_paymail.json", deep(100'000, '[');
    SetIdentity(kAda, "av_0");
    for (const std::string& path : {old_file, file}) {
        SCOPED_TRACE(path);
        MakeFolders(data.InStore(""));
        WriteFile(path, deep);
        EXPECT_EQ(FindNameForPubkey(kAda), "");
        EXPECT_EQ(RegisterPaymail("ada", kAda, kAddress), "could not write paymail registry");
        EXPECT_EQ(SyncAvatar(), "could not write paymail registry");
        SetHostRole("dev");
        EXPECT_EQ(ReadFile(path), deep);
        EXPECT_EQ(FileExists(file), path != old_file);
    }
    RemoveFile(file);
    const json old = {{"names", {{"ada", {{"pubkey", kAda}}}}}};
    WriteFile(old_file, old.dump());
    EXPECT_EQ(FindNameForPubkey(kAda), "ada");
    EXPECT_EQ(Get(), old) << "moved into the store by the first look";
    EXPECT_EQ(ReadFile(old_file), old.dump()) << "and left where it was";
    PutText("broken");
    EXPECT_EQ(FindNameForPubkey(kAda), "") << "a broken file of the store is a file all the same";
}

}  // namespace
}  // namespace brickfall
