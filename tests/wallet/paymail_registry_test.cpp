#include "wallet/store/paymail_registry.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "deployment/deployment.h"
#include "tests/support/sealed_message.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kOrdAddress[] = "1OrdinalsAddressOfThisIdentity";

// The registry's file in a store of its own. Ada's key is 02ad, in either case, and bob's 03b0.
struct PaymailRegistry : testing::Test {
    ~PaymailRegistry() override { SetIdentity("", ""); }

    void Put(std::string_view text) const { data.Put("orvane_paymail.json", text); }
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

    const WorkingFolder program;
    const TempUserData data;
    const std::string file = data.InStore("orvane_paymail.json");
};

TEST(PaymailName, KeepsOnlyWhatANameMayHold) {
    // Stripped: blanks, line ends, "@" and "$" in front, the domain. Everything else outside the set is
    // dropped where it stands.
    const std::pair<const char*, const char*> rows[] = {
        {" $@ @Ada@pay.example", "ada"}, {"Bad Name! \r\n", "badname"},      {"a_b-c.9", "a_b-c.9"},
        {"\t\xc3\x84\x64\x61", "da"},    {"@@pay.example@x", "pay.example"}, {"!@pay.example", ""},
    };
    for (const auto& [text, name] : rows) EXPECT_EQ(SanitizePaymailName(text), name) << text;
    for (const std::string& text : {std::string(26, '1'), std::string(35, '1')}) {
        EXPECT_TRUE(LooksLikeAddress(text)) << text;
    }
    for (const std::string& text : {std::string(25, '1'), std::string(36, '1'), "3" + std::string(29, '1'),
                                    std::string(29, '1') + "_"}) {
        EXPECT_FALSE(LooksLikeAddress(text)) << text;
    }
}

TEST_F(PaymailRegistry, GrantsLabelsUpToTheQuotaOfTheRole) {
    const json granted = {{"pubkey", "02AD"}, {"address", kForeignAddress}};
    const struct {
        const char* role;
        int held;
        const char *holder, *limit;  // `limit`: the one that refuses
    } rows[] = {{"", 9, "02ad", ""},          {"", 10, "02ad", "10"},    {"", 30, "03b0", ""},
                {"dev", 19, "02ad", ""},      {"dev", 20, "02ad", "20"}, {"operator", 10, "02ad", "10"},
                {"architect", 60, "02ad", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.role + std::to_string(row.held));
        json document = {{"names", Names(row.held, row.holder)}, {"host_role", row.role}};
        document["names"]["text"] = "02ad";  // no object, so no label
        Put(document.dump());
        const std::string answer = RegisterPaymail("ada", "02AD", kForeignAddress);
        if (*row.limit != 0) {
            EXPECT_EQ(answer,
                      std::string("paymail quota reached (") + row.limit + " free labels per identity)");
        } else {
            EXPECT_EQ(answer, "");
            document["names"]["ada"] = granted;
            document["self"] = "ada";
        }
        EXPECT_EQ(Get(), document);
    }

    json names = Names(10, "02ad");
    names.update({{"free", {{"address", "1Old"}}}, {"bob", {{"pubkey", "03b0"}}}});
    Put(json{{"names", names}}.dump());
    EXPECT_EQ(RegisterPaymail("n3", "02AD", kForeignAddress), "") << "an own name at a full quota";
    EXPECT_EQ(RegisterPaymail("free", "02AD", kForeignAddress), "") << "nobody's: quota or not";
    EXPECT_EQ(Get()["names"]["free"], granted);
    const json before = Get();
    EXPECT_EQ(RegisterPaymail("Bob", "02ad", kForeignAddress),
              std::string("bob@") + kPaymailDomain + " is already taken");
    EXPECT_EQ(RegisterPaymail("@!", "02ad", kForeignAddress),
              "need a paymail name (letters, numbers, _ - .)");
    EXPECT_EQ(RegisterPaymail("n3", "", kForeignAddress), "no Pouch identity pubkey");
    EXPECT_EQ(Get(), before);
}

TEST_F(PaymailRegistry, ANewEntryTakesOverOrdinalAndAvatar) {
    const std::string silent = R"({"names":{"a":{"pubkey":"02ad","ord":7,"avatar":""},)";
    const std::string other = R"("b":{"pubkey":"02AD","ord":"aa_0","avatar":"bb_0"})";
    const std::string own = R"({"pubkey":"02ad","ord":"cc_0","avatar":"dd_0","ordAddress":"1x"})";
    const std::string avatars = R"("avatars":{"02ad":"ee_0"}})";
    const struct {
        const char* why;
        std::string document;
        const char* taken;
    } rows[] = {
        {"its own come first", silent + other + R"(,"ada":)" + own + "}," + avatars,
         R"({"pubkey":"02AD","ord":"cc_0","avatar":"dd_0"})"},
        {"the identity's, and the first", silent + other + R"(,"c":)" + own + "}," + avatars,
         R"({"pubkey":"02AD","ord":"aa_0","avatar":"ee_0"})"},
        {"another entry's", silent + other + R"(},"avatars":"none"})",
         R"({"pubkey":"02AD","ord":"aa_0","avatar":"bb_0"})"},
        {"never those of another identity",
         R"({"names":{"b":{"pubkey":"03b0","ord":"aa_0","avatar":"b_0"}}})", R"({"pubkey":"02AD"})"},
    };
    for (const auto& row : rows) {
        Put(row.document);
        EXPECT_EQ(RegisterPaymail("ada", "02AD", ""), "") << row.why;
        EXPECT_EQ(Get()["names"]["ada"], json::parse(row.taken)) << row.why;
    }
}

TEST_F(PaymailRegistry, FindsTheNameOfAnIdentity) {
    const std::string names =
        R"({"names":{"bee":{"pubkey":"02AD"},"be":{"pubkey":"02ad"},"@A@x":{"pubkey":"03b0"},
        "cat":{"pubkey":"02ad"},"!!":{"pubkey":"02ad"},"aa":"02ad"},"self":)";
    const struct {
        const char* why;
        std::string document, key, name;
    } rows[] = {
        {"self of this identity", names + R"("@Cat"})", "02AD", "cat"},
        {"self of another: the smallest, the shorter first", names + R"("a"})", "02ad", "be"},
        {"self that is no entry", names + R"("dog"})", "02ad", "be"},
        {"self of a wrong type", names + "5}", "02ad", "be"},
        {"keys are cleaned", names + R"("")" + "}", "03b0", "a"},
        {"unknown key", names + "5}", "02ff", ""},
        {"no key", R"({"names":{"x":{}}})", "", ""},
        {"no names", R"({"names":[1],"self":"ada"})", "02ad", ""},
    };
    for (const auto& row : rows) {
        Put(row.document);
        EXPECT_EQ(FindNameForPubkey(row.key), row.name) << row.why;
    }
}

TEST_F(PaymailRegistry, KeepsTheHostRole) {
    Put(R"({"self":"a","host_role":3})");
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

TEST_F(PaymailRegistry, TheIdentitysEntriesFollowItsOrdinalsAddressAndItsAvatar) {
    EXPECT_EQ(SyncAvatar(), "no identity pubkey");
    json document = {{"names",
                      {{"address_in_ord", {{"pubkey", "02AD"}, {"ord", kForeignAddress}}},
                       {"outpoint_in_ord", {{"pubkey", "02ad"}, {"ord", std::string(30, '1') + "_0"}}},
                       {"set", {{"pubkey", "02ad"}, {"ordAddress", kOrdAddress}, {"ord", kForeignAddress}}},
                       {"other", {{"pubkey", "03b0"}, {"ord", kForeignAddress}, {"avatar", "bob_0"}}},
                       {"text", "02ad"}}}};
    json& names = document["names"];
    Put(document.dump());
    SetOrdAddress(kOrdAddress);  // nobody's wallet yet
    SetIdentity("02AD", "new_0");
    SetOrdAddress("3NotAnAddress");
    EXPECT_EQ(Get(), document);
    names["address_in_ord"] = {{"pubkey", "02AD"}, {"ordAddress", kOrdAddress}};
    names["outpoint_in_ord"]["ordAddress"] = kOrdAddress;
    SetOrdAddress(kOrdAddress);
    EXPECT_EQ(Get(), document);

    EXPECT_EQ(SyncAvatar(), "");
    for (const char* own : {"address_in_ord", "outpoint_in_ord", "set"}) names[own]["avatar"] = "new_0";
    document["avatars"] = {{"02ad", "new_0"}};
    EXPECT_EQ(Get(), document);
    SetIdentity("02AD", "");
    EXPECT_EQ(SyncAvatar(), "");
    for (const char* own : {"address_in_ord", "outpoint_in_ord", "set"}) names[own].erase("avatar");
    document["avatars"] = json::object();
    EXPECT_EQ(Get(), document);
}

TEST_F(PaymailRegistry, ReadsAnyFileAsSomething) {
    SetIdentity("02ad", "av_0");
    for (
        const char* content :
        {"{[", "[1,2]", "\xff\xfe", R"({"names":"x","self":{},"avatars":7,"host_role":[]})",
         R"({"names":{"ada":{"pubkey":1,"ord":{},"avatar":[]}, "b":null, "":{"pubkey":"x"}},"avatars":[]})"}) {
        SCOPED_TRACE(content);
        Put(content);
        EXPECT_EQ(FindNameForPubkey("02ad"), "");
        SetOrdAddress(kOrdAddress);
        SetHostRole("dev");
        EXPECT_EQ(Get()["host_role"], "dev");
        Put(content);
        EXPECT_EQ(SyncAvatar(), "");
        EXPECT_EQ(Get()["avatars"]["02ad"], "av_0");
        Put(content);
        EXPECT_EQ(RegisterPaymail("ada", "02ad", kForeignAddress), "");
        EXPECT_EQ(FindNameForPubkey("02ad"), "ada");
    }
}

TEST_F(PaymailRegistry, TakesOverTheFileOfAnOlderInstallationAndLeavesAloneWhatItCannotRead) {
    MakeFolders("userinfo");
    MakeFolders(data.InStore(""));
    const std::string old_file = "userinfo/orvane_paymail.json", deep(100'000, '[');
    SetIdentity("02ad", "av_0");
    for (const std::string& path : {old_file, file}) {
        SCOPED_TRACE(path);
        WriteFile(path, deep);
        EXPECT_EQ(FindNameForPubkey("02ad"), "");
        EXPECT_EQ(RegisterPaymail("ada", "02ad", kForeignAddress), "could not write paymail registry");
        EXPECT_EQ(SyncAvatar(), "could not write paymail registry");
        SetHostRole("dev");
        EXPECT_EQ(ReadFile(path), deep);
        EXPECT_EQ(FileExists(file), path != old_file);
    }
    RemoveFile(file);
    const std::string old = R"({"names":{"ada":{"pubkey":"02ad"}}})";
    WriteFile(old_file, old);
    EXPECT_EQ(FindNameForPubkey("02ad"), "ada");
    EXPECT_EQ(Get(), json::parse(old)) << "moved into the store by the first look";
    EXPECT_EQ(ReadFile(old_file), old) << "and left where it was";
    Put("broken");
    EXPECT_EQ(FindNameForPubkey("02ad"), "") << "a broken file of the store is a file all the same";
}

}  // namespace
}  // namespace brickfall
