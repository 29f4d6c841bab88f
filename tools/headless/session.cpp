#include "tools/headless/session.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/text.h"
#include "base/workers.h"
#include "board/local_scores.h"
#include "board/watch_reader.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "game/score_row.h"
#include "game/windowless_driver.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "players/autopilot.h"
#include "tools/headless/lines.h"
#include "wallet/chain/chain_api.h"
#include "wallet/coins/spendable.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/link/status_refresh.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using Json = nlohmann::json;

constexpr uint64_t kShowTicks = 9'000;     // played to win; after that the autopilot lets the balls go
constexpr uint64_t kMaxTicks = 200'000;    // a run that does not end by then is a fault
constexpr int64_t kPlayMoney = 100'000;    // satoshis put into a wallet that cannot pay for a run
constexpr int64_t kEnoughForARun = 6'000;  // entry, record and their fees
constexpr char kControlUrl[] = "https://control.sandbox.test";

void Require(bool held, const std::string& why) {
    if (!held) throw StepFailed(why);
}

// What the workers bring to the main thread.
class MainQueue {
  public:
    void Post(std::function<void()> task) {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        posted_.notify_one();
    }

    void RunWhile(const std::function<bool()>& go_on) {
        while (go_on()) {
            std::unique_lock lock(mutex_);
            posted_.wait(lock, [this] { return !tasks_.empty(); });
            const std::function<void()> task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
        }
    }

  private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> tasks_;  // guarded by mutex_
};

MainQueue& main_queue = *new MainQueue;  // workers may outlive main

// Nothing here draws a face: a file counts as a picture, unread.
std::optional<Image> CountAsPicture(const std::string&, int) { return Image{1, 1, {0xFF000000}}; }

}  // namespace

void Session::WaitForFlow() {
    main_queue.RunWhile([this] { return run_.busy; });
}

void Session::Run() {
    if (options_.only_board) return Step("Board", [this] { Board(); });
    Step("Connect", [this] { Connect(); });
    Step("Play money", [this] { TakePlayMoney(); });
    Step("Name", [this] { ClaimName(); });
    Step("Enter", [this] { Enter(); });
    Step("Play", [this] { Play(); });
    Step("Record", [this] { Record(); });
    Step("Read back", [this] { ReadBack(); });
    Step("Who holds what", [this] { Holdings(); });
    Step("Board", [this] { Board(); });
    Step("Audit", [this] { Audit(); });
    if (!options_.report.empty()) Step("Report", [this] { Report(); });
    if (!options_.out_folder.empty()) Step("Files", [this] { WriteFiles(); });
}

void Session::MakeDriver() {
    driver_ = WindowlessDriver();  // the balance and the pot are read off the chain by a later step
    RunDriver& run = driver_.run;
    run.set_status = [this](std::string_view text) {
        last_status_ = text;
        SayField("status line", text);
    };
    run.record_local_score = [this](const std::string& txid) {
        RecordLocalScore(ui_doc, run_.final_score, txid, [] { SaveUiSettings(); });
    };
    run.key_down = [this](GameKey key) { return IsHeld(held_, key); };
    driver_.confirm = [](std::string_view, std::string_view question) {
        const std::size_t line = question.find('\n');
        SayField("asked", question.substr(0, line));
        SayField("answered", "OK");
        return true;
    };
    driver_.start_board_load = [this] {
        if (board_busy_) return;
        board_busy_ = true;
        StartWorker([this, snapshot = TakeBoardSnapshot(ui_doc, run_)] {
            BoardWorker(snapshot, CountAsPicture, [this](std::unique_ptr<BoardResult> result) {
                auto shared = std::make_shared<std::unique_ptr<BoardResult>>(std::move(result));
                main_queue.Post([this, shared] {
                    board_ = std::move(*shared);
                    board_busy_ = false;
                });
            });
        });
    };
    driver_.post_connect_done = [this](ResultText result) {
        auto shared = std::make_shared<ResultText>(std::move(result));
        main_queue.Post([this, shared] { OnConnectResult(run_, driver_, std::move(*shared)); });
    };
    driver_.post_pay_done = [this](PayKind kind, ResultText result) {
        auto shared = std::make_shared<ResultText>(std::move(result));
        main_queue.Post([this, kind, shared] { OnPayResult(run_, driver_, kind, std::move(*shared)); });
    };
}

void Session::Step(const std::string& title, const std::function<void()>& body) {
    std::printf("\n %d.  %s\n", ++step_, title.c_str());
    try {
        body();
    } catch (const StepFailed& failure) {
        throw StepFailed("step " + std::to_string(step_) + " (" + title + "): " + failure.what());
    }
    std::fflush(stdout);
}

void Session::Connect() {
    if (IsConnected()) {
        Say("This cabinet is bound to a wallet already.");
    } else {
        OnConnectClicked(run_, driver_);
        WaitForFlow();
        Require(IsConnected(), last_status_);
    }
    SayField("wallet", WalletDisplayName(WalletId()) + " (" + WalletId() + ")");
    SayField("address", CurrentAddress());
}

void Session::ClaimName() {
    const StatusResult status = StatusRefresh();
    Require(status.chain_ok, "no listing of the wallet's outputs could be read");
    const std::string handle = PublishedHandle();
    Require(!handle.empty(), "the wallet has no paymail name");
    const std::string name = handle.substr(0, handle.find('@'));
    std::string identity;
    {
        const WalletLock lock(wallet_mutex);
        identity = wallet_keys.identity_pub;
    }
    SayField("claimed", handle);
    SayField("identity key", identity);
    Require(LookupIdentityKey(name, handle) == identity,
            "the paymail host publishes another key for " + handle);
    Say("The paymail host publishes this key for this name.");
}

std::vector<int64_t> Session::WalletCoins() {
    const WalletLock lock(wallet_mutex);
    return SpendableValues();
}

// The sum over the wallet's addresses, as the services list them now.
int64_t Session::WalletHolds() {
    std::vector<std::string> addresses;
    {
        WalletLock lock(wallet_mutex);
        Require(ListOwnedAddresses(lock), "the wallet does not load");
        WalletAddresses(addresses);
    }
    int64_t sum = 0;
    for (const std::string& address : addresses) {
        std::vector<Utxo> outputs;
        std::string error;
        Require(FetchUtxos(address, outputs, error), "listing of " + address + ": " + error);
        for (const Utxo& output : outputs) sum += output.value;
    }
    return sum;
}

void Session::TakePlayMoney() {
    if (const int64_t held = WalletHolds(); held < kEnoughForARun) {
        const std::string request = Json{{"address", CurrentAddress()}, {"satoshis", kPlayMoney}}.dump();
        std::string response;
        std::string error;
        Require(HttpPostJson(std::string(kControlUrl) + "/fund", request, response, error, 10, 1),
                "the sandbox gives no play money: " + error);
        const Json answer = Json::parse(response, nullptr, false);
        SayField("added", Satoshis(kPlayMoney) + ", transaction " + JsonString(answer, "txid"));
    }
    balance_at_start_ = WalletHolds();
    SayField("balance", Satoshis(balance_at_start_));
}

void Session::Enter() {
    OnPlayClicked(run_, driver_);
    WaitForFlow();
    Require(run_.mode == kModePlaying && IsTxidText(run_.enter_txid), last_status_);
    balance_entered_ = WalletHolds();
    const int64_t fee = balance_at_start_ - balance_entered_ - kArcadeHouseSats - kArcadePotSats;
    SayField("frozen", "no: the identity may play");
    SayField("to the house", Satoshis(kArcadeHouseSats));
    SayField("to the pot", Satoshis(kArcadePotSats));
    SayField("fee", Satoshis(fee));
    SayField("transaction", run_.enter_txid);
    SayField("balance", Satoshis(balance_entered_));
    Require(fee > 0, "the wallet's balance does not fit the payment");
}

void Session::Play() {
    uint64_t ticks = 0;
    for (; run_.mode == kModePlaying && ticks < kMaxTicks; ++ticks) {
        clock_.PassOneTick();
        OnTimer(run_, driver_.run);
        const AutopilotKeys keys = ticks < kShowTicks ? AutopilotPlay(run_.game) : AutopilotLose(run_.game);
        PressKeys(run_, driver_.run, held_, keys);
    }
    Require(run_.mode == kModeGameOver, "the run did not end");
    SayField("ticks", Grouped(static_cast<int64_t>(run_.sim_clock_ms / kTickMs)) + " of 16 ms, " +
                          std::to_string(run_.sim_clock_ms / 1000) + " s of play");
    SayField("level", std::to_string(run_.game.level));
    SayField("score", Grouped(run_.final_score));
    SayField("tape", Grouped(static_cast<int64_t>(run_.tape.events.size())) + " events");
    SayField("seal", TapeHash(TapeToHex(run_.tape)));
}

void Session::Record() {
    const RecordCost cost =
        EstimateRecordCost(run_, PublishedHandle(), CurrentAddress(), UnixSeconds(), WalletCoins());
    SayField("fee about", Satoshis(cost.fee));
    OnRecordClicked(run_, driver_);
    WaitForFlow();
    Require(run_.mode == kModeRecorded && IsTxidText(run_.record_txid), last_status_);
    balance_at_end_ = WalletHolds();
    const int64_t fee = balance_entered_ - balance_at_end_ - kMarkerSats;
    SayField("marker", Satoshis(kMarkerSats));
    SayField("fee", Satoshis(fee));
    SayField("transaction", run_.record_txid);
    SayField("balance", Satoshis(balance_at_end_));
    Require(fee > 0, "the wallet's balance does not fit the payment");
}

void Session::ReadBack() {
    Json transaction;
    const bool fetched = FetchJson(std::string(kApiBaseUrl) + "/oi/tx/" + run_.record_txid, transaction) ||
                         FetchJson(std::string(kChainApiBaseUrl) + "/tx/" + run_.record_txid, transaction);
    Require(fetched, "the recorded transaction cannot be read");
    Require(FindScorePayload(transaction, recorded_row_), "the recorded transaction carries no score row");
    Require(VerifyMessage(recorded_row_), "the row read back does not verify");
    const std::string tape = TapeToHex(run_.tape);
    Require(JsonInt(recorded_row_, "score") == run_.final_score, "the row has another score");
    Require(JsonString(recorded_row_, "entry") == run_.enter_txid, "the row names another entry");
    Require(JsonString(recorded_row_, "tape") == tape, "the row has another tape");
    Require(JsonString(recorded_row_, "tape_hash") == TapeHash(tape), "the row has another seal");
    SayField("player", JsonString(recorded_row_, "paymail"));
    SayField("score", Grouped(JsonInt(recorded_row_, "score")));
    SayField("week of", std::to_string(JsonInt(recorded_row_, "week")));
    Say("Signature, published key, entry, tape and seal: all as they should be.");
}

void Session::Holdings() {
    const std::pair<const char*, std::string> parties[] = {{"the house", kArcadeHouseAddress},
                                                           {"this week's pot", kArcadePotAddress},
                                                           {"watch address", kArcadeWatchAddress}};
    SayField("player before", Satoshis(balance_at_start_));
    SayField("player after", Satoshis(balance_at_end_));
    for (const auto& [name, address] : parties) {
        std::vector<Utxo> outputs;
        std::string error;
        Require(FetchUtxos(address, outputs, error), std::string("listing of ") + name + ": " + error);
        int64_t sum = 0;
        for (const Utxo& output : outputs) sum += output.value;
        SayField(name, Satoshis(sum));
    }
}

// A record has started a load already; the board shows the row just recorded, as the chain holds it.
void Session::Board() {
    driver_.start_board_load();
    main_queue.RunWhile([this] { return board_busy_; });
    Require(board_ != nullptr, "the board's load brought nothing");
    const std::string handle = IsConnected() ? PlayerHandle() : std::string();
    SayBoard(*board_, handle.substr(0, handle.find('@')));
    if (run_.record_txid.empty() || run_.final_score < 1) return;
    const auto is_mine = [this](const ScoreRow& row) { return row.txid == run_.record_txid; };
    const auto mine = std::find_if(board_->rows.begin(), board_->rows.end(), is_mine);
    if (mine == board_->rows.end()) {
        Require(board_->rows.size() == kBoardRowCap && board_->rows.back().score >= run_.final_score,
                "the row just recorded is not on the board");
        return Say("The row just recorded is below the last place.");
    }
    Require(mine->verified, "the row just recorded stands there from the local list only");
    Say("The row just recorded stands there, read from the chain.");
}

// The rows of the week that the run is recorded in. Its own must be sound, whatever the others are.
void Session::Audit() {
    AuditScope scope;
    scope.week = JsonInt(recorded_row_, "week");
    evidence_ = Collect(scope, [](const char*, std::size_t, std::size_t) {});
    audit_ = MakeReport(evidence_, std::max(std::thread::hardware_concurrency(), 1u));
    std::istringstream lines(ReportText(audit_, /*coloured=*/false));
    for (std::string line; std::getline(lines, line);) Say(line);
    const auto mine = std::ranges::find(audit_.rows, run_.record_txid, &RowAudit::txid);
    Require(mine != audit_.rows.end(), "the row just recorded is not among those judged");
    for (const Finding& found : mine->findings)
        throw StepFailed(std::string(VerdictText(found.verdict)) + ": " + found.evidence);
    for (const NotLooked& not_looked : mine->not_looked)
        throw StepFailed(std::string("could not look: ") + not_looked.what + ": " + not_looked.why);
    Say("The row just recorded is sound.");
    if (options_.audit_folder.empty()) return;
    WriteOut(options_.audit_folder, "audit.json", JsonText(ReportJson(audit_)));
    WriteOut(options_.audit_folder, "evidence.json", WriteEvidence(evidence_));
}

void Session::Report() {
    const ReportOutcome outcome = OnSendReport(run_, driver_, options_.report);
    Require(outcome.sent, outcome.refusal.empty() ? last_status_ : outcome.refusal);
    WaitForFlow();
    const std::string txid = FindTxid(last_status_);
    Require(!txid.empty(), last_status_);
    Json answer;
    Require(FetchJson(std::string(kControlUrl) + "/reports", answer) && answer.is_object() &&
                answer.contains("reports") && answer["reports"].is_array(),
            "the sandbox does not give its reports");
    for (const Json& report : answer["reports"]) {
        if (JsonString(report, "txid") != txid) continue;
        SayField("read by", std::string("@") + kArchitectHandle);
        SayField("from", JsonString(report, "handle"));
        SayField("text", JsonString(report, "text"));
        Require(JsonString(report, "text") == Trim(options_.report), "the recipient read another text");
        return;
    }
    throw StepFailed("the recipient has not read the report");
}

void Session::WriteFiles() {
    Json answer;
    Require(FetchJson(std::string(kControlUrl) + "/transactions", answer) && answer.is_object() &&
                answer.contains("transactions"),
            "the sandbox does not give its transactions");
    const std::optional<SecretString> wallet = ReadSecretFile(WalletFilePath());
    Require(wallet.has_value(), "the wallet's file cannot be read");
    const Json run = {{"score", run_.final_score},
                      {"level", run_.game.level},
                      {"ticks", run_.sim_clock_ms / kTickMs},
                      {"tape", TapeToHex(run_.tape)},
                      {"tape_hash", TapeHash(TapeToHex(run_.tape))}};
    const auto write = [this](const char* name, std::string_view content) {
        WriteOut(options_.out_folder, name, content);
    };
    write("transactions.json", answer["transactions"].dump(2));
    write("wallet.json", *wallet);
    write("row.json", DumpRow(recorded_row_));
    write("run.json", run.dump(2));
}

void Session::WriteOut(const std::string& folder, const char* name, std::string_view content) {
    const std::string path = folder + "/" + name;
    Require(MakeFolders(folder), "cannot make the folder " + folder);
    Require(ReplaceFile(path, content), "cannot write " + path);
    Say(path);
}

}  // namespace brickfall
