// The handshake between the cabinet, which is this process, and a wallet application, which is another one.
// The cabinet's minute passes on a manual clock: at the poll that a story chooses, the test waits until the
// other process has written its reply.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <iterator>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/files.h"
#include "deployment/deployment.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;

const std::string kCompanion = BRICKFALL_BINARY_DIR "/sandbox/brickfall-companion";
constexpr char kTimeOut[] = "error: Pouch did not approve in time. Open Pouch.exe and try Connect again.";
constexpr char kWaiting[] = "Waiting for Pouch to approve this app...\n";
constexpr char kUnusable[] = "error: approved, but the wallet would not load.";
constexpr char kDenied[] = "error: connect denied in Pouch.";
constexpr char kPending[] = "[OV-POUCH]|connect-pending|Approve the connect in Pouch.";

class HandshakeStory : public ::testing::Test {
  protected:
    HandshakeStory() {
        StartCabinetAnew();
        SetLog([this](std::string_view text) { log_.emplace_back(text); });
    }
    ~HandshakeStory() override {
        InstallPouchDesktop({});
        ClearProcessState();
        SetLog(nullptr);
    }

    static void SetLog(WalletHook hook) {
        const std::lock_guard lock(wallet_sink_mutex);
        wallet_log_hook = std::move(hook);
    }
    static void ClearProcessState() {
        ResetBindingForTest();
        const WalletLock lock(wallet_mutex);
        ClearWalletState();
    }
    static void StartCabinetAnew() {
        ClearProcessState();
        BindAtStart("/opt/brickfall", "Brickfall");
    }

    // At the `poll`-th poll of the cabinet, counted from 1, waits for such a line of the other process.
    void WaitAtPoll(int poll, ChildProcess& process, const std::string& line) {
        clock_.on_sleep = [this, poll, &process, line](int64_t) {
            if (static_cast<int>(clock_.Sleeps().size()) != poll) return;
            EXPECT_TRUE(process.ReadUntil(line).has_value()) << "it never said " << line;
        };
    }

    std::string Path(const std::string& name) const { return user_data_.InStore(name); }
    std::ptrdiff_t ConnectFiles() const {
        return std::distance(std::filesystem::directory_iterator(Path("connect")), {});
    }
    bool BindWritten() const { return FileExists(Path("binds/_opt_brickfall.json")); }
    Lines TakeLog() { return std::exchange(log_, {}); }

    const TempUserData user_data_;
    ManualClock clock_;
    Lines log_;
    EventLines events_;
};

TEST_F(HandshakeStory, ApprovedThenUsedThenUnbound) {
    ChildProcess companion(kCompanion, {"--auto-approve", "--create-on-connect", "--name", "player"});
    ASSERT_EQ(companion.ReadLine(), "companion ready: -");
    EXPECT_FALSE(IsConnected());
    Lines raised;
    PouchDesktop desktop;
    desktop.raise_window = [&](std::string_view window_class) {
        raised.emplace_back(window_class);
        return true;
    };
    InstallPouchDesktop(desktop);

    WaitAtPoll(3, companion, "approved w1790000000000");
    EXPECT_EQ(ConnectToPouch(), "success");
    EXPECT_EQ(clock_.Sleeps(), (std::vector<int64_t>{500, 500, 500}));
    EXPECT_EQ(raised, Lines{"OrvanePouchShell"});
    EXPECT_TRUE(IsConnected());
    const json request = {{"id", "w1790000000000"},
                          {"app", "Brickfall"},
                          {"instance", "/opt/brickfall"},
                          {"ts", 1'790'000'000}};
    EXPECT_EQ(ReadFile(Path("connect/w1790000000000.req.json")), request.dump(2));
    EXPECT_EQ(TakeLog(), (Lines{kWaiting, "Connected to Pouch wallet player\n"}));
    EXPECT_EQ(events_.Take().at(0), kPending);
    const std::string wallet_id = WalletId(), address = CurrentAddress();
    EXPECT_EQ(BoundWalletId(), wallet_id);
    EXPECT_EQ(ReadStoreJson(WalletFilePath()).at("paymail"), "player");
    EXPECT_EQ(ReadRegistry().document.at("active"), wallet_id);

    // A cabinet that can use its wallet asks nobody, also when the bind is taken from under it.
    ASSERT_TRUE(RemoveFile(Path("binds/_opt_brickfall.json")));
    EXPECT_EQ(BoundWalletId(), "");
    EXPECT_TRUE(IsConnected());
    EXPECT_EQ(ConnectToPouch(), "success");
    EXPECT_EQ(ConnectFiles(), 2);
    EXPECT_EQ(raised.size(), 1u);
    EXPECT_TRUE(TakeLog().empty());
    EXPECT_EQ(events_.Take(), Lines{std::string("[OV-POUCH]|paymail|player@") + kPaymailDomain});

    EXPECT_EQ(UnbindWallet(), "success");
    EXPECT_EQ(events_.Take(), Lines{"[OV-POUCH]|status"});
    EXPECT_EQ(TakeLog(), Lines{"This app is no longer connected to a Pouch wallet.\n"});
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(WalletId(), "");
    EXPECT_TRUE(FileExists(Path("wallets/" + wallet_id + "/wallet.json"))) << "the wallet stays in Pouch";

    // The next request gets the same wallet again, from a companion that has been started anew.
    companion.Signal(SIGTERM);
    EXPECT_EQ(companion.Wait(), 0);
    ChildProcess second(kCompanion, {"--auto-approve"});
    EXPECT_EQ(second.ReadLine(), "companion ready: " + address);
    WaitAtPoll(4, second, "approved");
    EXPECT_EQ(ConnectToPouch(), "success");
    EXPECT_EQ(WalletId(), wallet_id);
    EXPECT_EQ(ListWallets().size(), 1u);
    EXPECT_TRUE(BindWritten());
}

TEST_F(HandshakeStory, SilentForTheWholeMinuteThenTooLateThenDenied) {
    // Nobody types at the companion's terminal until the cabinet has given up.
    ChildProcess companion(kCompanion, {});
    ASSERT_TRUE(companion.ReadUntil("companion ready: 1").has_value());
    WaitAtPoll(1, companion, "connect request w1790000000000: Brickfall in /opt/brickfall");
    EXPECT_EQ(ConnectToPouch(), kTimeOut);
    EXPECT_EQ(clock_.Sleeps(), std::vector<int64_t>(120, 500));
    EXPECT_EQ(events_.Take(), (Lines{kPending, "[OV-POUCH]|connect-denied|timeout",
                                     std::string("[OV-POUCH]|error|") + kTimeOut}));
    EXPECT_EQ(TakeLog(), Lines{kWaiting});

    companion.Write("y\n");
    ASSERT_TRUE(companion.ReadUntil("Approve? [y/n] approved w1790000000000").has_value());
    EXPECT_EQ(ConnectFiles(), 2);
    EXPECT_FALSE(IsConnected() || BindWritten()) << "nobody reads a late reply";

    // The reply in the very last poll still counts, and the answer may be no.
    clock_.on_sleep = [&](int64_t) {
        if (clock_.Sleeps().size() != 120 + 120) return;
        companion.Write("n\n");
        EXPECT_TRUE(companion.ReadUntil("Approve? [y/n] denied").has_value());
    };
    EXPECT_EQ(ConnectToPouch(), kDenied);
    EXPECT_EQ(clock_.Sleeps().size(), 240u);
    EXPECT_EQ(events_.Take(), (Lines{kPending, "[OV-POUCH]|connect-denied|denied",
                                     std::string("[OV-POUCH]|error|") + kDenied}));
    EXPECT_FALSE(IsConnected() || BindWritten());
}

TEST_F(HandshakeStory, RepliesOfEveryKindEndTheWaitAtOnce) {
    const struct {
        const char* why;
        std::string reply;
        std::string result;
        bool bind_written;
    } rows[] = {
        {"cut short", R"({"ok": true, "wallet_)", kDenied, false},
        {"empty file", "", kDenied, false},
        {"no object", R"(["ok", true])", kDenied, false},
        {"no ok", R"({"wallet_id": "w1"})", kDenied, false},
        {"ok is text", R"({"ok": "true", "wallet_id": "w1"})", kDenied, false},
        {"ok is a number", R"({"ok": 1, "wallet_id": "w1"})", kDenied, false},
        {"a wallet id that is no text", R"({"ok": true, "wallet_id": 17})", kDenied, false},
        {"no wallet id", R"({"ok": true})", kUnusable, false},
        {"a wallet id of null", R"({"ok": true, "wallet_id": null})", kUnusable, false},
        {"an empty wallet id", R"({"ok": true, "wallet_id": ""})", kUnusable, false},
        {"a wallet that is not there", R"({"ok": true, "wallet_id": "w1"})", kUnusable, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const TempUserData store;
        StartCabinetAnew();
        const std::size_t slept = clock_.Sleeps().size();
        clock_.on_sleep = [&](int64_t) {
            const std::string id = "w" + std::to_string(UnixMillis() - 500);  // of the request
            store.Put("connect/" + id + ".rep.json", row.reply);
        };
        EXPECT_EQ(ConnectToPouch(), row.result);
        EXPECT_EQ(clock_.Sleeps().size(), slept + 1);
        EXPECT_EQ(FileExists(store.InStore("binds/_opt_brickfall.json")), row.bind_written);
        EXPECT_EQ(WalletId(), row.bind_written ? "w1" : "");
    }
}

TEST_F(HandshakeStory, AWalletThatNoLongerLoadsIsAskedForAgain) {
    WriteBind("deleted");
    ChildProcess companion(kCompanion, {"--auto-approve"});
    ASSERT_TRUE(companion.ReadUntil("companion ready: 1").has_value());
    WaitAtPoll(1, companion, "approved");
    EXPECT_EQ(ConnectToPouch(), "success");
    EXPECT_EQ(ListWallets().at(0).id, WalletId());
    EXPECT_EQ(TakeLog(), (Lines{kWaiting, "Connected to Pouch wallet Wallet 1\n"}));

    // A bind that cannot be read may name any wallet: it is neither guessed nor replaced, but by an unbind.
    const std::string unreadable(1000, '[');
    ASSERT_TRUE(WriteFile(BindFilePath(), unreadable));
    StartCabinetAnew();
    EXPECT_FALSE(IsConnected());
    WaitAtPoll(2, companion, "approved");
    EXPECT_EQ(ConnectToPouch(), kUnusable);
    EXPECT_EQ(WalletId(), "") << "the next start would not know of it";
    EXPECT_EQ(ReadFile(BindFilePath()), unreadable);
    UnbindWallet();
    WaitAtPoll(3, companion, "approved");
    EXPECT_EQ(ConnectToPouch(), "success");
    EXPECT_EQ(BoundWalletId(), WalletId());
}

TEST_F(HandshakeStory, WithoutPouchTheRequestWaitsTheMinute) {
    const TempFolder folder;
    Lines started;
    PouchDesktop desktop;
    desktop.raise_window = [](std::string_view) { return false; };
    desktop.executable_folder = [&] { return folder.Path(); };
    desktop.start_program = [&](const std::string& program, const std::string& working_folder) {
        started.push_back(program + " in " + working_folder);
        return true;
    };
    InstallPouchDesktop(desktop);
    EXPECT_EQ(ConnectToPouch(), kTimeOut);
    EXPECT_TRUE(started.empty());
    EXPECT_FALSE(RaisePouch());

    ASSERT_TRUE(WriteFile(folder.Path() + "/Pouch.exe", ""));
    EXPECT_TRUE(RaisePouch());
    EXPECT_EQ(started, Lines{folder.Path() + "/Pouch.exe in " + folder.Path()});
    desktop.start_program = [](const std::string&, const std::string&) { return false; };
    InstallPouchDesktop(desktop);
    EXPECT_FALSE(RaisePouch());
    InstallPouchDesktop({});
    EXPECT_FALSE(RaisePouch()) << "no desktop at all";
}

TEST_F(HandshakeStory, RefusedBeforeAnyRequest) {
    ASSERT_TRUE(WriteFile(Path("connect"), "a file in the folder's place"));
    EXPECT_EQ(ConnectToPouch(), "error: could not write connect request.");
    EXPECT_EQ(ReadConnectReply(""), "denied");
    EXPECT_EQ(ReadConnectReply("w1"), "pending");
    EXPECT_EQ(events_.Take(), Lines{"[OV-POUCH]|error|error: could not write connect request."});

    ClearProcessState();
    EXPECT_EQ(WriteConnectRequest(), "");
    EXPECT_EQ(ConnectToPouch(), "error: connect is for apps, not the Pouch vault.");
    EXPECT_TRUE(clock_.Sleeps().empty());
}

TEST_F(HandshakeStory, EventsLeaveTrailingEmptyFieldsOut) {
    EmitWalletEvent("status", {"1Address", "", ""});
    EmitWalletEvent("status", {"", "", "hd"});
    EXPECT_EQ(events_.Take(), (Lines{"[OV-POUCH]|status|1Address", "[OV-POUCH]|status|||hd"}));
}

TEST_F(HandshakeStory, ACompanionStartedLaterAnswersWhoStillWaits) {
    const std::string old_request = WriteConnectRequest();  // by the manual clock: long ago for the companion
    InstallClock(nullptr);
    const std::string request = WriteConnectRequest();
    ChildProcess companion(kCompanion, {"--no-wallet", "--auto-deny"});
    EXPECT_EQ(companion.ReadUntil("denied"), "denied " + request);
    EXPECT_EQ(ReadConnectReply(request), "denied");
    EXPECT_EQ(ReadConnectReply(old_request), "pending");
    companion.Signal(SIGINT);
    EXPECT_EQ(companion.Wait(), 0);
    EXPECT_TRUE(ListWallets().empty());
}

}  // namespace
}  // namespace brickfall
