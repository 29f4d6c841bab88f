// What a player has set comes back at the next start, and each start tells the rest of the program who it is.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "base/files.h"
#include "base/workers.h"
#include "cabinet/shell.h"
#include "cabinet/shell_state.h"
#include "cabinet/sound.h"
#include "cabinet/startup.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "wallet/events/wallet_events.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;
using Messages = std::vector<uint32_t>;

Messages& heard = *new Messages;

struct NotedMidi : MidiOut {
    void ShortMessage(uint32_t message) override { heard.push_back(message); }
    void Reset() override {}
};

// A large screen, and a store with one wallet in it that no program of this folder is bound to.
struct Restart : testing::Test {
    Restart() {
        PretendLargeMonitor();
        SetInlineWorkers(true);
        // The tune ends with its first note; its output stays open.
        wallet.clock.on_sleep = [](int64_t) { music_running = false; };
        Start();
    }
    ~Restart() override {
        End();
        ForgetAll();
        SetInlineWorkers(false);
        PretendMonitors({});
    }

    // A new process knows nothing of the one before.
    static void ForgetAll() {
        music_on = sfx_on = true;
        music_vol = 70;
        sfx_vol = 85;
        ui_doc = json::object();
        ResetBindingForTest();
        const std::lock_guard lock(wallet_sink_mutex);
        wallet_log_hook = nullptr;
    }
    static void Start() {
        ForgetAll();
        StartCabinet("/games/brickfall",
                     []() -> std::unique_ptr<MidiOut> { return std::make_unique<NotedMidi>(); });
        PumpMessages();
    }
    static void End() {
        DestroyWindow(shell.main);
        PumpMessages();
    }

    static std::string Text(int control) { return ControlText(shell.main, control); }

    json Saved() const {
        const auto file = ReadFile(wallet.StorePath("/brickfall_ui.json"));
        return json::parse(file.value_or(""), nullptr, /*allow_exceptions=*/false);
    }

    SandboxFixture services;
    WalletFixture wallet;
};

TEST_F(Restart, ItIsTheSameProgramToItsWalletAndItsStatusLine) {
    const json bind = {{"app", "Brickfall"}, {"instance", "/games/brickfall"}, {"wallet_id", kTestWalletId}};
    EXPECT_EQ(ReadFile(BindFilePath()), bind.dump(2));
    EXPECT_EQ(Text(1001), "Connected");
    EXPECT_EQ(Text(1003), std::string("Wallet: ada@") + kPaymailDomain);
    EXPECT_EQ(Text(1004), "Pouch balance:  0.00000000 BSV");
    Click(shell.main, 1002);
    EXPECT_EQ(Text(1001) + "|" + Text(1003) + "|" + Text(1004),
              "Connect|Wallet: not connected|Pouch balance:  -");

    std::thread([] { WalletLog("from a worker"); }).join();
    PumpMessages();
    EXPECT_EQ(Text(1007), "from a worker");
    WalletLog("from the window's own thread");
    WalletLog("");
    EXPECT_EQ(Text(1007), "from the window's own thread") << "at once";
}

TEST_F(Restart, EachSwitchAndSliderActsAndIsSavedAtOnceAndLasts) {
    const auto volume = [](uint32_t channel, uint32_t percent) {
        return 0x07B0 | channel | percent * 127 / 100 << 16;
    };
    const struct {
        int control;
        const char* key;
        json value;
        Messages heard;
    } steps[] = {
        {1301, "music", false, {0x7BB0, 0x7BB1, 0x7BB2}},  // no note rings on
        {1302, "sfx", false, {}},
        {1303, "music_vol", 69, {volume(0, 69), volume(2, 69)}},
        {1304, "sfx_vol", 84, {}},
    };
    json expected = {{"music", true}, {"sfx", true}, {"music_vol", 70}, {"sfx_vol", 85}};
    Click(shell.main, 1015);
    for (const auto& step : steps) {
        heard.clear();
        if (step.value.is_boolean()) Click(shell.settings, step.control);
        FocusControl(shell.settings, step.control);
        PressKey(shell.settings, Key::kLeft);  // moves no switch
        ReleaseKey(shell.settings, Key::kLeft);
        EXPECT_EQ(heard, step.heard) << step.key;
        expected[step.key] = step.value;
        EXPECT_EQ(Saved(), expected) << step.key;
    }
    End();
    Start();
    Click(shell.main, 1015);
    EXPECT_EQ(ControlText(shell.settings, 1301), "Music  Off");
    EXPECT_EQ(ControlText(shell.settings, 1302), "Sound  Off");
    EXPECT_TRUE(music_vol == 69 && sfx_vol == 84);
    Click(shell.settings, 1301);
    EXPECT_EQ(ControlText(shell.settings, 1301), "Music  On");
    EXPECT_EQ(Saved()["music"], true);
}

TEST_F(Restart, FullScreenLastsAndARunTooTallForAFrameKeepsIt) {
    PretendMonitors({{{0, 0, 1920, 1080}, {0, 0, 1920, 1040}}});
    const auto tap = [] {
        PressKey(shell.main, Key::kF11);
        PressKey(shell.main, Key::kF11, /*is_repeat=*/true);
        ReleaseKey(shell.main, Key::kF11);
        PumpMessages();
        return IsFullScreen(shell.main);
    };
    EXPECT_TRUE(tap());
    EXPECT_EQ(Saved()["full_screen"], true);
    End();
    Start();
    EXPECT_TRUE(IsFullScreen(shell.main));

    shell.cell = {40, 40};
    StartRun(shell.run, shell.driver.run);
    shell.run.game.cell_w = shell.run.game.cell_h = 40;
    const std::size_t events = shell.run.tape.events.size();
    EXPECT_TRUE(tap()) << "its paddle would be out of sight";
    EXPECT_EQ(Text(1007), "Finish this run first.");
    EXPECT_EQ(shell.run.tape.events.size(), events);
    shell.run.game.cell_w = shell.run.game.cell_h = 38;
    EXPECT_FALSE(tap());
    EXPECT_FALSE(Saved().contains("full_screen"));
    PretendLargeMonitor();
}

}  // namespace
}  // namespace brickfall
