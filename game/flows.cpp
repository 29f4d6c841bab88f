#include "game/flows.h"

#include <new>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "game/score_row.h"
#include "messages/direct_message.h"
#include "messages/row.h"
#include "messages/signing.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kAlreadyWorkingText[] = "Already working...";
constexpr std::size_t kMaxReportBytes = 2'000;  // of UTF-8
constexpr char kEnterQuestion[] =
    "Enter Brickfall for 5000 sats?\n\n2000 to the house\n3000 to this week's pot\n\nPouch will prompt. "
    "Three "
    "lives. No continues.";

// At this moment; both empty when no wallet is loaded.
Player CurrentPlayer() {
    const WalletLock lock(wallet_mutex);
    if (!LoadWallet()) return {};
    PaymailSync(/*announce=*/false);
    return {wallet_keys.paymail, wallet_keys.address};
}

void SetStatus(const FlowDriver& driver, std::string_view text) { driver.run.set_status(text); }

bool IsSuccess(const std::string& result) { return result.starts_with("success"); }

// What a worker's step says; nothing when it has run out of memory.
std::unique_ptr<std::string> ResultOf(const std::function<std::string()>& step) {
    try {
        auto result = std::make_unique<std::string>();  // first: what is paid must not fail for it
        *result = step();
        return result;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// The driver is named by value: a worker outlives the click that started it.
void StartPay(const FlowDriver& driver, PayKind kind, std::function<std::string()> pay) {
    StartWorker([post = driver.post_pay_done, kind, pay = std::move(pay)] { post(kind, ResultOf(pay)); });
}

class Check {
  public:
    Check(const FlowDriver& driver, int control) : driver_(driver) {
        driver_.begin_check(control, "Checking your name...");
    }
    ~Check() { driver_.end_check(); }
    Check(const Check&) = delete;
    Check& operator=(const Check&) = delete;

  private:
    const FlowDriver& driver_;
};

bool LookUpFrozen(const FlowDriver& driver) {
    const Check check(driver, kControlPlay);
    std::string note;
    return IsFrozen(note);
}

bool SignChecked(const FlowDriver& driver, int control, json& row, std::string& error) {
    const Check check(driver, control);
    return SignMessage(row, error);
}

json ReportRow(const std::string& handle) {
    return {
        {"protocol", "Cairn-Wire"},      {"type", "report"},     {"app", "Brickfall"},  {"handle", handle},
        {"to_handle", kArchitectHandle}, {"location", "arcade"}, {"game", "brickfall"}, {"ts", UnixSeconds()},
    };
}

ReportOutcome RefuseReport(std::string text) { return {false, std::move(text), /*is_warning=*/false}; }

ReportOutcome FailReport(std::string error, const char* fallback) {
    return {false, error.empty() ? fallback : std::move(error), /*is_warning=*/true};
}

void OnEnterPaid(RunControl& run, const FlowDriver& driver, std::string txid) {
    run.enter_txid = std::move(txid);
    StartRun(run, driver.run);
    SetStatus(driver, "Entered. Blocks incoming.");
}

void OnScoreRecorded(RunControl& run, const FlowDriver& driver, std::string txid) {
    run.record_txid = std::move(txid);
    run.mode = kModeRecorded;
    run.record_pending = false;
    driver.run.record_local_score(run.record_txid);
    driver.run.enable_control(kControlRecord, false);
    driver.run.enable_control(kControlPlay, true);
    SetStatus(driver, "Score recorded. " + run.record_txid);
    driver.start_board_load();
}

}  // namespace

std::string PlayerHandle() { return CurrentPlayer().handle; }

std::string FindTxid(std::string_view text) {
    constexpr std::size_t kTxidLength = 64;
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        digits = HexDigitValue(text[i]) < 0 ? 0 : digits + 1;
        if (digits == kTxidLength) return std::string(text.substr(i + 1 - kTxidLength, kTxidLength));
    }
    return {};
}

void SetBusy(RunControl& run, const FlowDriver& driver, bool on) {
    run.busy = on;
    for (const int id : {kControlConnect, kControlUnbind, kControlPlay, kControlBoard, kControlReport}) {
        driver.run.enable_control(id, !on);
    }
    driver.run.enable_control(kControlRecord, !on && run.mode != kModeRecorded);
}

bool IsFrozen(std::string& note) {
    note.clear();
    std::string key;
    {
        const WalletLock lock(wallet_mutex);
        if (LoadWallet()) key = wallet_keys.is_hd ? wallet_keys.identity_pub : wallet_keys.pub;
    }
    const auto url = UrlWithName(std::string(kApiBaseUrl) + "/api/paymail/identity/", key);
    json identity;
    // A look-up that fails does not stop play.
    if (!url || !FetchJson(*url, identity, kShortAnswer)) return false;
    note = JsonString(identity, "frozenNote");
    if (!identity.is_object()) return false;
    const auto frozen = identity.find("frozen");
    return frozen != identity.end() && frozen->is_boolean() && frozen->get<bool>();
}

void OnConnectClicked(RunControl& run, const FlowDriver& driver) {
    if (run.busy) return SetStatus(driver, kAlreadyWorkingText);
    if (IsConnected()) return SetStatus(driver, "Already connected. Unbind to pick another wallet.");
    SetBusy(run, driver, true);
    SetStatus(driver, "Waiting for Pouch to approve...");
    StartWorker([post = driver.post_connect_done] { post(ResultOf(ConnectToPouch)); });
}

void OnPlayClicked(RunControl& run, const FlowDriver& driver) {
    if (run.busy) return SetStatus(driver, kAlreadyWorkingText);
    if (run.mode == kModePlaying) return SetStatus(driver, "Finish this run first.");
    if (!IsConnected()) return SetStatus(driver, "Connect a Pouch wallet first.");
    if (PlayerHandle().empty()) {
        return SetStatus(driver, std::string("Publish a @") + kPaymailDomain + " name before you play.");
    }
    if (LookUpFrozen(driver)) return SetStatus(driver, "This identity is frozen. No play.");
    if (!driver.confirm("Brickfall", kEnterQuestion)) return;
    SetBusy(run, driver, true);
    SetStatus(driver, "Paying enter fee in Pouch...");
    StartPay(driver, kPayEnter, [] { return PayArcadeEntry(kArcadeHouseAddress, kArcadePotAddress); });
}

void OnRecordClicked(RunControl& run, const FlowDriver& driver) {
    if (run.busy) return SetStatus(driver, kAlreadyWorkingText);
    if (run.mode != kModeGameOver) return SetStatus(driver, "Play a full run first.");
    if (run.enter_txid.size() != 64) return SetStatus(driver, "Missing enter txid.");
    Player player;
    if (IsConnected()) player = CurrentPlayer();
    if (player.handle.empty()) return SetStatus(driver, "Connect the same Pouch that paid to enter.");

    std::string text;
    {
        json row = MakeScoreRow(run, std::move(player), UnixSeconds());
        std::string error;
        if (!SignChecked(driver, kControlRecord, row, error)) {
            return SetStatus(driver, error.empty() ? "Could not sign the score." : error);
        }
        text = DumpRow(row);
    }
    SetBusy(run, driver, true);
    SetStatus(driver, "Recording score on-chain (1 sat)...");
    StartPay(driver, kPayRecord,
             [text = std::move(text)] { return PayArcadeScore(kArcadeWatchAddress, text); });
}

ReportOutcome OnSendReport(RunControl& run, const FlowDriver& driver, std::string_view text) {
    if (run.busy) {
        SetStatus(driver, kAlreadyWorkingText);
        return {};
    }
    std::string handle;
    if (IsConnected()) handle = PlayerHandle();
    if (handle.empty()) {
        return RefuseReport(std::string("Connect Pouch and publish a @") + kPaymailDomain + " name first.");
    }
    text = Trim(text);
    if (text.empty() || text.size() > kMaxReportBytes) {
        return RefuseReport("Write a report (max 2000 characters).");
    }
    json row = ReportRow(handle);
    std::string error;
    if (!EncryptDirectMessage({std::string(text)}, handle, kArchitectHandle, row, error)) {
        return FailReport(std::move(error), "Could not encrypt the report.");
    }
    if (!SignChecked(driver, kControlReport, row, error))
        return FailReport(std::move(error), "Could not sign the report.");
    SetBusy(run, driver, true);
    SetStatus(driver, "Sending report in Pouch...");
    StartPay(driver, kPayReport, [payload = DumpRow(row)] { return PayReport(payload); });
    return {/*sent=*/true, {}, false};
}

void OnUnbindClicked(const RunControl& run, const FlowDriver& driver) {
    if (run.mode == kModePlaying) {
        return SetStatus(driver, "Finish or close the run before unbinding.");
    }
    UnbindWallet();
    driver.refresh_wallet_labels();
    SetStatus(driver, "Unbound. Connect again to pick a wallet in Pouch.");
}

void OnConnectResult(RunControl& run, const FlowDriver& driver, ResultText result) {
    SetBusy(run, driver, false);
    driver.refresh_wallet_labels();
    if (!result) return SetStatus(driver, "Connect failed.");
    if (!IsSuccess(*result)) return SetStatus(driver, *result);
    SetStatus(driver, "Connected. Play when you are funded.");
    driver.start_pot_refresh();
}

void OnPayResult(RunControl& run, const FlowDriver& driver, PayKind kind, ResultText result) {
    SetBusy(run, driver, false);
    driver.refresh_wallet_labels();
    if (!result) return SetStatus(driver, "Pay failed.");
    if (IsSuccess(*result)) {
        std::string txid = FindTxid(*result);
        switch (kind) {
            case kPayEnter:
                OnEnterPaid(run, driver, std::move(txid));
                break;
            case kPayRecord:
                OnScoreRecorded(run, driver, std::move(txid));
                break;
            case kPayReport:
                SetStatus(driver, "Report sent. " + txid);
                break;
        }
    } else {
        SetStatus(driver, *result);
        if (kind != kPayReport) driver.run.enable_control(kControlPlay, true);
    }
    driver.start_pot_refresh();
    driver.run.invalidate_well();
}

}  // namespace brickfall
