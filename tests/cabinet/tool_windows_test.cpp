#include <gtest/gtest.h>

#include "cabinet/help_window.h"
#include "cabinet/report_window.h"
#include "cabinet/sound.h"
#include "cabinet/theme.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "tests/cabinet/cabinet_fixture.h"

namespace brickfall {
namespace {

struct SettingsOpen : CabinetFixture {
    SettingsOpen() {
        ClickControl(main, 1015);
        PumpMessages();
    }
};

TEST(Settings, SwitchAndSlideAndLast) {
    {
        SettingsOpen cabinet;
        const std::pair<int, Rect> controls[] = {{1301, {24, 24, 140, 36}}, {1303, {250, 26, 260, 32}},
                                                 {1302, {24, 82, 140, 36}}, {1304, {250, 84, 260, 32}},
                                                 {1305, {180, 30, 70, 24}}, {1307, {400, 200, 110, 36}},
                                                 {1308, {24, 148, 200, 20}}};
        for (const auto& [id, rect] : controls) EXPECT_EQ(ControlRect(shell.settings, id), rect) << id;
        EXPECT_EQ(ControlText(shell.settings, 1301), "Music  On");
        ClickControl(shell.settings, 1301);
        ClickControl(shell.settings, 1302);
        PumpMessages();
        EXPECT_EQ(ControlText(shell.settings, 1301), "Music  Off");
        EXPECT_EQ(ControlText(shell.settings, 1302), "Sound  Off");
        EXPECT_FALSE(music_on || sfx_on);

        FocusControl(shell.settings, 1303);
        PressKey(shell.settings, Key::kLeft);
        ReleaseKey(shell.settings, Key::kLeft);
        PumpMessages();
        EXPECT_LT(music_vol, 70);
        const Rect bar = ControlRect(shell.settings, 1304);
        PressPointer(shell.settings, {bar.x + bar.w - 2, bar.y + bar.h / 2});
        ReleasePointer(shell.settings, {bar.x + bar.w - 2, bar.y + bar.h / 2});
        PumpMessages();
        EXPECT_GT(sfx_vol, 85);
        const nlohmann::json saved = ui_doc;
        LoadUiSettings();
        EXPECT_EQ(ui_doc, saved);  // every change is in the file at once

        TakeOpenedAddresses();
        EXPECT_EQ(ControlText(shell.settings, 1308), "brickfall.test");
        ClickControl(shell.settings, 1308);
        PumpMessages();
        EXPECT_EQ(TakeOpenedAddresses(), std::vector<std::string>{kDownloadPageUrl});
        ClickControl(shell.settings, 1307);
        PumpMessages();
        EXPECT_FALSE(WindowExists(shell.settings));
    }
    music_on = sfx_on = true;
    music_vol = 70;
    sfx_vol = 85;
}

TEST(Help, IsOnePageThatFitsItsWindow) {
    MakeTheme();
    const Image page = DrawToImage({760, 868}, PaintHelp);
    EXPECT_EQ(PixelOf(page, 700, 71), kHeaderColor);
    EXPECT_EQ(PixelOf(page, 700, 72), kBgColor);
    for (const int top : {88, 298, 528}) {
        EXPECT_EQ(PixelOf(page, 24, top + 20), Rgb(0x60C48C)) << top;
        EXPECT_EQ(PixelOf(page, 735, top + 20), Rgb(0x020606)) << top;
    }
    EXPECT_EQ(PixelOf(page, 400, 760), kBgColor);
}

TEST(Report, RefusesInAMessageBoxAndKeepsTheText) {
    CabinetFixture cabinet;
    ClickControl(cabinet.main, 1017);
    PumpMessages();
    EXPECT_EQ(ClientSize(shell.report), kReportClientSize);
    EXPECT_EQ(FocusedControl(shell.report), 1401);
    std::vector<std::string> boxes;
    AnswerMessageBoxes([&boxes](std::string_view title, std::string_view text) {
        boxes.push_back(std::string(title) + "|" + std::string(text));
        return true;
    });
    TypeText("the ball went through the wall");
    ClickControl(shell.report, 1402);
    PumpMessages();
    EXPECT_EQ(boxes, std::vector<std::string>{std::string("Report|Connect Pouch and publish a @") +
                                              kPaymailDomain + " name first."});
    shell.run.busy = true;
    ClickControl(shell.report, 1402);
    PumpMessages();
    EXPECT_EQ(cabinet.Text(1007), "Already working...");
    EXPECT_EQ(boxes.size(), 1u);
    EXPECT_EQ(ControlText(shell.report, 1401), "the ball went through the wall");
    ClickControl(shell.report, 1403);
    PumpMessages();
    EXPECT_FALSE(WindowExists(shell.report));
    AnswerMessageBoxes({});
}

}  // namespace
}  // namespace brickfall
