#include "viewer/course.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace brickfall {
namespace {

constexpr std::size_t kStops = 256;  // of a run, so that a seek replays a small part of it

// Whether a ball was lost or a level cleared between two states. After either the ball rests until a serve,
// so that at most one lies between two events.
bool Differ(const GameState& a, const GameState& b) { return a.lives != b.lives || a.level != b.level; }

bool IsBefore(const Mark& mark, uint64_t tick_ms) { return mark.tick_ms < tick_ms; }
bool IsEventBefore(const InputEvent& event, uint64_t tick_ms) { return event.tick_ms < tick_ms; }

}  // namespace

Course::Course(InputTape tape, TapeFault fault) : tape_(std::make_unique<const InputTape>(std::move(tape))) {
    Walk();
    const Replay& last = stops_.back();
    length_ms_ = last.TickMs();
    if (fault != TapeFault::kNone) {
        end_ = CourseEnd::kFails;
        end_text_ = "event " + std::to_string(tape_->events.size()) + ", behind tick " +
                    std::to_string(length_ms_ / kTickMs) + ": " + TapeFaultText(fault);
    } else if (last.End() != ReplayEnd::kLost) {
        end_ = last.End() == ReplayEnd::kFull ? CourseEnd::kFull : CourseEnd::kFails;
        end_text_ = ReplayEndText(last);
    }
    at_.emplace(stops_.front());
}

// From event to event to the end, with a stop after each stretch of some length. The last stop is the end.
void Course::Walk() {
    const uint64_t last_ms = tape_->events.empty() ? 0 : tape_->events.back().tick_ms;
    const uint64_t apart_ms = std::max(last_ms / kStops / kTickMs * kTickMs, kTickMs);
    Replay replay(*tape_);
    stops_.push_back(replay);
    const auto go_to = [&](uint64_t tick_ms) {
        const Replay before = replay;
        replay.GoTo(tick_ms);
        if (Differ(before.Game(), replay.Game())) FindMark(before, replay);
        if (replay.TickMs() >= stops_.back().TickMs() + apart_ms) stops_.push_back(replay);
    };
    for (const InputEvent& event : tape_->events) {
        while (replay.End() == ReplayEnd::kNone && event.tick_ms > replay.TickMs() + apart_ms)
            go_to(replay.TickMs() + apart_ms);
        go_to(event.tick_ms);
        if (replay.End() != ReplayEnd::kNone) break;
    }
    replay.GoTo(Replay::kToTheEnd);
    stops_.push_back(replay);
}

void Course::FindMark(const Replay& before, const Replay& behind) {
    uint64_t low = before.TickMs() / kTickMs;  // not yet
    uint64_t high = behind.TickMs() / kTickMs;
    while (low + 1 < high) {
        const uint64_t middle = low + (high - low) / 2;
        Replay probe = before;
        probe.GoTo(middle * kTickMs);
        (Differ(before.Game(), probe.Game()) ? high : low) = middle;
    }
    const bool cleared = behind.Game().level != before.Game().level;
    marks_.push_back({high * kTickMs, cleared ? MarkKind::kLevelCleared : MarkKind::kBallLost});
}

const GameState& Course::At(uint64_t tick_ms) {
    const uint64_t to_ms = std::min(tick_ms, length_ms_);
    const auto behind = std::upper_bound(stops_.begin(), stops_.end(), to_ms,
                                         [](uint64_t ms, const Replay& stop) { return ms < stop.TickMs(); });
    const Replay& stop = behind == stops_.begin() ? stops_.front() : *std::prev(behind);
    if (at_->TickMs() > to_ms || at_->TickMs() < stop.TickMs()) at_.emplace(stop);
    at_->GoTo(to_ms);
    return at_->Game();
}

uint64_t Course::NextEvent(uint64_t tick_ms) const {
    const auto& events = tape_->events;
    const auto next = std::lower_bound(events.begin(), events.end(), tick_ms + 1, IsEventBefore);
    return next == events.end() ? length_ms_ : std::min<uint64_t>(next->tick_ms, length_ms_);
}

uint64_t Course::PreviousEvent(uint64_t tick_ms) const {
    const auto& events = tape_->events;
    const auto next = std::lower_bound(events.begin(), events.end(), tick_ms, IsEventBefore);
    return next == events.begin() ? 0 : std::prev(next)->tick_ms;
}

uint64_t Course::NextMark(uint64_t tick_ms) const {
    const auto next = std::lower_bound(marks_.begin(), marks_.end(), tick_ms + 1, IsBefore);
    return next == marks_.end() ? length_ms_ : next->tick_ms;
}

uint64_t Course::PreviousMark(uint64_t tick_ms) const {
    const auto next = std::lower_bound(marks_.begin(), marks_.end(), tick_ms, IsBefore);
    return next == marks_.begin() ? 0 : std::prev(next)->tick_ms;
}

}  // namespace brickfall
