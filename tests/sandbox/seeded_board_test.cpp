// A filled board as the services give it: who plays, what they played, which rows are no good, and faces.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/replay.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "sandbox/server/seed_board.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {
namespace {

using nlohmann::json;
const std::string kFamilyHost = kApiBaseUrl;
constexpr int64_t kMonday = 1'789'948'800;  // 2026-09-21 00:00 UTC
constexpr int64_t kWeek = 7 * 86'400;

json GetJson(const std::string& url) {
    std::string body, error;
    EXPECT_TRUE(HttpGetOnce(url, body, error)) << url << " " << error;
    return json::parse(body, nullptr, false);
}

std::string Text(const json& object, const char* key) {
    return object.is_object() ? object.value(key, std::string()) : "";
}

// What is wrong with a row that comes behind those whose entries and events are known; "" for a good one.
std::string FaultsOf(const json& row, std::set<std::string>& known) {
    if (!VerifyMessage(row)) return ": signature";
    if (Text(row, "game") != "brickfall") return ": game";
    std::string faults;
    const json entry = GetJson(std::string(kChainApiBaseUrl) + "/tx/" + Text(row, "entry"));
    EXPECT_EQ(entry["vout"][1]["value"], 0.00003);
    if (!known.insert(Text(row, "entry")).second) faults += ": entry ";
    if (!known.insert(Text(row, "tape").substr(2 * kTapeHeaderBytes)).second) faults += ": copy ";
    const ByteBuffer bytes = HexDecode(Text(row, "tape"));
    if (Text(row, "tape_hash") != HexEncode(Sha256Once(bytes))) faults += ": seal ";
    InputTape tape;
    EXPECT_EQ(ReadTape(bytes, tape), TapeFault::kNone);
    Replay first(tape);
    first.GoTo(Replay::kToTheEnd);
    if (first.End() == ReplayEnd::kRefused) {
        faults += ": event ";
        tape.events.erase(tape.events.begin() + static_cast<std::ptrdiff_t>(first.NextEvent()));
    }
    Replay replay(tape);
    replay.GoTo(Replay::kToTheEnd);
    EXPECT_EQ(replay.End(), ReplayEnd::kLost) << ReplayEndText(replay);
    if (row["score"] != replay.Game().score) faults += ": score ";
    const auto ts = row["ts"].get<int64_t>();
    EXPECT_LT(entry["time"].get<int64_t>() + static_cast<int64_t>(replay.TickMs() / 1'000), ts);
    EXPECT_TRUE(row["week"] <= ts && row["week"] > ts - kWeek);
    return faults;
}

TEST(SeededBoard, HoldsRunsThatWerePlayedAndNineBadRows) {
    const SandboxFixture services;
    ASSERT_TRUE(services.box.SeedBoard(kMonday + 4 * 86'400));
    const json ids = GetJson(kFamilyHost + "/oi/oracle/brickfall/txids?limit=2000&offset=0")["txids"];
    std::map<int64_t, std::vector<int64_t>> good;  // scores by week
    std::vector<int64_t> unsound;                  // scores that stand on the board all the same
    std::set<std::string> known, bad, players;
    for (auto id = ids.rbegin(); id != ids.rend(); ++id) {  // the oldest first
        const json record = GetJson(kFamilyHost + "/oi/tx/" + id->get<std::string>());
        EXPECT_EQ(record["vout"][0]["scriptPubKey"]["addresses"], json::array({kArcadeWatchAddress}));
        json row;
        const std::string faults = FindScorePayload(record, row) ? FaultsOf(row, known) : ": too long";
        (faults.empty() ? players : bad).insert(Text(row, "actor") + faults);
        if (faults.ends_with(" ")) unsound.push_back(row["score"].get<int64_t>());
        if (faults.empty()) good[row["week"].get<int64_t>()].push_back(row["score"].get<int64_t>());
    }
    EXPECT_EQ(bad, (std::set<std::string>{": too long", "jonas: signature", "zed: signature", "quill: game",
                                          "tall-tale: score ", "magpie: copy ", "cuckoo: entry ",
                                          "changeling: seal ", "ghost-hand: event "}));
    std::vector<int64_t> shown = good[kMonday];
    EXPECT_TRUE(good.size() == 2 && shown.size() == 24 && good[kMonday - kWeek].size() == 10);
    std::ranges::sort(shown);
    EXPECT_GT(shown[14], std::ranges::max(unsound)) << "the first ten are good";
    shown.insert(shown.end(), unsound.begin(), unsound.end());
    EXPECT_LT(std::ranges::count_if(shown, [](auto score) { return score > 950; }), 20) << "a beginner's run";

    std::multiset<std::string> faces;  // from the web and from the chain
    std::string bytes, error;
    for (const std::string& name : players) {
        const json said =
            GetJson(kFamilyHost + "/api/bsvalias/public-profile/" + name + "@" + kPaymailDomain);
        const std::string web = Text(said, "avatar"), chain = Text(said, "ord");
        if (web.empty() && chain.empty()) continue;
        const std::string url = kOrdinalsContentBaseUrl + ("/content/" + chain);
        EXPECT_TRUE(HttpGetOnce(web.empty() ? url : web, bytes, error)) << name << error;
        const bool is_jpeg = bytes.starts_with("\xff\xd8\xff"), is_webp = bytes.starts_with("RIFF");
        faces.insert((is_jpeg ? "JPEG" : bytes.substr(is_webp ? 8 : 1, 4)) + (web.empty() ? "chain" : "web"));
    }
    EXPECT_EQ(faces, (std::multiset<std::string>{"JPEGchain", "JPEGweb", "PNG\rchain", "PNG\rweb", "PNG\rweb",
                                                 "WEBPchain", "WEBPchain", "WEBPweb"}));
    EXPECT_EQ(players.size(), 12u);
    EXPECT_FALSE(HttpGetOnce(kFamilyHost + "/faces/nobody.png", bytes, error));
}

TEST(SeededBoard, IsFilledOnceAWeek) {
    sandbox::World world;
    std::vector<std::size_t> sizes;
    for (const int64_t time : {kMonday, kMonday + kWeek - 1, kMonday + kWeek, kMonday + 5 * kWeek}) {
        ASSERT_TRUE(sandbox::SeedBoard(world, time));
        sizes.push_back(world.chain.order.size());
    }
    // 17 players are given money, 4 of them inscribe a face; 10 and 33 runs, one of them without an entry.
    EXPECT_EQ(sizes, (std::vector<std::size_t>{21 + 20 + 65, 106, 106 + 17 + 65, 188 + 17 + 20 + 65}));
    EXPECT_EQ(world.identities.size(), 17u);
    EXPECT_TRUE(std::ranges::is_sorted(world.chain.blocks, {}, [](const auto& block) { return block.time; }));
}

}  // namespace
}  // namespace brickfall
