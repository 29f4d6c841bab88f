// recorded_run.h - a run that was played, paid for and recorded, as the auditor finds it; every part of it
// may be changed before the transactions are made.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "audit/evidence.h"
#include "game/input_tape.h"
#include "tests/support/signed_rows.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

inline constexpr int64_t kRecordedAt = kTestWeek + 40'000;

// A tape that the autopilot plays for so many ticks and then loses; another `seed` is another run.
InputTape PlayedTape(uint64_t ticks, uint64_t seed, int64_t& score);

// Serves alone, as many as there are balls. Everybody who does nothing else has this tape.
InputTape ThreeServes(int64_t& score);

struct RecordedRun {
    explicit RecordedRun(std::string_view player = "ada", uint64_t seed = 1, uint64_t ticks = 1'000);
    RecordedRun(std::string_view player, const InputTape& tape, int64_t score);

    void SetTape(const InputTape& tape);      // with its seal
    void SetTapeHex(const std::string& hex);  // the same, of any text
    void Sign() { SignRow(player, row); }     // as the row stands now
    void NameEntry();                         // the row names the entry as it stands now
    Evidence Make() const;                    // all of it found

    TestPlayer player;
    nlohmann::json row;
    std::string payload;  // in the row's place, where not empty
    std::vector<PayOutput> entry;
    BlockPlace entry_block = ToldBlock(100, kRecordedAt - 600);
    BlockPlace record_block = ToldBlock(102, kRecordedAt + 300);

  private:
    void Fill(const InputTape& tape, int64_t score);
};

AuditTransaction MadeTransaction(const std::vector<PayOutput>& outputs, const BlockPlace& block);
PayOutput PaymentTo(const std::string& address, int64_t satoshis);

}  // namespace brickfall
