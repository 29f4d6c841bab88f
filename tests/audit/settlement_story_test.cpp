// What the pot was paid, from the services to the settlement and through a file.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "audit/report.h"
#include "audit/settlement_input.h"
#include "audit/settlement_report.h"
#include "deployment/deployment.h"
#include "tests/support/manual_clock.h"
#include "tests/support/recorded_run.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;

constexpr int64_t kSettledAt = kTestWeek + 7 * 86'400 + kLateRowSeconds;

std::string PotPage(int first, int last, const char* token) {
    json rows = json::array();
    for (int i = first; i <= last; ++i) {
        std::string id = std::to_string(i);
        rows.push_back({{"tx_hash", id.insert(0, 64 - id.size(), '0')}, {"height", i}});
    }
    return json{{"result", rows}, {"nextPageToken", token}}.dump();
}

TEST(SettlementStory, ThePotsHistoryIsReadToItsEndOrNotBelieved) {
    struct Case {
        std::vector<std::array<std::string, 2>> pages;  // what of the request each answers, and how
        int status;                                     // of the first of them
        bool all_listed;
        std::size_t found;
        const char* why;
    };
    const Case cases[] = {
        {{{"token=a%2B%2F%3D%26x", PotPage(1'005, 1'006, "2")},
          {"token=2", PotPage(1'007, 1'007, "")},
          {"/confirmed/history", PotPage(1'000, 1'004, "a+/=&x")}},
         200,
         true,
         8,
         "a token goes back as it came"},
        {{{"/confirmed/history", ""}}, 404, true, 0, "an address that nobody knows"},
        {{{"token=2", ""}, {"/confirmed/history", PotPage(1'000, 1'004, "2")}},
         404,
         false,
         5,
         "a page is missing"},
        {{{"/confirmed/history", PotPage(1'000, 1'004, "2")}}, 200, false, 5, "a page that leads to itself"},
        {{{"/confirmed/history", R"({"result": [{"height": 5}]})"}},
         200,
         false,
         0,
         "a row that names nothing"},
        {{{"/confirmed/history", PotPage(1, 1'150, "")}}, 200, true, 175, "back to a day before the week"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        SandboxFixture services;
        int status = c.status;
        for (const auto& [path, body] : c.pages) {
            services.Reply(Service::kChain, path, std::exchange(status, 200), body);
        }
        // Block n holds transaction n, an hour after block n-1; block 1,000 begins the week.
        std::mutex lock;
        std::set<int> asked;
        const auto find = [&](const std::string& txid, AuditTransaction& transaction, std::string&) {
            const int number = std::stoi(txid);
            const std::lock_guard guard(lock);
            asked.insert(number);
            transaction = MadeTransaction({PaymentTo(kArcadePotAddress, 5)},
                                          ToldBlock(number, kTestWeek + (number - 1'000) * 3'600));
            return true;
        };
        const PotHistory history = CollectPotHistory(kTestWeek, 4, find, [](std::size_t, std::size_t) {});
        EXPECT_EQ(history.all_listed, c.all_listed) << history.error;
        EXPECT_EQ(history.transactions.size(), c.found);
        EXPECT_FALSE(asked.contains(800)) << "days before the week";
    }
}

Settlement Settle(int64_t week, const Collected& collected) {
    return SettleWeek(
        MakeSettlementInput(week, collected, MakeReport(collected, 2).rows, /*one_each=*/false));
}

TEST(SettlementStory, TheSeededBoardsPot) {
    const ManualClock clock(kSettledAt - 1);
    SandboxFixture services;
    ASSERT_TRUE(services.box.SeedBoard(kTestWeek + 6 * 86'400));
    const Settlement settlement =
        Settle(kTestWeek,
               Collect({.kind = ScopeKind::kWeek, .week = kTestWeek, .every_page = true, .with_pot = true},
                       [](const char*, std::size_t, std::size_t) {}));
    EXPECT_EQ(settlement.pot, 32 * 3'000) << "33 rows, one of which has no entry of its own";
    EXPECT_EQ(settlement.doubts, std::vector{SettlementDoubt::kWeekOpen});
}

TEST(SettlementStory, ThreeSoundRowsAndThroughAFile) {
    Collected collected;
    std::vector<std::pair<int64_t, std::string>> best;  // by score
    for (const char* const name : {"ada", "bob", "cid"}) {
        const RecordedRun run(name, best.size() + 1, 2'000 * (best.size() + 1));
        best.emplace_back(run.row["score"].get<int64_t>(), run.player.pay_addr);
        collected.evidence.push_back(run.Make());
        collected.pot.transactions.push_back(collected.evidence.back().entry_transaction);
    }
    std::sort(best.rbegin(), best.rend());
    collected.pot.transactions.push_back(
        MadeTransaction({PaymentTo(kArcadePotAddress, 777)}, ToldBlock(101, kRecordedAt)));
    collected.judged = collected.evidence.size();
    collected.all_rows_listed = collected.pot.all_listed = true;
    collected.pot.week_start = kTestWeek;
    collected.pot.known_at = kSettledAt;
    const Settlement settlement = Settle(kTestWeek, collected);
    ASSERT_EQ(settlement.shares.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(settlement.shares[i].row.pay_addr, best[i].second);
        EXPECT_EQ(settlement.shares[i].satoshis, std::vector({4'500, 2'700, 1'800})[i]);
    }
    EXPECT_EQ(settlement.others.size(), 1u) << "no entry";
    EXPECT_TRUE(settlement.doubts.empty());

    Collected read;
    std::string error;
    ASSERT_TRUE(ReadEvidence(WriteEvidence(collected), 2, read, error)) << error;
    EXPECT_EQ(SettlementJson(Settle(kTestWeek, read)), SettlementJson(settlement));
    EXPECT_EQ(Settle(kTestWeek - 7 * 86'400, read).doubts.size(), 3u)
        << "the file claims nothing of other weeks";
    read.evidence[0].key = LookUp::kFailed;
    read.evidence[1].entry_transaction.block = {};
    const Settlement unsure = Settle(kTestWeek, read);
    EXPECT_EQ(unsure.shares.size(), 1u) << "nor is a row paid whose entry's time nobody told";
    EXPECT_EQ(unsure.doubts, std::vector{SettlementDoubt::kRowNotLookedAt});
}

}  // namespace
}  // namespace brickfall
