#include "wallet/link/status_refresh.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/files.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/link/paymail_host.h"
#include "wallet/link/paymail_sync.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;
using Lines = std::vector<std::string>;

constexpr char kRegistry[] = "/orvane_paymail.json";
const std::string kWalletFile = std::string("/wallets/") + kTestWalletId + "/wallet.json";

json ReadJson(const std::string& path) { return json::parse(ReadFile(path).value_or(""), nullptr, false); }

struct StatusRefreshTest : testing::Test {
    WalletFixture wallet;
    SandboxFixture remote;
    const std::string address = wallet.ReceiveAddress(0), key = wallet.IdentityKey();
    EventLines events;
};

// The sandbox takes a claim only after it has checked the signature over the claim's text by code of its own,
// so a missing bar or a field too many is refused.
TEST_F(StatusRefreshTest, TheHostAcceptsEveryShapeOfClaim) {
    const struct {
        std::string alias, published_as, avatar, ord_address;
    } rows[] = {
        {"eve", "eve", "", ""},
        {"@Eve2@pay.example", "eve2", "aabb_0", ""},
        {" @$Eve3 \r\n", "eve3", "", kForeignAddress},
        {"eve4", "eve4", "aabb_0", kForeignAddress},
    };
    std::string upper = key;
    std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
    for (const auto& row : rows) {
        EXPECT_EQ(ClaimPaymail(row.alias, upper, address, row.avatar, row.ord_address), "") << row.alias;
        const auto published = remote.box.Identity(row.published_as);
        ASSERT_TRUE(published) << row.alias;
        EXPECT_EQ(published->pubkey, key);
        EXPECT_EQ(published->address, address);
        EXPECT_EQ(published->avatar, row.avatar);
        EXPECT_EQ(published->ord_address, row.ord_address);
    }
    EXPECT_EQ(NormalizePaymailHandle("A da! \r\n"), "a da!") << "cut and folded, but not filtered";
    EXPECT_EQ(ClaimPaymail("@", upper, "1", "", ""), "need alias and pubkey");
    EXPECT_EQ(ClaimPaymail("eve", "", "1", "", ""), "need alias and pubkey");
    EXPECT_EQ(ClaimPaymail("eve", "02" + std::string(64, '1'), "1", "", ""), "identity pubkey mismatch");

    const struct {
        int status;
        std::string body, text;
    } refusals[] = {
        {429, R"({"error":"slow down"})", "slow down"},
        {429, "Too Many Requests", kRateLimitText},
        {500, "<html>oops</html>", "HTTP 500"},
        {400, R"({"error":""})", "HTTP 400 – {\"error\":\"\"}"},
        {400, R"({"error":[1]})", "HTTP 400 – {\"error\":[1]}"},
    };
    for (const auto& row : refusals) {
        remote.box.ClearFaults();
        remote.box.ClearRequests();
        remote.Reply(Service::kPaymail, "/claim", row.status, row.body);
        EXPECT_EQ(ClaimPaymail("eve", key, kForeignAddress, "", ""), row.text) << row.body;
        EXPECT_EQ(remote.Asked(Service::kPaymail, "/claim"), row.status == 429 ? 4 : 1) << row.body;
    }
    remote.box.ClearFaults();
    UnbindWallet();
    EXPECT_NE(ClaimPaymail("eve", upper, "1", "", ""), "") << "nothing to sign with";
}

TEST_F(StatusRefreshTest, ClaimsOnceAndAsksForTheRoleEachTime) {
    ASSERT_NE(remote.box.Fund(address, 12'345), "");
    // What the process last told the host depends on the tests before; this makes it known.
    ClaimIfChanged("forget", key, kForeignAddress, "", "");
    remote.box.ClearRequests();
    const auto claims = [this] { return remote.Asked(Service::kPaymail, "POST /api/paymail/claim"); };
    for (int i = 0; i < 2; ++i) {
        const StatusResult result = StatusRefresh();
        EXPECT_TRUE(result.chain_ok);
        EXPECT_EQ(result.balance, 12'345);
    }
    EXPECT_EQ(claims(), 1) << "the first tells the host, the second has nothing new";
    EXPECT_EQ(remote.Asked(Service::kPaymail, "GET /api/paymail/quota/" + key), 2);
    const auto published = remote.box.Identity("ada");
    ASSERT_TRUE(published);
    EXPECT_EQ(published->address, address);
    EXPECT_NE(published->ord_address, "");

    const std::string handle = std::string("ada@") + kPaymailDomain;
    const std::string status = "[OV-POUCH]|status|" + address + "|12345|hd",
                      name = "[OV-POUCH]|paymail|" + handle;
    Lines lines = events.Take();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("[OV-POUCH]"); });
    EXPECT_EQ(lines, (Lines{status, name, status, name}));
    EXPECT_EQ(PublishedHandle(), handle);

    // A claim that fails is made again; one whose fields changed, too.
    remote.Reply(Service::kPaymail, "/claim", 500, "", 1);
    for (int i = 0; i < 3; ++i) ClaimIfChanged("ada", key, kForeignAddress, "", "");
    EXPECT_EQ(claims(), 3);
    ClaimIfChanged("ada", key, kForeignAddress, "avatar_0", "");
    EXPECT_EQ(claims(), 4);
    ClaimIfChanged("", key, kForeignAddress, "", "");
    ClaimIfChanged("ada", "", kForeignAddress, "", "");
    EXPECT_EQ(claims(), 4);
}

TEST_F(StatusRefreshTest, SaysThatNothingIsKnownWhenNoListingAnswers) {
    for (const Service service : {Service::kChain, Service::kOrdinals, Service::kIndexer}) {
        remote.Reply(service, "", 500, "");
    }
    EXPECT_FALSE(StatusRefresh().chain_ok);
    EXPECT_EQ(std::ranges::count(events.Take(), "[OV-POUCH]|status|" + address + "|-|hd"), 1);
}

TEST_F(StatusRefreshTest, StopsWithoutAWordWhenTheWalletChangesMeanwhile) {
    // The chain asks for patience, and in the pause the player unbinds. That it can shows that the wallet's
    // lock is free while the answers are awaited.
    remote.Reply(Service::kChain, "", 429, "", /*times=*/1);
    std::atomic<bool> unbound = false;
    wallet.clock.on_sleep = [&](int64_t) {
        if (unbound.exchange(true)) return;
        UnbindWallet();
        events.Take();
    };
    balance_busy = true;
    int posted = 0;
    BalanceWorker([&](const StatusResult& result) {
        EXPECT_FALSE(result.chain_ok);
        EXPECT_EQ(result.balance, 0);
        EXPECT_TRUE(balance_busy) << "cleared only after the result is on its way";
        ++posted;
    });
    wallet.clock.on_sleep = nullptr;
    EXPECT_TRUE(unbound);
    EXPECT_EQ(posted, 1);
    EXPECT_FALSE(balance_busy);
    EXPECT_EQ(events.Take(), Lines{});
    EXPECT_EQ(remote.Asked(Service::kPaymail), 0);

    // And from here there is no wallet at all.
    BalanceWorker(nullptr);
    EXPECT_EQ(events.Take(), (Lines{"[OV-POUCH]|status", "[OV-POUCH]|paymail"}));
    EXPECT_EQ(PublishedHandle(), "");
}

TEST_F(StatusRefreshTest, TheHostsAnswerSetsTheRole) {
    const struct {
        int status;
        const char *body, *role;
    } rows[] = {{200, R"({"role":"Architect"})", "architect"},
                {500, R"({"role":"agent"})", "dev"},
                {200, R"({"role":7})", ""},
                {200, R"(["role"])", "dev"}};
    for (const auto& row : rows) {
        WriteFile(wallet.StorePath(kRegistry), R"({"host_role":"dev"})");
        remote.box.ClearFaults();
        remote.Reply(Service::kPaymail, "/quota/", row.status, row.body);
        RefreshQuotaRole();
        EXPECT_EQ(ReadJson(wallet.StorePath(kRegistry)).value("host_role", ""), row.role) << row.body;
    }
}

TEST(PaymailSyncTest, ANamelessWalletTakesTheRegistrysNameAndIsSavedOnce) {
    const WalletFixture nameless("");
    const WalletLock lock(wallet_mutex);
    EventLines events;
    const json registry = {{"names", {{"grace", {{"pubkey", wallet_keys.identity_pub}}}}}};
    WriteFile(nameless.StorePath(kRegistry), registry.dump());
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(wallet_keys.paymail, "grace");
    EXPECT_EQ(events.Take(), Lines{std::string("[OV-POUCH]|paymail|grace@") + kPaymailDomain});
    EXPECT_EQ(ReadJson(nameless.StorePath(kWalletFile)).value("paymail", ""), "grace");
    EXPECT_EQ(ReadJson(nameless.StorePath("/wallets.json"))["wallets"][0]["name"], "grace");

    WriteFile(nameless.StorePath(kWalletFile), "marker");
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(ReadFile(nameless.StorePath(kWalletFile)), "marker")
        << "a wallet that has its name is not saved again";
    EXPECT_EQ(events.Take(), Lines{});
}

TEST(PaymailSyncTest, AHandleOfTheWalletFileIsReducedInMemoryOnlyAndTakesNoOthersName) {
    const WalletFixture wallet("@Ada@Pay.Example");
    const auto before = ReadFile(wallet.StorePath(kWalletFile));
    const WalletLock lock(wallet_mutex);
    wallet_keys.ord_avatar = "gone_0";
    EventLines events;
    PublishWalletState();
    EXPECT_EQ(wallet_keys.paymail, "ada");
    EXPECT_EQ(events.Take(), Lines{std::string("[OV-POUCH]|paymail|ada@") + kPaymailDomain});
    EXPECT_EQ(ReadFile(wallet.StorePath(kWalletFile)), before);
    const json published = ReadJson(wallet.StorePath(kRegistry));
    EXPECT_EQ(published["self"], "ada");
    EXPECT_EQ(published["avatars"], json::object()) << "of the file, not of memory";

    wallet_keys.paymail = "bob";
    const std::string taken = R"({"names":{"bob":{"pubkey":"02ff"}}})";
    WriteFile(wallet.StorePath(kRegistry), taken);
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(wallet_keys.paymail, "bob");
    EXPECT_EQ(ReadJson(wallet.StorePath(kRegistry))["names"], json::parse(taken)["names"]);
}

}  // namespace
}  // namespace brickfall
