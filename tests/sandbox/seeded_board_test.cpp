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
#include "sandbox/server/services.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::HttpRequest;

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
    EXPECT_EQ(forged, 2) << "a key that is not the published one, and a bent score";
    EXPECT_EQ(foreign, 1);
    EXPECT_EQ(unread, 1);
}

HttpRequest Ask(std::string_view url) {
    HttpRequest request;
    request.method = "GET";
    const std::size_t host = url.find("://") + 3, path = url.find('/', host);
    request.host = url.substr(host, path - host);
    request.path = request.target = url.substr(path);
    return request;
}

TEST(SeededBoard, FacesComeFromTheWebAndFromTheChain) {
    sandbox::World world;
    ASSERT_TRUE(sandbox::SeedBoard(world, kMonday));
    std::map<std::string, std::set<std::string>> sources;  // of each type
    int without = 0;
    for (const auto& [name, identity] : world.identities) {
        SCOPED_TRACE(name);
        const std::string& avatar = identity.avatar;
        const bool is_web = avatar.starts_with("https://");
        if (avatar.empty()) {
            ++without;
            continue;
        }
        const sandbox::HttpReply picture =
            is_web ? sandbox::AnswerPaymail(world, Ask(avatar))
                   : sandbox::AnswerContent(world, Ask(kOrdinalsContentBaseUrl + ("/content/" + avatar)));
        EXPECT_EQ(picture.status, 200);
        const std::string& bytes = picture.body;
        EXPECT_EQ(picture.content_type, bytes.starts_with("\x89PNG\r\n")    ? "image/png"
                                        : bytes.starts_with("\xff\xd8\xff") ? "image/jpeg"
                                        : bytes.substr(8, 4) == "WEBP"      ? "image/webp"
                                                                            : "one of these");
        sources[picture.content_type].insert(is_web ? "web" : "chain");
    }
    EXPECT_EQ(without, 4);
    EXPECT_EQ(sources.size(), 3u);
    for (const auto& [type, where] : sources) EXPECT_EQ(where.size(), 2u) << type;
    EXPECT_EQ(sandbox::AnswerPaymail(world, Ask(kFamilyHost + "/faces/nobody.png")).status, 404);
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
