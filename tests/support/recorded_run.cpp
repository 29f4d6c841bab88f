#include "tests/support/recorded_run.h"

#include <stdexcept>

#include "deployment/deployment.h"
#include "game/simulation.h"
#include "messages/row.h"
#include "players/autopilot.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/script.h"

namespace brickfall {

InputTape PlayedTape(uint64_t ticks, uint64_t seed, int64_t& score) {
    InputTape tape;
    ResetTape(tape, 32, 32);
    GameState game = NewGame(32, 32);
    uint64_t now_ms = 0;
    const auto key = [&](bool wanted, bool held, uint8_t down, uint8_t up) {
        if (wanted == held) return;
        ApplyInput(game, wanted ? down : up);
        AppendEvent(tape, now_ms, wanted ? down : up);
    };
    while (!game.game_over) {
        StepGame(game, now_ms += kTickMs);
        if (game.game_over) break;
        const uint64_t tick = now_ms / kTickMs;
        AutopilotKeys keys = tick < ticks ? AutopilotPlay(game) : AutopilotLose(game);
        if (tick <= seed) keys = {.right = tick <= seed % 50};  // the first serve later, from another place
        key(keys.left, game.left_held, kInputLeftDown, kInputLeftUp);
        key(keys.right, game.right_held, kInputRightDown, kInputRightUp);
        if (keys.serve && ApplyInput(game, kInputServe)) AppendEvent(tape, now_ms, kInputServe);
    }
    AppendEvent(tape, now_ms, kInputEnd);
    score = game.score;
    return tape;
}

InputTape ThreeServes(int64_t& score) {
    InputTape tape;
    ResetTape(tape, 32, 32);
    GameState game = NewGame(32, 32);
    uint64_t now_ms = 0;
    for (; !game.game_over; StepGame(game, now_ms += kTickMs)) {
        if (!game.ball_live && ApplyInput(game, kInputServe)) AppendEvent(tape, now_ms, kInputServe);
    }
    AppendEvent(tape, now_ms, kInputEnd);
    score = game.score;
    return tape;
}

PayOutput PaymentTo(const std::string& address, int64_t satoshis) {
    Hash160 owner{};
    if (!DecodeAddress(address, owner)) throw std::runtime_error("no address: " + address);
    return {satoshis, P2pkhScript(owner)};
}

AuditTransaction MadeTransaction(const std::vector<PayOutput>& outputs, const BlockPlace& block) {
    const std::vector<SpendInput> inputs = {
        {.txid = std::string(64, '5'), .vout = 0, .value = 0, .script_sig = {0x51}, .priv = {}, .pub = {}}};
    AuditTransaction transaction = ReadRawTransaction(SerializeTx(inputs, outputs, false)).value();
    transaction.block = block;
    return transaction;
}

RecordedRun::RecordedRun(std::string_view name, uint64_t seed, uint64_t ticks) : player(MakePlayer(name)) {
    int64_t score = 0;
    const InputTape tape = PlayedTape(ticks, seed, score);
    Fill(tape, score);
}

RecordedRun::RecordedRun(std::string_view name, const InputTape& tape, int64_t score)
    : player(MakePlayer(name)) {
    Fill(tape, score);
}

void RecordedRun::Fill(const InputTape& tape, int64_t score) {
    row = SignedScore(player, score, kRecordedAt);
    entry = {PaymentTo(kArcadeHouseAddress, kArcadeHouseSats), PaymentTo(kArcadePotAddress, kArcadePotSats),
             PaymentTo(player.pay_addr, 1'000 + score)};
    NameEntry();
    SetTape(tape);
    Sign();
}

void RecordedRun::NameEntry() { row["entry"] = MadeTransaction(entry, entry_block).txid; }

void RecordedRun::SetTape(const InputTape& tape) { SetTapeHex(TapeToHex(tape)); }

void RecordedRun::SetTapeHex(const std::string& hex) {
    row["tape"] = hex;
    row["tape_hash"] = TapeHash(hex);
}

Evidence RecordedRun::Make() const {
    Evidence evidence;
    evidence.record = LookUp::kFound;
    evidence.transaction = MadeTransaction({PaymentTo(kArcadeWatchAddress, kMarkerSats),
                                            {0, DataCarrierScript(payload.empty() ? DumpRow(row) : payload)},
                                            PaymentTo(player.pay_addr, 500)},
                                           record_block);
    evidence.txid = evidence.transaction.txid;
    ReadRow(evidence);
    evidence.key = LookUp::kFound;
    evidence.public_key = player.public_hex;
    evidence.entry = LookUp::kFound;
    evidence.entry_transaction = MadeTransaction(entry, entry_block);
    return evidence;
}

}  // namespace brickfall
