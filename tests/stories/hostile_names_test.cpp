// Names, addresses and ids that strangers have written, at every place where one becomes a part of a URL:
// none of them makes a request for anything else than one name.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>

#include "base/files.h"
#include "board/faces.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/flows.h"
#include "messages/verification.h"
#include "net/url_text.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/chain/chain_api.h"
#include "wallet/chain/ordinals_api.h"
#include "wallet/link/paymail_host.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;

std::vector<std::string> AllRequests(const sandbox::Sandbox& box) {
    using enum Service;
    std::vector<std::string> all;
    for (const Service service : {kChain, kOrdinals, kContent, kArc, kRelay, kIndexer, kPaymail, kDownload}) {
        std::ranges::move(box.Requests(service), std::back_inserter(all));
    }
    return all;
}

std::string Dumped(const json& document) {
    return document.dump(-1, ' ', /*ensure_ascii=*/false, json::error_handler_t::replace);
}

TEST(HostileNames, MakeNoRequestAnywhere) {
    SandboxFixture services;
    WalletFixture wallet;
    const std::string priv(63, '0');
    std::vector<Utxo> coins;
    std::set<std::string> keys;
    std::vector<ScoreRow> rows;
    ScoreRow best;
    std::string text;
    // Each makes a URL of the name, and gives whether it found anything. An id has 64 characters.
    const auto padded = [](std::string id) { return id + std::string(64 - id.size(), 'a'); };
    const std::string indexer_list = "/oi/oracle/brickfall/txids?limit=2000&offset=0";
    const std::pair<const char*, std::function<bool(const std::string&)>> places[] = {
        {"identity", [](const auto& name) { return !LookupIdentityKey(name, "").empty(); }},
        {"profile", [](const auto& name) { return !ResolveAvatarUrl(name).empty(); }},
        {"content",
         [](const auto& name) {
             return AvatarOfProfile({{"ord", name}}) != "";
         }},
        {"listings", [&](const auto& name) { return FetchUtxos(name, coins, text); }},
        {"history",
         [&](const auto& name) {
             coins = {{TestTxid(1), 0, 5}};
             DropMempoolSpent(name, coins);
             return coins.empty();
         }},
        {"plain outputs", [&](const auto& name) { return ScanPlainOutputs(name, coins); }},
        {"guard", [&](const auto& name) { return ScanOrdinals(name, keys); }},
        {"freeze, quota",
         [&](const auto& name) {
             // The key of an older wallet is taken as its file has it.
             WriteFile(WalletFilePath(), Dumped({{"priv", priv + "1"}, {"pub", name}, {"address", "1a"}}));
             wallet.Restart();
             RefreshQuotaRole();
             return IsFrozen(text) || !text.empty();
         }},
        {"unconfirmed",
         [&](const auto& name) {
             services.Reply(Service::kChain, "/unconfirmed/history", 200,
                            Dumped(json::array({{{"tx_hash", padded(name)}}})));
             coins = {{TestTxid(1), 0, 5}};
             DropMempoolSpent("1a", coins);
             services.box.ClearFaults();
             return coins.empty();
         }},
        {"recorded",
         [&](const auto& name) {
             services.Reply(Service::kIndexer, indexer_list, 200, Dumped({{"txids", {padded(name)}}}));
             bool has_best = false;
             ReadChainBoard(rows, best, has_best, text, text);
             services.box.ClearFaults();
             return has_best;
         }},
    };
    const std::vector<std::string> lists = {"GET " + indexer_list,
                                            "GET /v1/bsv/main/address/1a/unconfirmed/history"};
    const std::string names[] = {"../../paymail/identity/02ab?",
                                 "x/../mirabel",
                                 "mirabel@orvane.test#",
                                 "mirabel\\x",
                                 "mirabel%2fx",
                                 "mir abel",
                                 "mirabel\r\nHost: x",
                                 std::string("mira\0bel", 8),
                                 "mira\x7f!",
                                 "..",
                                 "@@mirabel",
                                 "http://elsewhere.test"};
    for (const auto& [place, look_up] : places) {
        for (const std::string& name : names) {
            services.box.ClearRequests();
            EXPECT_FALSE(look_up(name)) << place << ": " << name;
            for (const std::string& request : AllRequests(services.box)) {
                EXPECT_NE(std::find(lists.begin(), lists.end(), request), lists.end())
                    << place << ": " << name << " asked for " << request;
            }
        }
        // A name that is one makes one, whatever its alphabet.
        services.box.ClearRequests();
        look_up("Zo\xC3\xAB$!~");
        bool asked =
            AvatarOfProfile({{"ord", "a"}}).ends_with("/content/a") && place == std::string("content");
        for (const std::string& request : AllRequests(services.box)) {
            asked = asked || request.find("o%C3%AB$!~") != std::string::npos;
        }
        EXPECT_TRUE(asked) << place;
    }
    for (const char* const good : {"a", "a.b", "1BoatSLRHtKNngkdXEeobR76b53LETtpyT", "a_0", "a:b;c=d&e+f"}) {
        EXPECT_EQ(PathSegment(good), good);
    }
    EXPECT_EQ(PathSegment("\xFF\x80"), "%FF%80");
    EXPECT_EQ(PathSegment(""), std::nullopt);
}

}  // namespace
}  // namespace brickfall
