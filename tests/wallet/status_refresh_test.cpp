#include "wallet/link/status_refresh.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/files.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/events/wallet_events.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/link/paymail_host.h"
#include "wallet/link/paymail_sync.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Fault;
using sandbox::Service;

constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";

// Every event line of the wallet core, with "|" in the place of the separator.
class Events {
  public:
    Events() {
        Install([this](std::string_view line) {
            lines_.emplace_back(line);
            std::ranges::replace(lines_.back(), '\x1f', '|');
        });
    }
    ~Events() { Install(nullptr); }
    std::vector<std::string> Take() { return std::exchange(lines_, {}); }

  private:
    static void Install(WalletHook hook) {
        const std::lock_guard lock(wallet_sink_mutex);
        wallet_event_hook = std::move(hook);
    }

    std::vector<std::string> lines_;
};

json ReadJson(const std::string& path) { return json::parse(ReadFile(path).value_or(""), nullptr, false); }

std::string IdentityKey() {
    const WalletLock lock(wallet_mutex);
    return wallet_keys.identity_pub;
}

struct StatusRefreshTest : testing::Test {
    // The paymail host's requests whose target contains `part`.
    int64_t Asked(std::string_view part) const {
        return std::ranges::count_if(remote.box.Requests(Service::kPaymail), [&](const std::string& request) {
            return request.find(part) != std::string::npos;
        });
    }

    // What the process last told the host depends on the tests before; this makes it known.
    void ForgetLastClaim() {
        ClaimIfChanged("forget", IdentityKey(), kAddress, "", "");
        remote.box.ClearRequests();
    }

    WalletFixture wallet;
    SandboxFixture remote;
};

// The sandbox takes a claim only after it has checked the signature over the claim's text by code of its own,
// so a missing bar or a field too many is refused.
TEST_F(StatusRefreshTest, TheHostAcceptsEveryShapeOfClaim) {
    const struct {
        std::string alias, published_as, avatar, ord_address;
    } rows[] = {
        {"eve", "eve", "", ""},
        {"@Eve2@pay.example", "eve2", "aabb_0", ""},
        {" @$Eve3 \r\n", "eve3", "", kAddress},
        {"eve4", "eve4", "aabb_0", kAddress},
    };
    std::string upper = IdentityKey();
    std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
    for (const auto& row : rows) {
        EXPECT_EQ(ClaimPaymail(row.alias, upper, wallet.ReceiveAddress(0), row.avatar, row.ord_address), "")
            << row.alias;
        const auto published = remote.box.Identity(row.published_as);
        ASSERT_TRUE(published) << row.alias;
        EXPECT_EQ(published->pubkey, IdentityKey());
        EXPECT_EQ(published->address, wallet.ReceiveAddress(0));
        EXPECT_EQ(published->avatar, row.avatar);
        EXPECT_EQ(published->ord_address, row.ord_address);
    }
    EXPECT_EQ(NormalizePaymailHandle("A da! \r\n"), "a da!") << "cut and folded, but not filtered";
    EXPECT_EQ(ClaimPaymail("@", upper, "1", "", ""), "need alias and pubkey");
    EXPECT_EQ(ClaimPaymail("eve", "", "1", "", ""), "need alias and pubkey");
    EXPECT_EQ(ClaimPaymail("eve", "02" + std::string(64, '1'), "1", "", ""), "identity pubkey mismatch");
    UnbindWallet();
    EXPECT_NE(ClaimPaymail("eve", upper, "1", "", ""), "") << "nothing to sign with";
}

TEST_F(StatusRefreshTest, ARefusedClaimSaysWhy) {
    const struct {
        int status;
        std::string body, text;
    } rows[] = {
        {400, R"({"error":"name is reserved"})", "name is reserved"},
        {429, R"({"error":"slow down"})", "slow down"},
        {429, "Too Many Requests", kRateLimitText},
        {500, "<html>oops</html>", "HTTP 500"},
        {400, R"({"error":""})", "HTTP 400 – {\"error\":\"\"}"},
        {400, R"({"error":[1]})", "HTTP 400 – {\"error\":[1]}"},
        {400, R"(["error"])", "HTTP 400 – [\"error\"]"},
    };
    for (const auto& row : rows) {
        remote.box.ClearFaults();
        remote.box.ClearRequests();
        remote.Reply(Service::kPaymail, "/claim", row.status, row.body);
        EXPECT_EQ(ClaimPaymail("eve", IdentityKey(), kAddress, "", ""), row.text) << row.body;
        EXPECT_EQ(Asked("/api/paymail/claim"), row.status == 429 ? 4 : 1) << row.body;
    }
}

TEST_F(StatusRefreshTest, ClaimsOnceAndAsksForTheRoleEachTime) {
    Events events;
    const std::string address = wallet.ReceiveAddress(0);
    ASSERT_NE(remote.box.Fund(address, 12'345), "");
    ForgetLastClaim();
    for (int i = 0; i < 2; ++i) {
        const StatusResult result = StatusRefresh();
        EXPECT_TRUE(result.chain_ok);
        EXPECT_EQ(result.balance, 12'345);
    }
    EXPECT_EQ(Asked("POST /api/paymail/claim"), 1) << "the first tells the host, the second has nothing new";
    EXPECT_EQ(Asked("GET /api/paymail/quota/" + IdentityKey()), 2);
    const auto published = remote.box.Identity("ada");
    ASSERT_TRUE(published);
    EXPECT_EQ(published->address, address);
    EXPECT_NE(published->ord_address, "");

    const std::string handle = std::string("ada@") + kPaymailDomain;
    const std::vector<std::string> told = {"[OV-POUCH]|status|" + address + "|12345|hd",
                                           "[OV-POUCH]|paymail|" + handle};
    std::vector<std::string> lines = events.Take();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("[OV-POUCH]"); });
    ASSERT_EQ(lines.size(), 4u);
    lines.resize(2);
    EXPECT_EQ(lines, told);
    EXPECT_EQ(PublishedHandle(), handle);

    // A claim that fails is made again; one whose fields changed, too.
    remote.Reply(Service::kPaymail, "/claim", 500, "", 1);
    for (int i = 0; i < 3; ++i) ClaimIfChanged("ada", IdentityKey(), kAddress, "", "");
    EXPECT_EQ(Asked("POST /api/paymail/claim"), 3);
    ClaimIfChanged("ada", IdentityKey(), kAddress, "avatar_0", "");
    EXPECT_EQ(Asked("POST /api/paymail/claim"), 4);
    ClaimIfChanged("", IdentityKey(), kAddress, "", "");
    ClaimIfChanged("ada", "", kAddress, "", "");
    EXPECT_EQ(Asked("POST /api/paymail/claim"), 4);
}

TEST_F(StatusRefreshTest, SaysThatNothingIsKnownWhenNoListingAnswers) {
    Events events;
    Fault down;
    remote.box.AddFault(Service::kChain, down);
    remote.box.AddFault(Service::kOrdinals, down);
    remote.box.AddFault(Service::kIndexer, down);
    EXPECT_FALSE(StatusRefresh().chain_ok);
    EXPECT_EQ(std::ranges::count(events.Take(), "[OV-POUCH]|status|" + wallet.ReceiveAddress(0) + "|-|hd"),
              1);
}

TEST_F(StatusRefreshTest, StopsWithoutAWordWhenTheWalletChangesMeanwhile) {
    // The chain asks for patience, and in the pause the player unbinds. That it can shows that the wallet's
    // lock is free while the answers are awaited.
    Fault patience;
    patience.status = 429;
    patience.times = 1;
    remote.box.AddFault(Service::kChain, patience);
    Events events;
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
    EXPECT_EQ(events.Take(), std::vector<std::string>{});
    EXPECT_EQ(remote.box.Requests(Service::kPaymail), std::vector<std::string>{});

    // And from here there is no wallet at all.
    BalanceWorker(nullptr);
    const std::vector<std::string> nobody = {"[OV-POUCH]|status", "[OV-POUCH]|paymail"};
    EXPECT_EQ(events.Take(), nobody);
    EXPECT_EQ(PublishedHandle(), "");
}

TEST_F(StatusRefreshTest, TheHostsAnswerSetsTheRole) {
    const auto role_after = [this](int status, const char* body) {
        WriteFile(wallet.StorePath("/orvane_paymail.json"), R"({"host_role":"dev"})");
        remote.box.ClearFaults();
        remote.Reply(Service::kPaymail, "/quota/", status, body);
        RefreshQuotaRole();
        return ReadJson(wallet.StorePath("/orvane_paymail.json")).value("host_role", "");
    };
    EXPECT_EQ(role_after(200, R"({"role":"Architect"})"), "architect");
    EXPECT_EQ(role_after(500, R"({"role":"agent"})"), "dev");
    for (const char* none : {"{}", R"({"role":7})"}) EXPECT_EQ(role_after(200, none), "") << none;
    for (const char* broken : {"<html></html>", R"(["role"])", R"({"role":"ag)"}) {
        EXPECT_EQ(role_after(200, broken), "dev") << broken;
    }
}

TEST(PaymailSyncTest, ANamelessWalletTakesTheRegistrysNameAndIsSavedOnce) {
    const WalletFixture nameless("");
    const WalletLock lock(wallet_mutex);
    Events events;
    const auto wallet_path = nameless.StorePath(std::string("/wallets/") + kTestWalletId + "/wallet.json");
    const json registry = {{"names", {{"grace", {{"pubkey", wallet_keys.identity_pub}}}}}};
    WriteFile(nameless.StorePath("/orvane_paymail.json"), registry.dump());
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(wallet_keys.paymail, "grace");
    const std::vector<std::string> announced = {std::string("[OV-POUCH]|paymail|grace@") + kPaymailDomain};
    EXPECT_EQ(events.Take(), announced);
    EXPECT_EQ(ReadJson(wallet_path).value("paymail", ""), "grace");
    EXPECT_EQ(ReadJson(nameless.StorePath("/wallets.json"))["wallets"][0]["name"], "grace");

    WriteFile(wallet_path, "marker");
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(ReadFile(wallet_path), "marker") << "a wallet that has its name is not saved again";
    EXPECT_EQ(events.Take(), std::vector<std::string>{});
}

TEST(PaymailSyncTest, AHandleOfTheWalletFileIsReducedInMemoryOnly) {
    const WalletFixture wallet("@Ada@Pay.Example");
    const auto path = wallet.StorePath(std::string("/wallets/") + kTestWalletId + "/wallet.json");
    const auto registry_path = wallet.StorePath("/orvane_paymail.json");
    const auto before = ReadFile(path);
    const WalletLock lock(wallet_mutex);
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(wallet_keys.paymail, "ada");
    EXPECT_EQ(ReadFile(path), before);
    EXPECT_EQ(ReadJson(registry_path)["self"], "ada");

    // A name that another identity holds stays in the wallet, and out of the registry.
    wallet_keys.paymail = "bob";
    const json taken = {{"names", {{"bob", {{"pubkey", "02ff"}}}}}};
    WriteFile(registry_path, taken.dump());
    PaymailSync(/*announce=*/true);
    EXPECT_EQ(wallet_keys.paymail, "bob");
    EXPECT_EQ(ReadJson(registry_path)["names"], taken["names"]);
}

}  // namespace
}  // namespace brickfall
