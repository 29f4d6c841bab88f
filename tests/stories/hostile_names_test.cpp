// Names, addresses and ids that strangers have written, at every place where one becomes a part of a URL:
// none of them makes a request for anything else than one name.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>

#include "base/files.h"
#include "board/faces.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/flows.h"
#include "messages/verification.h"
#include "net/url_text.h"
#include "tests/support/signed_rows.h"
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
    std::vector<std::string> all;
    for (const Service service :
         {Service::kChain, Service::kOrdinals, Service::kContent, Service::kArc, Service::kRelay,
          Service::kIndexer, Service::kPaymail, Service::kDownload}) {
        for (std::string& request : box.Requests(service)) all.push_back(std::move(request));
    }
    return all;
}

TEST(HostileNames, MakeNoRequestAnywhere) {
    SandboxFixture services;
    WalletFixture wallet;
    const std::string priv(63, '0');
    // Each makes a URL of the name, and gives what it found. An id has 64 characters.
    const auto padded = [](std::string id) { return id + std::string(64 - id.size(), 'a'); };
    const std::string indexer_list = "/oi/oracle/brickfall/txids?limit=2000&offset=0";
    const std::pair<const char*, std::function<bool(const std::string&)>> places[] = {
        {"identity", [](const auto& name) { return !LookupIdentityKey(name, "").empty(); }},
        {"profile", [](const auto& name) { return !ResolveAvatarUrl(name).empty(); }},
        {"content",
         [](const auto& name) {
             return !AvatarOfProfile({{"ord", name}}).empty();
         }},
        {"listings",
         [](const auto& name) {
             std::vector<Utxo> list;
             std::string error;
             return FetchUtxos(name, list, error);
         }},
        {"history",
         [](const auto& name) {
             std::vector<Utxo> list = {{TestTxid(1), 0, 5}};
             DropMempoolSpent(name, list);
             return list.empty();
         }},
        {"plain outputs",
         [](const auto& name) {
             std::vector<Utxo> list;
             return ScanPlainOutputs(name, list);
         }},
        {"guard",
         [](const auto& name) {
             std::set<std::string> keys;
             return ScanOrdinals(name, keys);
         }},
        {"freeze, quota",
         [&](const auto& name) {
             // The key of an older wallet is taken as its file has it.
             const json file = {{"priv", priv + "1"}, {"pub", name}, {"address", "1a"}};
             WriteFile(WalletFilePath(), file.dump(-1, ' ', false, json::error_handler_t::replace));
             wallet.Restart();
             RefreshQuotaRole();
             std::string note;
             return IsFrozen(note) || !note.empty();
         }},
        {"unconfirmed",
         [&](const auto& name) {
             const json history = json::array({{{"tx_hash", padded(name)}}});
             services.Reply(Service::kChain, "/unconfirmed/history", 200,
                            history.dump(-1, ' ', false, json::error_handler_t::replace));
             std::vector<Utxo> list = {{TestTxid(1), 0, 5}};
             DropMempoolSpent("1a", list);
             services.box.ClearFaults();
             return list.empty();
         }},
        {"recorded",
         [&](const auto& name) {
             const json ids = {{"txids", {padded(name)}}};
             services.box.AddFault(
                 Service::kIndexer,
                 ReplyTo(indexer_list, ids.dump(-1, ' ', false, json::error_handler_t::replace)));
             std::vector<ScoreRow> rows;
             ScoreRow best;
             bool has_best = false;
             std::string label, message;
             ReadChainBoard(rows, best, has_best, label, message);
             services.box.ClearFaults();
             return has_best;
         }},
    };
    const std::vector<std::string> lists = {"GET " + indexer_list,
                                            "GET /v1/bsv/main/address/1a/unconfirmed/history"};
    const std::string names[] = {"../../paymail/identity/02ab?",
                                 "../id/mirabel",
                                 "x/../mirabel",
                                 "mirabel@orvane.test#",
                                 "mirabel#",
                                 "mirabel?a=b",
                                 "mirabel\\x",
                                 "mirabel%2fx",
                                 "mir abel",
                                 "mirabel\r\nHost: x",
                                 "mira\tbel",
                                 std::string("mira\0bel", 8),
                                 "mira\x7f"
                                 "bel",
                                 ".mirabel",
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
