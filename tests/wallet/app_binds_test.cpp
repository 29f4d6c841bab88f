#include "wallet/app_binds.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "tests/support/temp_folder.h"
#include "wallet/ov_pouch_wallet.h"

namespace brickfall {
namespace {

using nlohmann::json;

// A published test phrase of BIP39.
constexpr char kHdWallet[] =
    R"({"mnemonic": "legal winner thank year wave sausage worth useful legal winner thank yellow"})";
constexpr char kLegacyWallet[] =
    R"({"priv": "0000000000000000000000000000000000000000000000000000000000000001"})";

class AppBinds : public ::testing::Test {
  protected:
    AppBinds() { StartAnew(); }
    ~AppBinds() override { StartAnew(); }

    // As a new process finds itself.
    static void StartAnew() {
        ResetBindingForTest();
        const WalletLock lock(wallet_mutex);
        ClearWalletState();
    }
    std::string Path(const std::string& name) const { return user_data_.Path() + "/Orvane/" + name; }
    void Put(const std::string& name, std::string_view content) const {
        const std::string path = Path(name);
        ASSERT_TRUE(MakeFolders(path.substr(0, path.rfind('/'))));
        ASSERT_TRUE(WriteFile(path, content));
    }

    const TempUserData user_data_;
};

TEST_F(AppBinds, ABindIsNamedAfterTheEndOfItsFolder) {
    EXPECT_EQ(SanitizeBindName("/Home/Anna/Brickfall 2"), "_home_anna_brickfall_2");
    EXPECT_EQ(SanitizeBindName("C:\\Gr\xc3\xbc\xc3\x9f"), "c__gr____") << "byte by byte, whatever the locale";
    EXPECT_EQ(SanitizeBindName("."), "_");
    EXPECT_EQ(SanitizeBindName(""), "default");
    EXPECT_EQ(SanitizeBindName(std::string(100, 'a') + std::string(96, 'B')), std::string(96, 'b'));
    EXPECT_EQ(SanitizeBindName("/" + std::string(95, 'x')), "_" + std::string(95, 'x'));
}

TEST_F(AppBinds, TheStartTakesTheBindOrTheOnlyWallet) {
    const struct {
        const char* why;
        const char* bind;
        const char* registry;
        const char* wallet_id;
        bool bind_written;
    } rows[] = {
        {"nothing there", nullptr, nullptr, "", false},
        {"one wallet", nullptr, R"({"wallets": [{"id": "a"}]})", "a", true},
        {"two wallets", nullptr, R"({"wallets": [{"id": "a"}, {"id": "b"}]})", "", false},
        {"one wallet and rubbish are two elements", nullptr, R"({"wallets": [{"id": "a"}, 0]})", "", false},
        {"one wallet without an id", nullptr, R"({"wallets": [{"name": "a"}]})", "", false},
        {"one element that is no wallet", nullptr, R"({"wallets": ["a"]})", "", false},
        {"a bind wins over the only wallet", R"({"wallet_id": "b"})", R"({"wallets": [{"id": "a"}]})", "b",
         false},
        {"a broken bind", R"({"wallet_id": "b")", R"({"wallets": [{"id": "a"}]})", "a", true},
        {"a bind of another type", R"({"wallet_id": 7})", R"({"wallets": [{"id": "a"}]})", "a", true},
        {"a bind without a wallet", R"(["wallet_id"])", R"({"wallets": []})", "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const TempUserData store;
        const std::string root = store.Path() + "/Orvane";
        const std::string bind = root + "/binds/_opt_brickfall.json";
        ASSERT_TRUE(MakeFolders(root + "/binds"));
        if (row.bind != nullptr) {
            ASSERT_TRUE(WriteFile(bind, row.bind));
        }
        if (row.registry != nullptr) {
            ASSERT_TRUE(WriteFile(root + "/wallets.json", row.registry));
        }
        SetWalletId("of an earlier life");
        BindAtStart("/opt/Brickfall", "Brickfall");
        EXPECT_EQ(WalletId(), row.wallet_id);
        if (row.bind_written) {
            const json expected = {
                {"app", "Brickfall"}, {"instance", "/opt/Brickfall"}, {"wallet_id", row.wallet_id}};
            EXPECT_EQ(ReadFile(bind), expected.dump(2));
        } else if (row.bind != nullptr) {
            EXPECT_EQ(ReadFile(bind), row.bind);
        } else {
            EXPECT_FALSE(FileExists(bind));
        }
    }
}

TEST_F(AppBinds, AnOldWalletIsMovedAndBoundAtTheFirstStart) {
    Put("orvane_pouch.json", kHdWallet);
    BindAtStart("", "");
    EXPECT_TRUE(AppMode());
    EXPECT_EQ(AppName(), "App");
    EXPECT_EQ(AppInstance(), ".");
    EXPECT_FALSE(WalletId().empty());
    EXPECT_TRUE(FileExists(Path("binds/_.json")));
    EXPECT_TRUE(IsConnected());
}

TEST_F(AppBinds, TwoFoldersUseTwoWallets) {
    BindAtStart("/one", "Brickfall");
    WriteBind("first");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "");
    WriteBind("second");
    BindAtStart("/one", "Brickfall");
    EXPECT_EQ(WalletId(), "first");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "second");
    ClearBind();
    EXPECT_EQ(WalletId(), "");
    EXPECT_EQ(BoundWalletId(), "");
    EXPECT_FALSE(FileExists(Path("binds/_two.json")));
    EXPECT_TRUE(FileExists(Path("binds/_one.json")));
    ClearBind();  // with nothing left to clear
}

TEST_F(AppBinds, OnlyAnAppThatNamesAWalletWritesABind) {
    SetWalletId("a");
    EXPECT_EQ(BoundWalletId(), "a") << "no app: the field alone counts";
    WriteBind("b");
    EXPECT_EQ(WalletId(), "a");
    BindAtStart("/one", "Brickfall");
    WriteBind("b");
    WriteBind("");
    EXPECT_EQ(BoundWalletId(), "b");
    Put("binds/_one.json", R"({"wallet_id": "c"})");
    EXPECT_EQ(BoundWalletId(), "c") << "read afresh";
    EXPECT_EQ(WalletId(), "b");
    // A file that cannot be opened is skipped; the wallet is in use all the same.
    ASSERT_TRUE(RemoveFile(Path("binds/_one.json")));
    ASSERT_TRUE(MakeFolders(Path("binds/_one.json")));
    WriteBind("d");
    EXPECT_EQ(WalletId(), "d");
    EXPECT_EQ(BoundWalletId(), "");
}

TEST_F(AppBinds, ConnectedMeansABoundWalletWithWordsThatLoads) {
    BindAtStart("/one", "Brickfall");
    EXPECT_FALSE(IsConnected()) << "no bind";
    WriteBind("gone");
    EXPECT_FALSE(IsConnected()) << "its folder is not there";
    Put("wallets/old/wallet.json", kLegacyWallet);
    WriteBind("old");
    EXPECT_FALSE(IsConnected()) << "a wallet without words";
    EXPECT_FALSE(CurrentAddress().empty()) << "though it loads";

    StartAnew();
    Put("wallets/new/wallet.json", kHdWallet);
    BindAtStart("/one", "Brickfall");
    WriteBind("new");
    EXPECT_TRUE(IsConnected());
    ASSERT_TRUE(RemoveFile(Path("binds/_one.json")));
    EXPECT_EQ(BoundWalletId(), "");
    EXPECT_TRUE(IsConnected()) << "a loaded wallet stays until a restart or an unbind";
    StartAnew();
    BindAtStart("/one", "Brickfall");
    EXPECT_FALSE(IsConnected());
}

}  // namespace
}  // namespace brickfall
