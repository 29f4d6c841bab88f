#include "game/score_row.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "game/input_tape.h"
#include "game/week.h"
#include "messages/signing.h"
#include "wallet/payment/pay_drivers.h"

namespace brickfall {
namespace {

using nlohmann::json;

json RowWithoutTape(const RunControl& run, Player player, int64_t now) {
    json row = {
        {"protocol", "Cairn-Wire"}, {"type", "arcade_score"},
        {"location", "arcade"},     {"game", "brickfall"},
        {"score", run.final_score}, {"week", WeekStart(now)},
        {"entry", run.enter_txid},  {"ts", now},
    };
    row["handle"] = std::move(player.handle);
    row["pay_addr"] = std::move(player.address);
    return row;
}

}  // namespace

json MakeScoreRow(const RunControl& run, Player player, int64_t now) {
    json row = RowWithoutTape(run, std::move(player), now);
    std::string tape = TapeToHex(run.tape);
    row["tape_hash"] = TapeHash(tape);
    row["tape"] = std::move(tape);  // up to 2 MB
    return row;
}

RecordCost EstimateRecordCost(const RunControl& run, const std::string& paymail, const std::string& address,
                              int64_t now, std::span<const int64_t> coins) {
    const std::string handle = paymail.substr(0, paymail.find('@'));
    json row = RowWithoutTape(run, {handle, address}, now);
    std::size_t events = run.tape.events.size();
    if (run.mode == kModePlaying) {  // what the end of the run is still to set
        row["score"] = run.game.score;
        events = std::min(events + 1, kTapeMaxEvents);
    }
    row["tape_hash"] = std::string(kTapeHashDigits, '0');
    row["tape"] = "";
    RecordCost cost;
    cost.row_bytes = SignedRowSize(std::move(row), handle, paymail) + TapeHexSize(events);
    cost.fee = EstimateScoreFee(cost.row_bytes, coins);
    return cost;
}

}  // namespace brickfall
