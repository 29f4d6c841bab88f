#include "cabinet/shell_labels.h"

#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "board/local_scores.h"
#include "board/watch_reader.h"
#include "cabinet/board_window.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "cabinet/ui_settings.h"
#include "cabinet/well.h"
#include "cabinet/workers.h"
#include "game/score_row.h"
#include "wallet/link/status_refresh.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/session/shown_balance.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {

namespace {

constexpr int64_t kEntrySats = kArcadeHouseSats + kArcadePotSats;

FeeNote NoteOf(const RecordCost& cost) {
    FeeNote note;
    note.text = "Fee about " + Grouped(cost.fee) + " sats";
    note.warns = cost.fee > kEntrySats;
    if (cost.row_bytes > kBoardRowBytes) {
        note.text += ',';
        note.caveat = "too long for the board";
    }
    return note;
}

void ShowFee(FeeNote note) {
    if (note.text == shell.fee.text) return;
    shell.fee = std::move(note);
    const std::string& caveat = shell.fee.caveat;
    SetAccessibleControlDescription(shell.main, kControlRecord,
                                    caveat.empty() ? shell.fee.text : shell.fee.text + " " + caveat);
    InvalidateWindow(shell.well);
}

}  // namespace

void RefreshFee() {
    const RunControl& run = shell.run;
    const FeeBasis basis = {run.mode, run.tape.events.size(), ShownScore(WellOf(run))};
    if (basis == shell.fee_basis) return;
    shell.fee_basis = basis;
    if (run.mode == kModeRecorded) return;  // it is paid
    if (run.mode == kModeAttract) return ShowFee({});
    ShowFee(NoteOf(EstimateRecordCost(run, shell.paymail, shell.pay_address, UnixSeconds(), shell.coins)));
}

void RefreshTxid() {
    constexpr std::size_t kEnd = 8;
    const std::string& id = shell.run.record_txid;
    const bool is_there = id.size() > 2 * kEnd;
    MoveControl(shell.well, kControlTxid, is_there ? TxidRect(WellOf(shell.run), shell.cell) : Rect{});
    const std::string text =
        is_there ? "txid  " + id.substr(0, kEnd) + "…" + id.substr(id.size() - kEnd) : std::string();
    if (text == ControlText(shell.well, kControlTxid)) return;
    SetControlText(shell.well, kControlTxid, text);
    SetTextClickable(shell.well, kControlTxid, is_there);
    SetAccessibleControlName(shell.well, kControlTxid, is_there ? "Transaction id " + id : "");
}

void RefreshPlayer() {
    UpdateMyFaceKey(shell.board_view.my_key);
    InvalidateWindow(shell.board);
    bool is_hd = false;
    WalletSummary(shell.pay_address, shell.paymail, is_hd);
    shell.fee_basis = {};
    RefreshFee();
}

void RefreshWalletLabels() {
    const bool connected = IsConnected();  // loads the wallet at the start
    RefreshPlayer();
    std::string wallet = "Wallet: not connected";
    std::string balance = "Pouch balance:  -";
    if (connected) {
        std::string address;
        std::string paymail;
        bool is_hd = false;
        WalletSummary(address, paymail, is_hd);
        wallet = "Wallet: " + (!paymail.empty() ? paymail : !address.empty() ? address : "connected");
        const int64_t shown = ReadShownBalance();
        balance = "Pouch balance:  " + (shown >= 0 ? FormatBsv(shown) + " BSV" : std::string("…"));
        bool idle = false;
        if (balance_busy.compare_exchange_strong(idle, true)) StartBalanceWorker(shell.main);
    }
    SetLine(kControlWalletLine, wallet);
    SetLine(kControlBalanceLine, balance);
    SetControlText(shell.main, kControlConnect, connected ? "Connected" : "Connect");
    shell.connected = connected;
    RefreshExplanation();
}

void RefreshPotLabel() {
    const std::string value = shell.pot_sats >= 0        ? FormatBsv(shell.pot_sats) + " BSV"
                              : !shell.pot_error.empty() ? std::string("(lookup miss)")
                                                         : std::string("-");
    SetLine(kControlPotLine, "Current weekly pot:  " + value);
    RefreshExplanation();
}

void StartPotRefresh() { StartPotWorker(shell.main); }

void StartBoardLoad() {
    if (shell.board_busy) {
        shell.board_again = true;
        return;
    }
    shell.board_busy = true;
    EnableWindowControl(shell.main, kControlBoard, false);
    SetStatus("Loading this week's board...");
    StartBoardWorker(shell.main, TakeBoardSnapshot(ui_doc, shell.run));
}

std::string FormatBsv(int64_t satoshis) {
    constexpr uint64_t kCoin = 100'000'000;
    const uint64_t amount =
        satoshis < 0 ? 0 - static_cast<uint64_t>(satoshis) : static_cast<uint64_t>(satoshis);
    const std::string decimals = std::to_string(amount % kCoin);
    return (satoshis < 0 ? "-" : "") + std::to_string(amount / kCoin) + "." +
           std::string(8 - decimals.size(), '0') + decimals;
}

}  // namespace brickfall
