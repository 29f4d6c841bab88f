// One forged row for each verdict, rows that spoil each other, and honest runs, which are never blamed.
#include "audit/judge.h"

#include <gtest/gtest.h>

#include <functional>

#include "deployment/deployment.h"
#include "messages/row.h"
#include "tests/game/random_run.h"
#include "tests/support/recorded_run.h"
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

struct Forgery {
    const char* why;
    std::function<void(RecordedRun&)> before;  // before it is signed
    std::function<void(RecordedRun&)> behind;  // once it is signed
    std::function<void(Evidence&)> found;      // what the services say
    std::string told;
};

void SetTime(RecordedRun& run, int64_t ts, int64_t week) {
    run.row["ts"] = ts;
    run.row["week"] = week;
}

int64_t LengthMs() {
    int64_t score = 0;
    return PlayedTape(1'000, 1, score).events.back().tick_ms;
}

const Forgery kForgeries[] = {
    {"nothing is wrong", {}, {}, {}, ""},
    {"changed behind the signature",
     {},
     [](RecordedRun& run) { run.row["pay_addr"] = MakePlayer("eve").pay_addr; },
     {},
     "signature-wrong"},
    {"unsigned", {}, [](RecordedRun& run) { run.row.erase("sig"); }, {}, "signature-wrong"},
    {"another key of the player",
     [](RecordedRun& run) { run.player = MakePlayer("ada", 1); },
     {},
     [](Evidence& found) { found.public_key = MakePlayer("ada").public_hex; },
     "key-not-published"},
    {"no key is published", {}, {}, [](Evidence& found) { found.key = LookUp::kNone; }, "key-not-published"},
    {"nobody knows the key", {}, {}, [](Evidence& found) { found.key = LookUp::kFailed; }, "?published key"},
    {"the name at a foreign domain",
     [](RecordedRun& run) { run.row["paymail"] = "ada@elsewhere.test"; },
     {},
     {},
     "key-not-published"},
    {"shown under another name",
     [](RecordedRun& run) { run.row["handle"] = "bob"; },
     {},
     {},
     "key-not-published"},
    {"another game, whose tape is its own",
     [](RecordedRun& run) {
         run.row["game"] = "other";
         run.SetTapeHex("00");
     },
     {},
     {},
     "another-game"},
    {"this game in capitals", [](RecordedRun& run) { run.row["game"] = "BrickFall"; }, {}, {}, ""},
    {"no tape", [](RecordedRun& run) { run.SetTapeHex(""); }, {}, {}, "tape-malformed"},
    {"no hexadecimal tape", [](RecordedRun& run) { run.row["tape"] = "xy"; }, {}, {}, "tape-malformed"},
    {"half an event is missing",
     [](RecordedRun& run) {
         const auto hex = run.row["tape"].get<std::string>();
         run.SetTapeHex(hex.substr(0, hex.size() - 4));
     },
     {},
     {},
     "tape-malformed"},
    {"an event at no tick",
     [](RecordedRun& run) { run.SetTape(Edited([](InputTape& tape) { ++tape.events[1].tick_ms; })); },
     {},
     {},
     "tape-malformed"},
    {"the tape of another screen, behind the signature",
     {},
     [](RecordedRun& run) { run.row["tape"] = TapeToHex(Edited([](InputTape& tape) { ++tape.cell_w; })); },
     {},
     "seal-wrong"},
    {"no end",
     [](RecordedRun& run) { run.SetTape(Edited([](InputTape& tape) { tape.events.pop_back(); })); },
     {},
     {},
     "not-a-lost-game"},
    {"the end with balls left",
     [](RecordedRun& run) {
         run.SetTape(Edited([](InputTape& tape) {
             tape.events.resize(3);
             tape.events.push_back({tape.events.back().tick_ms, kInputEnd});
         }));
     },
     {},
     {},
     "not-a-lost-game"},
    {"a key goes down twice",
     [](RecordedRun& run) {
         run.SetTape(
             Edited([](InputTape& tape) { tape.events.insert(tape.events.begin(), tape.events[0]); }));
     },
     {},
     {},
     "not-a-lost-game"},
    {"one point more",
     [](RecordedRun& run) { run.row["score"] = run.row["score"].get<int64_t>() + 1; },
     {},
     {},
     "score-differs"},
    {"a full tape", [](RecordedRun& run) { run.SetTape(FullTape()); }, {}, {}, "tape-full too-large"},
    {"a full tape, and fewer points than it reached",
     [](RecordedRun& run) {
         run.SetTape(FullTape());
         run.row["score"] = -1;
     },
     {},
     {},
     "score-differs too-large"},
    {"a satoshi less to the house",
     [](RecordedRun& run) {
         --run.entry[0].value;
         run.NameEntry();
     },
     {},
     {},
     "entry-unpaid"},
    {"both shares to the house",
     [](RecordedRun& run) {
         run.entry[1] = PaymentTo(kArcadeHouseAddress, kArcadePotSats);
         run.NameEntry();
     },
     {},
     {},
     "entry-unpaid"},
    {"no entry", [](RecordedRun& run) { run.row["entry"] = ""; }, {}, {}, "entry-unpaid"},
    {"an entry that there is not",
     {},
     {},
     [](Evidence& found) { found.entry = LookUp::kNone; },
     "entry-unpaid"},
    {"the same, while the record waits for its block",
     {},
     [](RecordedRun& run) { run.record_block = ToldBlock(0, 0); },
     [](Evidence& found) { found.entry = LookUp::kNone; },
     "?entry"},
    {"nobody looked for the entry", {}, {}, [](Evidence& found) { found.entry = LookUp::kFailed; }, "?entry"},
    {"as long as could be played",
     {},
     [](RecordedRun& run) { run.entry_block = ToldBlock(100, kRecordedAt + 7'200 - LengthMs() / 1'000); },
     {},
     ""},
    {"a second longer",
     {},
     [](RecordedRun& run) { run.entry_block = ToldBlock(100, kRecordedAt + 7'201 - LengthMs() / 1'000); },
     {},
     "run-too-long"},
    {"the same, with an entry that waits for its block",
     {},
     [](RecordedRun& run) { run.entry_block = ToldBlock(0, kRecordedAt + 9'000); },
     {},
     ""},
    {"another week",
     [](RecordedRun& run) { SetTime(run, kRecordedAt, kTestWeek - 604'800); },
     {},
     {},
     "week-wrong"},
    {"the week read before midnight, the time behind it",
     [](RecordedRun& run) {
         SetTime(run, kTestWeek + 59, kTestWeek - 604'800);
         run.record_block = ToldBlock(102, kTestWeek + 400);
         run.entry_block = ToldBlock(100, kTestWeek - 900);
     },
     {},
     {},
     ""},
    {"a time of the day before its block's",
     {},
     [](RecordedRun& run) { run.record_block = ToldBlock(102, kRecordedAt + 86'401); },
     {},
     "week-wrong"},
    {"nothing to read", [](RecordedRun& run) { run.payload = "[1"; }, {}, {}, "payload-unreadable"},
    {"no record", {}, {}, [](Evidence& found) { found.record = LookUp::kNone; }, "?transaction"},
};

TEST(Judge, NamesWhatIsWrongAndNothingElse) {
    for (const Forgery& forgery : kForgeries) {
        RecordedRun run;
        if (forgery.before) forgery.before(run);
        run.Sign();
        if (forgery.behind) forgery.behind(run);
        Evidence evidence = run.Make();
        if (forgery.found) forgery.found(evidence);
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
    constexpr uint64_t kRuns = 3'000;
    RunFixture play;
    std::vector<Evidence> evidence;
    for (uint64_t seed = 1; seed <= kRuns; ++seed) {
        std::mt19937_64 random(seed);
        PlayRandomRun(play, random, seed == 17 ? 2 : 0, seed * 7'919 % 20'000, [] {});
        RecordedRun run("player" + std::to_string(seed % 7), play.run.tape, play.run.final_score);
        run.entry[2].value = static_cast<int64_t>(seed);  // an entry of its own
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
