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

// A ball that rests while no key is down changes nothing, however long: what is left of such a pause is one
// step.
void Replay::StepTo(uint64_t tick_ms) {
    while (tick_ms_ < tick_ms && !game_.game_over) {
        if (!game_.ball_live && !game_.left_held && !game_.right_held) tick_ms_ = tick_ms - kTickMs;
        StepGame(game_, tick_ms_ += kTickMs);
    }
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
