// The pages that replay runs, in a real browser: what they find, what they show, and that no text of
// strangers becomes more than text.
#include "page/page.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "audit/evidence_file.h"
#include "board/faces.h"
#include "cabinet/theme.h"
#include "messages/row.h"
#include "page/page_face.h"
#include "page/tape_columns.h"
#include "platform/window.h"
#include "tests/page/headless_browser.h"
#include "tests/page/headless_firefox.h"
#include "tests/support/picture_files.h"
#include "tests/support/recorded_run.h"
#include "viewer/scene.h"

namespace brickfall {
namespace {

constexpr std::size_t kLargestPage = 300'000;

std::string WhyNot() {
    if (const std::string why = WhyNoPages(); !why.empty()) return why;
    return FileExists(kBrowser) ? "" : "Debian's chromium is not installed";
}
#define NEEDS_PAGES_AND_BROWSER() \
    if (const std::string why = WhyNot(); !why.empty()) GTEST_SKIP() << why

PageRun RunOf(const RecordedRun& recorded) {
    return {.name = recorded.player.alias,
            .txid = std::string(64, 'a'),
            .verdict = "sound",
            .recorded = "-",
            .score = recorded.row["score"].get<int64_t>(),
            .tape = recorded.row["tape"].get<std::string>(),
            .seal = recorded.row["tape_hash"].get<std::string>()};
}

InputTape TapeOf(const PageRun& run) {
    std::vector<uint8_t> bytes;
    InputTape tape;
    EXPECT_TRUE(HexToBytes(run.tape, bytes));
    EXPECT_EQ(ReadTape(bytes, tape), TapeFault::kNone);
    return tape;
}

void OpenText(HeadlessBrowser& browser, const TempFolder& folder, const std::string& page) {
    const std::string path = folder.Path() + "/page.html";
    ASSERT_TRUE(WriteFile(path, page));
    browser.Open(path);
}

void OpenPage(HeadlessBrowser& browser, const TempFolder& folder, const std::vector<PageRun>& runs) {
    OpenText(browser, folder, MakePage("The week", runs));
}

// The page's script paints with the next frame.
constexpr char kFrame[] = "new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done)))";

void DragTo(HeadlessBrowser& browser, uint64_t tick_ms) {
    browser.Evaluate("bar.value = " + std::to_string(tick_ms) + "; bar.dispatchEvent(new Event('input')); " +
                     kFrame);
}

TEST(Page, FindsWhatARunIsAndWhereABentOneFails) {
    NEEDS_PAGES_AND_BROWSER();
    const TempFolder folder;
    HeadlessBrowser browser;
    const RecordedRun recorded("ada", 4, 3'000);
    const PageRun sound = RunOf(recorded);

    // As the program makes it, of a row.
    const std::string row = folder.Path() + "/row.json", made = folder.Path() + "/made.html";
    ASSERT_TRUE(WriteFile(row, DumpRow(recorded.row)));
    ChildProcess view(BRICKFALL_BINARY_DIR "/cabinet/brickfall-view", {row, "--page", made});
    ASSERT_EQ(view.Wait(), 0);
    EXPECT_LT(ReadFile(made).value_or("").size(), kLargestPage);
    browser.Open(made);
    EXPECT_EQ(browser.TextOf("name"), "ada");
    EXPECT_EQ(browser.TextOf("summary"), "This run is what its row says.");
    EXPECT_NE(browser.TextOf("findings").find("That is the recorded score.The seal is right"),
              std::string::npos)
        << browser.TextOf("findings");

    PageRun boasts = sound, reseals = sound, repeats = sound, babbles = sound;
    boasts.score += 1;
    reseals.seal = std::string(64, '0');
    InputTape tape = TapeOf(sound);
    const InputEvent twice = tape.events[tape.events.size() / 2];
    tape.events.insert(tape.events.begin() + static_cast<std::ptrdiff_t>(tape.events.size() / 2), twice);
    repeats.tape = TapeToHex(tape);
    repeats.seal = TapeHash(repeats.tape);
    babbles.tape = "no tape";
    const std::vector<PageRun> runs = {boasts, reseals, repeats, babbles, sound};
    const std::string found[] = {
        "that score is wrong.The seal is right",
        "That is the recorded score.The seal is wrong",
        "The replay fails at tick ",
        "There is no tape to replay.",
        "That is the recorded score.The seal is right",
    };
    OpenPage(browser, folder, runs);
    for (std::size_t i = 0; i < runs.size(); ++i) {
        browser.Evaluate("document.querySelectorAll('#runs button')[" + std::to_string(i) + "].click()");
        EXPECT_NE(browser.TextOf("findings").find(found[i]), std::string::npos) << browser.TextOf("findings");
        EXPECT_EQ(browser.TextOf("summary") == "This run is what its row says.", i == 4) << i;
        EXPECT_EQ(browser.Evaluate("player.hidden").get<bool>(), i == 3);
    }
    browser.Evaluate("document.querySelectorAll('#runs button')[2].click()");
    const std::string digits = browser
                                   .Evaluate(
                                       "findings.textContent.match(/fails at tick ([0-9,]+)/)[1]"
                                       ".replaceAll(',', '')")
                                   .get<std::string>();
    EXPECT_EQ(digits, std::to_string(twice.tick_ms / kTickMs));

    // What does not unpack to what the page says is damaged, and the other runs are not.
    const std::string page = MakePage("", std::vector<PageRun>(4, sound));
    const std::string bytes = "\"bytes\":";
    std::size_t at = 0;
    std::string bent;
    for (const std::string_view size : {"1", "2097152", "4294967296"}) {
        const std::size_t digits_at = page.find(bytes, at) + bytes.size();
        bent.append(page, at, digits_at - at).append(size);
        at = page.find_first_not_of("0123456789", digits_at);
    }
    OpenText(browser, folder, bent.append(page, at));
    for (int i = 0; i < 4; ++i) {
        browser.Evaluate("document.querySelectorAll('#runs button')[" + std::to_string(i) + "].click()");
        EXPECT_EQ(browser.TextOf("findings").find("This page is damaged") == 0, i < 3)
            << browser.TextOf("findings");
    }
    browser.BeforeScripts("delete window.DecompressionStream");
    OpenPage(browser, folder, {sound});
    EXPECT_NE(browser.TextOf("findings").find("too old to unpack"), std::string::npos);
}

// A picture of noise, with a text in it and behind it.
std::string NoisePng(int side) {
    std::minstd_rand random;
    std::string rows;
    for (int y = 0; y < side; ++y) {
        rows += '\0';
        for (int i = 0; i < 3 * side; ++i) rows += static_cast<char>(random() >> 8);
    }
    const auto w = static_cast<uint32_t>(side);
    std::string file = PngFile(w, w, 8, 2, false, Deflated(rows));
    return file.insert(33, PngChunk("tEXt", "Comment\0<script>hit=1</script>")) + "<script>hit=1</script>";
}

TEST(PageFace, KeepsNoByteOfTheFile) {
    const std::string noise = NoisePng(200);
    const std::optional<Image> face = ReadPageFace(noise, kFaceMaxSide);
    ASSERT_TRUE(face);
    EXPECT_EQ(std::pair(face->w, face->h), std::pair(kPageFaceSide, kPageFaceSide));
    const std::string made = PageFaceFile(*face);
    EXPECT_TRUE(made.starts_with("\xFF\xD8\xFF"));
    EXPECT_EQ(made.find("script"), std::string::npos);
    // The most that one can take: each pixel a colour of its own.
    const std::string most = PageFaceFile(ReadPageFace(NoisePng(kPageFaceSide), kFaceMaxSide).value());
    EXPECT_LT(most.size(), 4'000u);

    const Image clear = {16, 16, std::vector<uint32_t>(256, 0x00FFFFFF)};
    const uint32_t shown = ReadPageFace(PageFaceFile(clear), kFaceMaxSide).value().pixels[100];
    EXPECT_NEAR(shown >> 16 & 255, kFaceDiscColor.r, 4);
    EXPECT_NEAR(shown >> 8 & 255, kFaceDiscColor.g, 4);

    for (const std::string& file : {std::string("<script>hit=1</script>"), noise.substr(0, noise.size() / 2),
                                    PngFile(60'000, 60'000, 1, 0, false, Deflated("0"))}) {
        EXPECT_FALSE(ReadPageFace(file, kFaceMaxSide)) << file.substr(0, 16);
    }
    EXPECT_EQ(PageFaceFile({}), "");
}

TEST(TapeColumns, GiveBackWhateverBytesThereWere) {
    EXPECT_TRUE(rc::check([](const std::vector<uint8_t>& tape) {
        const std::vector<uint8_t> columns = TapeToColumns(tape);
        RC_ASSERT(columns.size() == tape.size());
        RC_ASSERT(ColumnsToTape(columns) == tape);
    }));
    // Two events, 3 and 300 ticks after the one before, and a byte that is none.
    const std::vector<uint8_t> tape = {1, 3, 32, 0, 32,   0,    2, 0, 0, 0, 48,
                                       0, 0, 0,  7, 0xF0, 0x12, 0, 0, 9, 5};
    EXPECT_EQ(TapeToColumns(tape), std::vector<uint8_t>({1, 3,         32, 0, 32, 0, 2, 0, 0, 0,  //
                                                         3, 300 - 256, 0,  1, 0,  0, 0, 0, 7, 9,  //
                                                         5}));
}

TEST(Page, TakesTextOfStrangersForTextAndLoadsNothing) {
    NEEDS_PAGES_AND_BROWSER();
    const TempFolder folder;
    HeadlessBrowser browser;
    PageRun run = RunOf(RecordedRun("ada"));
    const std::string hostile =
        "<img src=x onerror=hit=1></script><script>hit=1</script>@POLICY@<!--<script>&amp;'\"";
    run.name = run.verdict = run.txid = run.recorded = run.seal = hostile;
    PageRun shown = run;
    shown.face = PageFaceFile(ReadPageFace(NoisePng(64), kFaceMaxSide).value());
    OpenPage(browser, folder, {shown, run, shown});
    // At the head, and twice in the list, where the name stands beside it; of the second run the initial.
    EXPECT_EQ(browser.Evaluate("Promise.all([...document.images].map(image => image.decode().then(() => "
                               "[image.src.slice(0, 23), image.alt, image.naturalWidth].join(' '))))"),
              nlohmann::json({"data:image/jpeg;base64,  48", "data:image/jpeg;base64,  48",
                              "data:image/jpeg;base64, The picture of " + hostile + " 48"}));
    EXPECT_EQ(
        browser.Evaluate("[...document.querySelectorAll('.face')].map(face => face.textContent).join()"),
        ",<,,");
    OpenPage(browser, folder, {run, run});
    EXPECT_EQ(browser.TextOf("name"), hostile);
    EXPECT_EQ(browser.TextOf("verdict"), hostile);
    EXPECT_EQ(browser.Evaluate("[typeof hit, document.images.length, document.scripts.length].join()"),
              "undefined,0,3");
    for (const std::string_view attempt :
         {"fetch('https://example.invalid/').catch(() => 0)", "new Image().src = 'https://example.invalid/'",
          "document.body.append(Object.assign(document.createElement('script'), { text: 'hit = 1' }))"}) {
        EXPECT_NE(
            browser.Evaluate("new Promise(done => { addEventListener('securitypolicyviolation', event => "
                             "done(event.effectiveDirective), { once: true }); " +
                             std::string(attempt) + "; })"),
            "")
            << attempt;
    }
    EXPECT_EQ(browser.Evaluate("typeof hit"), "undefined");
}

TEST(Page, ShowsTheAuditorsReportAndTheSettlementAsText) {
    NEEDS_PAGES_AND_BROWSER();
    const TempFolder folder;
    HeadlessBrowser browser;
    const std::string hostile = "<img src=x onerror=hit=1>";
    RecordedRun bent("bob", 2, 2'000);
    bent.row["handle"] = hostile;  // unsigned
    SavedEvidence saved;
    for (const RecordedRun& run : {RecordedRun("ada"), bent}) {
        saved.evidence.push_back(run.Make());
        saved.pot.transactions.push_back(saved.evidence.back().entry_transaction);
    }
    saved.judged = saved.evidence.size();
    saved.all_rows_listed = saved.pot.all_listed = true;
    saved.pot.week_start = kTestWeek;
    const std::string file = folder.Path() + "/week.json", made = folder.Path() + "/made.html";
    const auto audit = [&] {
        ASSERT_TRUE(WriteFile(file, WriteEvidence(saved)));
        ChildProcess program(BRICKFALL_BINARY_DIR "/cabinet/brickfall-audit",
                             {"--file", file, "--page", made});
        ASSERT_EQ(program.Wait(), 1);
        browser.Open(made);
    };
    audit();
    EXPECT_EQ(browser.TextOf("name"), "ada");
    EXPECT_EQ(browser.Evaluate("[document.querySelectorAll('#runs button').length, told.hidden].join()"),
              "2,false");
    std::string report = browser.TextOf("report");
    const std::string week = kTestWeekLabel;
    for (const std::string& line : std::vector<std::string>{
             "2 rows: 1 sound, 1 unsound", "Settlement of " + week, "from 2 entries",
             "pay to    " + MakePlayer("ada").pay_addr, "not sound: signature wrong", "(" + hostile + ", "}) {
        EXPECT_NE(report.find(line), std::string::npos) << line << "\n" << report;
    }
    EXPECT_EQ(browser.Evaluate("[typeof hit, document.images.length].join()"), "undefined,0");

    saved.all_rows_listed = false;
    audit();
    report = browser.TextOf("report");
    EXPECT_NE(report.find("No settlement of " + week + ": not every record is listed."), std::string::npos)
        << report;
}

TEST(Page, ObeysKeysAsTheWindowDoes) {
    NEEDS_PAGES_AND_BROWSER();
    const TempFolder folder;
    HeadlessBrowser browser;
    const PageRun run = RunOf(RecordedRun("ada", 4, 3'000));
    const Course course(TapeOf(run));
    OpenPage(browser, folder, {run});
    const auto press = [&browser](std::string_view key) {
        browser.Evaluate("document.dispatchEvent(new KeyboardEvent('keydown', { key: '" + std::string(key) +
                         "' })); " + kFrame);
        return browser.Evaluate("Number(bar.value)").get<uint64_t>();
    };
    EXPECT_EQ(press("ArrowRight"), kTickMs);
    EXPECT_EQ(press("ArrowRight"), 2 * kTickMs);
    EXPECT_EQ(press("ArrowLeft"), kTickMs);
    EXPECT_EQ(press("PageDown"), course.NextEvent(kTickMs));
    EXPECT_EQ(press("End"), course.Marks().front().tick_ms);
    EXPECT_EQ(press("PageUp"), course.PreviousEvent(course.Marks().front().tick_ms));
    EXPECT_EQ(press("Home"), 0u);
    for (int i = 0; i < 12; ++i) press("ArrowDown");
    EXPECT_EQ(browser.TextOf("speed"), "1/8\u00d7");
    for (int i = 0; i < 12; ++i) press("ArrowUp");
    EXPECT_EQ(browser.TextOf("speed"), "64\u00d7");
    EXPECT_EQ(browser.TextOf("play"), "Play");
    press(" ");
    browser.Evaluate(
        "new Promise(done => { const look = () => play.textContent === 'Play' ? done(1) :"
        " setTimeout(look, 5); look(); })");  // to the end
    EXPECT_EQ(browser.Evaluate("Number(bar.value)").get<uint64_t>(), course.LengthMs());
    EXPECT_EQ(browser.TextOf("lives"), "0");
}

TEST(Page, HoldsInFirefox) {
    if (const std::string why = WhyNoPages(); !why.empty()) GTEST_SKIP() << why;
    if (!FileExists(kFirefox)) GTEST_SKIP() << "Debian's firefox-esr is not installed";
    const TempFolder folder;
    HeadlessFirefox browser;
    PageRun run = RunOf(RecordedRun("ada"));
    run.face = PageFaceFile(ReadPageFace(NoisePng(64), kFaceMaxSide).value());
    PageRun boasts = run;
    boasts.score += 1;
    const std::string path = folder.Path() + "/page.html";
    ASSERT_TRUE(WriteFile(path, MakePage("The week", std::vector<PageRun>{boasts, run})));
    browser.Open(path);
    EXPECT_NE(browser.TextOf("findings").find("that score is wrong.The seal is right"), std::string::npos)
        << browser.TextOf("findings");
    browser.Evaluate("document.querySelectorAll('#runs button')[1].click()");
    EXPECT_EQ(browser.TextOf("summary"), "This run is what its row says.");
    EXPECT_EQ(browser.Evaluate("Promise.all([...document.images].map(image => image.decode()))").size(), 3u);
    EXPECT_EQ(browser.Evaluate(
                  "new Promise(done => { addEventListener('securitypolicyviolation', event => "
                  "done(event.effectiveDirective)); fetch('https://example.invalid/').catch(() => 0); })"),
              "connect-src");
    for (int i = 0; i < 12; ++i)
        browser.Evaluate("document.dispatchEvent(new KeyboardEvent('keydown', { key: 'ArrowUp' }))");
    browser.Evaluate(
        "new Promise(done => { play.click(); const look = () => Number(bar.value) === Number(bar.max) ? "
        "done(1) :"
        " setTimeout(look, 5); look(); })");  // to the end
    EXPECT_EQ(browser.Evaluate("Number(bar.value)").get<uint64_t>(), Course(TapeOf(run)).LengthMs());
    EXPECT_EQ(browser.TextOf("lives"), "0");
    // What it paints is no blank: the field's ground, the frame and the bricks at least.
    EXPECT_GT(browser
                  .Evaluate("new Set(new Uint32Array(well.getContext('2d').getImageData(0, 0, well.width,"
                            " well.height).data.buffer)).size")
                  .get<int>(),
              10);
}

// Where both pictures are of one colour around a place, that is the same colour: edges are smoothed apart.
TEST(Page, PaintsWhatTheDesktopPaints) {
    NEEDS_PAGES_AND_BROWSER();
    const TempFolder folder;
    HeadlessBrowser browser;
    browser.SetSize(800, 1'000);
    const PageRun run = RunOf(RecordedRun("ada", 4, 3'000));
    Course course(TapeOf(run));
    OpenPage(browser, folder, {run});
    MakeTheme();
    for (const uint64_t tick_ms :
         {uint64_t{0}, course.LengthMs() / 2 / kTickMs * kTickMs, course.LengthMs()}) {
        DragTo(browser, tick_ms);
        const nlohmann::json shown = browser.Evaluate(
            "[well.width, well.height, [...new Uint32Array(well.getContext('2d').getImageData(0, 0, "
            "well.width,"
            " well.height).data.buffer)]]");
        const Size size = {shown[0].get<int>(), shown[1].get<int>()};
        const Image picture =
            DrawToImage(size, [&](Canvas& canvas) { PaintScene(canvas, SceneAt(course, tick_ms), 0); });
        ASSERT_EQ(Size({picture.w, picture.h}), size);
        const auto pixels = shown[2].get<std::vector<uint32_t>>();  // of bytes R, G, B, A
        const auto here = [&](int x, int y) {
            return picture.pixels[static_cast<std::size_t>(y * size.w + x)];
        };
        const auto there = [&](int x, int y) {
            const uint32_t pixel = pixels[static_cast<std::size_t>(y * size.w + x)];
            return 0xFF000000u | (pixel & 0xFF) << 16 | (pixel & 0xFF00) | (pixel >> 16 & 0xFF);
        };
        const int field_edge = WellField({}, FittedCell(size)).Right() + 10;
        int compared = 0, different = 0, colours = 0;
        uint32_t last = 0;
        for (int y = 1; y < size.h - 1; y += 3) {
            for (int x = 1; x < field_edge; x += 3) {
                bool flat = true;
                for (int i = 0; i < 9 && flat; ++i) {
                    const int nx = x + i % 3 - 1, ny = y + i / 3 - 1;
                    flat = here(nx, ny) == here(x, y) && there(nx, ny) == there(x, y);
                }
                if (!flat) continue;
                ++compared;
                different += here(x, y) != there(x, y) ? 1 : 0;
                colours += here(x, y) != last ? 1 : 0;
                last = here(x, y);
            }
        }
        EXPECT_GT(compared, 10'000) << tick_ms;
        EXPECT_GT(colours, 50) << tick_ms;
        // Letters stand a little apart in another program's text.
        EXPECT_LE(different, tick_ms == course.LengthMs() ? compared / 200 : 0)
            << tick_ms << ", of " << compared;
    }
    DropTheme();
}

// Presses at random, eight a second, as many as a tape holds: near seven hours of them.
InputTape FullTape() {
    std::minstd_rand random;
    InputTape tape;
    ResetTape(tape, 32, 32);
    uint64_t now_ms = 0;
    bool held[2] = {};
    while (tape.events.size() < kTapeMaxEvents) {
        now_ms += random() % 17 * kTickMs;
        const auto key = random() % 2;
        held[key] = !held[key];
        const uint8_t down[] = {kInputLeftDown, kInputRightDown}, up[] = {kInputLeftUp, kInputRightUp};
        AppendEvent(tape, now_ms, held[key] ? down[key] : up[key]);
    }
    return tape;
}

TEST(Page, DragsThroughAnHour) {
    NEEDS_PAGES_AND_BROWSER();
    const TempFolder folder;
    HeadlessBrowser browser;
    int64_t score = 0;
    const InputTape tape = PlayedTape(3'600'000 / kTickMs, 9, score);
    const PageRun run = RunOf(RecordedRun("ada", tape, score));
    PageRun full = run;
    full.tape = TapeToHex(FullTape());
    full.seal = TapeHash(full.tape);
    EXPECT_LT(MakePage("", {{full}}).size(), kLargestPage);
    OpenPage(browser, folder, {full, run});
    EXPECT_NE(browser.TextOf("findings").find("The tape is full at the score 0"), std::string::npos);
    EXPECT_NE(browser.TextOf("findings").find("The seal is right"), std::string::npos);
    browser.Evaluate("document.querySelectorAll('#runs button')[1].click()");
    EXPECT_EQ(browser.TextOf("summary"), "This run is what its row says.");
    EXPECT_LT(MakePage("", {{run}}).size(), kLargestPage / 4);
    Replay replay(tape);
    const uint64_t length_ms = tape.events.back().tick_ms;
    for (uint64_t i = 0; i <= 60; ++i) {
        // To and fro.
        const uint64_t part = i % 2 == 0 ? i : 60 - i;
        const uint64_t tick_ms = length_ms * part / 60 / kTickMs * kTickMs;
        DragTo(browser, tick_ms);
        replay.GoTo(tick_ms);
        const nlohmann::json shown = browser.Evaluate(
            "[bar, { value: score.textContent.replaceAll(',', '') }, { value: level.textContent }]"
            ".map(each => Number(each.value))");
        EXPECT_EQ(shown, nlohmann::json({tick_ms, replay.Game().score, replay.Game().level})) << i;
    }
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", /*overwrite=*/0);
    ::testing::InitGoogleTest(&count, arguments);
    const brickfall::Platform platform(count, arguments);
    return RUN_ALL_TESTS();
}
