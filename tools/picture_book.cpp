// picture_book.cpp - draws the README's pictures off screen: the cabinet in every mode, its tool windows, and
// its buttons in every state; and the viewer.   picture_book FOLDER ROW_FILE
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "base/clock.h"
#include "base/files.h"
#include "base/workers.h"
#include "board/board_load.h"
#include "cabinet/controls.h"
#include "cabinet/images.h"
#include "cabinet/private_messages.h"
#include "cabinet/shell.h"
#include "cabinet/shell_labels.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "cabinet/theme.h"
#include "cabinet/ui_settings.h"
#include "platform/automation.h"
#include "players/autopilot.h"
#include "viewer/poster.h"
#include "viewer/run_list_window.h"
#include "viewer/viewer_window.h"
#include "wallet/link/status_refresh.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

constexpr char kRecordTxid[] = "e5a61e11617149c834f8c7c63aed2690286fe32f5394d7c4009fbea5bedc372b";

std::string& folder = *new std::string;
std::string& row_file = *new std::string;  // gets the run that the pictures show
uint64_t& tick_ms = *new uint64_t(1'000);

void Keep(const std::string& name, const Image& image) {
    const std::string path = folder + "/" + name + ".png";
    if (!SavePng(image, path)) {
        std::fprintf(stderr, "picture_book: cannot write %s\n", path.c_str());
        std::exit(1);
    }
    std::printf("%s\n", path.c_str());
}

void KeepMain(const std::string& name) {
    InvalidateWindow(shell.main);
    shell.driver.run.invalidate_well();
    PumpMessages();
    Keep(name, GrabWindow(shell.main));
}

void Click(WindowId window, int control) {
    ClickControl(window, control);
    PumpMessages();
}

void PlayFor(uint64_t milliseconds, bool to_win) {
    for (uint64_t passed = 0; passed < milliseconds && shell.run.mode == kModePlaying; passed += kTickMs) {
        tick_ms += kTickMs;
        CatchUp(shell.run, shell.driver.run);
        const AutopilotKeys keys = to_win ? AutopilotPlay(shell.run.game) : AutopilotLose(shell.run.game);
        const auto send = [](uint8_t code) { SendInput(shell.run, shell.driver.run, code); };
        const GameState& game = shell.run.game;
        if (game.left_held != keys.left) send(keys.left ? kInputLeftDown : kInputLeftUp);
        if (game.right_held != keys.right) send(keys.right ? kInputRightDown : kInputRightUp);
        if (keys.serve) send(kInputServe);
    }
}

std::unique_ptr<BoardResult> SampleBoard() {
    auto board = std::make_unique<BoardResult>();
    const std::pair<const char*, int64_t> players[] = {{"ada", 18'420},
                                                       {"grace", 15'975},
                                                       {"player", shell.run.final_score},
                                                       {"linus", 640},
                                                       {"edsger", 410},
                                                       {"barbara", 395},
                                                       {"a-handle-too-long-for-its-column-by-far", 260},
                                                       {"ken", 120}};
    for (const auto& [handle, score] : players) {
        ScoreRow row;
        row.handle = handle;
        row.score = score;
        board->rows.push_back(row);
    }
    board->best = board->rows.front();
    board->best.score = 23'310;
    board->has_best = true;
    return board;
}

void KeepButtons() {
    const std::pair<const char*, ButtonState> states[] = {{"at rest", {}},
                                                          {"hot", {.hot = true}},
                                                          {"pressed", {.hot = true, .pressed = true}},
                                                          {"disabled", {.disabled = true}},
                                                          {"blinking", {}},
                                                          {"with the keyboard", {.focused = true}}};
    constexpr Size kButton = {140, 34};
    Keep("buttons", DrawToImage({6 * 160 + 20, 84}, [&](Canvas& canvas) {
             canvas.Fill({0, 0, 980, 84}, kBgColor);
             int x = 20;
             for (const auto& [name, button] : states) {
                 Message item;
                 item.type = MessageType::kPaintButton;
                 item.id = kControlRecord;
                 item.size = kButton;
                 item.button = button;
                 const ButtonLook look = {kBgColor, std::string_view(name) == "blinking"};
                 const Image image = DrawToImage(kButton, [&](Canvas& face) {
                     item.canvas = &face;
                     PaintButton(shell.main, item, look);
                 });
                 canvas.Draw(image, {x, 14, kButton.w, kButton.h});
                 canvas.Text({x, 54, kButton.w, 20}, name, theme.font_small, kMutedColor, AlignX::kCentre);
                 x += 160;
             }
         }));
}

void KeepTools() {
    for (const auto& [control, slot, name] :
         {std::tuple(static_cast<int>(kControlHelp), &Shell::help, "help"),
          std::tuple(int{kControlSettings}, &Shell::settings, "settings"),
          std::tuple(static_cast<int>(kControlReport), &Shell::report, "report")}) {
        ClickControl(shell.main, control);
        PumpMessages();
        Keep(name, GrabWindow(shell.*slot));
        DestroyWindow(shell.*slot);
    }
}

WatchedRun WatchedOf(const char* name, const InputTape& tape) {
    WatchedRun run;
    run.tape = tape;
    Replay replay(tape);
    replay.GoTo(Replay::kToTheEnd);
    run.audit.has_row = true;
    run.audit.handle = name;
    run.audit.score = replay.Game().score;
    run.audit.run.emplace();
    run.audit.run->level = replay.Game().level;
    run.audit.run->length_ms = static_cast<int64_t>(replay.TickMs());
    run.audit.txid = kRecordTxid;
    return run;
}

// The run that the cabinet's pictures show, and what becomes of it with an event that no player made.
void KeepViewer(const InputTape& tape) {
    InputTape bent = tape;
    const auto middle = bent.events.begin() + static_cast<std::ptrdiff_t>(bent.events.size() / 3);
    bent.events.insert(middle, {middle->tick_ms, kInputServe});
    LoadedRuns loaded;
    loaded.title = "Week 2026-W39";
    loaded.runs = {WatchedOf("ada", tape), WatchedOf("grace", tape), WatchedOf("ghost-hand", bent)};
    loaded.runs.back().audit.run.reset();
    loaded.runs.back().audit.findings.push_back({Verdict::kNotALostGame, ""});
    LoadLogo(LogoFile());
    OpenViewer();
    ShowWindow(viewer.main);
    ShowLoaded(loaded);
    PumpMessages();
    Keep("viewer-list", GrabWindow(viewer.list));
    Click(viewer.list, kFirstListRow);
    viewer.inputs = true;
    viewer.transport.GoTo(700'000);
    Click(viewer.main, kViewerStep);
    Keep("viewer", GrabWindow(viewer.main));
    ShowRun(loaded.runs.back());
    viewer.transport.GoTo(viewer.shown->course.LengthMs());
    Click(viewer.main, kViewerStep);
    Keep("viewer-fails", GrabWindow(viewer.main));
    Keep("poster", DrawPoster(*OpenRunOf(loaded.runs.front())));
    DestroyWindow(viewer.main);
    PumpMessages();
}

// The store's only wallet, so that the cabinet is connected to it. Its words are the first example of BIP39.
void MakeWallet() {
    constexpr char kId[] = "w1700000000000";
    constexpr char kWords[] =
        "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon about";
    const std::string wallet_folder = StoreRoot() + "/wallets/" + kId;
    MakeFolders(wallet_folder);
    const nlohmann::json registry = {{"active", kId}, {"wallets", {{{"id", kId}, {"name", "player"}}}}};
    const nlohmann::json wallet = {{"version", 2}, {"mnemonic", kWords}, {"paymail", "player"}};
    ReplaceFile(StoreRoot() + "/wallets.json", registry.dump(2));
    ReplaceFile(wallet_folder + "/wallet.json", wallet.dump(2));
}

void OpenCabinet() {
    BindAtStart("/picture-book", "Brickfall");
    LoadUiSettings();
    LoadLogo(LogoFile());
    OpenMainWindow();
    ShowWindow(shell.main);
    WaitForWorkers();  // of which none has found a service
    PumpMessages();
    PostWindowMessage(shell.main, kMsgPotDone, 0, MakePayload(PotResult{117'000, ""}));
}

void DrawAll() {
    OpenCabinet();
    KeepMain("start");
    DestroyWindow(shell.main);
    PumpMessages();
    MakeWallet();
    OpenCabinet();
    PostWindowMessage(shell.main, kMsgBalanceDone, 0, MakePayload(StatusResult{true, 94'847}));
    KeepMain("attract");
    shell.run.enter_txid = std::string(64, '0');
    StartRun(shell.run, shell.driver.run);
    SetStatus("Entered. Blocks incoming.");
    KeepMain("serve");
    PlayFor(900'000, true);
    KeepMain("playing");
    TogglePause(shell.run, shell.driver.run);
    KeepMain("paused");
    TogglePause(shell.run, shell.driver.run);
    PlayFor(600'000, false);
    tick_ms = (tick_ms / 440 + 1) * 440 + 220;  // the bright half of the blinking
    KeepMain("game-over");
    shell.asked = kPayRecord;
    SetStatus("error: broadcast failed: Timeout was reached");
    KeepMain("failed");
    shell.run.mode = kModeRecorded;
    shell.run.record_pending = false;
    shell.run.record_txid = kRecordTxid;
    RefreshTxid();
    EnableWindowControl(shell.main, kControlRecord, false);
    SetStatus("Score recorded.");
    KeepMain("recorded");
    PostWindowMessage(shell.main, kMsgBoardDone, 0, MakePayload(SampleBoard()));
    PumpMessages();
    Keep("board", GrabWindow(shell.board));
    KeepTools();
    KeepButtons();
    const InputTape tape = shell.run.tape;
    DestroyWindow(shell.main);
    PumpMessages();
    KeepViewer(tape);
    const nlohmann::json row = {{"type", "arcade_score"}, {"tape", TapeToHex(tape)}};
    if (!ReplaceFile(row_file, row.dump())) std::exit(1);
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    using namespace brickfall;
    if (count != 3) {
        std::fprintf(stderr, "picture_book: usage: picture_book FOLDER ROW_FILE\n");
        return 2;
    }
    folder = arguments[1];
    row_file = arguments[2];
    // A store of its own, no network, and a clock that moves by what is played.
    const std::filesystem::path store = std::filesystem::temp_directory_path() / "brickfall-picture-book";
    ::setenv("LOCALAPPDATA", store.c_str(), 1);
    ::setenv("BRICKFALL_SANDBOX_CONNECT", "::127.0.0.1:9", 1);
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    Clock clock = SystemClock();
    clock.tick_ms = [](void*) { return tick_ms; };
    InstallClock(&clock);
    {
        const Platform platform(count, arguments);
        DrawAll();
    }
    std::error_code ignored;
    std::filesystem::remove_all(store, ignored);
    InstallClock(nullptr);
    return 0;
}
