#include "game/flows.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/files.h"
#include "base/workers.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/week.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "tests/game/random_run.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;

constexpr int64_t kMonday = 1'789'948'800;  // 2026-09-21 00:00:00 UTC; the manual clock begins on that day
constexpr int64_t kNextMonday = kMonday + 7 * 86'400;
const std::string kTxid = std::string(60, '0') + "beef";
constexpr int kPayButtons[] = {kControlConnect, kControlUnbind, kControlPlay,
                               kControlRecord,  kControlBoard,  kControlReport};

// A cabinet without a window. Workers run inside the click that starts them; what they post waits for
// Deliver, as a message would.
struct Cabinet : NotedRun {
    Cabinet() {
        SetInlineWorkers(true);
        cell = {40, 20};
        driver.set_status = [this](std::string_view text) { statuses.emplace_back(text); };
        driver.enable_control = [this](int id, bool on) { enabled[id] = on; };
        driver.record_local_score = [this](const std::string& txid) { listed.push_back(txid); };
        flow.run = driver;
        flow.confirm = [this](std::string_view title, std::string_view question) {
            EXPECT_FALSE(checking) << "the question comes when the wait is over";
            questions.push_back(std::string(title) + ": " + std::string(question));
            return answer;
        };
        flow.begin_check = [this](int control, std::string_view text) {
            checks.push_back(std::to_string(control) + " " + std::string(text));
            checking = true;
            asked_before = look_ups();
        };
        flow.end_check = [this] {
            checks.back() += " " + std::to_string(look_ups() - asked_before);
            checking = false;
        };
        flow.refresh_wallet_labels = [this] { ++label_refreshes; };
        flow.start_pot_refresh = [this] { ++pot_refreshes; };
        flow.start_board_load = [this] { ++board_loads; };
        flow.post_connect_done = [this](ResultText text) {
            posted = [this, kept = std::make_shared<ResultText>(std::move(text))] {
                OnConnectResult(run, flow, std::move(*kept));
            };
        };
        flow.post_pay_done = [this](PayKind kind, ResultText text) {
            posted = [this, kind, kept = std::make_shared<ResultText>(std::move(text))] {
                OnPayResult(run, flow, kind, std::move(*kept));
            };
        };
    }
    ~Cabinet() { SetInlineWorkers(false); }

    void Play() { OnPlayClicked(run, flow); }
    void Record() { OnRecordClicked(run, flow); }
    void Connect() { OnConnectClicked(run, flow); }
    void Unbind() { OnUnbindClicked(run, flow); }
    void Deliver() {
        std::exchange(posted, [] { ADD_FAILURE() << "nothing was posted"; })();
    }
    void Lose(int64_t score) {
        run.game.score = score;
        run.game.game_over = true;
        FinishRun(run, driver);
    }
    std::string Status() const { return statuses.empty() ? "" : statuses.back(); }

    FlowDriver flow;
    bool answer = true, checking = false;
    std::vector<std::string> statuses, questions, listed;
    std::vector<std::string> checks;  // control, text, how many look-ups were made within
    std::function<std::size_t()> look_ups = [] { return std::size_t{0}; };
    std::size_t asked_before = 0;
    std::map<int, bool> enabled;
    int label_refreshes = 0, pot_refreshes = 0, board_loads = 0;
    std::function<void()> posted;
};

struct PaidCabinet : testing::Test {
    PaidCabinet() {
        ClearIdentityKeyCache();
        Publish(/*frozen=*/false);
        cabinet.look_ups = [this] { return remote.box.Requests(Service::kPaymail).size(); };
    }
    ~PaidCabinet() override { ClearIdentityKeyCache(); }

    void Publish(bool frozen) {
        const WalletLock lock(wallet_mutex);
        remote.box.Publish(
            {"ada", wallet_keys.identity_pub, "", "", "", frozen, frozen ? "ask the house" : "", ""});
    }

    void Enter() {
        ASSERT_NE(remote.box.Fund(wallet.ReceiveAddress(0), 100'000), "");
        cabinet.Play();
        EXPECT_EQ(cabinet.Status(), "Paying enter fee in Pouch...");
        EXPECT_TRUE(cabinet.run.busy);
        cabinet.Deliver();
        ASSERT_EQ(cabinet.Status(), "Entered. Blocks incoming.");
        ASSERT_EQ(cabinet.run.mode, kModePlaying);
    }

    void SetTime(int64_t unix_seconds) { wallet.clock.AdvanceMs(unix_seconds * 1'000 - UnixMillis()); }

    WalletFixture wallet;
    SandboxFixture remote;
    Cabinet cabinet;
};

TEST(Week, BeginsOnMonday) {
    EXPECT_EQ(WeekStart(kMonday), kMonday);
    EXPECT_EQ(WeekStart(kNextMonday - 1), kMonday);
    EXPECT_EQ(WeekStart(kNextMonday), kNextMonday);
    EXPECT_EQ(WeekStart(4 * 86'400), 4 * 86'400);  // 1970-01-05 was a Monday
    EXPECT_EQ(WeekStart(4 * 86'400 - 1), -3 * 86'400);
    EXPECT_EQ(WeekStart(INT64_MIN), WeekStart(0));
}

TEST(FlowTxid, IsTheFirstRunOf64Digits) {
    const std::string upper = "ABCDEF" + std::string(58, '1');
    const struct {
        std::string text, txid;
    } kRows[] = {
        {"success: " + kTxid, kTxid},
        {"success: sent " + upper + ", thanks", upper},
        {kTxid + "77", kTxid},
        {std::string(63, 'a') + " " + kTxid, kTxid},
        {std::string(63, 'a') + "g", ""},
        {"success", ""},
        {"", ""},
    };
    for (const auto& row : kRows) EXPECT_EQ(FindTxid(row.text), row.txid) << row.text;
}

// Each row sets all that would refuse later too, so the order of the checks shows.
TEST_F(PaidCabinet, RefusesInOneLineAndChangesNothing) {
    const std::string busy = "Already working...", too_early = "Play a full run first.";
    const std::string no_payer = "Connect the same Pouch that paid to enter.";
    const struct {
        const char* why;
        void (Cabinet::*click)();
        RunMode mode;
        bool busy;
        std::string entry;
        bool connected;
        std::string text;
    } kRows[] = {
        {"play, busy", &Cabinet::Play, kModePlaying, true, "", false, busy},
        {"play in a run", &Cabinet::Play, kModePlaying, false, "", false, "Finish this run first."},
        {"play without a wallet", &Cabinet::Play, kModeAttract, false, "", false,
         "Connect a Pouch wallet first."},
        {"play without a name", &Cabinet::Play, kModeGameOver, false, kTxid, true,
         std::string("Publish a @") + kPaymailDomain + " name before you play."},
        {"record, busy", &Cabinet::Record, kModePlaying, true, "", false, busy},
        {"record before a run", &Cabinet::Record, kModeAttract, false, "", false, too_early},
        {"record in a run", &Cabinet::Record, kModePlaying, false, "", false, too_early},
        {"record again", &Cabinet::Record, kModeRecorded, false, "", false, too_early},
        {"record without an id", &Cabinet::Record, kModeGameOver, false, "", false, "Missing enter txid."},
        {"record with a longer id", &Cabinet::Record, kModeGameOver, false, kTxid + "0", false,
         "Missing enter txid."},
        {"record without a wallet", &Cabinet::Record, kModeGameOver, false, kTxid, false, no_payer},
        {"record without a name", &Cabinet::Record, kModeGameOver, false, kTxid, true, no_payer},
        {"connect, busy", &Cabinet::Connect, kModePlaying, true, "", true, busy},
        {"connect twice", &Cabinet::Connect, kModePlaying, false, "", true,
         "Already connected. Unbind to pick another wallet."},
        {"unbind in a run, busy or not", &Cabinet::Unbind, kModePlaying, true, "", true,
         "Finish or close the run before unbinding."},
    };
    const std::string file = wallet.StorePath(std::string("/wallets/") + kTestWalletId + "/wallet.json");
    json nameless = json::parse(ReadFile(file).value_or(""), nullptr, false);
    nameless.erase("paymail");
    WriteFile(file, nameless.dump());
    for (const bool connected : {true, false}) {
        if (!connected) UnbindWallet();
        RemoveFile(wallet.StorePath("/orvane_paymail.json"));
        if (connected) wallet.Restart();
        for (const auto& row : kRows) {
            if (row.connected != connected) continue;
            SCOPED_TRACE(row.why);
            cabinet.run = {};
            cabinet.run.mode = row.mode;
            cabinet.run.busy = row.busy;
            cabinet.run.enter_txid = row.entry;
            cabinet.statuses.clear();
            (cabinet.*row.click)();
            EXPECT_EQ(cabinet.statuses, std::vector<std::string>{row.text});
            EXPECT_EQ(cabinet.run.busy, row.busy);
            EXPECT_EQ(cabinet.run.mode, row.mode);
        }
    }
    EXPECT_FALSE(cabinet.posted);
    EXPECT_TRUE(cabinet.questions.empty() && cabinet.enabled.empty() && cabinet.checks.empty());
    EXPECT_EQ(remote.box.Requests(Service::kPaymail), std::vector<std::string>{});
}

TEST_F(PaidCabinet, AFrozenIdentityDoesNotPlay) {
    Publish(/*frozen=*/true);
    cabinet.Play();
    EXPECT_EQ(cabinet.Status(), "This identity is frozen. No play.");
    EXPECT_EQ(cabinet.checks, std::vector<std::string>{"1005 Checking your name... 1"});
    EXPECT_FALSE(cabinet.checking);
    EXPECT_TRUE(cabinet.questions.empty());
    std::string note;
    EXPECT_TRUE(IsFrozen(note));
    EXPECT_EQ(note, "ask the house");

    const struct {
        const char* why;
        int status;
        std::string body;
        bool frozen;
        std::string note;
    } kRows[] = {
        {"not frozen, with a note", 200, R"({"frozen":false,"frozenNote":"was"})", false, "was"},
        {"a note that is no text", 200, R"({"frozen":true,"frozenNote":null})", true, ""},
        {"no word of it", 200, "{}", false, ""},
        {"not a truth value", 200, R"({"frozen":"true"})", false, ""},
        {"a list", 200, R"([{"frozen":true}])", false, ""},
        {"a page", 200, "<html></html>", false, ""},
        {"unknown", 404, R"({"frozen":true})", false, ""},
        {"down", 500, "", false, ""},
    };
    for (const auto& row : kRows) {
        remote.box.ClearFaults();
        remote.Reply(Service::kPaymail, "/identity/", row.status, row.body);
        note = "before";
        EXPECT_EQ(IsFrozen(note), row.frozen) << row.why;
        EXPECT_EQ(note, row.note) << row.why;
    }
    // A host that is down stops nobody; the player does.
    cabinet.answer = false;
    cabinet.Play();
    const std::vector<std::string> asked = {
        "Brickfall: Enter Brickfall for 5000 sats?\n\n2000 to the house\n3000 to this week's pot\n\n"
        "Pouch will prompt. Three lives. No continues."};
    EXPECT_EQ(cabinet.questions, asked);
    EXPECT_FALSE(cabinet.run.busy);
    EXPECT_EQ(cabinet.statuses.size(), 1u) << "a refusal of the player's own needs no word";
    // A wallet of one key, without words, is looked up by that key.
    remote.box.ClearFaults();
    const std::string key = "0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";
    remote.Reply(Service::kPaymail, "/identity/" + key, 200, R"({"frozen":true})");
    const std::string file = wallet.StorePath("/wallets/") + kTestWalletId + "/wallet.json";
    ASSERT_TRUE(WriteFile(file, json{{"priv", std::string(63, '0') + "1"}}.dump()));
    wallet.Restart();
    EXPECT_TRUE(IsFrozen(note));
    UnbindWallet();
    EXPECT_FALSE(IsFrozen(note));
}

TEST(FlowResults, DriverTextsDecideWhatFollows) {
    const std::string sent = "success: sent as " + kTxid + " today";
    const struct {
        const char* why;
        PayKind kind;
        std::optional<std::string> text;
        std::string status;
        RunMode mode;
        int pots;
    } kRows[] = {
        {"missing", kPayEnter, std::nullopt, "Pay failed.", kModeGameOver, 0},
        {"refused", kPayEnter, "error: no coins", "error: no coins", kModeGameOver, 1},
        {"shorter than the word", kPayRecord, "succes", "succes", kModeGameOver, 1},
        {"the word elsewhere", kPayRecord, "no success", "no success", kModeGameOver, 1},
        {"refused report", kPayReport, "error: no coins", "error: no coins", kModeGameOver, 1},
        {"entered", kPayEnter, sent, "Entered. Blocks incoming.", kModePlaying, 1},
        {"entered, no id", kPayEnter, "success", "Entered. Blocks incoming.", kModePlaying, 1},
        {"recorded", kPayRecord, sent, "Score recorded. " + kTxid, kModeRecorded, 1},
        {"reported", kPayReport, sent, "Report sent. " + kTxid, kModeGameOver, 1},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        Cabinet cabinet;
        cabinet.run.mode = kModeGameOver;
        cabinet.run.record_pending = true;
        SetBusy(cabinet.run, cabinet.flow, true);
        for (const int id : kPayButtons) EXPECT_FALSE(cabinet.enabled[id]) << id;
        ResultText text = row.text ? std::make_unique<std::string>(*row.text) : nullptr;
        OnPayResult(cabinet.run, cabinet.flow, row.kind, std::move(text));

        const bool recorded = row.mode == kModeRecorded;
        EXPECT_EQ(cabinet.Status(), row.status);
        EXPECT_EQ(cabinet.run.mode, row.mode);
        EXPECT_EQ(cabinet.pot_refreshes, row.pots);
        EXPECT_EQ(cabinet.label_refreshes, 1);
        EXPECT_EQ(cabinet.well_repaints > 0, row.pots > 0);
        EXPECT_FALSE(cabinet.run.busy);
        EXPECT_EQ(cabinet.enabled[kControlPlay], row.mode != kModePlaying);
        EXPECT_EQ(cabinet.enabled[kControlRecord], row.mode == kModeGameOver);
        EXPECT_TRUE(cabinet.enabled[kControlConnect]);
        EXPECT_EQ(cabinet.run.record_pending, row.mode == kModeGameOver);
        EXPECT_EQ(cabinet.listed, recorded ? std::vector{kTxid} : std::vector<std::string>{});
        EXPECT_EQ(cabinet.board_loads, recorded ? 1 : 0);
        EXPECT_EQ(cabinet.run.record_txid, recorded ? kTxid : "");
        EXPECT_EQ(cabinet.run.enter_txid, row.text == sent && row.kind == kPayEnter ? kTxid : "");

        // Whatever comes and goes later, a recorded run's button stays off.
        SetBusy(cabinet.run, cabinet.flow, false);
        EXPECT_EQ(cabinet.enabled[kControlRecord], !recorded);
    }
    Cabinet cabinet;
    const auto connect = [&cabinet](ResultText text) {
        OnConnectResult(cabinet.run, cabinet.flow, std::move(text));
        return cabinet.Status() + " " + std::to_string(cabinet.pot_refreshes);
    };
    EXPECT_EQ(connect(nullptr), "Connect failed. 0");
    EXPECT_EQ(connect(std::make_unique<std::string>("error: denied")), "error: denied 0");
    EXPECT_EQ(connect(std::make_unique<std::string>("success")), "Connected. Play when you are funded. 1");
    EXPECT_EQ(cabinet.label_refreshes, 3);
}

TEST_F(PaidCabinet, RecordsInTheWeekOfTheClickWhateverFailedBefore) {
    Enter();
    EXPECT_EQ(remote.box.BalanceOf(kArcadeHouseAddress), 2'000);
    EXPECT_EQ(remote.box.BalanceOf(kArcadePotAddress), 3'000);
    SetTime(kNextMonday - 60);
    cabinet.Lose(4'200);

    // The host vouches for nobody: no row is sent.
    ClearIdentityKeyCache();
    remote.Reply(Service::kPaymail, "", 404, "");
    cabinet.Record();
    EXPECT_EQ(cabinet.Status(),
              std::string("identity signature did not verify against ") + kPaymailDomain + " PKI");
    EXPECT_FALSE(cabinet.run.busy || cabinet.checking);
    EXPECT_TRUE(cabinet.enabled[kControlRecord]);
    EXPECT_EQ(cabinet.checks.back(), "1006 Checking your name... 1");
    remote.box.ClearFaults();
    ClearIdentityKeyCache();

    // Nobody takes the transaction.
    for (const Service service : {Service::kRelay, Service::kChain, Service::kArc}) {
        remote.Reply(service, "", 503, "maintenance");
    }
    const size_t on_chain = remote.box.RawTransactions().size();
    cabinet.Record();
    cabinet.Deliver();
    EXPECT_TRUE(cabinet.Status().starts_with("error: "));
    EXPECT_EQ(cabinet.run.mode, kModeGameOver);
    EXPECT_TRUE(cabinet.run.record_pending);
    EXPECT_EQ(remote.box.RawTransactions().size(), on_chain);
    remote.box.ClearFaults();

    // The wallet is unbound, and the companion approves while the worker waits.
    const int renewed = cabinet.label_refreshes;
    cabinet.Unbind();
    EXPECT_EQ(cabinet.label_refreshes, renewed + 1);
    EXPECT_EQ(cabinet.Status(), "Unbound. Connect again to pick a wallet in Pouch.");
    cabinet.Record();
    EXPECT_EQ(cabinet.Status(), "Connect the same Pouch that paid to enter.");
    wallet.clock.on_sleep = [this](int64_t) {
        std::error_code gone;
        const std::filesystem::directory_iterator requests(wallet.StorePath("/connect"), gone);
        for (const auto& entry : requests) {
            std::string path = entry.path().string();
            if (!path.ends_with(".req.json")) continue;
            path.replace(path.size() - 9, 9, ".rep.json");
            WriteFile(path, json{{"ok", true}, {"wallet_id", kTestWalletId}}.dump());
        }
    };
    cabinet.Connect();
    wallet.clock.on_sleep = nullptr;
    EXPECT_EQ(cabinet.Status(), "Waiting for Pouch to approve...");
    EXPECT_TRUE(cabinet.run.busy);
    cabinet.Deliver();
    EXPECT_EQ(cabinet.Status(), "Connected. Play when you are funded.");

    SetTime(kNextMonday + 5);
    cabinet.Record();
    EXPECT_EQ(cabinet.Status(), "Recording score on-chain (1 sat)...");
    cabinet.Record();
    EXPECT_EQ(cabinet.Status(), "Already working...");
    cabinet.Deliver();
    ASSERT_EQ(cabinet.run.mode, kModeRecorded) << cabinet.Status();
    EXPECT_EQ(cabinet.Status(), "Score recorded. " + cabinet.run.record_txid);
    const std::vector<std::string> listed = {"", cabinet.run.record_txid};
    EXPECT_EQ(cabinet.listed, listed) << "listed at the end of the run, completed by the record";
    EXPECT_EQ(remote.box.BalanceOf(kArcadeWatchAddress), 1);
    EXPECT_EQ(remote.box.TotalFunded(), remote.box.TotalUnspent() + remote.box.TotalFees());

    // The row as a reader of the chain finds it.
    json transaction, row;
    FetchJson(std::string(kChainApiBaseUrl) + "/tx/hash/" + cabinet.run.record_txid, transaction);
    FindScorePayload(transaction, row);
    EXPECT_TRUE(VerifyMessage(row));
    for (const char* key : {"paymail", "pubkey", "sig"}) EXPECT_EQ(row.erase(key), 1u) << key;
    const json expected = {{"protocol", "Cairn-Wire"},
                           {"type", "arcade_score"},
                           {"location", "arcade"},
                           {"handle", "ada"},
                           {"actor", "ada"},
                           {"game", "brickfall"},
                           {"score", 4'200},
                           {"week", kNextMonday},
                           {"entry", cabinet.run.enter_txid},
                           {"pay_addr", wallet.ReceiveAddress(0)},
                           {"tape", "0103280014000100000000000000ff"},  // no key touched: the end event alone
                           {"tape_hash", "a2d2a722c34cbfdf30aeecdaedf252869459d0adc24312ad70e131400ae6bb23"},
                           {"ts", kNextMonday + 5}};
    EXPECT_EQ(row, expected);

    Enter();
    cabinet.Lose(0);  // a run that scored nothing counts like any other
    cabinet.Record();
    cabinet.Deliver();
    EXPECT_EQ(cabinet.run.mode, kModeRecorded) << cabinet.Status();
}

}  // namespace
}  // namespace brickfall
