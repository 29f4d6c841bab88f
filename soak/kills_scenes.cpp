#include "soak/kills_scenes.h"

#include <dlfcn.h>
#include <openssl/rand.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "base/workers.h"
#include "board/board_load.h"
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "game/flows.h"
#include "game/windowless_driver.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "sandbox/companion.h"
#include "soak/fault_shim.h"
#include "tests/support/manual_clock.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/link/status_refresh.h"
#include "wallet/session/shown_balance.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr unsigned kBoundSeconds = 20;     // a program that is not through by then hangs
constexpr int64_t kMuchLaterMs = 120'000;  // past every cache's age and every hold
constexpr int64_t kFirstMoney = 60'000;    // satoshis

// The companion looks for requests while the cabinet waits, as the two programs would.
ManualClock* kills_clock = nullptr;

std::string told_txid;  // of the payment that the act has come to its end with

std::string Said(std::string text) { return text.empty() ? "nothing was said" : text; }

void StartProgram() {
    LoadUiSettings();
    BindAtStart(kKillsInstance, "Brickfall");
    StartNetwork();
}

// A cabinet without windows.
struct Cabinet {
    RunControl run;
    FlowDriver driver = WindowlessDriver();
    std::string said;
    PayKind paid = kPayEnter;
    bool has_paid = false;
    bool has_connected = false;
    ResultText result;

    Cabinet() {
        RunDriver& window = driver.run;
        window.set_status = [this](std::string_view text) { said = text; };
        window.record_local_score = [this](const std::string& txid) {
            RecordLocalScore(ui_doc, run.final_score, txid, [] { SaveUiSettings(); });
        };
        driver.refresh_wallet_labels = [] {
            if (IsConnected()) ReadShownBalance();
        };
        driver.post_connect_done = [this](ResultText text) {
            result = std::move(text);
            has_connected = true;
        };
        driver.post_pay_done = [this](PayKind kind, ResultText text) {
            result = std::move(text);
            paid = kind;
            has_paid = true;
        };
    }

    // What the worker has brought comes to the main thread.
    void Deliver() {
        WaitForWorkers();
        if (std::exchange(has_connected, false)) OnConnectResult(run, driver, std::move(result));
        if (std::exchange(has_paid, false)) OnPayResult(run, driver, paid, std::move(result));
    }

    // Nothing but serves, until the last ball is lost.
    void Play() {
        StartRun(run, driver.run);
        while (run.mode == kModePlaying) {
            kills_clock->AdvanceMs(kTickMs);
            OnTimer(run, driver.run);
            if (!run.game.ball_live) OnKeyDown(run, driver.run, GameKey::kSpace, /*is_repeat=*/false);
        }
    }
};

// A first start: a wallet is made and gets money, the cabinet takes it and claims its name.
std::string First(const std::string& alias) {
    std::string id = OfferedWallet();
    if (id.empty()) id = CreateCompanionWallet(alias);
    const std::string address = id.empty() ? id : CompanionAddress(id);
    if (address.empty()) return "no wallet was made";
    StartProgram();
    const std::string request = json{{"address", address}, {"satoshis", kFirstMoney}}.dump();
    std::string response, error;
    if (!HttpPostJson("https://control.sandbox.test/fund", request, response, error, 10, 1)) return error;
    if (!IsConnected()) return "the new wallet is not taken";
    return StatusRefresh().balance >= kFirstMoney ? "" : "the money is not shown";
}

std::string Connect(const std::string&) {
    StartProgram();
    std::set<std::string> answered = AbandonedRequestIds();
    kills_clock->on_sleep = [&answered](int64_t) {
        AnswerRequests(
            answered, [](const ConnectRequest&) { return true; }, [] { return OfferedWallet(); });
    };
    Cabinet cabinet;
    OnConnectClicked(cabinet.run, cabinet.driver);
    cabinet.Deliver();
    kills_clock->on_sleep = nullptr;
    return IsConnected() && WalletId() == OfferedWallet() ? "" : Said(cabinet.said);
}

std::string Enter(const std::string&) {
    Cabinet cabinet;
    OnPlayClicked(cabinet.run, cabinet.driver);
    cabinet.Deliver();
    told_txid = cabinet.run.enter_txid;
    return cabinet.run.mode == kModePlaying ? "" : Said(cabinet.said);
}

// A run that was paid for before ends here.
std::string Record(const std::string&) {
    Cabinet cabinet;
    cabinet.run.enter_txid.assign(64, '5');
    cabinet.Play();
    OnRecordClicked(cabinet.run, cabinet.driver);
    cabinet.Deliver();
    told_txid = cabinet.run.record_txid;
    return cabinet.run.mode == kModeRecorded ? "" : Said(cabinet.said);
}

std::string Report(const std::string& alias) {
    Cabinet cabinet;
    const ReportOutcome outcome = OnSendReport(cabinet.run, cabinet.driver, "A report of " + alias);
    cabinet.Deliver();
    if (!outcome.sent) return Said(outcome.refusal.empty() ? cabinet.said : outcome.refusal);
    told_txid = FindTxid(cabinet.said);
    return cabinet.said.starts_with("Report sent.") ? "" : Said(cabinet.said);
}

std::string Claim(const std::string& alias) {
    bool chain_ok = false;
    BalanceWorker([&chain_ok](const StatusResult& result) { chain_ok = result.chain_ok; });
    if (!chain_ok) return "no listing";
    std::string key;
    {
        const WalletLock lock(wallet_mutex);
        key = wallet_keys.identity_pub;
    }
    return LookupIdentityKey(alias, alias + "@" + kPaymailDomain) == key ? "" : "the name is not published";
}

std::string Migrate(const std::string& alias) {
    StartProgram();
    return IsConnected() ? Claim(alias) : "not connected";
}

std::string Settings(const std::string&) {
    LoadUiSettings();
    for (int step = 0; step < 3; ++step) {
        music_vol = (music_vol + 7) % 101;
        SaveUiSettings(step == 0 ? Flush::kLater : Flush::kNow);
        RecordLocalScore(ui_doc, 300 + step, "", [] { SaveUiSettings(); });
    }
    const int volume = music_vol;
    LoadUiSettings();
    return music_vol == volume && ui_doc.value("music_vol", -1) == volume ? "" : "the settings are not kept";
}

std::string Board(const std::string&) {
    bool is_whole = false;
    const FaceDecoder count = [](const std::string&, int) { return Image{1, 1, {0xFF000000}}; };
    BoardWorker(TakeBoardSnapshot(ui_doc, RunControl()), count, [&](std::unique_ptr<BoardResult> result) {
        is_whole = result->has_best && result->best.verified && !result->faces.empty();
    });
    return is_whole ? "" : "the board is not the chain's";
}

std::string Unbind(const std::string&) {
    Cabinet cabinet;
    OnUnbindClicked(cabinet.run, cabinet.driver);
    return IsConnected() ? Said(cabinet.said) : "";
}

constexpr KillsScene kScenes[] = {
    {.name = "first", .starts = true, .act = First},
    {.name = "connect", .wallets = 2, .has_name = true, .starts = true, .act = Connect},
    {.name = "enter",
     .wallets = 1,
     .is_bound = true,
     .has_coins = true,
     .has_name = true,
     .pays = 1,
     .act = Enter},
    {.name = "record",
     .wallets = 1,
     .is_bound = true,
     .has_coins = true,
     .has_name = true,
     .pays = 1,
     .act = Record},
    {.name = "report",
     .wallets = 1,
     .is_bound = true,
     .has_coins = true,
     .has_name = true,
     .pays = 1,
     .act = Report},
    {.name = "claim", .wallets = 1, .is_bound = true, .has_coins = true, .act = Claim},
    {.name = "migrate", .wallets = 1, .has_coins = true, .is_old = true, .starts = true, .act = Migrate},
    {.name = "settings", .wallets = 1, .is_bound = true, .act = Settings},
    {.name = "board", .wallets = 1, .is_bound = true, .has_name = true, .is_long = true, .act = Board},
    {.name = "unbind", .wallets = 2, .is_bound = true, .has_name = true, .act = Unbind},
};

void Print(const json& line) {
    std::printf("%s\n", line.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
    std::fflush(stdout);
}

template <typename Function>
Function Shim(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_DEFAULT, name));
}

// What this program knows of the wallet, and then what the services say to it.
json Known() {
    json known = {{"loaded", false}};
    {
        const WalletLock lock(wallet_mutex);
        if (!LoadWallet()) return known;
        known = {{"loaded", true},
                 {"wallet", WalletId()},
                 {"address", wallet_keys.address},
                 {"identity", wallet_keys.identity_address},
                 {"key", wallet_keys.identity_pub}};
    }
    const StatusResult status = StatusRefresh();
    known["balance"] = status.chain_ok ? status.balance : -1;
    return known;
}

}  // namespace

std::span<const KillsScene> KillsScenes() { return kScenes; }

const KillsScene* FindKillsScene(std::string_view name) {
    for (const KillsScene& scene : kScenes) {
        if (scene.name == name) return &scene;
    }
    return nullptr;
}

int ActKillsScene(const KillsScene& scene, const std::string& alias, const std::string& folder,
                  bool is_judged) {
    const rlimit no_core = {};
    ::setrlimit(RLIMIT_CORE, &no_core);
    ::alarm(kBoundSeconds);
    kills_clock = new ManualClock(UnixSeconds());  // workers may outlive main
    ::setenv("LOCALAPPDATA", (folder + "/data").c_str(), 1);
    if (::chdir(folder.c_str()) != 0) return 2;
    if (is_judged) {
        StartProgram();
        Print({{"known", Known()}});
        kills_clock->AdvanceMs(kMuchLaterMs);
        Print({{"again", scene.act(alias)}});
        kills_clock->AdvanceMs(kMuchLaterMs);
        Print({{"known", Known()}});
    } else {
        const auto arm = Shim<void (*)(int)>("fault_shim_arm");
        const auto count = Shim<uint64_t (*)(int)>("fault_shim_count");
        if (arm == nullptr || count == nullptr) return 2;
        // That it ends for want of memory is nothing to tell of.
        if (std::freopen("/dev/null", "w", stderr) == nullptr) return 2;
        // What the crypto library refuses at its first use it refuses to this process for good.
        StartNetwork();
        uint8_t any = 0;
        if (RAND_bytes(&any, 1) != 1) return 2;
        if (!scene.starts) StartProgram();
        arm(1);
        const std::string said = scene.act(alias);
        arm(0);
        json counts;
        for (std::size_t i = 0; i < kFaultNeeds; ++i) counts.push_back(count(static_cast<int>(i)));
        Print({{"said", said}, {"txid", told_txid}, {"counts", counts}});
        kills_clock->AdvanceMs(kMuchLaterMs);
        if (!said.empty()) Print({{"again", scene.act(alias)}});
    }
    WaitForWorkers();
    StopNetwork();
    return 0;
}

}  // namespace brickfall
