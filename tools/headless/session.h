// session.h - one paid run without a window, step by step: the flows of the cabinet with a driver that
// prints. Main thread; the workers' results are brought to it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "audit/report.h"
#include "base/clock.h"
#include "board/board_load.h"
#include "game/flows.h"
#include "players/held_keys.h"

namespace brickfall {

struct StepFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The system's clock, but that the wall clock of a run moves only by what is played: a run takes no real
// time.
class RunClock {
  public:
    RunClock() : clock_(SystemClock()) {
        clock_.self = &tick_ms_;
        clock_.tick_ms = [](void* self) { return *static_cast<const uint64_t*>(self); };
        InstallClock(&clock_);
    }
    ~RunClock() { InstallClock(nullptr); }
    RunClock(const RunClock&) = delete;
    RunClock& operator=(const RunClock&) = delete;

    void PassOneTick() { tick_ms_ += static_cast<uint64_t>(kTickMs); }

  private:
    uint64_t tick_ms_ = 1'000;
    Clock clock_;
};

struct HeadlessOptions {
    std::string out_folder;
    std::string report;
    std::string audit_folder;  // gets what the audit has found and used; empty: nothing does
    bool only_board = false;
};

class Session {
  public:
    explicit Session(const HeadlessOptions& options) : options_(options) { MakeDriver(); }

    // Throws StepFailed at the first step that does not hold.
    void Run();

  private:
    void MakeDriver();
    void Step(const std::string& title, const std::function<void()>& body);
    void Connect();
    void ClaimName();
    void TakePlayMoney();
    void Enter();
    void Play();
    void Record();
    void ReadBack();
    void Holdings();
    void Board();
    void Audit();
    void Report();
    void WriteFiles();
    void WriteOut(const std::string& folder, const char* name, std::string_view content);
    int64_t WalletHolds();
    std::vector<int64_t> WalletCoins();
    void WaitForFlow();

    const HeadlessOptions options_;
    std::unique_ptr<BoardResult> board_;  // of the last load
    bool board_busy_ = false;
    RunClock clock_;
    int step_ = 0;
    RunControl run_;
    FlowDriver driver_;
    std::string last_status_;
    HeldKeys held_;
    int64_t balance_at_start_ = 0;
    int64_t balance_entered_ = 0;
    int64_t balance_at_end_ = 0;
    nlohmann::json recorded_row_;
    Collected evidence_;  // of the audit
    AuditReport audit_;
};

}  // namespace brickfall
