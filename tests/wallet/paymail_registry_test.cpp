#include "wallet/paymail_registry.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "deployment/deployment.h"
#include "tests/support/temp_folder.h"
#include "wallet/ov_pouch_wallet.h"

namespace brickfall {
namespace {

using nlohmann::json;

const std::string kAda = "02" + std::string(62, '0') + "ad";
const std::string kAdaUpper = "02" + std::string(62, '0') + "AD";
const std::string kBob = "03" + std::string(62, '0') + "b0";
constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";
constexpr char kOrdAddress[] = "1OrdinalsAddressOfThisIdentity";

// The registry's file in a store of its own, with ada as the wallet's identity.
class PaymailRegistry : public testing::Test {
  protected:
    PaymailRegistry() { MakeFolders(data_.Path() + "/Orvane"); }
    ~PaymailRegistry() override { SetIdentity("", ""); }

    std::string FilePath() const { return data_.Path() + "/Orvane/orvane_paymail.json"; }
    void Put(const json& document) const { WriteFile(FilePath(), document.dump()); }
    json Get() const { return json::parse(ReadFile(FilePath()).value_or("null"), nullptr, false); }

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

    TempUserData data_;
};

TEST(PaymailName, KeepsOnlyWhatANameMayHold) {
    const struct {
        const char* why;
        const char* text;
        const char* name;
    } kRows[] = {
        {"bare", "ada", "ada"},
        {"at-sign, capitals and domain", "@Ada@pay.example", "ada"},
        {"every kind of leading mark", " $@ @ada", "ada"},
        {"trailing blank and line end", "ada \r\n", "ada"},
        {"bytes outside the set are dropped", "Bad Name!", "badname"},
        {"marks of a name stay", "a_b-c.9", "a_b-c.9"},
        {"a tab is dropped, though not stripped", "\tada\t", "ada"},
        {"UTF-8 is dropped byte by byte",
         "\xc3\x84"
         "da",
         "da"},
        {"two at-signs before, one behind", "@@pay.example@x", "pay.example"},
        {"marks alone leave nothing", "@$ ", ""},
        {"nothing before the second at-sign", "!@pay.example", ""},
    };
    for (const auto& row : kRows) EXPECT_EQ(SanitizePaymailName(row.text), row.name) << row.why;
}

TEST(PaymailAddress, IsToldByItsShapeAlone) {
    const struct {
        std::string text;
        bool answer;
    } kRows[] = {
        {kAddress, true},
        {std::string(26, '1'), true},
        {std::string(25, '1'), false},
        {std::string(35, '1'), true},
        {std::string(36, '1'), false},
        {"3" + std::string(29, '1'), false},
        {std::string(29, '1') + "_", false},
        {"", false},
    };
    for (const auto& row : kRows) EXPECT_EQ(LooksLikeAddress(row.text), row.answer) << row.text;
}

TEST_F(PaymailRegistry, RefusalsLeaveTheFileAlone) {
    const std::string taken = std::string("ada@") + kPaymailDomain + " is already taken";
    const struct {
        const char* why;
        json document;
        std::string name, key, text;
    } kRows[] = {
        {"nothing usable", json::object(), "@!", kAda, "need a paymail name (letters, numbers, _ - .)"},
        {"no key", json::object(), "ada", "", "no Pouch identity pubkey"},
        {"of another identity", {{"names", {{"ada", {{"pubkey", kBob}}}}}}, "Ada", kAda, taken},
        {"eleventh label",
         {{"names", Names(10, kAda)}},
         "ada",
         kAda,
         "paymail quota reached (10 free labels per identity)"},
        {"the key's case does not matter",
         {{"names", Names(10, kAda)}},
         "ada",
         kAdaUpper,
         "paymail quota reached (10 free labels per identity)"},
        {"twenty-first of a dev",
         {{"names", Names(20, kAda)}, {"host_role", "dev"}},
         "ada",
         kAda,
         "paymail quota reached (20 free labels per identity)"},
        {"a role that buys nothing",
         {{"names", Names(10, kAda)}, {"host_role", "operator"}},
         "ada",
         kAda,
         "paymail quota reached (10 free labels per identity)"},
    };
    for (const auto& row : kRows) {
        Put(row.document);
        EXPECT_EQ(RegisterPaymail(row.name, row.key, kAddress), row.text) << row.why;
        EXPECT_EQ(Get(), row.document) << row.why;
    }
}

TEST_F(PaymailRegistry, GrantsWhatIsFreeOrOwned) {
    const json full = Names(10, kAda);
    json with_text = Names(9, kAda);
    with_text["n9"] = kAda;  // no object, so no label
    json ownerless = full;
    ownerless["ada"] = {{"address", "1Old"}};
    const struct {
        const char* why;
        json document;
        std::string name;
    } kRows[] = {
        {"tenth label", {{"names", Names(9, kAda)}}, "ada"},
        {"only objects count", {{"names", with_text}}, "ada"},
        {"others' labels do not count", {{"names", Names(30, kBob)}}, "ada"},
        {"twentieth of a dev", {{"names", Names(19, kAda)}, {"host_role", "dev"}}, "ada"},
        {"an architect has no limit", {{"names", Names(60, kAda)}, {"host_role", "architect"}}, "ada"},
        {"an own name at a full quota", {{"names", full}}, "n3"},
        {"a name without a key is anybody's, quota or not", {{"names", ownerless}}, "ada"},
    };
    for (const auto& row : kRows) {
        Put(row.document);
        EXPECT_EQ(RegisterPaymail(row.name, kAda, kAddress), "") << row.why;
        const json entry = {{"pubkey", kAda}, {"address", kAddress}};
        EXPECT_EQ(Get()["names"][row.name], entry) << row.why;
        EXPECT_EQ(Get()["self"], row.name) << row.why;
    }
}

TEST_F(PaymailRegistry, ANewEntryTakesOverOrdinalAndAvatar) {
    const json other = {{"pubkey", kAdaUpper}, {"ord", "aa_0"}, {"avatar", "bb_0"}};
    const json own = {{"pubkey", kAda}, {"ord", "cc_0"}, {"avatar", "dd_0"}, {"ordAddress", kOrdAddress}};
    const json silent = {{"pubkey", kAda}, {"ord", 7}, {"avatar", ""}};
    const struct {
        const char* why;
        json document;
        json ord, avatar;
    } kRows[] = {
        {"its own come first",
         {{"names", {{"a", other}, {"ada", own}}}, {"avatars", {{kAda, "ee_0"}}}},
         "cc_0",
         "dd_0"},
        {"then the identity's avatar, and the first ordinal",
         {{"names", {{"a", silent}, {"b", other}}}, {"avatars", {{kAda, "ee_0"}}}},
         "aa_0",
         "ee_0"},
        {"then the first avatar of another entry",
         {{"names", {{"a", silent}, {"b", other}, {"c", own}}}, {"avatars", "none"}},
         "aa_0",
         "bb_0"},
        {"never those of another identity",
         {{"names", {{"b", {{"pubkey", kBob}, {"ord", "aa_0"}, {"avatar", "bb_0"}}}}}},
         nullptr,
         nullptr},
    };
    for (const auto& row : kRows) {
        Put(row.document);
        EXPECT_EQ(RegisterPaymail("ada", kAdaUpper, ""), "") << row.why;
        const json entry = Get()["names"]["ada"];
        EXPECT_EQ(entry.value("ord", json()), row.ord) << row.why;
        EXPECT_EQ(entry.value("avatar", json()), row.avatar) << row.why;
        EXPECT_EQ(entry["pubkey"], kAdaUpper) << row.why;
        EXPECT_FALSE(entry.contains("ordAddress") || entry.contains("address")) << row.why;
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
    } kRows[] = {
        {"self of this identity", {{"names", names}, {"self", "@Cat"}}, kAdaUpper, "cat"},
        {"self of another: the smallest, the shorter first", {{"names", names}, {"self", "a"}}, kAda, "be"},
        {"self that is no entry", {{"names", names}, {"self", "dog"}}, kAda, "be"},
        {"self of a wrong type", {{"names", names}, {"self", 5}}, kAda, "be"},
        {"keys are cleaned", {{"names", names}}, kBob, "a"},
        {"unknown key", {{"names", names}}, "02ff", ""},
        {"no key", {{"names", {{"x", json::object()}}}}, "", ""},
        {"no names", {{"names", json::array({1})}, {"self", "ada"}}, kAda, ""},
    };
    for (const auto& row : kRows) {
        Put(row.document);
        EXPECT_EQ(FindNameForPubkey(row.key), row.name) << row.why;
    }
}

TEST_F(PaymailRegistry, KeepsTheHostRole) {
    const struct {
        const char* role;
        json before, after;
    } kRows[] = {
        {"Operator", {{"self", "a"}}, {{"self", "a"}, {"host_role", "operator"}}},
        {"architect", {{"host_role", "dev"}}, {{"host_role", "architect"}}},
        {"agent", {{"host_role", 3}}, {{"host_role", "agent"}}},
        {"DEFAULT", {{"host_role", "dev"}}, json::object()},
        {"emperor", {{"host_role", "dev"}}, json::object()},
        {"", {{"host_role", "dev"}}, json::object()},
    };
    for (const auto& row : kRows) {
        Put(row.before);
        SetHostRole(row.role);
        EXPECT_EQ(Get(), row.after) << row.role;
    }
    RemoveFile(FilePath());
    SetHostRole("default");
    EXPECT_FALSE(FileExists(FilePath())) << "nothing changed, so nothing is written";
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
    const json ada = {{"pubkey", kAda}, {"avatar", "old_0"}};
    const json bob = {{"pubkey", kBob}, {"avatar", "bob_0"}};
    Put({{"names", {{"ada", ada}, {"bob", bob}}}, {"avatars", {1, 2}}});

    SetIdentity(kAdaUpper, "new_0");
    EXPECT_EQ(SyncAvatar(), "");
    json expected = {{"names", {{"ada", {{"pubkey", kAda}, {"avatar", "new_0"}}}, {"bob", bob}}},
                     {"avatars", {{kAda, "new_0"}}}};
    EXPECT_EQ(Get(), expected);

    SetIdentity(kAdaUpper, "");
    EXPECT_EQ(SyncAvatar(), "");
    expected["names"]["ada"].erase("avatar");
    expected["avatars"] = json::object();
    EXPECT_EQ(Get(), expected);
}

TEST_F(PaymailRegistry, ReadsAnyFileAsSomething) {
    const std::string kContents[] = {
        "",
        "{",
        "[1,2]",
        "\"text\"",
        "null",
        "\xff\xfe",
        R"({"names":"x","self":{},"avatars":7,"host_role":[]})",
        R"({"names":{"ada":{"pubkey":1,"ord":{},"avatar":[]}, "b":null, "":{"pubkey":"x"}},"avatars":[]})",
        std::string(100'000, '['),
    };
    for (const std::string& content : kContents) {
        const std::string shown = content.substr(0, 60);
        SetIdentity(kAda, "av_0");
        const auto put = [&] { WriteFile(FilePath(), content); };
        put();
        EXPECT_EQ(FindNameForPubkey(kAda), "") << shown;
        SetOrdAddress(kOrdAddress);
        SetHostRole("dev");
        EXPECT_EQ(Get()["host_role"], "dev") << shown;
        put();
        EXPECT_EQ(SyncAvatar(), "") << shown;
        EXPECT_EQ(Get()["avatars"][kAda], "av_0") << shown;
        put();
        EXPECT_EQ(RegisterPaymail("ada", kAda, kAddress), "") << shown;
        EXPECT_EQ(FindNameForPubkey(kAda), "ada") << shown;
    }
    RemoveFile(FilePath());
    std::filesystem::create_directory(FilePath());
    EXPECT_EQ(RegisterPaymail("ada", kAda, kAddress), "could not write paymail registry");
    EXPECT_EQ(SyncAvatar(), "could not write paymail registry");
}

TEST_F(PaymailRegistry, PicksUpTheFileOfAnOlderInstallation) {
    const TempFolder program;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(program.Path());
    MakeFolders("userinfo");
    const json old = {{"names", {{"ada", {{"pubkey", kAda}}}}}};
    const std::string old_text = old.dump();
    WriteFile("userinfo/orvane_paymail.json", old_text);

    EXPECT_EQ(FindNameForPubkey(kAda), "ada");
    EXPECT_EQ(Get(), old) << "moved into the store by the first look";
    EXPECT_EQ(ReadFile("userinfo/orvane_paymail.json"), old_text) << "and left where it was";
    WriteFile(FilePath(), "broken");
    EXPECT_EQ(FindNameForPubkey(kAda), "") << "a broken file of the store is a file all the same";
    std::filesystem::current_path(before);
}

}  // namespace
}  // namespace brickfall
