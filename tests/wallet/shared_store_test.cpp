// The folder that all apps of a wallet share: its list of wallets, what this app is bound to, and other
// processes that write there too.
#include "wallet/store/shared_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/files.h"
#include "tests/support/child_process.h"
#include "tests/support/full_disk.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;

const std::string kStoreWriter = BRICKFALL_BINARY_DIR "/tests/store_writer";

struct SharedStore : testing::Test, StoreFixture {
    std::string Path(const std::string& name) const { return data.InStore(name); }
    std::string Content(const std::string& name) const { return ReadFile(Path(name)).value_or("(none)"); }
    static Lines Wallets() {
        Lines lines;
        for (const WalletInfo& wallet : ListWallets()) lines.push_back(wallet.id + "=" + wallet.name);
        return lines;
    }
};

TEST(BindName, IsTheEndOfItsFolderByteByByteWhateverTheLocale) {
    const std::pair<std::string, std::string> rows[] = {
        {"C:\\Gr\xc3\xbc\xc3\x9f 29", "c__gr_____29"},
        {"", "default"},
        {"@[`{/:azAZ", "______azaz"},
        {std::string(100, 'a') + std::string(96, 'B'), std::string(96, 'b')},
        {"/" + std::string(95, 'x'), "_" + std::string(95, 'x')},
    };
    for (const auto& [folder, name] : rows) EXPECT_EQ(SanitizeBindName(folder), name);
}

TEST_F(SharedStore, TheStartTakesTheBindOrTheOnlyWallet) {
    const std::string one = R"({"wallets": [{"id": "a"}]})";
    const struct {
        std::string why, bind, registry, wallet_id;  // an empty text: no such file
        bool bind_written;
    } rows[] = {
        {"one wallet", "", one, "a", true},
        {"two wallets", "", R"({"wallets": [{"id": "a"}, {"id": "b"}]})", "", false},
        {"one wallet and rubbish are two elements", "", R"({"wallets": [{"id": "a"}, 0]})", "", false},
        {"one element that is no wallet", "", R"({"wallets": ["a"]})", "", false},
        {"a bind wins over the only wallet", R"({"wallet_id": "b"})", one, "b", false},
        {"a broken bind", R"({"wallet_id": "b")", one, "a", true},
        {"a bind that cannot be read may name any wallet", std::string(1000, '['), one, "", false},
        {"a bind of another type", R"({"wallet_id": 7})", one, "a", true},
    };
    const std::string bind_name = "binds/_opt_brickfall.json";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        RemoveFile(Path(bind_name));
        RemoveFile(Path("wallets.json"));
        if (!row.bind.empty()) data.Put(bind_name, row.bind);
        if (!row.registry.empty()) data.Put("wallets.json", row.registry);
        SetWalletId("of an earlier life");
        BindAtStart("/opt/Brickfall", "Brickfall");
        EXPECT_EQ(WalletId(), row.wallet_id);
        const json written = {
            {"app", "Brickfall"}, {"instance", "/opt/Brickfall"}, {"wallet_id", row.wallet_id}};
        EXPECT_EQ(ReadFile(Path(bind_name)).value_or(""), row.bind_written ? written.dump(2) : row.bind);
    }
}

TEST_F(SharedStore, TwoFoldersOfAppsUseTwoWallets) {
    SetWalletId("a");
    EXPECT_EQ(BoundWalletId(), "a") << "no app: the field alone counts";
    EXPECT_TRUE(WriteBind("b")) << "there is nothing to write";
    EXPECT_EQ(WalletId(), "a");

    BindAtStart("/one", "Brickfall");
    WriteBind("first");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "");
    WriteBind("second");
    EXPECT_TRUE(WriteBind(""));
    BindAtStart("/one", "Brickfall");
    EXPECT_EQ(WalletId(), "first");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "second");
    data.Put("binds/_two.json", R"({"wallet_id": "third"})");
    EXPECT_EQ(BoundWalletId(), "third") << "read afresh";
    EXPECT_EQ(WalletId(), "second");
    ClearBind();
    EXPECT_EQ(WalletId() + BoundWalletId(), "");
    EXPECT_FALSE(FileExists(Path("binds/_two.json")));
    EXPECT_TRUE(FileExists(Path("binds/_one.json")));
}

TEST_F(SharedStore, TheStartConnectsWithTheWalletOfAnOldInstallation) {
    data.Put("orvane_pouch.json", R"({"mnemonic": ")" + std::string(kTestPhrase) + "\"}");
    BindAtStart("", "");
    EXPECT_EQ(AppName() + AppInstance(), "App.");
    EXPECT_TRUE(FileExists(Path("binds/_.json")));
    EXPECT_TRUE(AppMode() && IsConnected());
}

TEST_F(SharedStore, ARegistryOfAnyBytesReadsAsAnObjectWithAListOfWallets) {
    const std::string deep =  // a copy of it would exhaust the stack
        R"({"wallets": [{"id": "a"}], "x": )" + std::string(200'000, '[') + std::string(200'000, ']') + "}";
    const std::pair<std::string, Lines> rows[] = {
        {R"([{"id": "a"}])", {}},
        {R"({"wallets": [{"id": "a"}]} {})", {}},
        {R"({"wallets": {"id": "a"}})", {}},
        {"{\"wallets\": [{\"id\": \"a\xff\"}]}", {}},
        {deep, {}},
        {R"({"wallets": [{"id": "a", "name": "One"}, {"id": "b"}]})", {"a=One", "b=b"}},
        {R"({"wallets": [7, "a", null, [], {}, {"id": 5}, {"id": "", "name": "x"}, {"name": "y"},
             {"id": "c", "name": 1e300}, {"id": "d", "name": ""}, {"id": "c", "name": "twice"}]})",
         {"c=c", "d=d", "c=twice"}},
    };
    EXPECT_EQ(ReadRegistry().state, FileState::kMissing);
    for (const auto& [content, wallets] : rows) {
        SCOPED_TRACE(content.substr(0, 100));
        data.Put("wallets.json", content);
        const json registry = ReadRegistry().document;
        EXPECT_TRUE(registry.is_object() && registry.at("wallets").is_array());
        EXPECT_EQ(Wallets(), wallets);
    }
    EXPECT_EQ(WalletDisplayName("d"), "d") << "listed without a name";
    EXPECT_EQ(WalletDisplayName("unlisted"), "unlisted");

    data.Put("wallets.json", "[" + std::string(999'999, ',') + "]");
    EXPECT_EQ(ReadRegistry().state, FileState::kRead);
    for (const std::string& content : {deep, "[" + std::string(1'000'000, ',') + "]"}) {
        data.Put("wallets.json", content);
        EXPECT_EQ(ReadRegistry().state, FileState::kUnreadable);
        EXPECT_FALSE(WriteStoreFile(Path("wallets.json"), "{}"));
        data.Put("orvane_pouch.json", "the old wallet");
        MigrateSingleWallet();
        SetWalletName("a", "anna");
        EXPECT_EQ(Content("wallets.json"), content) << "nothing replaces it";
        EXPECT_EQ(Content("orvane_pouch.json"), "the old wallet");
    }
}

TEST_F(SharedStore, NamingAWalletKeepsEverythingElseOfTheRegistry) {
    // A folder in the place of the lock's file: the lock of the process alone has to do.
    ASSERT_TRUE(MakeFolders(Path("wallets.lock")));
    data.Put(
        "wallets.json",
        R"({"theme":{"dark":true},"active":"b","wallets":[{"id":"a","colour":3},4,{"id":"b"},{"id":"a"}]})");
    SetWalletName("a", "anna");
    const std::string before = Content("wallets.json");
    EXPECT_EQ(json::parse(before), json::parse(R"({"theme":{"dark":true},"active":"b","wallets":
        [{"id":"a","colour":3,"name":"anna"},4,{"id":"b"},{"id":"a","name":"anna"}]})"));
    EXPECT_EQ(WalletDisplayName("a"), "anna");
    EXPECT_TRUE(before.starts_with("{\n  \"active\": \"b\",\n") && before.ends_with("}\n"))
        << "for people to read";
    SetWalletName("", "nobody");
    SetWalletName("a", "");
    EXPECT_EQ(Content("wallets.json"), before);

    data.Put("wallets.json", "broken");
    SetWalletName("unlisted", "x");
    EXPECT_EQ(Content("wallets.json"), "{\n  \"wallets\": []\n}\n") << "the next write replaces it";
}

TEST_F(SharedStore, AnOldSingleWalletMovesOnceIntoTheListOfWallets) {
    const ManualClock clock(1'700'000'000);
    MigrateSingleWallet();
    EXPECT_FALSE(FileExists(Path("wallets.json"))) << "nothing to move, nothing written";

    data.Put("orvane_pouch.json", "the old wallet");
    {
        const FullDisk full(0);
        MigrateSingleWallet();
    }
    EXPECT_TRUE(ListWallets().empty());
    EXPECT_EQ(Content("orvane_pouch.json"), "the old wallet") << "it moves only once it is listed";
    data.Put("wallets", "a file in the folder's place");
    MigrateSingleWallet();
    EXPECT_EQ(Content("orvane_pouch.json"), "the old wallet") << "one that cannot move stays";
    EXPECT_EQ(ListWallets().size(), 1u) << "and is listed all the same";
    RemoveFile(Path("wallets"));
    MigrateSingleWallet();  // the next start moves it
    EXPECT_FALSE(FileExists(Path("orvane_pouch.json")));
    EXPECT_EQ(Content("wallets/w1700000000000/wallet.json"), "the old wallet");
    const json expected = {{"active", "w1700000000000"},
                           {"wallets", {{{"id", "w1700000000000"}, {"name", "Wallet 1"}}}}};
    EXPECT_EQ(json::parse(Content("wallets.json")), expected);

    // A store with wallets takes none over, wherever their files are.
    data.Put("orvane_pouch.json", "another");
    for (const std::string& registry :
         {expected.dump(),
          R"({"wallets":[{"id":"w1","name":"anna"},{"id":"w2","name":"Wallet 1"}]})" + std::string(),
          R"({"wallets":[{"id":"a","name":"Wallet 1"}]})" + std::string()}) {
        data.Put("wallets.json", registry);
        MigrateSingleWallet();
        EXPECT_EQ(Content("orvane_pouch.json"), "another") << registry;
        EXPECT_EQ(Content("wallets.json"), registry);
    }
}

TEST_F(SharedStore, TwoProcessesThatWriteLoseNothingOfEachOther) {
    for (const char* kind : {"wallets", "names"}) {
        ChildProcess one(kStoreWriter, {kind, "one", "100"});
        ChildProcess two(kStoreWriter, {kind, "two", "100"});
        EXPECT_EQ(one.Wait(), 0) << kind << ", 3: it missed what it had written";
        EXPECT_EQ(two.Wait(), 0) << kind;
    }
    const Lines wallets = Wallets();
    EXPECT_EQ(wallets.size(), 20u + 20u);
    const json names = ReadStoreJson(Path("orvane_paymail.json")).at("names");
    for (const std::string writer : {"one", "two"}) {
        EXPECT_EQ(std::ranges::count(wallets, writer + "99=n"), 1) << writer;
        EXPECT_EQ(names.at(writer).at("address"), "99");
    }
}

}  // namespace
}  // namespace brickfall
