// watch_reader.h - the recorded scores as the chain holds them: finds the transactions, takes the row out of
// each, keeps the rows whose signature and identity hold, and ranks them. No state; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

inline constexpr char kBoardGameId[] = "brickfall";
inline constexpr std::size_t kBoardTxidCap = 250;      // distinct transaction ids looked at, at most
inline constexpr std::size_t kBoardRowCap = 20;        // rows of the weekly list, at most
inline constexpr std::size_t kBoardRowBytes = 65'535;  // a longer payload is not read

// One line of the board.
struct ScoreRow {
    std::string pubkey;  // signer's key; empty for a local row
    std::string handle;
    std::string paymail;
    std::string pay_addr;
    std::string game;
    std::string entry;  // enter transaction; empty for a local row
    std::string txid;   // transaction of the record; empty for a score not yet recorded
    int64_t score = 0;
    int64_t ts = 0;         // Unix seconds; 0 when not known
    bool verified = false;  // read from the chain
};

// A row as found.
struct ChainRow : ScoreRow {
    int64_t week = 0;  // the start of the week that it was signed for
};

// Blocks for one request after the other, some 500 and one for each signer at the most. A service that is
// down means fewer rows; nothing else fails.
void ReadChainBoard(std::vector<ScoreRow>& week_rows, ScoreRow& best, bool& has_best, std::string& week_label,
                    std::string& message);

// The row of a decoded transaction, when there is one whose signature and identity hold and which is no other
// game's. May block for a key look-up of up to 15 s.
bool ReadChainRow(const nlohmann::json& transaction, const std::string& txid, ChainRow& row);

// The board's order: the higher score, and of equal ones the latest.
bool StandsAbove(const ScoreRow& a, const ScoreRow& b);

// This week's list of the rows in hand, and the best over all weeks.
void RankRows(const std::vector<ChainRow>& found, int64_t week_start, std::vector<ScoreRow>& week_rows,
              ScoreRow& best, bool& has_best);

// The ISO 8601 year and week of an instant, such as "2026-W39"; of the present week for an instant below 1.
std::string WeekLabel(int64_t week_start);

// Adds the transaction ids of an answer in any of the services' shapes. Only their length is tested.
void CollectTxids(const nlohmann::json& answer, std::vector<std::string>& list);

// The ids that the chain API lists for the watch address: the newest, mined or not. False when none of its
// listings answered.
bool ListWatchAddress(std::vector<std::string>& list);

// The script of a decoded transaction's output, in hexadecimal; the services give it in different places.
std::string OutputScriptHex(const nlohmann::json& output);

enum class PushSize { kBoard, kAny };  // the board reads no OP_PUSHDATA4

// The payload of the first push behind OP_RETURN of a data carrier script, a part of the script. False when
// the script is none, or the push is empty, is cut short, or is of a size not asked for.
bool FindPushPayload(std::span<const uint8_t> script, PushSize size, std::string_view& payload);

// The payload of the first push behind OP_RETURN of a data carrier script. False when the script is none, or
// the push is empty, is cut short, or is an OP_PUSHDATA4.
bool ExtractPushPayload(std::string_view script_hex, std::string& payload);

// The first output of a decoded transaction that carries an object of type "arcade_score".
bool FindScorePayload(const nlohmann::json& transaction, nlohmann::json& row);

}  // namespace brickfall
