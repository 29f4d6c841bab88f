// flows.h - connect, enter, record, report and unbind: the checks on the main thread, the worker, and what
// becomes of its result. Everything here runs on the main thread but the workers' bodies.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "game/run_control.h"

namespace brickfall {

enum PayKind : int { kPayEnter = 1, kPayRecord = 2, kPayReport = 3 };

// A worker's result text; empty pointer when it is missing. Whoever receives it owns it.
using ResultText = std::unique_ptr<std::string>;

// What the flows ask of the driver, beside what a run asks.
struct FlowDriver {
    RunDriver run;
    std::function<bool(std::string_view title, std::string_view question)> confirm;  // OK and Cancel
    // Around a look-up that keeps the main thread for seconds. The driver shows at once that the control
    // waits, with `text` in the status line, and takes no click or key meanwhile; then all is as before.
    std::function<void(int control, std::string_view text)> begin_check;
    std::function<void()> end_check;
    std::function<void()> refresh_wallet_labels;
    std::function<void()> start_pot_refresh;
    std::function<void()> start_board_load;
    // Called on a worker; each brings the text to OnConnectResult or OnPayResult on the main thread.
    std::function<void(ResultText)> post_connect_done;
    std::function<void(PayKind, ResultText)> post_pay_done;
};

// What becomes of a report. Not sent and without a refusal: the status line has told why.
struct ReportOutcome {
    bool sent = false;
    std::string refusal;  // for a message box
    bool is_warning = false;
};

void OnConnectClicked(RunControl& run, const FlowDriver& driver);
void OnPlayClicked(RunControl& run, const FlowDriver& driver);
void OnRecordClicked(RunControl& run, const FlowDriver& driver);
void OnUnbindClicked(const RunControl& run, const FlowDriver& driver);
void OnConnectResult(RunControl& run, const FlowDriver& driver, ResultText result);
void OnPayResult(RunControl& run, const FlowDriver& driver, PayKind kind, ResultText result);
// `text` is UTF-8; blanks around it are dropped. Seals it to the architect, signs its row and starts the
// payment. Blocks for the key look-up of the signature's self-check.
ReportOutcome OnSendReport(RunControl& run, const FlowDriver& driver, std::string_view text);
void SetBusy(RunControl& run, const FlowDriver& driver, bool on);

// The wallet's published handle after a fresh sync, without "@" and domain; empty when there is none. Takes
// wallet_mutex.
std::string PlayerHandle();

bool IsFrozen(std::string& note);  // blocks for up to 14 s

// The first run of 64 hex digits in a text, or empty text.
std::string FindTxid(std::string_view text);

}  // namespace brickfall
