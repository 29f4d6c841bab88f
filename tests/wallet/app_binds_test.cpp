#include "wallet/store/app_binds.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "tests/support/temp_folder.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"

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
    const std::string one = R"({"wallets": [{"id": "a"}]})";
    const struct {
        std::string why, bind, registry, wallet_id;  // an empty text: no such file
        bool bind_written;
    } rows[] = {
        {"nothing there", "", "", "", false},
        {"one wallet", "", one, "a", true},
        {"two wallets", "", R"({"wallets": [{"id": "a"}, {"id": "b"}]})", "", false},
        {"one wallet and rubbish are two elements", "", R"({"wallets": [{"id": "a"}, 0]})", "", false},
        {"one wallet without an id", "", R"({"wallets": [{"name": "a"}]})", "", false},
        {"one element that is no wallet", "", R"({"wallets": ["a"]})", "", false},
        {"a bind wins over the only wallet", R"({"wallet_id": "b"})", one, "b", false},
        {"a broken bind", R"({"wallet_id": "b")", one, "a", true},
        {"a bind that cannot be read may name any wallet", std::string(1000, '['), one, "", false},
        {"a bind of another type", R"({"wallet_id": 7})", one, "a", true},
        {"a bind without a wallet", R"(["wallet_id"])", R"({"wallets": []})", "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const std::string bind = Path("binds/_opt_brickfall.json");
        RemoveFile(bind);
        RemoveFile(Path("wallets.json"));
        if (!row.bind.empty()) Put("binds/_opt_brickfall.json", row.bind);
        if (!row.registry.empty()) Put("wallets.json", row.registry);
        SetWalletId("of an earlier life");
        BindAtStart("/opt/Brickfall", "Brickfall");
        EXPECT_EQ(WalletId(), row.wallet_id);
        const json written = {
            {"app", "Brickfall"}, {"instance", "/opt/Brickfall"}, {"wallet_id", row.wallet_id}};
        EXPECT_EQ(ReadFile(bind).value_or(""), row.bind_written ? written.dump(2) : row.bind);
    }
}

TEST_F(AppBinds, TwoFoldersOfAppsUseTwoWallets) {
    SetWalletId("a");
    EXPECT_EQ(BoundWalletId(), "a") << "no app: the field alone counts";
    WriteBind("b");
    EXPECT_EQ(WalletId(), "a");

    BindAtStart("/one", "Brickfall");
    WriteBind("first");
    WriteBind("");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "");
    WriteBind("second");
    BindAtStart("/one", "Brickfall");
    EXPECT_EQ(WalletId(), "first");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "second");
    Put("binds/_two.json", R"({"wallet_id": "third"})");
    EXPECT_EQ(BoundWalletId(), "third") << "read afresh";
    EXPECT_EQ(WalletId(), "second");
    ClearBind();
    EXPECT_EQ(WalletId() + BoundWalletId(), "");
    EXPECT_FALSE(FileExists(Path("binds/_two.json")));
    EXPECT_TRUE(FileExists(Path("binds/_one.json")));
}

TEST_F(AppBinds, ConnectedMeansABoundWalletWithWordsThatLoads) {
    Put("orvane_pouch.json", kHdWallet);
    BindAtStart("", "");
    EXPECT_EQ(AppName() + AppInstance(), "App.");
    EXPECT_TRUE(FileExists(Path("binds/_.json")));
    EXPECT_TRUE(AppMode() && IsConnected()) << "the wallet of an old installation, moved";

    StartAnew();
    RemoveFile(Path("wallets.json"));
    BindAtStart("/one", "Brickfall");
    EXPECT_FALSE(IsConnected()) << "no bind";
    WriteBind("gone");
    EXPECT_FALSE(IsConnected()) << "its folder is not there";
    Put("wallets/old/wallet.json", kLegacyWallet);
    WriteBind("old");
    EXPECT_FALSE(IsConnected()) << "a wallet without words";
    EXPECT_FALSE(CurrentAddress().empty()) << "though it loads";
}

}  // namespace
}  // namespace brickfall
