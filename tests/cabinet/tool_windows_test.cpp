#include <gtest/gtest.h>

#include "cabinet/help_window.h"
#include "cabinet/report_window.h"
#include "cabinet/shell_state.h"
#include "cabinet/theme.h"
#include "deployment/deployment.h"
#include "tests/cabinet/cabinet_fixture.h"

namespace brickfall {
namespace {

TEST(Settings, StandInTheirPlacesAndNameTheSite) {
    CabinetFixture cabinet;
    cabinet.Click(1015);
    const std::pair<int, Rect> controls[] = {{1301, {24, 24, 140, 36}}, {1303, {250, 26, 260, 32}},
                                             {1302, {24, 82, 140, 36}}, {1304, {250, 84, 260, 32}},
                                             {1305, {180, 30, 70, 24}}, {1307, {400, 200, 110, 36}},
                                             {1308, {24, 148, 200, 20}}};
    for (const auto& [id, rect] : controls) EXPECT_EQ(ControlRect(shell.settings, id), rect) << id;
    TakeOpenedAddresses();
    EXPECT_EQ(ControlText(shell.settings, 1308), "brickfall.test");
    Click(shell.settings, 1308);
    EXPECT_EQ(TakeOpenedAddresses(), std::vector<std::string>{kDownloadPageUrl});
    Click(shell.settings, 1307);
    EXPECT_FALSE(WindowExists(shell.settings));
}

TEST(Help, IsOnePageThatFitsItsWindowAndIsReadOutWordForWord) {
    CabinetFixture cabinet;
    cabinet.Click(1013);
    EXPECT_EQ(AccessibleDescription(shell.help),
              "Left  /  Right: move the paddle\n"
              "Space: serve the sat\n"
              "P: pause\n"
              "Connect Pouch, then Play.\n"
              "Enter is 5,000 sats in one prompt.\n"
              "2,000 to the house.  3,000 to this week's pot.\n"
              "Three lives. No continues.\n"
              "Clear the wall. The sat gets faster.\n"
              "After the game, Record score writes the result on-chain (1 sat).\n"
              "Every game feeds the pot.\n"
              "Record score posts a signed row on the Brickfall watch.\n"
              "Every cabinet reads that, not a local list.\n"
              "ARC pays the top three each UTC week (50 / 30 / 20).\n"
              "Fewer than three: 60 / 40, or 100% if only one.\n"
              "Pouch balance is your wallet.\n"
              "Current weekly pot is the prize pool, not yours until a payout.");
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
    cabinet.Click(1017);
    EXPECT_EQ(ClientSize(shell.report), kReportClientSize);
    EXPECT_EQ(FocusedControl(shell.report), 1401);
    std::vector<std::string> boxes;
    AnswerMessageBoxes([&boxes](std::string_view title, std::string_view text) {
        boxes.push_back(std::string(title) + "|" + std::string(text));
        return true;
    });
    PasteText(std::string(2'001, 'x'));
    EXPECT_EQ(ControlText(shell.report, 1401), std::string(2'000, 'x'));
    Click(shell.report, 1402);
    EXPECT_EQ(boxes, std::vector<std::string>{std::string("Report|Connect Pouch and publish a @") +
                                              kPaymailDomain + " name first."});
    shell.run.busy = true;
    Click(shell.report, 1402);
    EXPECT_EQ(cabinet.Text(1007), "Already working...");
    EXPECT_EQ(boxes.size(), 1u);
    EXPECT_EQ(ControlText(shell.report, 1401).size(), 2'000u);
    Click(shell.report, 1403);
    EXPECT_FALSE(WindowExists(shell.report));
    AnswerMessageBoxes({});
}

}  // namespace
}  // namespace brickfall
