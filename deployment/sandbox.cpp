// The values of the sandbox: reserved host names, and pay addresses to which nobody holds a key.
#include <cstdlib>
#include <mutex>
#include <optional>
#include <utility>

#include "deployment/deployment.h"
#include "deployment/sandbox_route.h"

namespace brickfall {

const char* const kApiBaseUrl = "https://orvane.test";
const char* const kPaymailDomain = "orvane.test";
const char* const kPinnedHostAddress = "127.0.0.1";
const char* const kChainApiBaseUrl = "https://api.whatsonchain.test/v1/bsv/main";
const char* const kOrdinalsApiBaseUrl = "https://ordinals.gorillapool.test/api";
const char* const kOrdinalsContentBaseUrl = "https://ordinals.gorillapool.test/content";
const char* const kArcBroadcastUrl = "https://arc.gorillapool.test/v1/tx";
const char* const kDownloadPageUrl = "https://brickfall.test/download";
const char* const kArchitectHandle = "architect";

const char* const kArcadeHouseAddress = "19Pw9erc6aAnAB9fVmebVreZZiij2Sguw2";
const char* const kArcadePotAddress = "12VeTRLRPbHA6hU62mXm5zQ1KaL6paFCS7";
const char* const kArcadeWatchAddress = "12aaSdMXN9yaHzptoXTetP55AubU23zd6c";
const char* const kReportFeeAddress = "16gmr32VBySdrh28DD4LKuA8Wc53BXae2y";
const char* const kReportOracleAddress = "1KAjKUxxVFoteCzYS8WjVmoTdXqSr5quJF";

namespace {

struct RouteOverride {
    std::mutex mutex;
    std::optional<ConnectRoute> route;  // guarded by mutex
};

RouteOverride& route_override = *new RouteOverride;

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

void SetConnectRoute(ConnectRoute route) {
    const std::lock_guard lock(route_override.mutex);
    route_override.route = std::move(route);
}

ConnectRoute CurrentConnectRoute() {
    const std::lock_guard lock(route_override.mutex);
    if (route_override.route) return *route_override.route;
    return {Environment("BRICKFALL_SANDBOX_CONNECT"), Environment("BRICKFALL_SANDBOX_CA")};
}

}  // namespace brickfall
