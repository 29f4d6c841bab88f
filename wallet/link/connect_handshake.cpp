#include "wallet/link/connect_handshake.h"

#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/clock.h"
#include "base/files.h"
#include "wallet/events/wallet_events.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_file.h"

namespace brickfall {
namespace {

using nlohmann::json;

std::mutex& pouch_desktop_mutex = *new std::mutex;
PouchDesktop& pouch_desktop = *new PouchDesktop;  // guarded by pouch_desktop_mutex, called outside it

std::string ConnectError(std::string text) {
    EmitWalletEvent("error", {text});
    return text;
}

std::string ConnectFolder() { return StoreRoot() + "/connect"; }

bool UsableWalletThere() {
    const WalletLock lock(wallet_mutex);
    if (WalletId().empty() || !LoadWallet()) return false;
    PublishWalletState();
    return true;
}

// "ok" or "denied", or "pending" when the minute has passed.
std::string WaitForReply(std::string_view request_id) {
    std::string reply = "pending";
    for (int poll = 0; poll < kConnectPollCount && reply == "pending"; ++poll) {
        SleepMs(kConnectPollMs);
        reply = ReadConnectReply(request_id);
    }
    return reply;
}

std::string OpenApprovedWallet() {
    WalletLock lock(wallet_mutex);
    ClearWalletState();
    if (!LoadWallet()) {
        std::string error = "error: approved, but the wallet would not load.";
        if (!wallet_load_error.empty()) error += " " + wallet_load_error;
        lock.unlock();
        return ConnectError(std::move(error));
    }
    PublishWalletState();
    WalletLog("Connected to Pouch wallet " + WalletDisplayName(WalletId()) + "\n");
    return "success";
}

}  // namespace

void InstallPouchDesktop(PouchDesktop desktop) {
    const std::lock_guard lock(pouch_desktop_mutex);
    pouch_desktop = std::move(desktop);
}

std::string ConnectToPouch() {
    if (!AppMode()) return ConnectError("error: connect is for apps, not the Pouch vault.");
    if (UsableWalletThere()) return "success";
    const std::string request_id = WriteConnectRequest();
    if (request_id.empty()) return ConnectError("error: could not write connect request.");
    RaisePouch();  // a request also waits for a Pouch that the player starts by hand
    EmitWalletEvent("connect-pending", {"Approve the connect in Pouch."});
    WalletLog("Waiting for Pouch to approve this app...\n");
    const std::string reply = WaitForReply(request_id);
    if (reply == "denied") {
        EmitWalletEvent("connect-denied", {"denied"});
        return ConnectError("error: connect denied in Pouch.");
    }
    if (reply == "pending") {
        EmitWalletEvent("connect-denied", {"timeout"});
        return ConnectError("error: Pouch did not approve in time. Open Pouch.exe and try Connect again.");
    }
    return OpenApprovedWallet();
}

std::string UnbindWallet() {
    const WalletLock lock(wallet_mutex);
    if (AppMode()) ClearBind();
    ClearWalletState();
    EmitWalletEvent("status");
    WalletLog("This app is no longer connected to a Pouch wallet.\n");
    return "success";
}

std::string WriteConnectRequest() {
    if (!AppMode()) return {};
    const std::string folder = ConnectFolder();
    MakeFolders(folder);
    const std::string id = NewStoreId();
    const json document = {
        {"id", id}, {"app", AppName()}, {"instance", AppInstance()}, {"ts", UnixSeconds()}};
    return WriteStoreFile(folder + "/" + id + ".req.json", StoreDump(document)) ? id : std::string();
}

std::string ReadConnectReply(std::string_view request_id) {
    if (request_id.empty()) return "denied";
    const std::string path = ConnectFolder() + "/" + std::string(request_id) + ".rep.json";
    if (!FileExists(path)) return "pending";
    const json reply = ReadStoreJson(path);
    if (!reply.is_object() || reply.value("ok", json()) != json(true)) return "denied";
    if (const json* wallet_id = FindJsonKey(reply, "wallet_id")) {
        if (!wallet_id->is_string()) return "denied";
        // A bind that cannot be kept would let the next start pay from the wallet of the former one.
        if (!WriteBind(wallet_id->get<std::string>())) SetWalletId("");
    }
    return "ok";
}

bool RaisePouch() {
    PouchDesktop desktop;
    {
        const std::lock_guard lock(pouch_desktop_mutex);
        desktop = pouch_desktop;
    }
    if (desktop.raise_window && desktop.raise_window(kPouchWindowClass)) return true;
    if (!desktop.executable_folder || !desktop.start_program) return false;
    const std::string folder = desktop.executable_folder();
    const std::string program = folder + "/" + kPouchExecutable;
    return FileExists(program) && desktop.start_program(program, folder);
}

}  // namespace brickfall
