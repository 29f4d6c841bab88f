// The windows beside the main one: their places, their texts, and the board's picture.
#include <gtest/gtest.h>

#include "board/board_load.h"
#include "board/local_scores.h"
#include "cabinet/board_window.h"
#include "cabinet/face_drawing.h"
#include "cabinet/help_window.h"
#include "cabinet/private_messages.h"
#include "cabinet/report_window.h"
#include "cabinet/shell_state.h"
#include "cabinet/theme.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "tests/support/picture_files.h"
#include "tests/support/signed_rows.h"

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
    const Image shown = GrabWindow(shell.settings);
    const int density = shown.w / ClientSize(shell.settings).w;
    for (const int id : {1303, 1304}) {  // the handle is higher than the groove
        const Rect bar = ControlRect(shell.settings, id);
        const Rect above = {bar.x * density, (bar.y + bar.h / 2 - 4) * density, bar.w * density, 1};
        const int handle = above.w - Inked(shown, above, kAccentColor);
        EXPECT_TRUE(handle >= 6 * density && handle <= 20 * density) << handle;
    }
    TakeOpenedAddresses();
    EXPECT_EQ(ControlText(shell.settings, 1308), "brickfall.test");
    FocusControl(shell.settings, 1308);
    TypeText("\n");
    PumpMessages();
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
    const Image page = DrawToImage({760, 868}, [](Canvas& canvas) { PaintHelp(canvas, ScrollHelp()); });
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

constexpr Color kPictureColor = Rgb(0x2040C0), kDiscColor = Rgb(0x241A0A);

Image PaintedBoard(const BoardView& view) {
    MakeTheme();
    return DrawToImage(kBoardWindowSize,
                       [&view](Canvas& canvas) { PaintBoard(canvas, view, ScrollBoard(view)); });
}

ScoreRow Row(const std::string& handle, int64_t score) {
    ScoreRow row;
    row.handle = handle;
    row.score = score;
    return row;
}

TEST(BoardWindow, PutsTheBestAboveTheWeek) {
    BoardView view;
    view.best = Row("ada", 900);
    view.has_best = true;
    view.rows = {Row("ada", 900), Row("bob", 80)};
    view.my_key = "bob";
    const Image image = PaintedBoard(view);
    const Color gold_row = BlendColor(kPanelColor, kGoldColor, 28);
    const Color own_row = BlendColor(kPanelColor, kAccentColor, 40);
    // Best row 46 to 96, rule at 110, week from 124: its rows begin at 204.
    const std::pair<Point, Color> pixels[] = {
        {{250, 50}, gold_row},      {{21, 70}, kGoldColor},  // a pen of two pixels
        {{270, 110}, kBorderColor}, {{270, 190}, kBorderColor}, {{250, 208}, kPanelColor},
        {{20, 230}, kGoldColor},    {{250, 262}, own_row},      {{20, 284}, kBorderColor}};
    for (const auto& [at, color] : pixels)
        EXPECT_EQ(PixelOf(image, at.x, at.y), color) << at.x << "," << at.y;
    EXPECT_TRUE(HasColor(image, {400, 258, 120, 50}, kAccentColor));  // its score

    view.my_key = "ada";  // gold stays gold above the week
    EXPECT_EQ(PixelOf(PaintedBoard(view), 250, 50), gold_row);
    view.best.score = 0;                                        // never on show
    EXPECT_EQ(PixelOf(PaintedBoard(view), 250, 100), own_row);  // rows from 96
}

TEST(BoardWindow, ReadsItselfOutAndSaysWhyItIsEmpty) {
    const CabinetFixture cabinet;
    BoardView view;
    const auto read_out = [&] {
        const WindowId board = OpenBoardWindow(cabinet.main, view);
        const std::string text = AccessibleDescription(board);
        DestroyWindow(board);
        return text;
    };
    EXPECT_EQ(read_out(), "Top scores for this week.\nNo scores posted yet.");
    const Image empty = PaintedBoard(view);
    view.message = "No scores for this week yet.";
    EXPECT_EQ(read_out(), "Top scores for this week.\nNo scores for this week yet.");
    EXPECT_NE(PaintedBoard(view).pixels, empty.pixels);
    view.best = Row("ada", 900);
    view.has_best = true;
    view.rows = {Row("bob", 80), Row("cy", 7)};
    EXPECT_EQ(read_out(), "Highest Score Ever: ada 900\nTop scores for this week.\n1. bob 80\n2. cy 7\n");
}

TEST(BoardWindow, CutsLongNamesAndManyRows) {
    BoardView view;
    for (int i = 0; i < 20; ++i) view.rows.push_back(Row(std::string(200, 'W'), INT64_MAX - i));
    const Image image = PaintedBoard(view);
    // Nothing of the name comes into the score's column, which begins 140 pixels before the row's end.
    EXPECT_FALSE(HasColor(image, {540 - 20 - 140, 100, 7, 40}, kTextColor));
    EXPECT_TRUE(HasColor(image, {150, 100, 200, 40}, kTextColor));
    EXPECT_EQ(PixelOf(image, 250, 96 + 11 * 54 + 4), kPanelColor);  // the last row that fits whole
    EXPECT_EQ(Inked(image, {0, 788, 540, 90}, kBgColor), 0) << "the strip with Close";
    // A score too long begins with its leading digits, and ends before its last.
    const auto column = [](int64_t score) {
        BoardView one;
        one.rows = {Row("ada", score)};
        return PaintedBoard(one);
    };
    const Image full = column(9'223'372'036'854'775'807);
    const Rect first_digit = {540 - 20 - 132, 100, MeasureText(theme.font_mono, "9").w, 40};
    EXPECT_NE(Inked(full, first_digit, kPanelColor),
              Inked(column(1'223'372'036'854'775'807), first_digit, kPanelColor));
    EXPECT_EQ(full.pixels, column(9'223'372'036'854'775'000).pixels);
}

TEST(BoardWindow, ShowsAPictureOrTheInitialOnADisc) {
    const auto face = [](std::string_view key) {
        return DrawToImage({40, 40}, [key](Canvas& canvas) {
            canvas.Fill({0, 0, 40, 40}, kPanelColor);
            DrawFace(canvas, 0, 0, key);
            canvas.Pixel({39, 39}, kGoldColor);
        });
    };
    BuildFaceBitmaps({{"ada", {1, 1, {0xFF2040C0}}}});
    EXPECT_EQ(PixelOf(face("ada"), 19, 19), kPictureColor);
    EXPECT_EQ(PixelOf(face("ada"), 0, 0), kPanelColor) << "it is round";
    EXPECT_EQ(PixelOf(face("ada"), 39, 39), kGoldColor) << "what comes after it is not";
    EXPECT_NEAR(PixelOf(face("ada"), 20, 0).r, 0xA8, 32) << "the ring's";
    BuildFaceBitmaps({});  // a new board: the old faces are gone
    for (const std::string_view key : {"ada", "1AddressOfNobody", ""}) {
        EXPECT_EQ(PixelOf(face(key), 19, 5), kDiscColor) << key;
        EXPECT_TRUE(HasColor(face(key), {8, 8, 22, 22}, Rgb(0xF6E8C8))) << key;
    }
    EXPECT_EQ(face("\xD0\xB6").pixels, face("\xD0\x96").pixels);  // a small letter of another script
}

TEST(BoardWindow, OpensAtThePlayersOwnRowAndScrollsByEveryMeans) {
    CabinetFixture cabinet(CabinetFixture::Wallet::kBound);
    auto board = std::make_unique<BoardResult>();
    for (int i = 0; i < 20; ++i) board->rows.push_back(Row(i == 12 ? "ada" : "bob", 900 - i));
    cabinet.Post(kMsgBoardDone, 0, MakePayload(std::move(board)));
    const WindowId window = shell.board;
    const Color own = BlendColor(kPanelColor, kAccentColor, 40);
    // From 96 on there is room for 692 pixels of 1,080. Where the player's row begins, of those.
    const auto own_row = [&] {
        const Image shown = GrabWindow(window);
        const int density = shown.w / ClientSize(window).w;
        for (int y = 0; y < 692; ++y) {
            if (PixelOf(shown, 250 * density, (96 + y + 1) * density) == own) return y;
        }
        return -1;
    };
    constexpr int kTop = 12 * 54, kLast = 1'080 - 692;
    EXPECT_EQ(own_row(), (692 - 54) / 2) << "in the middle";
    const struct {
        const char* name;
        std::function<void()> move;
        int offset;
    } moves[] = {
        {"End", [&] { cabinet.TapKey(Key::kEnd); }, kLast},
        {"the end once more", [&] { PressKey(window, Key::kEnd); }, kLast},
        {"up", [&] { PressKey(window, Key::kUp); }, kLast - 54},
        {"down", [&] { PressKey(window, Key::kDown); }, kLast},
        {"a notch", [&] { TurnWheel(window, 1); }, kLast - 54},
        {"a third of one", [&] { TurnWheel(window, 1.0 / 3); }, kLast - 72},
        {"a touchpad", [&] { TurnWheel(window, 0.5, 7); }, kLast - 79},
        {"back", [&] { TurnWheel(window, -0.5, -100); }, kLast},
        {"page up", [&] { PressKey(window, Key::kPageUp); }, 0},
        {"page down", [&] { PressKey(window, Key::kPageDown); }, kLast},
    };
    PressKey(window, Key::kEnd);
    for (const auto& [name, move, offset] : moves) {
        move();
        EXPECT_EQ(own_row(), offset == 0 ? -1 : kTop - offset) << name;  // there only its fade is
    }
    PressKey(window, Key::kHome);
    EXPECT_EQ(PixelShown(window, 250, 98), kPanelColor) << "no fade above the first row";
    PressKey(window, Key::kEnd);
    EXPECT_NE(PixelShown(window, 250, 98), kPanelColor);
    Click(window, 1102);
    EXPECT_FALSE(WindowExists(window));
}

// From the file that a player publishes to the pixels of the window.
TEST(BoardWindow, ShowsThePictureThatALoadBrings) {
    std::string row(1, '\0'), rows;
    for (int x = 0; x < 600; ++x) row += "\x20\x40\xC0";
    for (int y = 0; y < 600; ++y) rows += row;
    CabinetFixture cabinet(CabinetFixture::Wallet::kBound);
    sandbox::Sandbox& box = cabinet.services.box;
    box.Publish(IdentityOf(MakePlayer("ada"), std::string(kOrdinalsContentBaseUrl) + "/content/a"));
    RecordLocalScore(ui_doc, 900, "", [] {});
    const auto best_face = [&](const std::string& file) {
        box.ClearFaults();
        box.AddFault(sandbox::Service::kContent, ReplyTo("/content/a", file));
        cabinet.Click(1012);
        return PixelShown(shell.board, 20 + 16 + 19, 46 + 4 + 5);
    };
    EXPECT_EQ(best_face(PngFile(600, 600, 8, 2, false, Deflated(rows))), kPictureColor);
    EXPECT_EQ(best_face("no picture at all, but long enough to be kept"), kDiscColor);
}

}  // namespace
}  // namespace brickfall
