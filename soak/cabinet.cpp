#include "soak/cabinet.h"

#include <unistd.h>

#include <functional>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "base/workers.h"
#include "board/board_load.h"
#include "cabinet/ui_settings.h"
#include "cabinet/update_check.h"
#include "deployment/sandbox_route.h"
#include "game/flows.h"
#include "game/windowless_driver.h"
#include "net/http_client.h"
#include "players/held_keys.h"
#include "sandbox/companion.h"
#include "tests/support/manual_clock.h"
#include "wallet/events/wallet_events.h"
#include "wallet/link/status_refresh.h"
#include "wallet/store/app_binds.h"

namespace brickfall::soak {
namespace {

using nlohmann::json;

constexpr unsigned kHungSeconds = 600;  // of real time, for one command
constexpr uint64_t kLongestRunTicks = 60'000;

std::optional<Image> CountAsPicture(const std::string&, int) { return Image{1, 1, {0xFF000000}}; }

class Cabinet {
  public:
    explicit Cabinet(CabinetPlace place) : place_(std::move(place)) { MakeDriver(); }

    json Obey(const json& command);

  private:
    void MakeDriver();
    void Start();
    void SetClock(const json& command);
    void Connect(const std::string& answer, const std::string& wallet_id);
    void Play(uint64_t seed);
    void Report(const std::string& text);
    void Board();
    void Deliver();
    void Tell(std::string_view text) { told_.emplace_back(Trim(text)); }

    const CabinetPlace place_;
    ManualClock clock_{0};
    int64_t passed_ms_ = 0;  // of the clock, at the end of the last command
    RunControl run_;
    FlowDriver flow_;
    HeldKeys held_;
    bool says_yes_ = true;
    std::function<void()> posted_;  // what a worker has brought to the main thread
    json told_;
    json answer_;
};

void Cabinet::MakeDriver() {
    flow_ = WindowlessDriver();
    RunDriver& run = flow_.run;
    run.set_status = [this](std::string_view text) { Tell(text); };
    run.record_local_score = [this](const std::string& txid) {
        RecordLocalScore(ui_doc, run_.final_score, txid, [] { SaveUiSettings(Flush::kLater); });
    };
    run.key_down = [this](GameKey key) { return IsHeld(held_, key); };
    flow_.confirm = [this](std::string_view, std::string_view) { return says_yes_; };
    flow_.begin_check = [this](int, std::string_view text) { Tell(text); };
    // A worker runs within the click that starts it; what it posts comes after the click, as a message would.
    flow_.post_connect_done = [this](ResultText text) {
        auto shared = std::make_shared<ResultText>(std::move(text));
        posted_ = [this, shared] { OnConnectResult(run_, flow_, std::move(*shared)); };
    };
    flow_.post_pay_done = [this](PayKind kind, ResultText text) {
        auto shared = std::make_shared<ResultText>(std::move(text));
        posted_ = [this, kind, shared] { OnPayResult(run_, flow_, kind, std::move(*shared)); };
    };
}

void Cabinet::Start() {
    LoadUiSettings();
    BindAtStart(place_.folder, "Brickfall");
    const std::lock_guard lock(wallet_sink_mutex);
    wallet_log_hook = [this](std::string_view text) { Tell(text); };
}

void Cabinet::SetClock(const json& command) {
    clock_.AdvanceMs(command.at("passed").get<int64_t>() - passed_ms_);
    clock_.JumpMs(command.at("now").get<int64_t>() - UnixMillis());
    passed_ms_ = command.at("passed").get<int64_t>();
}

// The companion is asked at each look that the cabinet takes for its answer.
void Cabinet::Connect(const std::string& answer, const std::string& wallet_id) {
    std::set<std::string> ignored = OpenRequestIds();
    clock_.on_sleep = [&, looks = 0](int64_t) mutable {
        if (++looks < 3 || answer == "unheard") return;
        AnswerRequests(
            ignored, [&](const ConnectRequest&) { return std::optional(answer == "connect"); },
            [&] { return std::optional(wallet_id); });
    };
    OnConnectClicked(run_, flow_);
    Deliver();
    clock_.on_sleep = nullptr;
}

// Another run for each seed: so long to win, from serves at other moments, and sometimes with a pause.
void Cabinet::Play(uint64_t seed) {
    if (run_.mode != kModePlaying) return;
    const uint64_t to_win = seed % 7 * 150, wait = seed % 61, pause = seed % 3 == 0 ? wait + 40 : 0;
    for (uint64_t tick = 0; run_.mode == kModePlaying && tick < kLongestRunTicks; ++tick) {
        clock_.AdvanceMs(static_cast<int64_t>(kTickMs));
        OnTimer(run_, flow_.run);
        if (pause != 0 && tick == pause) {
            TogglePause(run_, flow_.run);
            clock_.AdvanceMs(static_cast<int64_t>(seed % 90'000));
            TogglePause(run_, flow_.run);
        }
        AutopilotKeys keys = tick < to_win ? AutopilotPlay(run_.game) : AutopilotLose(run_.game);
        if (tick <= wait) keys = {.left = seed % 2 == 0, .right = seed % 2 == 1};
        PressKeys(run_, flow_.run, held_, keys);
    }
}

void Cabinet::Report(const std::string& text) {
    const ReportOutcome outcome = OnSendReport(run_, flow_, text);
    if (!outcome.refusal.empty()) Tell(outcome.refusal);
    Deliver();
}

void Cabinet::Board() {
    BoardWorker(TakeBoardSnapshot(ui_doc, run_), CountAsPicture, [this](std::unique_ptr<BoardResult> board) {
        if (!board->message.empty()) Tell(board->message);
        json rows = json::array();
        for (const ScoreRow& row : board->rows) {
            rows.push_back({{"txid", row.txid}, {"score", row.score}, {"chain", row.verified}});
        }
        answer_["board"] = std::move(rows);
    });
}

void Cabinet::Deliver() {
    if (const auto posted = std::exchange(posted_, nullptr)) posted();
}

json Cabinet::Obey(const json& command) {
    told_ = json::array();
    answer_ = json::object();
    SetClock(command);
    SetConnectRoute({place_.connect_to, place_.authority, command.at("divisor").get<int>()});
    const auto act = command.at("do").get<std::string>();
    const int64_t value = command.value("value", int64_t{0});
    says_yes_ = act != "decline";
    if (act == "start") Start();
    if (act == "connect" || act == "denied" || act == "unheard")
        Connect(act, command.at("wallet").get<std::string>());
    if (act == "unbind") OnUnbindClicked(run_, flow_);
    if (act == "refresh") BalanceWorker(nullptr);
    if (act == "enter" || act == "decline") OnPlayClicked(run_, flow_);
    // Of the two that play at once each plays a run of its own.
    if (act == "play") Play(static_cast<uint64_t>(2 * value + command.at("cabinet").get<int64_t>()));
    if (act == "record") OnRecordClicked(run_, flow_);
    if (act == "report") Report("Soak report " + std::to_string(value) + ".");
    if (act == "board") Board();
    if (act == "update") answer_["build"] = LatestBuild();
    Deliver();
    const int64_t passed = static_cast<int64_t>(MonotonicNs() / 1'000'000) - 1'000'000;
    answer_["slept"] = passed - passed_ms_;
    passed_ms_ = passed;
    answer_["told"] = std::move(told_);
    answer_["mode"] = run_.mode;
    answer_["busy"] = run_.busy;
    answer_["entry"] = run_.enter_txid;
    answer_["record"] = run_.record_txid;
    answer_["score"] = run_.final_score;
    return answer_;
}

}  // namespace

int RunCabinet(const CabinetPlace& place) {
    if (::chdir(place.folder.c_str()) != 0) return 1;
    StartNetwork();
    SetInlineWorkers(true);
    Cabinet cabinet(place);
    for (std::string line; std::getline(std::cin, line);) {
        ::alarm(kHungSeconds);  // one that hangs ends, and whoever asked sees that it has
        const json answer = cabinet.Obey(json::parse(line));
        ::alarm(0);
        std::cout << answer.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
    }
    return 0;
}

}  // namespace brickfall::soak
