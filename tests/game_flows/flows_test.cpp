#include "game/flows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/files.h"
#include "base/workers.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/score_row.h"
#include "game/week.h"
#include "messages/direct_message.h"
#include "messages/row.h"
#include "messages/signing.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "tests/game/random_run.h"
#include "tests/support/sealed_message.h"
#include "tests/support/shadow_memory.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/link/status_refresh.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/wallet_session.h"

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
            log.push_back(std::string(title) + ": " + std::string(question));
            return answer;
        };
        flow.begin_check = [this](int control, std::string_view text) {
            log.push_back(std::to_string(control) + " " + std::string(text));
            asked_before = look_ups();
        };
        flow.end_check = [this] { log.push_back(std::to_string(look_ups() - asked_before) + " look-ups"); };
        flow.refresh_wallet_labels = [this] { ++label_refreshes; };
        flow.start_pot_refresh = [this] { ++pot_refreshes; };
        flow.start_board_load = [this] { ++board_loads; };
        flow.post_connect_done = [this](ResultText text) {
            result = std::move(text);
            posted = [this] { OnConnectResult(run, flow, std::move(result)); };
        };
        flow.post_pay_done = [this](PayKind kind, ResultText text) {
            result = std::move(text);
            posted = [this, kind] { OnPayResult(run, flow, kind, std::move(result)); };
        };
    }
    ~Cabinet() { SetInlineWorkers(false); }

    void Play() { OnPlayClicked(run, flow); }
    void Record() { OnRecordClicked(run, flow); }
    void Connect() { OnConnectClicked(run, flow); }
    void Unbind() { OnUnbindClicked(run, flow); }
    void Report() { Send("text"); }
    void Send(std::string_view text) {  // what the message box would say stands among the statuses
        const bool may_go = !run.busy;
        const ReportOutcome outcome = OnSendReport(run, flow, text);
        EXPECT_EQ(outcome.sent, may_go && outcome.refusal.empty());
        if (!outcome.refusal.empty()) {
            statuses.push_back((outcome.is_warning ? "warning: " : "") + outcome.refusal);
        }
    }
    void Deliver() {
        ASSERT_TRUE(posted) << Status();
        std::exchange(posted, nullptr)();
    }
    void Lose(int64_t score) {
        run.game.score = score;
        run.game.game_over = true;
        FinishRun(run, driver);
    }
    std::string Status() const { return statuses.empty() ? "" : statuses.back(); }

    FlowDriver flow;
    bool answer = true;
    Lines statuses, listed;
    Lines log;  // questions, and the look-ups that the player sees waited for
    std::function<std::size_t()> look_ups = [] { return std::size_t{0}; };
    std::size_t asked_before = 0;
    std::map<int, bool> enabled;
    int label_refreshes = 0, pot_refreshes = 0, board_loads = 0;
    std::function<void()> posted;
    ResultText result;  // what was posted brings this
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
    const std::pair<int64_t, int64_t> kRows[] = {
        {kMonday, kMonday},
        {kNextMonday - 1, kMonday},
        {kNextMonday, kNextMonday},
        {4 * 86'400, 4 * 86'400},  // 1970-01-05 was a Monday
        {4 * 86'400 - 1, -3 * 86'400},
        {INT64_MIN, -3 * 86'400},
    };
    for (const auto& [time, week] : kRows) EXPECT_EQ(WeekStart(time), week) << time;
}

TEST(FlowTxid, IsTheFirstRunOf64Digits) {
    const std::string upper = "ABCDEF" + std::string(58, '1'), short_one(63, 'a');
    const std::pair<std::string, std::string> kRows[] = {
        {"success: " + kTxid, kTxid}, {"success: sent " + upper + ", thanks", upper},
        {kTxid + "77", kTxid},        {short_one + " " + kTxid, kTxid},
        {short_one + "g", ""},        {"", ""},
    };
    for (const auto& [text, txid] : kRows) EXPECT_EQ(FindTxid(text), txid) << text;
}

// Each row sets all that would refuse later too, so the order of the checks shows.
TEST(Flows, RefuseInOneLineAndChangeNothing) {
    WalletFixture wallet(/*paymail=*/"");
    SandboxFixture remote;
    Cabinet cabinet;
    const std::string busy = "Already working...", too_early = "Play a full run first.";
    const std::string nameless = std::string("Publish a @") + kPaymailDomain + " name before you play.";
    const std::string no_payer = "Connect the same Pouch that paid to enter.";
    const std::string no_sender =
        std::string("Connect Pouch and publish a @") + kPaymailDomain + " name first.";
    using Click = void (Cabinet::*)();
    constexpr Click kPlay = &Cabinet::Play, kRecord = &Cabinet::Record, kConnect = &Cabinet::Connect,
                    kReport = &Cabinet::Report;
    const struct {
        bool connected;
        Click click;
        RunMode mode;
        bool busy;
        std::string entry;
        std::string text;
    } kRows[] = {
        {true, kPlay, kModeGameOver, false, kTxid, nameless},
        {true, kRecord, kModeGameOver, false, kTxid, no_payer},
        {true, kReport, kModeGameOver, false, "", no_sender},
        {true, kConnect, kModePlaying, true, "", busy},
        {true, kConnect, kModePlaying, false, "", "Already connected. Unbind to pick another wallet."},
        {true, &Cabinet::Unbind, kModePlaying, true, "", "Finish or close the run before unbinding."},
        {false, kPlay, kModePlaying, true, "", busy},
        {false, kPlay, kModePlaying, false, "", "Finish this run first."},
        {false, kPlay, kModeAttract, false, "", "Connect a Pouch wallet first."},
        {false, kRecord, kModePlaying, true, "", busy},
        {false, kRecord, kModeAttract, false, "", too_early},
        {false, kRecord, kModePlaying, false, "", too_early},
        {false, kRecord, kModeRecorded, false, "", too_early},
        {false, kRecord, kModeGameOver, false, "", "Missing enter txid."},
        {false, kRecord, kModeGameOver, false, kTxid + "0", "Missing enter txid."},
        {false, kRecord, kModeGameOver, false, kTxid, no_payer},
        {false, kReport, kModeGameOver, true, "", busy},
        {false, kReport, kModeGameOver, false, "", no_sender},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.text);
        if (!row.connected) UnbindWallet();
        cabinet.run = {};
        cabinet.run.mode = row.mode;
        cabinet.run.busy = row.busy;
        cabinet.run.enter_txid = row.entry;
        cabinet.statuses.clear();
        (cabinet.*row.click)();
        EXPECT_EQ(cabinet.statuses, Lines{row.text});
        EXPECT_EQ(cabinet.run.busy, row.busy);
        EXPECT_EQ(cabinet.run.mode, row.mode);
    }
    EXPECT_FALSE(cabinet.posted);
    EXPECT_TRUE(cabinet.enabled.empty() && cabinet.log.empty());
    EXPECT_EQ(remote.box.Requests(Service::kPaymail), Lines{});
}

TEST_F(PaidCabinet, AFrozenIdentityDoesNotPlay) {
    const Lines waited = {"1005 Checking your name...", "1 look-ups"};
    Publish(/*frozen=*/true);
    cabinet.Play();
    EXPECT_EQ(cabinet.Status(), "This identity is frozen. No play.");
    EXPECT_EQ(std::exchange(cabinet.log, {}), waited);
    std::string note;
    EXPECT_TRUE(IsFrozen(note));
    EXPECT_EQ(note, "ask the house");

    const struct {
        int status;
        const char* body;
        bool frozen;
        const char* note;
    } kRows[] = {
        {200, R"({"frozen":false,"frozenNote":"was"})", false, "was"},
        {200, R"({"frozen":true,"frozenNote":null})", true, ""},
        {200, R"({"frozen":"true"})", false, ""},
        {200, R"([{"frozen":true}])", false, ""},
        {404, R"({"frozen":true})", false, ""},
    };
    for (const auto& row : kRows) {
        remote.box.ClearFaults();
        remote.Reply(Service::kPaymail, "/identity/", row.status, row.body);
        note = "before";
        EXPECT_EQ(IsFrozen(note), row.frozen) << row.status << row.body;
        EXPECT_EQ(note, row.note) << row.status << row.body;
    }
    // A host that is down stops nobody; the player does, once the wait is over.
    cabinet.answer = false;
    cabinet.Play();
    EXPECT_EQ(cabinet.log,
              (Lines{waited[0], waited[1],
                     "Brickfall: Enter Brickfall for 5000 sats?\n\n2000 to the house\n3000 to this "
                     "week's pot\n\nPouch will prompt. Three lives. No continues."}));
    EXPECT_FALSE(cabinet.run.busy);
    EXPECT_EQ(cabinet.statuses.size(), 1u) << "a refusal of the player's own needs no word";
    // A wallet of one key, without words, is looked up by that key.
    remote.box.ClearFaults();
    const std::string key = "0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";
    remote.Reply(Service::kPaymail, "/identity/" + key, 200, R"({"frozen":true})");
    wallet.data.Put(std::string("wallets/") + kTestWalletId + "/wallet.json",
                    R"({"priv":")" + std::string(63, '0') + "1\"}");
    wallet.Restart();
    EXPECT_TRUE(IsFrozen(note));
    UnbindWallet();
    EXPECT_FALSE(IsFrozen(note));
}

TEST(FlowResults, DriverTextsDecideWhatFollows) {
    const std::string sent = "success: sent as " + kTxid + " today";
    const struct {
        PayKind kind;
        std::optional<std::string> text;
        std::string status;
        RunMode mode;
    } kRows[] = {
        {kPayEnter, std::nullopt, "Pay failed.", kModeGameOver},
        {kPayEnter, "error: no coins", "error: no coins", kModeGameOver},
        {kPayRecord, "succes", "succes", kModeGameOver},
        {kPayRecord, "no success", "no success", kModeGameOver},
        {kPayReport, "error: no coins", "error: no coins", kModeGameOver},
        {kPayEnter, sent, "Entered. Blocks incoming.", kModePlaying},
        {kPayEnter, "success", "Entered. Blocks incoming.", kModePlaying},
        {kPayRecord, sent, "Score recorded. " + kTxid, kModeRecorded},
        {kPayReport, sent, "Report sent. " + kTxid, kModeGameOver},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.status);
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
        EXPECT_EQ(cabinet.pot_refreshes, row.text ? 1 : 0);
        EXPECT_EQ(cabinet.label_refreshes, 1);
        EXPECT_EQ(cabinet.well_repaints > 0, row.text.has_value());
        EXPECT_FALSE(cabinet.run.busy);
        EXPECT_EQ(cabinet.enabled[kControlPlay], row.mode != kModePlaying);
        EXPECT_EQ(cabinet.enabled[kControlRecord], row.mode == kModeGameOver);
        EXPECT_TRUE(cabinet.enabled[kControlConnect]);
        EXPECT_EQ(cabinet.run.record_pending, row.mode == kModeGameOver);
        EXPECT_EQ(cabinet.listed, recorded ? Lines{kTxid} : Lines{});
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
    remote.Reply(Service::kPaymail, "", 404, "");
    cabinet.Record();
    EXPECT_EQ(cabinet.Status(),
              std::string("identity signature did not verify against ") + kPaymailDomain + " PKI");
    EXPECT_FALSE(cabinet.run.busy);
    EXPECT_TRUE(cabinet.enabled[kControlRecord]);
    EXPECT_EQ(cabinet.log.back(), "1 look-ups");
    EXPECT_EQ(cabinet.log.end()[-2], "1006 Checking your name...");
    remote.box.ClearFaults();
    ClearIdentityKeyCache();

    // Nobody takes the transaction.
    for (const Service service : {Service::kRelay, Service::kChain, Service::kArc}) {
        remote.Reply(service, "", 503, "maintenance");
    }
    cabinet.Record();
    cabinet.Deliver();
    EXPECT_TRUE(cabinet.Status().starts_with("error: "));
    EXPECT_EQ(cabinet.run.mode, kModeGameOver);
    EXPECT_TRUE(cabinet.run.record_pending);
    remote.box.ClearFaults();

    // The wallet is unbound, and the companion approves while the worker waits.
    const int renewed = cabinet.label_refreshes;
    cabinet.Unbind();
    EXPECT_EQ(cabinet.label_refreshes, renewed + 1);
    EXPECT_EQ(cabinet.Status(), "Unbound. Connect again to pick a wallet in Pouch.");
    cabinet.Record();
    EXPECT_EQ(cabinet.Status(), "Connect the same Pouch that paid to enter.");
    wallet.clock.on_sleep = [this](int64_t milliseconds) {
        const std::string request = "w" + std::to_string(UnixMillis() - milliseconds);
        wallet.data.Put("connect/" + request + ".rep.json",
                        json{{"ok", true}, {"wallet_id", kTestWalletId}}.dump());
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
    EXPECT_EQ(cabinet.listed, (Lines{"", cabinet.run.record_txid}))
        << "listed at the end of the run, completed by the record";
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

// Reports go to an operator who has the private key kOperator, and before that had kFormer.
const std::string kFormer(64, '1'), kOperator(64, '2');
constexpr char kKeyFile[] = "userinfo/encpub-architect.txt";

struct ReportingCabinet : PaidCabinet {
    ReportingCabinet() {
        ClearEncryptionKeys();
        remote.box.Fund(wallet.ReceiveAddress(0), 100'000);
        MakeFolders("userinfo");
        std::string public_hex;
        EXPECT_TRUE(PublicKeyFromPrivate(kOperator, public_hex));
        key_of_operator = public_hex + "\n6\n";
        WriteFile(kKeyFile, key_of_operator);
    }
    ~ReportingCabinet() override { ClearEncryptionKeys(); }

    // The row in the last transaction, cut out of its bytes as a stranger would.
    json RowOnChain() const {
        const std::string raw = remote.box.RawTransactions().back();
        const std::size_t at = raw.find("006a4d");  // false, return, push of a length in two bytes
        if (at == std::string::npos) return {};
        const ByteBuffer size = HexDecode(raw.substr(at + 6, 4));
        const ByteBuffer data = HexDecode(raw.substr(at + 10, 2 * (size[0] + 256u * size[1])));
        return json::parse(data.begin(), data.end(), nullptr, /*allow_exceptions=*/false);
    }

    const WorkingFolder folder;
    std::string key_of_operator;
};

TEST_F(ReportingCabinet, AReportIsReadWordForWord) {
    const std::string text =
        "The wall has a hole.\r\n\"Ada\" \xF0\x9F\x98\x80 \xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D";
    cabinet.Send("\n\t " + text + " \r\n");
    cabinet.Report();  // a second one waits for the first
    EXPECT_EQ(cabinet.statuses, (Lines{"Sending report in Pouch...", "Already working..."}));
    EXPECT_EQ(cabinet.log, (Lines{"1017 Checking your name...", "1 look-ups"}));
    cabinet.Deliver();
    const std::string txid = FindTxid(cabinet.Status());
    EXPECT_EQ(cabinet.Status(), "Report sent. " + txid);
    EXPECT_EQ(remote.box.RawTransaction(txid), remote.box.RawTransactions().back());
    EXPECT_EQ(remote.box.BalanceOf(kReportFeeAddress), 1'000);
    EXPECT_EQ(remote.box.BalanceOf(kReportOracleAddress), 1);
    EXPECT_EQ(remote.box.BalanceOf(wallet.ReceiveAddress(0)), 100'000 - 1'001 - remote.box.TotalFees());

    json row = RowOnChain();
    EXPECT_EQ(OpenMessage(row, "wrap_to", kOperator), text);
    EXPECT_EQ(OpenMessage(row, "wrap_to", kFormer), std::nullopt);
    std::string own_public, error;
    SecretString own_private;
    ASSERT_TRUE(LoadEncryptionKeys(own_public, own_private, error)) << error;
    EXPECT_EQ(OpenMessage(row, "wrap_me", own_private), text) << "by the sender";
    ClearIdentityKeyCache();
    EXPECT_TRUE(VerifyMessage(row));
    EXPECT_TRUE(VerifyCompactSignature("OV1|report|arcade|ada|ada|1790000000|" + own_public,
                                       row.value("pubkey", ""), row.value("sig", "")));
    for (const char* const key : {"pmessage1", "wrap_to", "wrap_me", "pubkey", "sig"}) {
        EXPECT_EQ(row.erase(key), 1u) << key;
    }
    const json expected = {
        {"protocol", "Cairn-Wire"}, {"type", "report"},         {"app", "Brickfall"},
        {"handle", "ada"},          {"to_handle", "architect"}, {"location", "arcade"},
        {"game", "brickfall"},      {"ts", kClockStart},        {"enc_v", 2},
        {"enc_pub", own_public},    {"actor", "ada"},           {"paymail", "ada@orvane.test"}};
    EXPECT_EQ(row, expected);
}

TEST_F(ReportingCabinet, RefusesBeforeAnyMoneyMoves) {
    const std::string too_long = "Write a report (max 2000 characters).";
    const std::string no_key =
        "warning: no encryption key on file for @architect. They need to join a channel once with this "
        "version so their key is published.";
    const auto expect = [&](std::string_view text, const std::string& refusal) {
        cabinet.statuses.clear();
        cabinet.Send(text);
        EXPECT_EQ(cabinet.statuses, Lines{refusal});
        EXPECT_FALSE(cabinet.run.busy || cabinet.posted);
        EXPECT_EQ(remote.box.RawTransactions().size(), 1u);
    };
    for (const std::string& text : {std::string(2'001, 'x'), "\xC3\xA9" + std::string(1'999, 'x'),
                                    std::string(" \t\r\n\v\f"), std::string(3'000'000, 'x')}) {
        expect(text, too_long);
    }
    remote.Disturb(Service::kPaymail, sandbox::FaultKind::kDrop);
    expect("text", "warning: identity signature did not verify against orvane.test PKI");
    remote.box.ClearFaults();
    ClearEncryptionKeys();
    WriteFile(kKeyFile, "02" + std::string(64, 'f') + "\n1\n");
    expect("text", "warning: failed to wrap direct-message key");
    RemoveFile(kKeyFile);
    ClearEncryptionKeys();
    expect("text", no_key);

    // What was refused may be sent again, and blanks around count nothing.
    WriteFile(kKeyFile, key_of_operator);
    cabinet.Send(std::string(500, ' ') + std::string(2'000, 'y') + "\n");
    cabinet.Deliver();
    EXPECT_EQ(OpenMessage(RowOnChain(), "wrap_to", kOperator), std::string(2'000, 'y'));
}

TEST_F(PaidCabinet, PaysTheFeeThatWasEstimated) {
    cabinet.run.enter_txid = kTxid;
    for (const auto& [coins, events] : {std::pair(std::vector<int64_t>{300, 400, 500, 400}, 33u),
                                        {{250, 900, 700}, 80u},
                                        {{100'000}, 1'800u}}) {
        for (const int64_t coin : coins) ASSERT_NE(remote.box.Fund(wallet.ReceiveAddress(0), coin), "");
        cabinet.run.mode = kModeGameOver;
        cabinet.run.tape.events.resize(events);
        wallet.clock.AdvanceMs(60'000);  // the listing is no longer fresh
        const RecordCost cost = EstimateRecordCost(cabinet.run, PublishedHandle(), CurrentAddress(),
                                                   UnixSeconds(), StatusRefresh().coins);
        const int64_t before = remote.box.TotalFees();
        cabinet.Record();
        cabinet.Deliver();
        ASSERT_EQ(cabinet.run.mode, kModeRecorded) << cabinet.Status();
        EXPECT_EQ(remote.box.TotalFees() - before, cost.fee);
    }
}

// Against rows really built and signed, and transactions really built for them.
TEST(RecordCost, IsWhatTheTransactionOfAnyRunComesTo) {
    std::mt19937_64 random(20'260'921);
    int several_inputs = 0, no_change = 0;
    for (const std::size_t length : {1u, 3u, 11u, 20u, 32u}) {
        const std::string name(length, 'n');
        WalletFixture wallet(name);
        SandboxFixture remote;
        ClearIdentityKeyCache();
        remote.box.Publish({name, wallet_keys.identity_pub, "", "", "", false, "", ""});
        const std::string paymail = PublishedHandle(), address = wallet.ReceiveAddress(0);
        for (unsigned round = 0; round < 200 / kOneCaseOf; ++round) {
            RunControl run;
            run.mode = kModeGameOver;
            run.enter_txid = kTxid;
            run.final_score = static_cast<int64_t>(random() >> (1 + random() % 63));
            run.tape.events.resize(random() % (round % 2 == 0 ? 100 : 20'001));
            const auto estimate = [&](std::span<const int64_t> coins) {
                return EstimateRecordCost(run, paymail, address, UnixSeconds(), coins);
            };
            const int64_t plain_fee = estimate({}).fee;
            std::vector<int64_t> coins = {plain_fee + round % 4};  // too little, no change, 1 satoshi, 2
            if (round % 3 != 0) {
                coins.resize(1 + random() % 8);
                for (int64_t& coin : coins)
                    coin = static_cast<int64_t>(random() % static_cast<uint64_t>(plain_fee + 100));
            }

            json row = MakeScoreRow(run, {name, address}, UnixSeconds());
            std::string error;
            ASSERT_TRUE(SignMessage(row, error)) << error;
            const std::string text = DumpRow(row);
            std::vector<SpendInput> inputs(coins.size());
            for (std::size_t i = 0; i < coins.size(); ++i) inputs[i] = {kTxid, 0, coins[i], {}, {}, {}, {}};
            std::vector<PayOutput> outputs;
            int64_t fee = 0;
            const bool paid = BuildTransaction(
                inputs, outputs, {},
                std::vector<PayOutput>{{1, P2pkhScript({})}, {0, DataCarrierScript(text)}}, fee, error);
            EXPECT_EQ(estimate(coins).row_bytes, text.size());
            EXPECT_EQ(estimate(coins).fee, fee);
            if (!run.tape.events.empty()) {  // and just before its end, which is one event more
                run.mode = kModePlaying;
                run.game.score = std::exchange(run.final_score, 0);
                run.tape.events.pop_back();
                EXPECT_EQ(estimate(coins).fee, fee);
            }
            several_inputs += paid && inputs.size() > 1;
            no_change += paid && outputs.size() == 2;
        }
    }
    ClearIdentityKeyCache();
    EXPECT_GT(std::min(several_inputs, no_change), 50 / static_cast<int>(kOneCaseOf));
}

}  // namespace
}  // namespace brickfall
