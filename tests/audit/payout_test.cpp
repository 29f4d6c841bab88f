#include "audit/payout.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "audit/settlement_report.h"
#include "tests/support/signed_rows.h"

namespace brickfall {
namespace {

constexpr int64_t kWeek = 7 * 86'400;

JudgedRow Scored(const std::string& txid, const std::string& player, int64_t score,
                 RowStanding standing = RowStanding::kSound, int64_t ts = 0) {
    JudgedRow row;
    row.txid = txid;
    row.pubkey = player;
    row.pay_addr = "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH";  // of the private key 1
    row.score = score;
    row.ts = kTestWeek + ts;
    row.week = kTestWeek;
    row.standing = standing;
    row.mined = true;
    return row;
}

PotPayment Entry(const std::string& txid, int64_t satoshis, int64_t at = 0, Burial burial = Burial::kMined) {
    return {txid, satoshis, true, burial, kTestWeek + at, {}};
}

SettlementInput Complete(std::vector<JudgedRow> rows, std::vector<PotPayment> payments) {
    return {kTestWeek, false, kTestWeek + 2 * kWeek, true, true, std::move(rows), std::move(payments)};
}

TEST(Payout, WhoIsDueWhat) {
    using enum SettlementDoubt;
    const auto unsound = RowStanding::kUnsound, unknown = RowStanding::kNotLookedAt;
    const JudgedRow ada = Scored("a", "ada", 9), again = Scored("c", "ada", 7), bob = Scored("b", "bob", 8),
                    cid = Scored("d", "cid", 6), dot = Scored("e", "dot", 4);
    JudgedRow unaddressed = bob, of_next_week = cid, unmined = bob;
    unaddressed.pay_addr.back() ^= 1;
    of_next_week.week += kWeek;
    unmined.mined = false;
    struct Case {
        const char* why;
        std::vector<JudgedRow> rows;
        bool one_each;
        const char* shares;  // of 10,002 satoshis, by record
        int64_t held = 0;
        std::vector<SettlementDoubt> doubts = {};
    };
    const Case cases[] = {
        {"nobody: the pot stays", {}, false, ""},
        {"of two, 60 / 40, rounded down, the rest to the first", {bob, ada}, false, "a6002 b4000 "},
        {"the best three", {dot, ada, again, bob}, false, "a5002 b3000 c2000 "},
        {"one place a player", {ada, again, bob, cid}, true, "a5002 b3000 d2000 "},
        {"equal scores: the later, as on the board, then the lesser id",
         {Scored("z", "z", 9, {}, 5), Scored("y", "y", 9, {}, 9), Scored("x", "x", 9, {}, 5)},
         false,
         "y5002 x3000 z2000 "},
        {"no place: unsound, of another week, score 0",
         {ada, Scored("u", "eve", 99, unsound), of_next_week, Scored("s", "eve", 0)},
         false,
         "a10002 "},
        {"without an address the share is nobody else's", {ada, unaddressed}, false, "a6002 b4000 ", 4'000},
        {"told twice, once as unsound", {ada, Scored("a", "ada", 9, unsound), bob}, false, "b10002 "},
        {"one not looked at could be third",
         {ada, bob, Scored("k", "eve", 5, unknown), dot},
         false,
         "a5002 b3000 e2000 ",
         0,
         {kRowNotLookedAt}},
        {"it could not", {ada, bob, cid, Scored("k", "eve", 5, unknown)}, false, "a5002 b3000 d2000 "},
        {"nor could it, its player has a place", {ada, Scored("k", "ada", 5, unknown)}, true, "a10002 "},
        {"nothing is known of a row", {ada, JudgedRow()}, false, "a10002 ", 0, {kRowNotLookedAt}},
        {"a place for a row in no block", {unmined, ada}, false, "a6002 b4000 ", 0, {kRowNotMined}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        SettlementInput input = Complete(c.rows, {Entry("1", 3'000), Entry("2", 7'002)});
        input.one_each = c.one_each;
        const Settlement settlement = SettleWeek(input);
        std::string shares;
        for (const Share& share : settlement.shares) {
            shares += share.row.txid + std::to_string(share.satoshis) + " ";
        }
        EXPECT_EQ(shares, c.shares);
        EXPECT_EQ(settlement.held, c.held);
        EXPECT_EQ(settlement.doubts, c.doubts);
    }
}

TEST(Payout, WhatTheWeeksPotIs) {
    PotPayment donation = Entry("d", 3'000);
    donation.is_entry = false;
    SettlementInput input = Complete(
        {}, {Entry("1", 3'000), Entry("2", 3'001, kWeek - 1), Entry("2", 3'001), Entry("3", 3'000, -1),
             Entry("4", 3'000, kWeek), donation, Entry("w", 3'000, 0, Burial::kWaiting)});
    EXPECT_EQ(SettleWeek(input).pot, 6'001) << "each once, from Monday 00:00 to Sunday 23:59:59";
    EXPECT_EQ(SettleWeek(input).others.size(), 1u);
    input.known_at = kTestWeek + kWeek + kLateRowSeconds - 1;
    EXPECT_EQ(SettleWeek(input).doubts, std::vector{SettlementDoubt::kWeekOpen});
    input.known_at = kTestWeek + kWeek - 1;
    EXPECT_EQ(SettleWeek(input).pot, 9'001) << "what waits counts with the running week";

    input = Complete({Scored("a", "ada", 1)},
                     {Entry("1", 2'100'000'000'000'000), Entry("2", 1), Entry("u", 1, 0, Burial::kNotTold)});
    EXPECT_EQ(SettleWeek(input).shares.size(), 0u) << "more than there are coins";
    EXPECT_EQ(SettleWeek(input).doubts,
              (std::vector{SettlementDoubt::kPaymentTimeNotTold, SettlementDoubt::kPotImpossible}));
}

TEST(Payout, TheSumsAddUpAndTheOrderOfTheInputDoesNotMatter) {
    const auto name = rc::gen::element<std::string>("p", "q", "r", "s", "t", "u", "v");
    const auto entry = rc::gen::apply(
        [](const std::string& txid, int64_t satoshis, int64_t day, int burial) {
            return Entry(txid, satoshis, day * 86'400, static_cast<Burial>(burial));
        },
        name, rc::gen::inRange<int64_t>(0, 300'000'000'000'000), rc::gen::inRange<int64_t>(-3, 10),
        rc::gen::inRange(0, 3));
    const auto judged = rc::gen::apply(
        [](const std::string& txid, const std::string& player, int64_t score, int64_t ts, int standing) {
            JudgedRow row = Scored(txid, player, score, static_cast<RowStanding>(standing), ts);
            if (ts == 2) row.pay_addr.clear();
            return row;
        },
        name, name, rc::gen::inRange<int64_t>(-1, 4), rc::gen::inRange<int64_t>(0, 3),
        rc::gen::inRange(0, 4));
    EXPECT_TRUE(rc::check([&] {
        SettlementInput input = Complete(*rc::gen::container<std::vector<JudgedRow>>(judged),
                                         *rc::gen::container<std::vector<PotPayment>>(entry));
        input.one_each = *rc::gen::arbitrary<bool>();
        const nlohmann::json told = SettlementJson(SettleWeek(input));
        const auto number = [](const nlohmann::json& object, const char* key) {
            return object[key].get<int64_t>();
        };
        int64_t pot = 0, shared = 0;
        for (const auto& one : told["entries"]) pot += number(one, "satoshis");
        std::set<std::string> ids, placed;
        for (const auto& share : told["shares"]) {
            shared += number(share, "satoshis");
            placed.insert(share["txid"].get<std::string>());
            const int64_t off = number(share, "satoshis") * 100 - pot * number(share, "percent");
            RC_ASSERT((share["place"] == 1 ? off >= 0 && off < 300 : off <= 0 && off > -100));
        }
        RC_ASSERT(number(told, "pot") == pot);
        RC_ASSERT(number(told, "due") + number(told, "held") == shared);
        RC_ASSERT(shared + number(told, "kept") == pot);
        for (const JudgedRow& row : input.rows) ids.insert(row.txid);
        for (const auto& row : told["left_out"])
            RC_ASSERT(placed.insert(row["txid"].get<std::string>()).second);
        RC_ASSERT(placed == ids);  // each row has a place or a reason

        std::reverse(input.rows.begin(), input.rows.end());
        const std::vector<PotPayment> again(input.payments.rbegin(), input.payments.rend());
        input.payments.insert(input.payments.begin(), again.begin(), again.end());
        RC_ASSERT(SettlementJson(SettleWeek(input)) == told);
    }));
}

}  // namespace
}  // namespace brickfall
