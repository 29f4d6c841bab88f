// Films, single pictures and posters: the same each time, whole or not there.
#include "viewer/film.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <tuple>

#include "base/files.h"
#include "cabinet/images.h"
#include "cabinet/theme.h"
#include "cabinet/tune_rendering.h"
#include "messages/row.h"
#include "tests/support/child_process.h"
#include "tests/support/pixels.h"
#include "tests/support/recorded_run.h"
#include "tests/support/temp_folder.h"
#include "viewer/poster.h"

namespace brickfall {
namespace {

const std::string kProgram = BRICKFALL_BINARY_DIR "/cabinet/brickfall-view";

std::unique_ptr<OpenRun> PlayedRun(uint64_t ticks = 500) {
    int64_t score = 0;
    WatchedRun run;
    run.tape = PlayedTape(ticks, 1, score);
    run.audit = JudgeRow(RecordedRun("ada", *run.tape, score).Make());
    return OpenRunOf(run);
}

// A recorded row in a folder of its own, and the program on it, with a PATH of the test's.
struct Exporter {
    Exporter() { EXPECT_TRUE(WriteFile(row, DumpRow(RecordedRun("ada", 1, 300).row))); }
    int Run(std::vector<std::string> arguments, const std::string& path = "") const {
        arguments.insert(arguments.begin(), row);
        const std::string before = ::getenv("PATH");
        if (!path.empty()) ::setenv("PATH", path.c_str(), 1);
        ChildProcess child(kProgram, arguments);
        ::setenv("PATH", before.c_str(), 1);
        return child.Wait();
    }
    // A program of that name in a folder, which is given.
    std::string StandIn(const std::string& script) const {
        const std::string bin = folder.Path() + "/bin";
        MakeFolders(bin);
        EXPECT_TRUE(WriteFile(bin + "/ffmpeg", "#!/bin/sh\n" + script + "\n"));
        ::chmod((bin + "/ffmpeg").c_str(), 0700);
        return bin + ":/usr/bin:/bin";
    }
    std::set<std::string> Files() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
            names.insert(entry.path().filename());
        names.erase("bin");
        return names;
    }
    const TempFolder folder;
    const std::string row = folder.Path() + "/row.json";
};

TEST(Film, PaintsTheSameFramesEachTimeInEverySize) {
    MakeTheme();
    const std::unique_ptr<OpenRun> run = PlayedRun();
    for (const Size size : {Size{320, 320}, Size{333, 321}, Size{1'280, 720}, Size{3'840, 2'160}}) {
        FilmFrames first(*run, nullptr, {.size = size}), second(*run, nullptr, {.size = size});
        ASSERT_GT(first.Count(), 60u);
        const std::size_t last = first.Count() - 1;
        const Image middle = first.Paint(last / 2);
        EXPECT_EQ(middle.w, size.w);
        EXPECT_TRUE(HasColor(middle, {0, 0, size.w, size.h}, Rgb(0x38D48C))) << "the paddle";
        // Whatever was painted before, also in the form of a film.
        for (const std::size_t frame : {last, std::size_t{0}, last / 2}) second.PaintYuv(frame);
        EXPECT_EQ(second.Paint(last / 2), middle) << size.w;
        const std::vector<uint8_t> yuv = second.PaintYuv(last);
        EXPECT_EQ(yuv, first.PaintYuv(last));
        const auto halves = static_cast<std::size_t>((size.w + 1) / 2 * ((size.h + 1) / 2));
        EXPECT_EQ(yuv.size(), static_cast<std::size_t>(size.w * size.h) + 2 * halves);
    }
    DropTheme();
}

TEST(Film, ShowsThePartThatIsAskedForAndStaysOnItsEnd) {
    const std::unique_ptr<OpenRun> run = PlayedRun();
    const uint64_t length = run->course.LengthMs();
    const auto frames = [&run](uint64_t from_ms, uint64_t for_ms) {
        return FilmFrames(*run, nullptr, {.size = {320, 320}, .from_ms = from_ms, .for_ms = for_ms});
    };
    EXPECT_EQ(frames(0, 0).LengthMs(), length + 3'000);
    EXPECT_EQ(frames(0, 0).LostAtMs(), length);
    EXPECT_EQ(frames(1'000, 2'000).Count(), 120u);
    EXPECT_GT(frames(1'000, 2'000).LostAtMs(), 2'000u);
    EXPECT_EQ(frames(length + 99, 0).LengthMs(), 3'000u);
}

TEST(Film, CarriesTheTuneFromItsBeginningAndTheJingleAtTheEnd) {
    std::set<std::pair<int64_t, uint32_t>> on;
    for (const TimedMessage& sent : RecordSound(2'000, 1'500)) {
        if ((sent.message & 0xF0) == 0x90) on.insert({sent.at_ms, sent.message & 0xFFFF});
    }
    // The tune's first notes, of two units of 118 ms each; and the jingle's: 72, 67, 64, 57.
    for (const auto& [at_ms, message] :
         {std::pair(0, 0x4590), std::pair(236, 0x4890), std::pair(1'500, 0x4891), std::pair(1'590, 0x4391),
          std::pair(1'680, 0x4091), std::pair(1'770, 0x3991)})
        EXPECT_TRUE(on.contains({at_ms, static_cast<uint32_t>(message)})) << at_ms;
}

TEST(Film, IsTheSameFileTwiceOrNoFileAtAll) {
    const Exporter exporter;
    const auto file = [&exporter](const std::string& name) { return exporter.folder.Path() + "/" + name; };
    for (const char* const name : {"a.mkv", "b.mkv", "c.mp4"})
        EXPECT_EQ(exporter.Run({"--export", file(name), "--for", "1", "--size", "320x321"}), 0) << name;
    const std::string film = ReadFile(file("a.mkv")).value_or("");
    EXPECT_GT(film.size(), 5'000u);
    EXPECT_TRUE(film == ReadFile(file("b.mkv")).value_or(""));
    const std::set<std::string> before = exporter.Files();
    EXPECT_EQ(before, (std::set<std::string>{"row.json", "a.mkv", "b.mkv", "c.mp4"}));

    // Ctrl-C comes until it is taken: the thread sanitizer is late with one that another thread was given.
    const std::tuple<const char*, const char*, int> rows[] = {
        {"not installed", "", 1},
        {"Ctrl-C", "while kill -INT $PPID; do :; done", 130},
        {"it fails", "echo the disk is full >&2; exit 1", 1},
        {"it writes nothing", "cat <&3 >/dev/null & exec cat >/dev/null", 1},
    };
    for (const auto& [what, script, code] : rows) {
        const std::string path = *script == '\0' ? "/nowhere" : exporter.StandIn(script);
        EXPECT_EQ(exporter.Run({"--export", file("d.mkv"), "--for", "1"}, path), code) << what;
        EXPECT_EQ(exporter.Files(), before) << what;
    }
    EXPECT_EQ(exporter.Run({"--export", file("no/folder.mkv")}), 1);
}

TEST(Film, ComesAsSinglePicturesToo) {
    const Exporter exporter;
    const std::string folder = exporter.folder.Path() + "/frames";
    ASSERT_EQ(exporter.Run({"--frames", folder, "--for", "0.05", "--size", "400x400"}), 0);
    for (const char* const name : {"frame-000001.png", "frame-000003.png"}) {
        const auto picture = DecodeImage(ReadFile(folder + "/" + name).value_or(""), 400);
        ASSERT_TRUE(picture.has_value()) << name;
        EXPECT_EQ(picture->h, 400);
    }
    EXPECT_FALSE(FileExists(folder + "/frame-000004.png"));
}

TEST(Poster, ShowsTheRunAndTheCodeOfItsTransaction) {
    MakeTheme();
    const std::unique_ptr<OpenRun> run = PlayedRun(3'000);
    const Image poster = DrawPoster(*run);
    EXPECT_EQ(poster.w, 1'200);
    EXPECT_EQ(poster.h, 630);
    EXPECT_EQ(DrawPoster(*run), poster);
    // Light ground and dark modules stand apart in a corner of their own; none without a transaction.
    const Rect code = {1'200 - 36 - 168, 26, 168, 168};
    const Color paper = Rgb(0xF4FFF8);
    EXPECT_GT(Inked(poster, code, paper), 168 * 168 / 10);
    EXPECT_LT(Inked(poster, code, paper), 168 * 168 / 2);
    run->run.audit.txid.clear();
    EXPECT_FALSE(HasColor(DrawPoster(*run), code, paper));
    DropTheme();
}

}  // namespace
}  // namespace brickfall
