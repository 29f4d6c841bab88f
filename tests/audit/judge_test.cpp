// One forged row for each verdict, rows that spoil each other, and honest runs, which are never blamed.
#include "audit/judge.h"

#include <gtest/gtest.h>

#include <functional>

#include "deployment/deployment.h"
#include "messages/row.h"
#include "tests/game/random_run.h"
#include "tests/support/recorded_run.h"
#include "tests/support/shadow_memory.h"
#include "wallet/payment/pay_drivers.h"

namespace brickfall {
namespace {

std::string Told(const RowAudit& audit) {
    std::string told;
    for (const Finding& found : audit.findings)
        told += (told.empty() ? "" : " ") + std::string(VerdictName(found.verdict));
    for (const NotLooked& not_looked : audit.not_looked)
        told += (told.empty() ? "?" : " ?") + std::string(not_looked.what);
    return told;
}

InputTape Edited(const std::function<void(InputTape&)>& edit) {
    int64_t score = 0;
    InputTape tape = PlayedTape(1'000, 1, score);
    edit(tape);
    return tape;
}

// Keys that go down and up while the ball rests, to the last event that there is room for.
InputTape FullTape() {
    InputTape tape;
    ResetTape(tape, 32, 32);
    for (uint64_t i = 0; tape.events.size() < kTapeMaxEvents; ++i)
        AppendEvent(tape, i * 16, i % 2 == 0 ? kInputLeftDown : kInputLeftUp);
    return tape;
}

// When a row is changed: it is signed as it then stands, or it is signed already.
enum When { kThenSigned, kSigned };

struct Forgery {
    const char* why;
    std::string told;
    When when;
    std::function<void(RecordedRun&)> change;
    std::function<void(Evidence&)> found = [](Evidence&) {};  // what the services say
};

void SetTime(RecordedRun& run, int64_t ts, int64_t week) {
    run.row["ts"] = ts;
    run.row["week"] = week;
}

void EditTape(RecordedRun& run, const std::function<void(InputTape&)>& edit) { run.SetTape(Edited(edit)); }

int64_t LastEntry() {  // a run as long as this one's needs an entry in a block of this time at the latest
    int64_t score = 0;
    return kRecordedAt + 300 + 7'200 - PlayedTape(1'000, 1, score).events.back().tick_ms / 1'000;
}

using Run = RecordedRun;
void Nothing(RecordedRun&) {}

const Forgery kForgeries[] = {
    {"nothing is wrong", "", kSigned, Nothing},
    {"paid to somebody else", "signature-wrong", kSigned, [](Run& r) { r.row["pay_addr"] = "1"; }},
    {"unsigned", "signature-wrong", kSigned, [](Run& r) { r.row.erase("sig"); }},
    {"another key of the player", "key-not-published", kThenSigned,
     [](Run& r) { r.player = MakePlayer("ada", 1); },
     [](Evidence& found) { found.public_key = MakePlayer("ada").public_hex; }},
    {"no key is published", "key-not-published", kSigned, Nothing,
     [](Evidence& e) { e.key = LookUp::kNone; }},
    {"the key not looked at", "?published key", kSigned, Nothing,
     [](Evidence& e) { e.key = LookUp::kFailed; }},
    {"a foreign domain", "key-not-published", kThenSigned,
     [](Run& r) { r.row["paymail"] = "ada@else.test"; }},
    {"shown as another", "key-not-published", kThenSigned, [](Run& r) { r.row["handle"] = "bob"; }},
    {"another game, whose tape is its own", "another-game", kThenSigned,
     [](Run& r) { r.SetTapeHex("00"), r.row["game"] = "other"; }},
    {"this game in capitals", "", kThenSigned, [](Run& r) { r.row["game"] = "BrickFall"; }},
    {"no tape", "tape-malformed", kThenSigned, [](Run& r) { r.SetTapeHex(""); }},
    {"no hexadecimal tape", "tape-malformed", kThenSigned, [](Run& r) { r.row["tape"] = "xy"; }},
    {"a cut tape", "tape-malformed", kThenSigned,
     [](Run& r) { r.SetTapeHex(TapeToHex(FullTape()).substr(0, 30)); }},
    {"an event at no tick", "tape-malformed", kThenSigned,
     [](Run& r) { EditTape(r, [](InputTape& tape) { ++tape.events[1].tick_ms; }); }},
    {"the tape of another screen", "seal-wrong", kSigned,
     [](Run& r) { r.row["tape"] = TapeToHex(Edited([](InputTape& tape) { ++tape.cell_w; })); }},
    {"no end", "not-a-lost-game", kThenSigned,
     [](Run& r) { EditTape(r, [](InputTape& tape) { tape.events.pop_back(); }); }},
    {"the end with balls left", "not-a-lost-game", kThenSigned,
     [](Run& r) {
         EditTape(r, [](InputTape& tape) { tape.events[2].code = kInputEnd, tape.events.resize(3); });
     }},
    {"a key goes down twice", "not-a-lost-game", kThenSigned,
     [](Run& r) { EditTape(r, [](InputTape& tape) { tape.events[1] = tape.events[0]; }); }},
    {"points without play", "score-differs", kThenSigned, [](Run& r) { r.row["score"] = 64'000; }},
    {"a full tape", "tape-full too-large", kThenSigned, [](Run& r) { r.SetTape(FullTape()); }},
    {"a full tape, and less than it reached", "score-differs too-large", kThenSigned,
     [](Run& r) { r.SetTape(FullTape()), r.row["score"] = -1; }},
    {"a satoshi less to the house", "entry-unpaid", kThenSigned,
     [](Run& r) { --r.entry[0].value, r.NameEntry(); }},
    {"both shares to the house", "entry-unpaid", kThenSigned,
     [](Run& r) { r.entry[1] = PaymentTo(kArcadeHouseAddress, kArcadePotSats), r.NameEntry(); }},
    {"no entry", "entry-unpaid", kThenSigned, [](Run& r) { r.row["entry"] = ""; }},
    {"an entry that is none", "entry-unpaid", kSigned, Nothing, [](Evidence& e) { e.entry = LookUp::kNone; }},
    {"the same, while the record waits for its block", "?entry", kSigned,
     [](Run& r) { r.record_block = ToldBlock(0, 0); }, [](Evidence& e) { e.entry = LookUp::kNone; }},
    {"the entry not looked at", "?entry", kSigned, Nothing, [](Evidence& e) { e.entry = LookUp::kFailed; }},
    {"as long as could be played", "", kSigned, [](Run& r) { r.entry_block.time = LastEntry(); }},
    {"a second longer", "run-too-long", kSigned, [](Run& r) { r.entry_block.time = LastEntry() + 1; }},
    {"by a clock that is half a day slow", "", kThenSigned,
     [](Run& r) { r.row["ts"] = kRecordedAt - 39'000; }},
    {"the same, while the record waits for its block", "", kThenSigned,
     [](Run& r) { r.row["ts"] = kRecordedAt - 39'000, r.record_block = ToldBlock(0, 0); }},
    {"an entry without a block", "", kSigned,
     [](Run& r) { r.entry_block = ToldBlock(0, kRecordedAt + 9'000); }},
    {"another week", "week-wrong", kThenSigned, [](Run& r) { r.row["week"] = kTestWeek - 604'800; }},
    {"the week read before midnight, the time behind it", "", kThenSigned,
     [](Run& r) {
         SetTime(r, kTestWeek + 59, kTestWeek - 604'800);
         r.record_block = ToldBlock(102, kTestWeek + 400);
         r.entry_block = ToldBlock(100, kTestWeek - 900);
     }},
    {"more than a day before its block", "week-wrong", kSigned,
     [](Run& r) { r.record_block.time = kRecordedAt + 86'401; }},
    {"nothing to read", "payload-unreadable", kSigned, [](Run& r) { r.payload = "[1"; }},
    {"no record", "?transaction", kSigned, Nothing, [](Evidence& e) { e.record = LookUp::kNone; }},
};

TEST(Judge, NamesWhatIsWrongAndNothingElse) {
    for (const Forgery& forgery : kForgeries) {
        RecordedRun run;
        forgery.change(run);
        if (forgery.when == kThenSigned) run.Sign();
        Evidence evidence = run.Make();
        forgery.found(evidence);
        EXPECT_EQ(Told(JudgeRow(evidence)), forgery.told) << forgery.why;
    }
}

TEST(Judge, ComparesRows) {
    const RecordedRun ada("ada", 1);
    RecordedRun again = ada;  // once more, later
    again.row["ts"] = kRecordedAt + 60;
    again.Sign();
    RecordedRun thief("eve", 2);  // has played, and names the entry of another
    thief.entry = ada.entry;
    thief.entry_block = ada.entry_block;
    thief.NameEntry();
    thief.Sign();
    const auto at = [](RecordedRun run, int64_t height) {
        run.record_block.height = height;
        return run.Make();
    };
    int64_t score = 0;
    InputTape tape = PlayedTape(1'000, 1, score);
    tape.cell_w = 17;
    const RecordedRun copy("eve", tape, score);
    RecordedRun worthless = copy;
    worthless.row["sig"] = ada.row["sig"];
    RecordedRun claims = thief;  // and the other's address, to which the change went
    claims.row["pay_addr"] = ada.player.pay_addr;
    claims.Sign();
    const InputTape serves = ThreeServes(score);
    const RecordedRun short_one("ada", serves, score), short_two("bob", serves, score);

    const std::pair<std::vector<Evidence>, std::vector<std::string>> rows[] = {
        {{again.Make(), ada.Make()}, {"entry-used", ""}},         // in the order of their times
        {{at(again, 101), at(ada, 102)}, {"", "entry-used"}},     // of their blocks before that
        {{at(thief, 101), at(ada, 102)}, {"entry-used", ""}},     // an entry is whose change it is
        {{at(claims, 101), at(ada, 102)}, {"?order", "?order"}},  // which says nothing here
        {{at(ada, 101), at(copy, 102)}, {"", "events-copied"}},
        {{at(copy, 102), at(ada, 102)}, {"?order", "?order"}},  // who copies can name an earlier time
        {{at(worthless, 101), at(ada, 102)}, {"signature-wrong", ""}},
        {{at(short_one, 101), at(short_two, 102)}, {"", ""}},
    };
    for (const auto& [evidence, told] : rows) {
        std::vector<std::string> found;
        for (const RowAudit& audit : JudgeRows(evidence, 2)) found.push_back(Told(audit));
        EXPECT_EQ(found, told);
    }
}

TEST(Judge, BlamesNoHonestRun) {
    constexpr uint64_t kRuns = 3'000 / kOneCaseOf;
    RunFixture play;
    std::vector<RecordedRun> players(7);
    for (std::size_t i = 0; i < players.size(); ++i)
        players[i].player = MakePlayer("ada", static_cast<int>(i));
    std::vector<Evidence> evidence;
    for (uint64_t seed = 1; seed <= kRuns; ++seed) {
        std::mt19937_64 random(seed);
        PlayRandomRun(play, random, seed == 17 ? 2 : 0, seed * 7'919 % 6'000, [] {});
        RecordedRun& run = players[seed % players.size()];
        run.row["score"] = play.run.final_score;
        run.row["pay_addr"] = run.player.pay_addr;
        run.SetTape(play.run.tape);
        run.entry[2] = PaymentTo(run.player.pay_addr, static_cast<int64_t>(seed));  // an entry of its own
        run.NameEntry();
        run.Sign();
        evidence.push_back(run.Make());
    }
    const std::vector<RowAudit> audits = JudgeRows(evidence, 2);
    for (std::size_t i = 0; i < audits.size(); ++i) {
        ASSERT_EQ(Told(audits[i]), "") << "seed " << i + 1;
        ASSERT_TRUE(audits[i].run && audits[i].run->score == audits[i].score);
    }
}

// Presses at 0, 32 and 32 ms: three, of which the last two share a tick; the shortest gap is none.
TEST(Judge, TellsHowARunWasPlayed) {
    int64_t score = 0;
    InputTape tape = ThreeServes(score);
    const uint32_t length = tape.events.back().tick_ms;
    tape.events.insert(
        tape.events.begin() + 1,
        {{32, kInputLeftDown}, {32, kInputRightDown}, {48, kInputLeftUp}, {48, kInputRightUp}});
    const RowAudit audit = JudgeRow(RecordedRun("ada", tape, score).Make());
    ASSERT_TRUE(audit.run);
    EXPECT_EQ(audit.run->presses, 5u);
    EXPECT_EQ(audit.run->same_tick, 2u);
    EXPECT_EQ(audit.run->shortest_gap_ms, 0);
    EXPECT_EQ(audit.run->length_ms, length);
    EXPECT_NEAR(audit.run->PressesPerSecond(), 5'000.0 / length, 1e-9);
    EXPECT_EQ(audit.run->level, 1);
}

}  // namespace
}  // namespace brickfall
