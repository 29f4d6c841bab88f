// module.cpp - what a page's script calls: one run at a time, where the player of the page is in it, and its
// picture. Texts are handed out as a place in memory that holds until the next call.
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cabinet/theme.h"
#include "page/module/browser_canvas.h"
#include "page/tape_columns.h"
#include "viewer/scene.h"
#include "viewer/transport.h"

#define TO_PAGE(name) extern "C" __attribute__((export_name(name)))

namespace brickfall {
namespace {

struct Player {
    std::vector<uint8_t> tape;
    std::optional<Course> course;
    Transport transport;
    std::string text;
};
Player& player = *new Player;

const char* Hand(std::string text) {
    player.text = std::move(text);
    return player.text.c_str();
}

GameState Now() { return player.course->At(player.transport.TickMs()); }

}  // namespace

// Where the script puts the bytes of a tape, before Open, or its columns, before Gather.
TO_PAGE("room") uint8_t* Room(std::size_t size) {
    player.tape.assign(size, 0);
    return player.tape.data();
}

// The tape's bytes, as many as there were in its columns.
TO_PAGE("gather") const uint8_t* Gather() {
    player.tape = ColumnsToTape(player.tape);
    return player.tape.data();
}

// Whether there is something to play: else Why tells why not.
TO_PAGE("open") bool Open() {
    InputTape tape;
    const TapeFault fault = ReadTape(player.tape, tape);
    player.course.reset();
    player.transport = Transport();
    if (fault != TapeFault::kNone && tape.events.empty()) {
        Hand(TapeFaultText(fault));
        return false;
    }
    player.course.emplace(std::move(tape), fault);
    player.transport = Transport(player.course->LengthMs());
    return true;
}

TO_PAGE("textSize") std::size_t TextSize() { return player.text.size(); }
TO_PAGE("refusal") const char* Refusal() { return player.text.c_str(); }

// All below: of a tape that Open has taken.
TO_PAGE("endKind") int EndKind() { return static_cast<int>(player.course->End()); }
TO_PAGE("endText") const char* EndText() { return Hand(player.course->EndText()); }
TO_PAGE("reached") double Reached() {
    return static_cast<double>(player.course->At(player.course->LengthMs()).score);
}
TO_PAGE("levelReached") int LevelReached() { return player.course->At(player.course->LengthMs()).level; }
TO_PAGE("length") double Length() { return static_cast<double>(player.course->LengthMs()); }
TO_PAGE("events") std::size_t Events() { return player.course->Tape().events.size(); }
TO_PAGE("marks") std::size_t Marks() { return player.course->Marks().size(); }
TO_PAGE("markAt") double MarkAt(std::size_t mark) {
    return static_cast<double>(player.course->Marks()[mark].tick_ms);
}
TO_PAGE("markClears") bool MarkClears(std::size_t mark) {
    return player.course->Marks()[mark].kind == MarkKind::kLevelCleared;
}

TO_PAGE("playOrPause") void PlayOrPause() { player.transport.PlayOrPause(); }
TO_PAGE("playing") bool Playing() { return player.transport.Playing(); }
TO_PAGE("atEnd") bool AtEnd() { return player.transport.AtEnd(); }
TO_PAGE("faster") void Faster() { player.transport.Faster(); }
TO_PAGE("slower") void Slower() { player.transport.Slower(); }
TO_PAGE("speed") const char* Speed() { return Hand(player.transport.SpeedText()); }
TO_PAGE("pass") void Pass(double milliseconds) {
    static_cast<void>(player.transport.Pass(static_cast<uint64_t>(milliseconds)));
}
TO_PAGE("now") double NowMs() { return static_cast<double>(player.transport.TickMs()); }
TO_PAGE("goTo") void GoTo(double tick_ms) { player.transport.GoTo(static_cast<uint64_t>(tick_ms)); }
TO_PAGE("step") void Step(int ticks) { player.transport.Step(ticks); }
TO_PAGE("goToEvent") void GoToEvent(bool next) {
    const uint64_t from = player.transport.TickMs();
    player.transport.Pause();
    player.transport.GoTo(next ? player.course->NextEvent(from) : player.course->PreviousEvent(from));
}
TO_PAGE("goToMark") void GoToMark(bool next) {
    const uint64_t from = player.transport.TickMs();
    player.transport.GoTo(next ? player.course->NextMark(from) : player.course->PreviousMark(from));
}

TO_PAGE("playedText") const char* Played(double tick_ms, bool tenths) {
    return Hand(PlayedText(static_cast<uint64_t>(tick_ms), tenths));
}
TO_PAGE("score") double Score() { return static_cast<double>(Now().score); }
TO_PAGE("level") int Level() { return Now().level; }
TO_PAGE("lives") int Lives() { return Now().lives; }
TO_PAGE("spoken") const char* Spoken() {
    return Hand(SpokenScene(SceneAt(*player.course, player.transport.TickMs())));
}

// The height of a well whose field fills this width.
TO_PAGE("heightFor") int HeightFor(int width) {
    constexpr int kAnyHeight = 1 << 20;
    constexpr int kBelow = 24;
    WellState none;
    return WellField(none, FittedCell({width, kAnyHeight})).Bottom() + kBelow;
}

TO_PAGE("paint") void Paint(int w, int h, double density, double blink_ms, bool inputs) {
    if (theme.font_body == nullptr) MakeTheme();
    BrowserCanvas canvas({w, h}, density);
    PaintScene(canvas, SceneAt(*player.course, player.transport.TickMs(), inputs),
               static_cast<uint64_t>(blink_ms));
}

}  // namespace brickfall
