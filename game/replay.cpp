#include "game/replay.h"

#include <algorithm>

namespace brickfall {
namespace {

uint32_t LittleEndian(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) value = value << 8 | bytes[i - 1];
    return value;
}

bool IsInputCode(uint8_t code) {
    return code == kInputLeftDown || code == kInputRightDown || code == kInputServe || code == kInputLeftUp ||
           code == kInputRightUp || code == kInputEnd;
}

TapeFault FaultOfEvent(const InputTape& tape, const InputEvent& event) {
    if (!IsInputCode(event.code)) return TapeFault::kCode;
    if (event.tick_ms % kTickMs != 0) return TapeFault::kTick;
    if (tape.events.empty()) return TapeFault::kNone;
    if (tape.events.back().code == kInputEnd) return TapeFault::kBehindEnd;
    return event.tick_ms < tape.events.back().tick_ms ? TapeFault::kOrder : TapeFault::kNone;
}

// A key goes down only when it is up, and up only when it is down; a ball is served only from the paddle.
bool Takes(const GameState& game, uint8_t code) {
    switch (code) {
        case kInputLeftDown:
            return !game.left_held;
        case kInputLeftUp:
            return game.left_held;
        case kInputRightDown:
            return !game.right_held;
        case kInputRightUp:
            return game.right_held;
        case kInputServe:
            return !game.ball_live;
        default:
            return false;
    }
}

// How many steps keep a coordinate from low to high; 0 where it is not there, or does not move.
int32_t StepsWithin(int32_t place, int32_t speed, int32_t low, int32_t high) {
    if (place < low || place > high || speed == 0) return 0;
    return speed > 0 ? (high - place) / speed : (place - low) / -speed;
}

// How many steps keep a ball in flight clear of walls, bricks and paddle, as it is below all bricks and above
// the paddle.
int32_t StepsOfFreeFlight(const GameState& game) {
    const int32_t steps =
        StepsWithin(game.ball_y, game.ball_vy, kBrickBottom + kBallHalf, kPaddleTop - kBallHalf - 1);
    return steps == 0 ? 0 : std::min(steps, StepsWithin(game.ball_x, game.ball_vx, kBallMinX, kBallMaxX));
}

const char* RefusalText(uint8_t code) {
    switch (code) {
        case kInputLeftDown:
            return "left goes down while it is down";
        case kInputLeftUp:
            return "left comes up while it is up";
        case kInputRightDown:
            return "right goes down while it is down";
        case kInputRightUp:
            return "right comes up while it is up";
        case kInputServe:
            return "a serve while the ball is in flight";
        default:
            return "no input has this code";
    }
}

}  // namespace

TapeFault ReadTape(std::span<const uint8_t> bytes, InputTape& tape) {
    tape = {};
    if (bytes.size() < kTapeHeaderBytes) return TapeFault::kTooShort;
    tape.start_lives = bytes[1];
    tape.cell_w = static_cast<uint16_t>(LittleEndian(bytes.subspan(2, 2)));
    tape.cell_h = static_cast<uint16_t>(LittleEndian(bytes.subspan(4, 2)));
    if (bytes[0] != kTapeFormat) return TapeFault::kFormat;
    if (tape.start_lives != kStartLives) return TapeFault::kLives;
    const uint32_t count = LittleEndian(bytes.subspan(6, 4));
    if (count > kTapeMaxEvents) return TapeFault::kTooMany;
    if (bytes.size() != kTapeHeaderBytes + kTapeEventBytes * std::size_t{count}) return TapeFault::kLength;
    tape.events.reserve(count);
    for (std::size_t at = kTapeHeaderBytes; at < bytes.size(); at += kTapeEventBytes) {
        const InputEvent event = {LittleEndian(bytes.subspan(at, 4)), bytes[at + 4]};
        const TapeFault fault = FaultOfEvent(tape, event);
        if (fault != TapeFault::kNone) return fault;
        tape.events.push_back(event);
    }
    return TapeFault::kNone;
}

const char* TapeFaultText(TapeFault fault) {
    switch (fault) {
        case TapeFault::kNone:
            return "";
        case TapeFault::kTooShort:
            return "shorter than a header";
        case TapeFault::kFormat:
            return "of an unknown format";
        case TapeFault::kLives:
            return "not of three lives";
        case TapeFault::kTooMany:
            return "of more than 200,000 events";
        case TapeFault::kLength:
            return "of another length than its count says";
        case TapeFault::kCode:
            return "an unknown code";
        case TapeFault::kTick:
            return "a time that is no tick";
        case TapeFault::kOrder:
            return "a time that goes back";
        case TapeFault::kBehindEnd:
            return "an event behind the end";
    }
    return "";
}

Replay::Replay(const InputTape& tape) : tape_(tape) { Restart(); }

void Replay::Restart() {
    game_ = NewGame(tape_.cell_w, tape_.cell_h);
    tick_ms_ = 0;
    next_ = 0;
    end_ = ReplayEnd::kNone;
}

void Replay::GoTo(uint64_t tick_ms) {
    if (tick_ms < tick_ms_) Restart();
    while (end_ == ReplayEnd::kNone) {
        if (next_ == tape_.events.size()) {
            end_ = next_ >= kTapeMaxEvents ? ReplayEnd::kFull : ReplayEnd::kNoEnd;
            return;
        }
        const uint64_t event_ms = tape_.events[next_].tick_ms;
        StepTo(std::min(event_ms, tick_ms - tick_ms % kTickMs));
        if (game_.game_over && tick_ms_ < event_ms) {
            end_ = ReplayEnd::kOverBefore;
        } else if (event_ms > tick_ms) {
            return;
        } else {
            TakeEvent();
        }
    }
}

void Replay::StepTo(uint64_t tick_ms) {
    while (tick_ms_ < tick_ms && !game_.game_over) {
        const int32_t paddle_x = game_.paddle_x;
        const int32_t level = game_.level;
        StepGame(game_, tick_ms_ += kTickMs);
        // A paddle that its keys do not move stays until they change, or its speed does.
        if (game_.paddle_x == paddle_x && game_.level == level) SkipTo(tick_ms);
    }
}

// For a paddle that stands still: takes at once the steps in which a ball meets nothing, or rests.
void Replay::SkipTo(uint64_t tick_ms) {
    if (game_.game_over) return;
    uint64_t steps = (tick_ms - tick_ms_) / kTickMs;
    if (game_.ball_live) {
        const int32_t free = StepsOfFreeFlight(game_);
        if (free <= 0) return;
        steps = std::min(steps, static_cast<uint64_t>(free));
        game_.ball_x += static_cast<int32_t>(steps) * game_.ball_vx;
        game_.ball_y += static_cast<int32_t>(steps) * game_.ball_vy;
    }
    game_.last_step_ms = tick_ms_ += steps * kTickMs;
}

void Replay::TakeEvent() {
    const uint8_t code = NextCode();
    if (code == kInputEnd) {
        end_ = game_.game_over ? ReplayEnd::kLost : ReplayEnd::kNotLost;
        return;
    }
    if (game_.game_over || !Takes(game_, code)) {
        end_ = game_.game_over ? ReplayEnd::kOverBefore : ReplayEnd::kRefused;
        return;
    }
    ApplyInput(game_, code);
    ++next_;
}

std::string ReplayEndText(const Replay& replay) {
    const auto at = [&replay](const char* reason) {
        return "event " + std::to_string(replay.NextEvent()) + ", tick " +
               std::to_string(replay.TickMs() / kTickMs) + ": " + reason;
    };
    switch (replay.End()) {
        case ReplayEnd::kNone:
            return "";
        case ReplayEnd::kLost:
            return at("the last ball is lost");
        case ReplayEnd::kNotLost:
            return at("the end, with balls left");
        case ReplayEnd::kOverBefore:
            return at("the last ball was lost before it");
        case ReplayEnd::kRefused:
            return at(RefusalText(replay.NextCode()));
        case ReplayEnd::kNoEnd:
            return at("no event, and no end before it");
        case ReplayEnd::kFull:
            return "the tape is full: what came behind its last event is not on it";
    }
    return "";
}

}  // namespace brickfall
