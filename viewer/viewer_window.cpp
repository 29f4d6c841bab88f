#include "viewer/viewer_window.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "audit/report.h"
#include "base/clock.h"
#include "base/text.h"
#include "base/workers.h"
#include "cabinet/controls.h"
#include "cabinet/face_drawing.h"
#include "cabinet/images.h"
#include "cabinet/sound.h"
#include "cabinet/theme.h"
#include "game/run_control.h"
#include "net/http_client.h"
#include "platform/image.h"
#include "viewer/run_list_window.h"
#include "viewer/scene.h"

namespace brickfall {

Viewer& viewer = *new Viewer;

namespace {

constexpr int kMsgLoaded = 1;
constexpr int kMsgFaces = 2;
constexpr Size kSmallestClient = {600, 640};
constexpr Size kFirstClient = {1'180, 900};
constexpr int kHeader = 72;
constexpr int kSide = 16;
constexpr int kSliderHandle = 15;
constexpr Color kLostMarkColor = kWarnColor;
constexpr Color kClearedMarkColor = kAccentColor;

struct ButtonRow {
    int id;
    const char* text;
    int width;
};
constexpr ButtonRow kButtons[] = {
    {kViewerPlay, "Play", 90},
    {kViewerStepBack, "Step back", 100},
    {kViewerStep, "Step", 80},
    {kViewerPreviousEvent, "Previous event", 130},
    {kViewerNextEvent, "Next event", 110},
    {kViewerSlower, "Slower", 86},
    {kViewerFaster, "Faster", 86},
    {kViewerInputs, "Show inputs", 116},
    {kViewerGhost, "Second run", 110},
    {kViewerMusic, "Music off", 96},
    {kViewerEffects, "Effects off", 100},
    {kViewerFullScreen, "Full screen", 106},
    {kViewerBoard, "Other runs", 106},
};
constexpr int kGap = 8;
constexpr int kButtonHeight = 34;

// ---- Layout

// Places the buttons from `y` on, or only counts; how many rows they take.
int LayOutButtons(Size client, int y, bool move) {
    int rows = 1;
    int x = kSide;
    for (const ButtonRow& button : kButtons) {
        if (x + button.width > client.w - kSide && x > kSide) {
            x = kSide;
            ++rows;
        }
        if (move) {
            MoveControl(viewer.main, button.id,
                        {x, y + (rows - 1) * (kButtonHeight + kGap), button.width, kButtonHeight});
        }
        x += button.width + kGap;
    }
    return rows;
}

int SeekTop(Size client) {
    return client.h - 10 - LayOutButtons(client, 0, false) * (kButtonHeight + kGap) - 24 - 28;
}

void LayOut() {
    const Size client = ClientSize(viewer.main);
    const int seek = SeekTop(client);
    MoveChild(viewer.well, {kSide, kHeader, client.w - 2 * kSide, std::max(seek - 18 - kHeader, 20)});
    MoveControl(viewer.main, kViewerSeek, {kSide, seek, client.w - 2 * kSide, 26});
    MoveControl(viewer.main, kViewerTime, {kSide, seek + 28, client.w - 2 * kSide, 22});
    LayOutButtons(client, seek + 28 + 24, true);
    InvalidateWindow(viewer.main);
}

// ---- What is on show

Scene PresentScene() {
    Scene scene = SceneAt(viewer.shown->course, viewer.transport.TickMs(), viewer.inputs);
    if (viewer.ghost) scene.ghost = viewer.ghost->course.At(viewer.transport.TickMs());
    return scene;
}

std::string TimeText() {
    if (!viewer.shown) return viewer.status;
    const Course& course = viewer.shown->course;
    std::string text = PlayedText(viewer.transport.TickMs(), true) + " of " +
                       PlayedText(course.LengthMs(), true) + ", speed " + viewer.transport.SpeedText();
    if (viewer.ghost) text += ", with the run of " + RunName(viewer.ghost->run.audit) + " in outlines";
    return text;
}

void Refresh() {
    const bool playing = viewer.transport.Playing();
    const bool shown = viewer.shown != nullptr;
    SetControlText(viewer.main, kViewerTime, TimeText());
    SetControlText(viewer.main, kViewerPlay, playing ? "Pause" : "Play");
    SetControlText(viewer.main, kViewerInputs, viewer.inputs ? "Hide inputs" : "Show inputs");
    SetControlText(viewer.main, kViewerMusic, viewer.music ? "Music off" : "Music on");
    SetControlText(viewer.main, kViewerEffects, viewer.effects ? "Effects off" : "Effects on");
    SetControlText(viewer.main, kViewerGhost, viewer.ghost ? "One run" : "Second run");
    SetControlText(viewer.main, kViewerFullScreen, IsFullScreen(viewer.main) ? "Window" : "Full screen");
    SetTrackBar(viewer.main, kViewerSeek, static_cast<int>(viewer.transport.TickMs() / kTickMs));
    for (const ButtonRow& button : kButtons) {
        if (button.id <= kViewerInputs) EnableWindowControl(viewer.main, button.id, shown);
    }
    EnableWindowControl(viewer.main, kViewerSeek, shown);
    EnableWindowControl(viewer.main, kViewerGhost,
                        shown && (viewer.ghost != nullptr || viewer.loaded.runs.size() > 1));
    EnableWindowControl(viewer.main, kViewerBoard, !viewer.loading);
    music_on = viewer.music && playing;
    sfx_on = viewer.effects;
    const bool blinks = shown && viewer.transport.AtEnd() && viewer.shown->course.End() == CourseEnd::kLost;
    if (playing || blinks) {
        StartTimer(viewer.main, kViewerTimer, static_cast<int>(kTickMs));
    } else {
        StopTimer(viewer.main, kViewerTimer);
    }
}

// At each new place.
void ShowPlace() {
    SetControlText(viewer.main, kViewerTime, TimeText());
    SetTrackBar(viewer.main, kViewerSeek, static_cast<int>(viewer.transport.TickMs() / kTickMs));
    InvalidateWindow(viewer.well);
    if (!viewer.shown) return;
    std::string spoken = SpokenScene(PresentScene());
    if (spoken == viewer.spoken) return;
    SetAccessibleWindowName(viewer.well, "Run", spoken);
    viewer.spoken = std::move(spoken);
}

void GoTo(uint64_t tick_ms) {
    viewer.transport.GoTo(tick_ms);
    Refresh();
    ShowPlace();
}

void Say(std::string status) {
    viewer.status = std::move(status);
    Refresh();
    InvalidateWindow(viewer.well);
    InvalidateWindow(viewer.main);
}

void PaintHeader(Canvas& canvas) {
    if (!viewer.shown) {
        DrawLogo(canvas, 16, 56);
        canvas.Text({84, 16, canvas.Extent().w - 100, 40}, "Brickfall runs", theme.font_heading, kTextColor);
        return;
    }
    const WatchedRun& run = viewer.shown->run;
    const RowAudit& audit = run.audit;
    DrawFace(canvas, kSide, 16, RunFaceKey(audit));
    const int right = canvas.Extent().w - kSide;
    canvas.Text(
        FromEdges(68, 8, right, 40),
        RunName(run.audit) + "   " + Grouped(audit.score) + (audit.ts > 0 ? "   " + UtcText(audit.ts) : ""),
        theme.font_title, kTextColor, AlignX::kLeft, AlignY::kCentre, /*ellipsis=*/true);
    const Color color = audit.Status() == AuditStatus::kSound     ? kAccentColor
                        : audit.Status() == AuditStatus::kUnsound ? kWarnColor
                                                                  : kGoldColor;
    const std::string verdict = VerdictLine(audit);
    canvas.Text(FromEdges(68, 42, right, 64), verdict, theme.font_small, color, AlignX::kLeft,
                AlignY::kCentre,
                /*ellipsis=*/true);
    const int behind = 68 + MeasureText(theme.font_small, verdict).w + 24;
    canvas.Text(FromEdges(behind, 42, right, 64), audit.txid, theme.font_small, kMutedColor, AlignX::kLeft,
                AlignY::kCentre, /*ellipsis=*/true);
}

// Where on the seek bar a moment lies.
int PlaceOnBar(uint64_t tick_ms) {
    const int span = ClientSize(viewer.main).w - 2 * kSide - kSliderHandle;
    const uint64_t length = std::max<uint64_t>(viewer.shown->course.LengthMs(), 1);
    return kSide + kSliderHandle / 2 +
           static_cast<int>(static_cast<uint64_t>(std::max(span, 0)) * tick_ms / length);
}

void PaintMarks(Canvas& canvas) {
    const int y = SeekTop(canvas.Extent()) - 14;
    for (const Mark& mark : viewer.shown->course.Marks()) {
        const int x = PlaceOnBar(mark.tick_ms);
        const bool lost = mark.kind == MarkKind::kBallLost;
        // Apart in form too, not in colour alone: a ball, and a line.
        if (lost) {
            canvas.FillEllipse({x - 4, y + 2, 9, 9}, kLostMarkColor);
        } else {
            canvas.Fill({x - 1, y, 3, 13}, kClearedMarkColor);
        }
    }
}

void Paint(Canvas& canvas) {
    const Size client = canvas.Extent();
    canvas.Fill({0, 0, client.w, client.h}, kBgColor);
    canvas.Fill({0, 0, client.w, kHeader - 4}, kHeaderColor);
    PaintHeader(canvas);
    if (viewer.shown) PaintMarks(canvas);
}

void PaintWellWindow(Canvas& canvas) {
    if (viewer.shown) return PaintScene(canvas, PresentScene(), TickMs());
    const Size size = canvas.Extent();
    canvas.Fill({0, 0, size.w, size.h}, kBgColor);
    canvas.Text({0, 0, size.w, size.h}, viewer.status,
                FittedFont(&Theme::font_title, viewer.status, size.w - 20),
                viewer.loaded.error.empty() ? kTextColor : kWarnColor, AlignX::kCentre, AlignY::kCentre,
                /*ellipsis=*/true);
}

// ---- Loading

void StartLoading() {
    if (viewer.loading) return;
    viewer.loading = true;
    Say(viewer.source.file.empty() ? "Asking the services..." : "Reading...");
    StartWorker([source = viewer.source, window = viewer.main] {
        LoadedRuns loaded = LoadRuns(source, [](const char*, std::size_t, std::size_t) {});
        PostWindowMessage(window, kMsgLoaded, 0, MakePayload(std::move(loaded)));
    });
}

// The list is there at once; the faces come when they come.
void StartFaces() {
    std::vector<ScoreRow> rows;
    for (const WatchedRun& run : viewer.loaded.runs) rows.emplace_back().handle = RunFaceKey(run.audit);
    StartWorker([rows = std::move(rows), window = viewer.main] {
        Faces faces;
        LoadFaces(rows, DecodeImage, faces);
        PostWindowMessage(window, kMsgFaces, 0, MakePayload(std::move(faces)));
    });
}

void ChooseRun(bool for_ghost) {
    OpenRunList([for_ghost](const WatchedRun& run) { for_ghost ? ShowGhost(run) : ShowRun(run); });
}

void OnLoaded(LoadedRuns loaded) {
    viewer.loading = false;
    const bool from_services = viewer.source.file.empty();
    ShowLoaded(std::move(loaded));
    if (from_services && !viewer.loaded.runs.empty()) StartFaces();
}

// ---- What is pressed

void OnCommand(int control) {
    switch (control) {
        case kViewerGhost:
            if (!viewer.ghost) return ChooseRun(/*for_ghost=*/true);
            viewer.ghost.reset();
            break;
        case kViewerMusic:
            viewer.music = !viewer.music;
            break;
        case kViewerEffects:
            viewer.effects = !viewer.effects;
            break;
        case kViewerFullScreen:
            SetFullScreen(viewer.main, !IsFullScreen(viewer.main));
            break;
        case kViewerBoard:
            if (viewer.loaded.runs.empty()) return StartLoading();
            return ChooseRun(/*for_ghost=*/false);
        default:
            break;
    }
    if (viewer.shown) {
        const Course& course = viewer.shown->course;
        Transport& transport = viewer.transport;
        switch (control) {
            case kViewerPlay:
                transport.PlayOrPause();
                viewer.last_look_ms = TickMs();
                break;
            case kViewerStepBack:
            case kViewerStep:
                transport.Step(control == kViewerStep ? 1 : -1);
                break;
            case kViewerPreviousEvent:
                transport.GoTo(course.PreviousEvent(transport.TickMs()));
                break;
            case kViewerNextEvent:
                transport.GoTo(course.NextEvent(transport.TickMs()));
                break;
            case kViewerSlower:
                transport.Slower();
                break;
            case kViewerFaster:
                transport.Faster();
                break;
            case kViewerInputs:
                viewer.inputs = !viewer.inputs;
                break;
            default:
                break;
        }
    }
    Refresh();
    ShowPlace();
}

void OnKey(const Message& message) {
    const auto press = [&](int control) {
        if (viewer.shown) OnCommand(control);
    };
    switch (message.key) {
        case Key::kSpace:
            if (!message.is_repeat) press(kViewerPlay);
            return;
        case Key::kLeft:
            return press(kViewerStepBack);
        case Key::kRight:
            return press(kViewerStep);
        case Key::kUp:
            return press(kViewerFaster);
        case Key::kDown:
            return press(kViewerSlower);
        case Key::kPageUp:
            return press(kViewerPreviousEvent);
        case Key::kPageDown:
            return press(kViewerNextEvent);
        case Key::kHome:
            if (viewer.shown) GoTo(viewer.shown->course.PreviousMark(viewer.transport.TickMs()));
            return;
        case Key::kEnd:
            if (viewer.shown) GoTo(viewer.shown->course.NextMark(viewer.transport.TickMs()));
            return;
        case Key::kF11:
            return OnCommand(kViewerFullScreen);
        case Key::kEscape:
            if (IsFullScreen(viewer.main)) OnCommand(kViewerFullScreen);
            return;
        default:
            return;
    }
}

void OnTimer() {
    const uint64_t now = TickMs();
    const uint64_t passed = now - std::exchange(viewer.last_look_ms, now);
    if (!viewer.shown) return;
    if (viewer.transport.Pass(passed)) {
        if (viewer.shown->course.End() == CourseEnd::kLost)
            PlayEffect(kEndJingleNotes, kEndJingleDurationsMs);
        Refresh();
    }
    ShowPlace();
}

void OnCreate(WindowId window) {
    viewer.main = window;
    MakeTheme();
    SetTitleBarColors(window, kHeaderColor, kBorderColor, kTextColor);
    SetAccessibleWindowName(
        window, "Brickfall viewer",
        "Space plays and pauses, Left and Right go by a step, Page Up and Page Down by an "
        "event, Home and End by a lost ball or a cleared level, Up and Down change the "
        "speed, F11 fills the screen");
    std::vector<Image> icons;
    for (const int side : {16, 32, 48}) icons.push_back(MakeIcon(side));
    SetWindowIcons(window, icons);
    viewer.well = OpenChild(window, {kSide, kHeader, 400, 400}, kBgColor, [](WindowId, Message& message) {
        if (message.type != MessageType::kPaint) return false;
        PaintWellWindow(*message.canvas);
        return true;
    });
    for (const ButtonRow& button : kButtons) MakeButton(window, button.text, button.id, {});
    CreateSeekBar(window, kViewerSeek, {}, 1);
    SetAccessibleControlName(window, kViewerSeek, "Place in the run");
    CreateText(window, kViewerTime, {}, "", theme.font_body);
    SetMinimumSize(window, kSmallestClient, {});
    LayOut();
}

bool OnMessage(WindowId window, Message& message) {
    switch (message.type) {
        case MessageType::kCreate:
            OnCreate(window);
            return true;
        case MessageType::kSize:
            LayOut();
            Refresh();
            return true;
        case MessageType::kPaint:
            Paint(*message.canvas);
            return true;
        case MessageType::kPaintButton:
            PaintButton(window, message);
            return true;
        case MessageType::kTextStyle:
            message.style = {kTextColor, kBgColor, false};
            return true;
        case MessageType::kCommand:
            OnCommand(message.id);
            return true;
        case MessageType::kScroll:
            GoTo(static_cast<uint64_t>(message.value) * kTickMs);
            return true;
        case MessageType::kKeyDown:
            OnKey(message);
            return true;
        case MessageType::kTimer:
            OnTimer();
            return true;
        case MessageType::kPosted:
            if (message.id == kMsgLoaded) OnLoaded(TakePayload<LoadedRuns>(message.payload));
            if (message.id == kMsgFaces) {
                BuildFaceBitmaps(TakePayload<Faces>(message.payload));
                InvalidateWindow(window);
                RefreshRunList();
            }
            return true;
        case MessageType::kDestroy:
            BuildFaceBitmaps({});
            StopSound();
            DropTheme();
            viewer = Viewer();
            QuitMessageLoop(0);
            return true;
        default:
            return false;
    }
}

}  // namespace

WindowId OpenViewer() {
    return OpenWindow(
        {.title = "Brickfall viewer", .size = kFirstClient, .size_is_client = true, .background = kBgColor},
        OnMessage);
}

void LoadSource() { StartLoading(); }

void ShowLoaded(LoadedRuns loaded) {
    viewer.loaded = std::move(loaded);
    const std::vector<WatchedRun>& runs = viewer.loaded.runs;
    if (runs.empty()) return Say(viewer.loaded.error);
    if (runs.size() == 1) return ShowRun(runs.front());
    Say("Choose a run.");
    ChooseRun(/*for_ghost=*/false);
}

void ShowRun(const WatchedRun& run) {
    viewer.ghost.reset();
    viewer.shown.reset();
    viewer.spoken.clear();
    if (!run.tape) return Say("Nothing to play: " + VerdictLine(run.audit));
    viewer.shown = OpenRunOf(run);
    const uint64_t length = viewer.shown->course.LengthMs();
    viewer.transport = Transport(length);
    CreateSeekBar(viewer.main, kViewerSeek, {}, static_cast<int>(length / kTickMs));
    SetAccessibleControlName(viewer.main, kViewerSeek, "Place in the run");
    LayOut();
    if (viewer.waiting_ghost) ShowGhost(*std::exchange(viewer.waiting_ghost, std::nullopt));
    Refresh();
    ShowPlace();
}

void ShowGhost(const WatchedRun& run) {
    if (!viewer.shown || !run.tape) return;
    viewer.ghost = OpenRunOf(run);
    Refresh();
    ShowPlace();
}

}  // namespace brickfall
