// Every file that the cabinet writes, at every fault of the disk that it may meet.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "base/files.h"
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "messages/direct_message.h"
#include "tests/support/full_disk.h"
#include "tests/support/sealed_message.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/spent_set.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_file.h"

namespace brickfall {
namespace {

namespace fs = std::filesystem;

std::ptrdiff_t FilesIn(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

TEST(StoreFiles, AreReplacedWholeOrStayAsTheyAre) {
    const WorkingFolder program;
    const WalletFixture wallet;
    ASSERT_TRUE(wallet.loaded);
    const std::string wallets = wallet.StorePath("/wallets/") + kTestWalletId;
    const std::string of_wallet = std::string("/") + kTestWalletId;
    const struct {
        std::string path;
        std::function<void(int)> write;  // another content for each number
    } rows[] = {
        {wallets + "/wallet.json",
         [](int i) {
             wallet_keys.paymail = "name" + std::to_string(i);
             SaveWallet();
         }},
        {wallet.StorePath("/wallets.json"),
         [](int i) { SetWalletName(kTestWalletId, "name" + std::to_string(i)); }},
        {BindFilePath(), [](int i) { WriteBind("w" + std::to_string(i)); }},
        {wallet.StorePath("/orvane_paymail.json"),
         [](int i) { RegisterPaymail("ada", "02ad", "1" + std::to_string(i)); }},
        {wallet.StorePath("/tx_hist") + of_wallet + "_face.json", [](int i) { WriteFaceBalance(5000 + i); }},
        {wallet.StorePath("/ord_snap") + of_wallet + "_spent.json",
         [](int i) {
             MarkSpentInMemory(TestTxid(static_cast<uint32_t>(i)), 0);
             SaveSpentSet();
         }},
        {wallet.StorePath("/brickfall_ui.json"),
         [](int i) {
             music_vol = i;
             SaveUiSettings();
         }},
        {fs::current_path() / "userinfo/encpub-bob.txt",
         [](int i) { StoreEncryptionKey("bob", wallet_keys.identity_pub, 1'790'000'000 + i); }},
    };
    for (const auto& [path, write_number] : rows) {
        SCOPED_TRACE(path);
        int number = 0;
        const auto write = [&, &write_number = write_number] {
            SetWalletId(kTestWalletId);  // a row may have bound another one
            write_number(++number);
        };
        write();
        const std::string first = ReadFile(path).value_or("");
        ASSERT_FALSE(first.empty());

        // The file lies elsewhere, and somebody is reading it.
        const fs::path far = fs::current_path() / "far";
        fs::rename(path, far);
        fs::create_symlink(far, path);
        ASSERT_EQ(::chmod(far.c_str(), 0640), 0);
        std::ifstream reader(far);
        write();
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), first) << "written in place";
        const std::string second = ReadFile(far.string()).value_or("");
        EXPECT_NE(second, first);
        EXPECT_TRUE(fs::is_symlink(path));
        EXPECT_EQ(fs::status(far).permissions(), fs::perms(0640));
        fs::rename(far, path);

        const fs::path folder = fs::path(path).parent_path();
        const std::ptrdiff_t files = FilesIn(folder);
        {
            const FullDisk full(10);
            write();
        }
        EXPECT_EQ(ReadFile(path), second) << "a full disk";
        EXPECT_EQ(FilesIn(folder), files) << "nothing half written lies about";

        // Longer than any: as it stands it cannot be read, so it is not known to be worth nothing.
        ASSERT_EQ(::truncate(path.c_str(), off_t{1} << 40), 0);
        write();
        EXPECT_EQ(fs::file_size(path), uintmax_t{1} << 40);
        RemoveFile(path);
        ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
        write();
        EXPECT_TRUE(fs::is_fifo(path));

        RemoveFile(path);
        write();
        EXPECT_TRUE(fs::is_regular_file(path)) << "once nothing is in the way";
    }
    ClearEncryptionKeys();
    music_vol = 70;
    ui_doc = nlohmann::json::object();
}

}  // namespace
}  // namespace brickfall
