// golden_run.h - a run as text: its tape, and everything in it that did not go straight on, so that the texts
// of two runs differ first at the tick and the field at which the runs do. docs/formats.md shows one.
#pragma once

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "game/replay.h"

namespace brickfall {

inline constexpr uint64_t kFnvStart = 0xcbf29ce484222325u;

// FNV-1a, 64 bits, over a value's lower bytes, the lowest first on every machine.
inline uint64_t Mix(uint64_t digest, uint64_t value, int byte_count) {
    for (int i = 0; i < byte_count; ++i) digest = (digest ^ (value >> (8 * i) & 0xFF)) * 0x100000001b3u;
    return digest;
}

// The fields but for bricks and clock, by the names that a golden run has for them.
inline std::vector<std::pair<const char*, int64_t>> PlainFields(const GameState& game) {
    return {{"score", game.score},        {"level", game.level},     {"lives", game.lives},
            {"bricks", game.bricks_left}, {"paddle", game.paddle_x}, {"width", game.paddle_w},
            {"x", game.ball_x},           {"y", game.ball_y},        {"vx", game.ball_vx},
            {"vy", game.ball_vy},         {"live", game.ball_live},  {"left", game.left_held},
            {"right", game.right_held},   {"paused", game.paused},   {"over", game.game_over},
            {"cell_w", game.cell_w},      {"cell_h", game.cell_h}};
}

inline uint64_t MixState(uint64_t digest, const GameState& game) {
    digest = Mix(digest, game.last_step_ms, 8);
    for (const auto& row : game.bricks) {
        for (const uint8_t brick : row) digest = Mix(digest, brick, 1);
    }
    for (const auto& [name, value] : PlainFields(game)) digest = Mix(digest, static_cast<uint64_t>(value), 8);
    return digest;
}

// " field value" of each field in which `game` is not as expected.
inline std::string Changes(const GameState& expected, const GameState& game) {
    std::string text;
    if (game.last_step_ms != expected.last_step_ms) text += " clock " + std::to_string(game.last_step_ms);
    const auto fields = PlainFields(game);
    const auto expected_fields = PlainFields(expected);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].second == expected_fields[i].second) continue;
        text += std::string(" ") + fields[i].first + " " + std::to_string(fields[i].second);
    }
    for (int row = 0; row < kBrickRows; ++row) {
        const auto& bricks = game.bricks[row];
        if (std::equal(std::begin(bricks), std::end(bricks), expected.bricks[row])) continue;
        text += " row" + std::to_string(row) + " ";
        for (const uint8_t brick : bricks) text += static_cast<char>('0' + brick);
    }
    return text;
}

// The state after a step in which the paddle goes on as it did, and the ball flies or rides on.
inline GameState StraightOn(GameState game, int32_t paddle_step) {
    game.last_step_ms += kTickMs;
    game.paddle_x += paddle_step;
    game.ball_x += game.ball_live ? game.ball_vx : paddle_step;
    game.ball_y += game.ball_vy;
    return game;
}

inline std::string GoldenText(const InputTape& tape) {
    std::string text = "tape " + TapeToHex(tape) + "\n";
    Replay replay(tape);
    GameState expected;
    int32_t last_level = 0, last_paddle_x = 0;
    uint64_t digest = kFnvStart;
    for (uint64_t tick = 0; replay.End() == ReplayEnd::kNone; ++tick) {
        replay.GoTo(tick * kTickMs);
        const GameState& game = replay.Game();
        if (!(game == expected)) text += std::to_string(tick) + Changes(expected, game) + "\n";
        const bool ended = replay.End() != ReplayEnd::kNone;
        if (tick % 256 == 0 || ended) digest = MixState(digest, game);
        if (game.level != last_level || ended) {
            char line[120];
            std::snprintf(line, sizeof line,
                          "%" PRIu64 " : level %d, lives %d, score %" PRId64 ", states %016" PRIx64 "%s\n",
                          tick, game.level, game.lives, game.score, digest, ended ? ", end" : "");
            text += line;
        }
        expected = StraightOn(game, tick == 0 ? 0 : game.paddle_x - last_paddle_x);
        last_level = game.level;
        last_paddle_x = game.paddle_x;
    }
    return text + ReplayEndText(replay) + "\n";
}

// Where the text of a run differs from the one kept: the tick, the field, and both values; "" where nowhere.
inline std::string FirstDifference(const std::string& kept, const std::string& now) {
    std::istringstream kept_lines(kept), now_lines(now);
    std::string was, is;
    do {
        was.clear(), is.clear();
        std::getline(kept_lines, was), std::getline(now_lines, is);
        if (was.empty() && is.empty()) return "";
    } while (was == is);
    const auto tick_of = [](const std::string& line) {
        return line.empty() ? UINT64_MAX : std::strtoull(line.c_str(), nullptr, 10);
    };
    const uint64_t tick = std::min(tick_of(was), tick_of(is));
    const auto value_of = [tick, &tick_of](const std::string& line, const std::string& field) {
        const std::size_t at = line.find(" " + field + " ");
        if (tick_of(line) != tick || at == std::string::npos) return std::string("straight on");
        std::string value;
        std::istringstream(line.substr(at + field.size() + 2)) >> value;
        return value;
    };
    for (const std::string* line : {&was, &is}) {
        if (tick_of(*line) != tick) continue;
        std::istringstream words(*line);
        std::string field, value;
        for (words >> field; words >> field >> value;) {
            const std::string kept_value = value_of(was, field), now_value = value_of(is, field);
            if (kept_value == now_value) continue;
            return "tick " + std::to_string(tick) + ", " + field + ": " + kept_value + " is kept, " +
                   now_value + " comes out";
        }
    }
    return "kept \"" + was.substr(0, 200) + "\", comes out \"" + is.substr(0, 200) + "\"";
}

}  // namespace brickfall
