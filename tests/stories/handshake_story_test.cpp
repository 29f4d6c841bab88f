// The handshake between the cabinet, which is this process, and a wallet application, which is another one.
// The cabinet's minute passes on a manual clock: at the poll that a story chooses, the test waits until the
// other process has written its reply.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/files.h"
#include "tests/support/child_process.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"
#include "wallet/events/wallet_events.h"
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
const std::string kReplyWriter = BRICKFALL_BINARY_DIR "/tests/reply_writer";

constexpr char kTimeOut[] = "error: Pouch did not approve in time. Open Pouch.exe and try Connect again.";
constexpr char kWaiting[] = "Waiting for Pouch to approve this app...\n";
constexpr char kUnusable[] = "error: approved, but the wallet would not load.";
constexpr char kDenied[] = "error: connect denied in Pouch.";

// An event as it is written, with its fields.
std::string Event(const Lines& fields) {
    std::string line = "[OV-POUCH]";
    for (const std::string& field : fields) line += "\x1f" + field;
    return line;
}

const std::string kPending = Event({"connect-pending", "Approve the connect in Pouch."});

class HandshakeStory : public ::testing::Test {
  protected:
    HandshakeStory() {
        StartCabinetAnew();
        const std::lock_guard lock(wallet_sink_mutex);
        // Both hooks are called outside the lock, so they may take it.
        wallet_log_hook = [this](std::string_view text) {
            const std::lock_guard hook_lock(wallet_sink_mutex);
            log_.emplace_back(text);
        };
        wallet_event_hook = [this](std::string_view line) {
            const std::lock_guard hook_lock(wallet_sink_mutex);
            events_.emplace_back(line);
        };
    }
    ~HandshakeStory() override {
        InstallPouchDesktop({});
        ClearProcessState();
        const std::lock_guard lock(wallet_sink_mutex);
        wallet_log_hook = nullptr;
        wallet_event_hook = nullptr;
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

    std::string Path(const std::string& name) const { return user_data_.Path() + "/Orvane/" + name; }
    Lines ConnectFiles() const {
        Lines names;
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(Path("connect"), none)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    bool BindWritten() const { return FileExists(Path("binds/_opt_brickfall.json")); }
    Lines TakeLog() { return std::exchange(log_, {}); }
    Lines TakeEvents() { return std::exchange(events_, {}); }

    const TempUserData user_data_;
    ManualClock clock_;
    Lines log_;
    Lines events_;
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
    EXPECT_EQ(ConnectFiles(), (Lines{"w1790000000000.rep.json", "w1790000000000.req.json"}));
    const json request = {{"id", "w1790000000000"},
                          {"app", "Brickfall"},
                          {"instance", "/opt/brickfall"},
                          {"ts", 1'790'000'000}};
    EXPECT_EQ(ReadFile(Path("connect/w1790000000000.req.json")), request.dump(2));
    EXPECT_EQ(TakeLog(), (Lines{kWaiting, "Connected to Pouch wallet player\n"}));
    const Lines events = TakeEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), kPending);

    // The wallet is a whole one, for the user's eyes only.
    const std::string wallet_id = WalletId();
    EXPECT_EQ(BoundWalletId(), wallet_id);
    using std::filesystem::perms;
    const auto permissions = [](const std::string& path) {
        return std::filesystem::status(path).permissions();
    };
    EXPECT_EQ(permissions(WalletFilePath()), perms(0600));
    EXPECT_EQ(permissions(Path("wallets/" + wallet_id)), perms(0700));
    const json wallet = ReadStoreJson(WalletFilePath());
    const json expected = {{"version", 2},
                           {"recv", {0, 0, 0, 0, 0, 0}},
                           {"show", 0},
                           {"backup", false},
                           {"paymail", "player"},
                           {"address", CurrentAddress()},
                           {"identity", wallet_keys.identity_address}};
    for (const auto& [key, value] : expected.items()) EXPECT_EQ(wallet.at(key), value) << key;
    EXPECT_EQ(ReadRegistry().document.at("active"), wallet_id);

    // A cabinet that can use its wallet asks nobody, also when the bind is taken from under it.
    ASSERT_TRUE(RemoveFile(Path("binds/_opt_brickfall.json")));
    EXPECT_EQ(BoundWalletId(), "");
    EXPECT_TRUE(IsConnected());
    EXPECT_EQ(ConnectToPouch(), "success");
    EXPECT_EQ(ConnectFiles().size(), 2u);
    EXPECT_EQ(raised.size(), 1u);
    EXPECT_TRUE(TakeLog().empty());
    TakeEvents();

    EXPECT_EQ(UnbindWallet(), "success");
    EXPECT_EQ(TakeEvents(), Lines{Event({"status"})});
    EXPECT_EQ(TakeLog(), Lines{"This app is no longer connected to a Pouch wallet.\n"});
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(WalletId(), "");
    EXPECT_TRUE(FileExists(Path("wallets/" + wallet_id + "/wallet.json"))) << "the wallet stays in Pouch";

    // The next request gets the same wallet again, from a companion that has been started anew.
    companion.Signal(SIGTERM);
    EXPECT_EQ(companion.Wait(), 0);
    ChildProcess second(kCompanion, {"--auto-approve"});
    EXPECT_EQ(second.ReadLine(), "companion ready: " + wallet.at("address").get<std::string>());
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
    EXPECT_EQ(TakeEvents(),
              (Lines{kPending, Event({"connect-denied", "timeout"}), Event({"error", kTimeOut})}));
    EXPECT_EQ(TakeLog(), Lines{kWaiting});

    companion.Write("y\n");
    ASSERT_TRUE(companion.ReadUntil("Approve? [y/n] approved w1790000000000").has_value());
    EXPECT_EQ(ConnectFiles().size(), 2u);
    EXPECT_FALSE(IsConnected() || BindWritten()) << "nobody reads a late reply";

    // The reply in the very last poll still counts, and the answer may be no.
    clock_.on_sleep = [&](int64_t) {
        if (clock_.Sleeps().size() != 120 + 120) return;
        companion.Write("n\n");
        EXPECT_TRUE(companion.ReadUntil("Approve? [y/n] denied").has_value());
    };
    EXPECT_EQ(ConnectToPouch(), kDenied);
    EXPECT_EQ(clock_.Sleeps().size(), 240u);
    EXPECT_EQ(TakeEvents(),
              (Lines{kPending, Event({"connect-denied", "denied"}), Event({"error", kDenied})}));
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
        ChildProcess pouch(kReplyWriter, {row.reply});
        const std::size_t slept = clock_.Sleeps().size();
        WaitAtPoll(static_cast<int>(slept) + 1, pouch, "answered");
        EXPECT_EQ(ConnectToPouch(), row.result);
        EXPECT_EQ(clock_.Sleeps().size(), slept + 1);
        EXPECT_EQ(FileExists(store.Path() + "/Orvane/binds/_opt_brickfall.json"), row.bind_written);
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
    EXPECT_EQ(TakeEvents(), Lines{Event({"error", "error: could not write connect request."})});

    ClearProcessState();
    EXPECT_EQ(WriteConnectRequest(), "");
    EXPECT_EQ(ConnectToPouch(), "error: connect is for apps, not the Pouch vault.");
    EXPECT_TRUE(clock_.Sleeps().empty());
}

TEST_F(HandshakeStory, EventsLeaveTrailingEmptyFieldsOut) {
    EmitWalletEvent("paymail", {""});
    EmitWalletEvent("status", {"1Address", "", ""});
    EmitWalletEvent("status", {"", "", "hd"});
    EXPECT_EQ(TakeEvents(),
              (Lines{Event({"paymail"}), Event({"status", "1Address"}), Event({"status", "", "", "hd"})}));
}

TEST_F(HandshakeStory, ACompanionStartedAfterTheRequestAnswersIt) {
    InstallClock(nullptr);  // the companion reads the real time, which the request has to tell
    const std::string request = WriteConnectRequest();
    ChildProcess companion(kCompanion, {"--no-wallet", "--auto-deny"});
    EXPECT_EQ(companion.ReadUntil("denied"), "denied " + request);
    EXPECT_EQ(ReadConnectReply(request), "denied");
}

TEST_F(HandshakeStory, TheCompanionLeavesOldRequestsAloneAndRefusesWrongCommandLines) {
    const std::string old_request = WriteConnectRequest();  // by the manual clock: long ago for the companion
    clock_.AdvanceMs(1);
    ChildProcess companion(kCompanion, {"--no-wallet", "--auto-approve"});
    ASSERT_EQ(companion.ReadLine(), "companion ready: -");
    WaitAtPoll(1, companion, "approved");
    EXPECT_EQ(ConnectToPouch(), "error: approved, but the wallet would not load.");
    EXPECT_EQ(ReadConnectReply(old_request), "pending");
    companion.Signal(SIGINT);
    EXPECT_EQ(companion.Wait(), 0);
    EXPECT_TRUE(ListWallets().empty());

    for (const Lines& arguments :
         {Lines{"--auto-approve", "--auto-deny"}, Lines{"--create-on-connect", "--no-wallet"},
          Lines{"--name"}, Lines{"--name", ""}, Lines{"--name", "Anna Smith"}, Lines{"approve"}}) {
        EXPECT_EQ(ChildProcess(kCompanion, arguments).Wait(), 2) << arguments.front();
    }
}

}  // namespace
}  // namespace brickfall
