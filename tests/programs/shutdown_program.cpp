// shutdown_program WHAT CODE - a cabinet that ends while its workers are at work. WHAT names them: "payment",
// "refresh", "poll" (of a connect request), or "all" of these. It prints "started", and later what its
// workers report; at the first line of its input it returns CODE from main, waiting for nobody.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>

#include "base/workers.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "wallet/events/wallet_events.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/link/status_refresh.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/store/app_binds.h"

// Of a refresh's threads one may have ended and wait for its neighbours to be joined with.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "report_thread_leaks=0"; }

namespace {

using namespace brickfall;

void Print(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) return 2;
    const std::string_view what = arguments[1];
    BindAtStart("/opt/brickfall", "Brickfall");
    StartNetwork();
    {
        const std::lock_guard lock(wallet_sink_mutex);
        wallet_event_hook = [](std::string_view line) {
            if (line.find("connect-pending") != std::string_view::npos) Print("polling");
        };
    }
    const auto start = [&](std::string_view name, const std::function<void()>& work) {
        if (what == name || what == "all") StartWorker(work);
    };
    start("poll", [] { Print(ConnectToPouch()); });
    start("payment", [] { Print(PayArcadeEntry(kArcadeHouseAddress, kArcadePotAddress)); });
    start("refresh", [] { BalanceWorker([](const StatusResult&) { Print("refreshed"); }); });
    Print("started");
    std::string line;
    std::getline(std::cin, line);
    StopNetwork();
    return std::atoi(arguments[2]);
}
