#include "audit/service_check.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "deployment/deployment.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "wallet/json/json_numbers.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int kTimeoutSeconds = 15;

ServiceAnswer Indexer() {
    ServiceAnswer answer{
        "indexer", std::string(kApiBaseUrl) + "/oi/oracle/brickfall/txids?limit=1&offset=0", false, {}};
    json list;
    const LookUp state = LookUpJson(answer.url, list, answer.said, kIdsAnswer);
    const json* ids = FindJsonKey(list, "txids");
    answer.good = state == LookUp::kFound && ids != nullptr && ids->is_array();
    if (answer.good) {
        answer.said = ids->empty() ? "no recorded score yet" : "a list of recorded scores";
    } else if (state != LookUp::kFailed) {
        answer.said = "an answer that is no list of recorded scores";
    }
    return answer;
}

ServiceAnswer PaymailHost() {
    const std::string name = std::string(kArchitectHandle) + "@" + kPaymailDomain;
    ServiceAnswer answer{"paymail host", std::string(kApiBaseUrl) + "/api/bsvalias/id/" + name, false, {}};
    const IdentityAnswer identity = AskIdentityKey(name);
    answer.good = identity.state != LookUp::kFailed;
    answer.said = identity.error;
    if (identity.state == LookUp::kFound) answer.said = "the key of " + name + " is " + identity.public_key;
    if (identity.state == LookUp::kNone) answer.said = "no key is published for " + name;
    return answer;
}

// What takes transactions is sent an empty one: it refuses, and so it is there. Where nothing takes
// transactions the status is another one.
ServiceAnswer Broadcast(const char* service, std::string url, const char* field) {
    ServiceAnswer answer{service, std::move(url), false, {}};
    std::string body;
    std::string error;
    const bool taken = HttpPostJson(answer.url, json{{field, ""}}.dump(), body, error, kTimeoutSeconds,
                                    /*attempts=*/1, kShortAnswer.bytes);
    const bool nobody =
        std::ranges::any_of(std::array{"HTTP 401", "HTTP 403", "HTTP 404", "HTTP 405"},
                            [&error](const char* status) { return error.starts_with(status); });
    answer.good = taken || (error.starts_with("HTTP 4") && !nobody);
    answer.said = answer.good ? "refuses an empty transaction: " + (taken ? body : error) : error;
    return answer;
}

// A listing of what the pot's address holds: an array, or an object with one under `result`.
ServiceAnswer Listing(const char* service, std::string url, const char* of_what) {
    ServiceAnswer answer{service, std::move(url), false, {}};
    json list;
    const LookUp state = LookUpJson(answer.url, list, answer.said, kIdsAnswer);
    const json* result = list.is_array() ? &list : FindJsonKey(list, "result");
    answer.good = state == LookUp::kFound && result != nullptr && result->is_array();
    if (answer.good) {
        answer.said = "a list of " + std::to_string(result->size()) + of_what + " at the pot's address";
    } else if (state != LookUp::kFailed) {
        answer.said = "no list";
    }
    return answer;
}

ServiceAnswer ChainApi() {
    return Listing("chain API",
                   std::string(kChainApiBaseUrl) + "/address/" + kArcadePotAddress + "/unspent/all",
                   " coins");
}

ServiceAnswer OrdinalsApi() {
    return Listing("ordinals API",
                   std::string(kOrdinalsApiBaseUrl) + "/txos/address/" + kArcadePotAddress + "/unspent",
                   " outputs");
}

ServiceAnswer ContentService() {
    const std::string nothing = "/content/" + std::string(64, '0') + "_0";
    ServiceAnswer answer{"content", kOrdinalsContentBaseUrl + nothing, false, {}};
    std::string body;
    answer.good = HttpGet(answer.url, body, answer.said, kTimeoutSeconds, /*allow_404=*/true, kMaxPageBytes);
    if (answer.good) answer.said = "knows nothing of an inscription that there is not";
    return answer;
}

ServiceAnswer DownloadPage() {
    ServiceAnswer answer{"download page", kDownloadPageUrl, false, {}};
    std::string page;
    answer.good = HttpGet(answer.url, page, answer.said, kTimeoutSeconds, /*allow_404=*/false, kMaxPageBytes);
    if (answer.good) answer.said = "a page of " + std::to_string(page.size()) + " bytes";
    return answer;
}

ServiceAnswer Relay() {
    return Broadcast("relay", std::string("https://") + kPaymailDomain + "/oi/submit", "txhex");
}

ServiceAnswer ChainBroadcast() {
    return Broadcast("chain broadcast", std::string(kChainApiBaseUrl) + "/tx/raw", "txhex");
}

ServiceAnswer Arc() { return Broadcast("ARC", kArcBroadcastUrl, "rawTx"); }

}  // namespace

bool CheckServices(const std::function<void(const ServiceAnswer&)>& tell) {
    bool all = true;
    for (const auto check : {Indexer, PaymailHost, Relay, ChainApi, ChainBroadcast, Arc, OrdinalsApi,
                             ContentService, DownloadPage}) {
        const ServiceAnswer answer = check();
        all = all && answer.good;
        tell(answer);
    }
    return all;
}

std::string DeploymentText() {
    const std::pair<const char*, std::string> rows[] = {
        {"names at", kPaymailDomain},
        {"reached at", kPinnedHostAddress},
        {"reports to", kArchitectHandle},
        {"to the house", kArcadeHouseAddress},
        {"to the pot", kArcadePotAddress},
        {"each score", kArcadeWatchAddress},
        {"each report, fee", kReportFeeAddress},
        {"each report, mark", kReportOracleAddress},
    };
    std::string text;
    for (const auto& [what, value] : rows) {
        text +=
            "     " + std::string(what) + std::string(19 - std::string_view(what).size(), ' ') + value + "\n";
    }
    return text;
}

}  // namespace brickfall
