// main.cpp - brickfall-view: shows recorded runs. It opens no wallet and no store, and writes nothing but
// what it is asked to.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "audit/display_text.h"
#include "audit/page_content.h"
#include "audit/report.h"
#include "base/build_number.h"
#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "cabinet/images.h"
#include "cabinet/sound.h"
#include "cabinet/theme.h"
#include "net/http_client.h"
#include "page/page.h"
#include "page/page_face.h"
#include "platform/desktop.h"
#include "platform/image.h"
#include "platform/midi_out.h"
#include "platform/window.h"
#include "viewer/film.h"
#include "viewer/interrupt.h"
#include "viewer/options.h"
#include "viewer/poster.h"
#include "viewer/run_source.h"
#include "viewer/scene.h"
#include "viewer/viewer_window.h"

namespace brickfall {
namespace {

constexpr std::size_t kErrorColumns = 300;
constexpr int kInterrupted = 130;

int Fail(const std::string& why, int code = 1) {
    std::fprintf(stderr, "brickfall-view: %s\n", SafeText(why, kErrorColumns).c_str());
    return code;
}

void NoProgress(const char*, std::size_t, std::size_t) {}

// The best run that a file or a transaction holds.
bool LoadOne(const std::string& argument, WatchedRun& run, std::string& error) {
    LoadedRuns loaded = LoadRuns(SourceOf(argument), NoProgress);
    error = loaded.error;
    if (!error.empty()) return false;
    run = std::move(loaded.runs.front());
    if (run.tape) return true;
    error = argument + ": nothing to play: " + VerdictLine(run.audit);
    return false;
}

int Watch(int count, char** arguments, const ViewOptions& options) {
    if (!DisplayAvailable()) return Fail("there is no display to open a window on");
    const RunSource source =
        options.run.empty() ? RunSource{.kept_file = options.keep} : SourceOf(options.run);
    std::string error;
    WatchedRun second;
    if (!options.second.empty() && !LoadOne(options.second, second, error)) return Fail(error);
    // What a file cannot give is told at once, where the program was started.
    LoadedRuns loaded;
    if (!source.file.empty()) {
        loaded = LoadRuns(source, NoProgress);
        if (!loaded.error.empty()) return Fail(loaded.error);
    }
    const Platform platform(count, arguments);
    LoadLogo(LogoFile());
    const WindowId window = OpenViewer();
    if (window == 0) return Fail("cannot open a window");
    viewer.source = source;
    viewer.inputs = options.inputs;
    if (second.tape) viewer.waiting_ghost = std::move(second);
    StartSound(OpenMidiOut);
    ShowWindow(window);
    if (source.file.empty()) {
        LoadSource();
    } else {
        ShowLoaded(std::move(loaded));
    }
    const int code = RunMessageLoop();
    DropLogo();
    return code;
}

// "film: 43 %, 12 s left", rewritten in place.
FilmProgress ShowProgress(const char* what) {
    if (::isatty(STDERR_FILENO) != 1) return [](std::size_t, std::size_t) {};
    return [what, began = MonotonicNs(), shown = -1](std::size_t done, std::size_t of) mutable {
        const int percent = static_cast<int>(done * 100 / std::max<std::size_t>(of, 1));
        if (percent == std::exchange(shown, percent)) return;
        if (done == of || done == 0) {
            std::fprintf(stderr, "\r\x1b[K");
            return;
        }
        const int64_t left_ns =
            (MonotonicNs() - began) / static_cast<int64_t>(done) * static_cast<int64_t>(of - done);
        std::fprintf(stderr, "\r\x1b[K%s: %d %%, %s left", what, percent,
                     PlayedText(static_cast<uint64_t>(left_ns / 1'000'000) + 999).c_str());
    };
}

int Export(int count, char** arguments, const ViewOptions& options) {
    std::string error;
    WatchedRun first, second;
    if (!LoadOne(options.run, first, error)) return Fail(error);
    if (!options.second.empty() && !LoadOne(options.second, second, error)) return Fail(error);
    WatchForInterrupt();
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);  // pictures need no display
    ::setenv("QT_SCALE_FACTOR", "1", 1);
    const Platform platform(count, arguments);
    MakeTheme();
    LoadLogo(LogoFile());
    const std::unique_ptr<OpenRun> run = OpenRunOf(first);
    const std::unique_ptr<OpenRun> ghost = second.tape ? OpenRunOf(second) : nullptr;
    bool done = true;
    std::string note;
    if (!options.poster.empty() && !SavePng(DrawPoster(*run), options.poster)) {
        done = false;
        error = "cannot write " + options.poster;
    }
    const FilmCut cut = {options.size, options.from_ms, options.for_ms, options.inputs};
    if (done && !options.film.empty()) {
        FilmFrames frames(*run, ghost.get(), cut);
        done = ExportFilm(frames, options.film, ShowProgress("film"), note, error);
    }
    if (done && !options.frames.empty()) {
        FilmFrames frames(*run, ghost.get(), cut);
        done = ExportFrames(frames, options.frames, ShowProgress("pictures"), note, error);
    }
    DropTheme();
    DropLogo();
    if (Interrupted()) return kInterrupted;
    if (!note.empty()) Fail(note);
    return done ? 0 : Fail(error);
}

// Of the run that is named, or of all.
int WritePage(const ViewOptions& options) {
    if (const std::string why = WhyNoPages(); !why.empty()) return Fail(why);
    const RunSource source =
        options.run.empty() ? RunSource{.kept_file = options.keep} : SourceOf(options.run);
    const LoadedRuns loaded = LoadRuns(source, NoProgress);
    if (!loaded.error.empty()) return Fail(loaded.error);
    if (!loaded.note.empty()) Fail(loaded.note);
    std::vector<PageRun> runs;
    for (const WatchedRun& run : loaded.runs) {
        runs.push_back(MakePageRun(run.audit, run.tape_text, run.seal));
    }
    if (source.file.empty()) AddFaces(ReadPageFace, PageFaceFile, NoProgress, runs);
    if (!ReplaceFile(options.page, MakePage(loaded.title, runs))) return Fail("cannot write " + options.page);
    return 0;
}

int Main(int count, char** arguments) {
    ViewOptions options;
    std::string error;
    const std::span<char* const> given(arguments, static_cast<std::size_t>(count));
    if (!ParseViewOptions(given.subspan(1), options, error)) return Fail(error + "; --help tells of all", 2);
    if (options.help) return std::fputs(kViewHelp, stdout) < 0 ? 1 : 0;
    if (options.version) {
        std::printf("brickfall-view %s\n", FormatBuild(kBuildNumber).c_str());
        return 0;
    }
    StartNetwork();
    const int code = !options.page.empty() ? WritePage(options)
                     : options.Exports()   ? Export(count, arguments, options)
                                           : Watch(count, arguments, options);
    StopNetwork();
    return code;
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) try {
    return brickfall::Main(count, arguments);
} catch (const std::exception& failure) {
    return brickfall::Fail(failure.what());
}
