// What a player has set and where the window stood come back at the next start, and each start tells the rest
// of the program who it is.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "base/files.h"
#include "base/workers.h"
#include "cabinet/sound.h"
#include "cabinet/startup.h"
#include "cabinet/ui_settings.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "wallet/app_binds.h"
#include "wallet/connect_handshake.h"

namespace brickfall {
namespace {

using nlohmann::json;
using Messages = std::vector<uint32_t>;

constexpr char kFolder[] = "/games/brickfall";

Messages& heard = *new Messages;

class NotedMidi : public MidiOut {
  public:
    void ShortMessage(uint32_t message) override { heard.push_back(message); }
    void Reset() override {}
};

void ForgetSettings() {
    music_on = sfx_on = true;
    music_vol = 70;
    sfx_vol = 85;
    ui_doc = json::object();
}

// A large screen, and a store with one wallet in it that no program is bound to yet.
struct Desk {
    Desk() {
        PretendMonitors({{{0, 0, 3840, 2160}, {0, 0, 3840, 2120}}});
        SetInlineWorkers(true);
        // The tune ends with its first note; its output stays open.
        wallet.clock.on_sleep = [](int64_t) { music_running = false; };
        RemoveFile(BindFilePath());
    }
    ~Desk() {
        End();
        ForgetSettings();
        SetInlineWorkers(false);
        PretendMonitors({});
    }

    // As in a new process, which knows nothing of the one before.
    void Start() {
        ForgetSettings();
        {
            const std::lock_guard lock(wallet_sink_mutex);
            wallet_log_hook = nullptr;
        }
        ResetBindingForTest();
        StartCabinet(kFolder, [] { return std::unique_ptr<MidiOut>(new NotedMidi); });
        PumpMessages();
    }

    static void End() {
        DestroyWindow(shell.main);
        PumpMessages();
    }

    // The desktop tells the end of a move like this.
    static void Place(const Rect& rect) {
        MoveWindow(shell.main, {rect.x, rect.y});
        ResizeWindow(shell.main, {rect.w, rect.h});
        PumpMessages();
        Message message{.type = MessageType::kMoveEnd};
        MainWindowProc(shell.main, message);
    }

    static json Parsed(const std::string& path) {
        return json::parse(ReadFile(path).value_or(""), nullptr, /*allow_exceptions=*/false);
    }
    json Saved() const { return Parsed(wallet.StorePath("/brickfall_ui.json")); }

    SandboxFixture services;
    WalletFixture wallet;
};

TEST(Restart, TheWindowComesBackWhereItStood) {
    Desk desk;
    desk.Start();
    EXPECT_EQ(WindowRect(shell.main).w, 1320);
    EXPECT_EQ(WindowRect(shell.main).h, 1300);
    EXPECT_FALSE(IsMaximized(shell.main));
    const Rect stood = {140, 90, 1320, 1400};
    Desk::Place(stood);
    const json saved = desk.Saved();  // at once: the power may fail
    EXPECT_EQ((Rect{saved.value("x", 0), saved.value("y", 0), saved.value("w", 0), saved.value("h", 0)}),
              stood);
    Desk::End();

    desk.Start();
    EXPECT_EQ(WindowRect(shell.main), stood);
    EXPECT_FALSE(IsMaximized(shell.main));
    ShowWindow(shell.main, ShowState::kMaximized);
    PumpMessages();
    Desk::End();

    desk.Start();
    EXPECT_TRUE(IsMaximized(shell.main));
    EXPECT_EQ(NormalRect(shell.main), stood) << "what it is restored to";
    ShowWindow(shell.main, ShowState::kNormal);
    PumpMessages();
    const Rect elsewhere = {400, 30, 1320, 1350};
    Desk::Place(elsewhere);
    Desk::End();

    desk.Start();
    EXPECT_FALSE(IsMaximized(shell.main));
    EXPECT_EQ(WindowRect(shell.main), elsewhere);
}

TEST(Restart, ItIsTheSameProgramToItsWalletAndItsStatusLine) {
    Desk desk;
    desk.Start();
    EXPECT_EQ(Desk::Parsed(BindFilePath()),
              (json{{"app", "Brickfall"}, {"instance", kFolder}, {"wallet_id", kTestWalletId}}));
    EXPECT_EQ(ControlText(shell.main, 1001), "Connected");
    std::thread([] { WalletLog("from a worker"); }).join();
    EXPECT_NE(ControlText(shell.main, 1007), "from a worker");
    PumpMessages();
    EXPECT_EQ(ControlText(shell.main, 1007), "from a worker");
    WalletLog("from the window's own thread");
    WalletLog("");
    EXPECT_EQ(ControlText(shell.main, 1007), "from the window's own thread") << "at once";
}

TEST(Restart, EachSwitchAndSliderActsAndIsSavedAtOnceAndLasts) {
    const auto volume = [](uint32_t channel, uint32_t percent) {
        return 0x07B0 | channel | percent * 127 / 100 << 16;
    };
    struct Step {
        int control;
        const char* key;
        json value;
        Messages heard;
    };
    const Step steps[] = {
        {1301, "music", false, {0x7BB0, 0x7BB1, 0x7BB2}},  // no note rings on
        {1302, "sfx", false, {}},
        {1303, "music_vol", 69, {volume(0, 69), volume(2, 69)}},
        {1304, "sfx_vol", 84, {}},
    };
    Desk desk;
    desk.Start();
    ClickControl(shell.main, 1015);
    PumpMessages();
    json expected = {{"music", true}, {"sfx", true}, {"music_vol", 70}, {"sfx_vol", 85}};
    for (const Step& step : steps) {
        heard.clear();
        if (step.value.is_boolean()) {
            ClickControl(shell.settings, step.control);
        } else {
            FocusControl(shell.settings, step.control);
            PressKey(shell.settings, Key::kLeft);
            ReleaseKey(shell.settings, Key::kLeft);
        }
        PumpMessages();
        EXPECT_EQ(heard, step.heard) << step.key;
        expected[step.key] = step.value;
        EXPECT_EQ(desk.Saved(), expected) << step.key;
    }
    Desk::End();

    desk.Start();
    EXPECT_FALSE(music_on || sfx_on);
    EXPECT_EQ(music_vol, 69);
    EXPECT_EQ(sfx_vol, 84);
    ClickControl(shell.main, 1015);
    PumpMessages();
    EXPECT_EQ(ControlText(shell.settings, 1301), "Music  Off");
    EXPECT_EQ(ControlText(shell.settings, 1302), "Sound  Off");
    ClickControl(shell.settings, 1301);
    PumpMessages();
    EXPECT_EQ(ControlText(shell.settings, 1301), "Music  On");
    EXPECT_EQ(desk.Saved()["music"], true);
}

}  // namespace
}  // namespace brickfall
