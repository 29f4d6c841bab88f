// A filled board as the services give it: who plays, what they recorded, which rows are no good, and faces.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "board/watch_reader.h"
#include "deployment/deployment.h"
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

TEST(SeededBoard, HoldsGoodRowsOfTwoWeeksAndFourBadOnes) {
    const SandboxFixture services;
    ASSERT_TRUE(services.box.SeedBoard(kMonday + 4 * 86'400));
    const json ids = GetJson(kFamilyHost + "/oi/oracle/brickfall/txids?limit=2000&offset=0")["txids"];
    std::map<int64_t, int> good_in_week;
    std::set<std::string> players;
    int forged = 0, foreign = 0, unread = 0;
    for (const json& id : ids) {
        const json transaction = GetJson(kFamilyHost + "/oi/tx/" + id.get<std::string>());
        const json& outputs = transaction["vout"];
        EXPECT_EQ(outputs[0]["scriptPubKey"]["addresses"], json::array({kArcadeWatchAddress}));
        json row;
        if (!FindScorePayload(transaction, row)) {
            EXPECT_GT(Text(outputs[1]["scriptPubKey"], "hex").size(), 2u * 65'536);
            ++unread;
            continue;
        }
        const json entry = GetJson(std::string(kChainApiBaseUrl) + "/tx/" + Text(row, "entry"));
        EXPECT_EQ(entry["vout"][1]["value"], 0.00003);
        EXPECT_EQ(Text(row, "tape_hash"), HexEncode(Sha256Once(HexDecode(Text(row, "tape")))));
        const int64_t week = row["week"].get<int64_t>();
        EXPECT_TRUE(row["ts"] >= week && row["ts"] < week + kWeek);
        const bool genuine = VerifyMessage(row), ours = Text(row, "game") == "brickfall";
        forged += genuine ? 0 : 1;
        foreign += genuine && !ours ? 1 : 0;
        if (!genuine || !ours) continue;
        ++good_in_week[week];
        players.insert(Text(row, "actor"));
    }
    EXPECT_EQ(players.size(), 12u);
    EXPECT_EQ(good_in_week.size(), 2u);
    EXPECT_GE(good_in_week[kMonday], 20);
    EXPECT_GE(good_in_week[kMonday - kWeek], 10);

    // Faces come from the web and from the chain.
    std::multiset<std::string> faces;
    for (const std::string& name : players) {
        const json profile =
            GetJson(kFamilyHost + "/api/bsvalias/public-profile/" + name + "@" + kPaymailDomain);
        const std::string web = Text(profile, "avatar"), origin = Text(profile, "ord");
        if (web.empty() && origin.empty()) continue;
        const std::string url = kOrdinalsContentBaseUrl + ("/content/" + origin);
        std::string bytes, error;
        EXPECT_TRUE(HttpGetOnce(web.empty() ? url : web, bytes, error)) << name << error;
        const char* const kind = bytes.starts_with("\x89PNG\r\n")    ? "png"
                                 : bytes.starts_with("\xff\xd8\xff") ? "jpeg"
                                 : bytes.substr(8, 4) == "WEBP"      ? "webp"
                                                                     : "unknown";
        faces.insert(kind + std::string(web.empty() ? " on the chain" : " on the web"));
    }
    EXPECT_EQ(faces.size(), 8u);
    for (const char* const kind : {"png", "jpeg", "webp"}) {
        for (const char* const place : {" on the chain", " on the web"}) {
            EXPECT_TRUE(faces.contains(std::string(kind) + place)) << kind << place;
        }
    }
    std::string body, error;
    EXPECT_FALSE(HttpGetOnce(kFamilyHost + "/faces/nobody.png", body, error));
    EXPECT_EQ(forged, 2) << "a key that is not the published one, and a bent score";
    EXPECT_EQ(foreign, 1);
    EXPECT_EQ(unread, 1);
}

TEST(SeededBoard, IsFilledOnceAWeek) {
    sandbox::World world;
    std::vector<std::size_t> sizes;
    for (const int64_t time : {kMonday, kMonday + kWeek - 1, kMonday + kWeek, kMonday + 5 * kWeek}) {
        ASSERT_TRUE(sandbox::SeedBoard(world, time));
        sizes.push_back(world.chain.order.size());
    }
    EXPECT_GT(sizes[0], 76u);
    EXPECT_EQ(sizes[1], sizes[0]);
    EXPECT_TRUE(sizes[2] > sizes[1] + 50 && sizes[2] < sizes[1] + 76) << "the week before is there already";
    EXPECT_GT(sizes[3], sizes[2]);
    EXPECT_EQ(world.identities.size(), 12u);
    EXPECT_TRUE(std::ranges::is_sorted(world.chain.blocks, {}, [](const auto& block) { return block.time; }));
}

}  // namespace
}  // namespace brickfall
