// The folder that all apps of a wallet share: its list of wallets, what this app is bound to, and other
// processes that write there too.
#include "wallet/store/shared_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "base/files.h"
#include "tests/support/child_process.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;

const std::string kStoreWriter = BRICKFALL_BINARY_DIR "/tests/store_writer";

// Thousands of flushes to a busy disk take half a minute and show nothing, so the store lies in memory where
// there is such a folder.
struct FoldersInMemory {
    FoldersInMemory() {
        if (::access("/dev/shm", W_OK | X_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
    }
    ~FoldersInMemory() { former.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", former.c_str(), 1); }
    const std::string former = std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "";
};

struct SharedStore : testing::Test {
    SharedStore() { StartAnew(); }
    ~SharedStore() override { StartAnew(); }

    // As a new process finds itself.
    static void StartAnew() {
        ResetBindingForTest();
        const WalletLock lock(wallet_mutex);
        ClearWalletState();
    }
    std::string Path(const std::string& name) const { return data.InStore(name); }
    std::string Content(const std::string& name) const { return ReadFile(Path(name)).value_or("(none)"); }
    static Lines Wallets() {
        Lines lines;
        for (const WalletInfo& wallet : ListWallets()) lines.push_back(wallet.id + "=" + wallet.name);
        return lines;
    }

    const FoldersInMemory in_memory;
    const TempUserData data;
};

TEST(BindName, IsTheEndOfItsFolderByteByByteWhateverTheLocale) {
    const std::pair<std::string, std::string> rows[] = {
        {"C:\\Gr\xc3\xbc\xc3\x9f 29", "c__gr_____29"},
        {"", "default"},
        {"@[`{/:azAZ", "______azaz"},
        {std::string(100, 'a') + std::string(96, 'B'), std::string(96, 'b')},
        {"/" + std::string(95, 'x'), "_" + std::string(95, 'x')},
    };
    for (const auto& [folder, name] : rows) EXPECT_EQ(SanitizeBindName(folder), name);
}

TEST_F(SharedStore, TheStartTakesTheBindOrTheOnlyWallet) {
    const std::string one = R"({"wallets": [{"id": "a"}]})";
    const struct {
        std::string why, bind, registry, wallet_id;  // an empty text: no such file
        bool bind_written;
    } rows[] = {
        {"nothing there", "", "", "", false},
        {"one wallet", "", one, "a", true},
        {"two wallets", "", R"({"wallets": [{"id": "a"}, {"id": "b"}]})", "", false},
        {"one wallet and rubbish are two elements", "", R"({"wallets": [{"id": "a"}, 0]})", "", false},
        {"one element that is no wallet", "", R"({"wallets": ["a"]})", "", false},
        {"a bind wins over the only wallet", R"({"wallet_id": "b"})", one, "b", false},
        {"a broken bind", R"({"wallet_id": "b")", one, "a", true},
        {"a bind that cannot be read may name any wallet", std::string(1000, '['), one, "", false},
        {"a bind of another type", R"({"wallet_id": 7})", one, "a", true},
        {"a bind without a wallet", R"(["wallet_id"])", R"({"wallets": []})", "", false},
    };
    const std::string bind_name = "binds/_opt_brickfall.json";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        RemoveFile(Path(bind_name));
        RemoveFile(Path("wallets.json"));
        if (!row.bind.empty()) data.Put(bind_name, row.bind);
        if (!row.registry.empty()) data.Put("wallets.json", row.registry);
        SetWalletId("of an earlier life");
        BindAtStart("/opt/Brickfall", "Brickfall");
        EXPECT_EQ(WalletId(), row.wallet_id);
        const json written = {
            {"app", "Brickfall"}, {"instance", "/opt/Brickfall"}, {"wallet_id", row.wallet_id}};
        EXPECT_EQ(ReadFile(Path(bind_name)).value_or(""), row.bind_written ? written.dump(2) : row.bind);
    }
}

TEST_F(SharedStore, TwoFoldersOfAppsUseTwoWallets) {
    SetWalletId("a");
    EXPECT_EQ(BoundWalletId(), "a") << "no app: the field alone counts";
    WriteBind("b");
    EXPECT_EQ(WalletId(), "a");

    BindAtStart("/one", "Brickfall");
    WriteBind("first");
    WriteBind("");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "");
    WriteBind("second");
    BindAtStart("/one", "Brickfall");
    EXPECT_EQ(WalletId(), "first");
    BindAtStart("/two", "Brickfall");
    EXPECT_EQ(WalletId(), "second");
    data.Put("binds/_two.json", R"({"wallet_id": "third"})");
    EXPECT_EQ(BoundWalletId(), "third") << "read afresh";
    EXPECT_EQ(WalletId(), "second");
    ClearBind();
    EXPECT_EQ(WalletId() + BoundWalletId(), "");
    EXPECT_FALSE(FileExists(Path("binds/_two.json")));
    EXPECT_TRUE(FileExists(Path("binds/_one.json")));
}

TEST_F(SharedStore, ConnectedMeansABoundWalletWithWordsThatLoads) {
    // A published test phrase of BIP39.
    data.Put(
        "orvane_pouch.json",
        R"({"mnemonic": "legal winner thank year wave sausage worth useful legal winner thank yellow"})");
    BindAtStart("", "");
    EXPECT_EQ(AppName() + AppInstance(), "App.");
    EXPECT_TRUE(FileExists(Path("binds/_.json")));
    EXPECT_TRUE(AppMode() && IsConnected()) << "the wallet of an old installation, moved";

    StartAnew();
    RemoveFile(Path("wallets.json"));
    BindAtStart("/one", "Brickfall");
    EXPECT_FALSE(IsConnected()) << "no bind";
    WriteBind("gone");
    EXPECT_FALSE(IsConnected()) << "its folder is not there";
    data.Put("wallets/old/wallet.json", R"({"priv": ")" + std::string(63, '0') + R"(1"})");
    WriteBind("old");
    EXPECT_FALSE(IsConnected()) << "a wallet without words";
    EXPECT_FALSE(CurrentAddress().empty()) << "though it loads";
}

TEST_F(SharedStore, ARegistryOfAnyBytesReadsAsAnObjectWithAListOfWallets) {
    const std::string deep =  // a copy of it would exhaust the stack
        R"({"wallets": [{"id": "a"}], "x": )" + std::string(200'000, '[') + std::string(200'000, ']') + "}";
    const std::pair<std::string, Lines> rows[] = {
        {"", {}},
        {R"([{"id": "a"}])", {}},
        {R"({"wallets": [{"id": "a"}], "act)", {}},
        {R"({"wallets": [{"id": "a"}]} {})", {}},
        {R"({"wallets": {"id": "a"}})", {}},
        {"{\"wallets\": [{\"id\": \"a\xff\"}]}", {}},
        {deep, {}},
        {R"({"wallets": [{"id": "a", "name": "One"}, {"id": "b"}]})", {"a=One", "b=b"}},
        {R"({"wallets": [7, "a", null, [], {}, {"id": 5}, {"id": "", "name": "x"}, {"name": "y"},
             {"id": "c", "name": 1e300}, {"id": "d", "name": ""}, {"id": "c", "name": "twice"}]})",
         {"c=c", "d=d", "c=twice"}},
    };
    EXPECT_EQ(ReadRegistry().state, FileState::kMissing);
    for (const auto& [content, wallets] : rows) {
        SCOPED_TRACE(content.substr(0, 100));
        data.Put("wallets.json", content);
        const json registry = ReadRegistry().document;
        EXPECT_TRUE(registry.is_object() && registry.at("wallets").is_array());
        EXPECT_EQ(Wallets(), wallets);
    }
    EXPECT_EQ(WalletDisplayName("d"), "d") << "listed without a name";
    EXPECT_EQ(WalletDisplayName("unlisted"), "unlisted");

    data.Put("wallets.json", "[" + std::string(999'999, ',') + "]");
    EXPECT_EQ(ReadRegistry().state, FileState::kRead);
    for (const std::string& content : {deep, "[" + std::string(1'000'000, ',') + "]"}) {
        data.Put("wallets.json", content);
        EXPECT_EQ(ReadRegistry().state, FileState::kUnreadable);
        EXPECT_FALSE(WriteStoreFile(Path("wallets.json"), "{}"));
        data.Put("orvane_pouch.json", "the old wallet");
        MigrateSingleWallet();
        SetWalletName("a", "anna");
        EXPECT_EQ(Content("wallets.json"), content) << "nothing replaces it";
        EXPECT_EQ(Content("orvane_pouch.json"), "the old wallet");
    }
}

TEST_F(SharedStore, NamingAWalletKeepsEverythingElseOfTheRegistry) {
    // A folder in the place of the lock's file: the lock of the process alone has to do.
    ASSERT_TRUE(MakeFolders(Path("wallets.lock")));
    data.Put(
        "wallets.json",
        R"({"theme":{"dark":true},"active":"b","wallets":[{"id":"a","colour":3},4,{"id":"b"},{"id":"a"}]})");
    SetWalletName("a", "anna");
    const std::string before = Content("wallets.json");
    EXPECT_EQ(json::parse(before), json::parse(R"({"theme":{"dark":true},"active":"b","wallets":
        [{"id":"a","colour":3,"name":"anna"},4,{"id":"b"},{"id":"a","name":"anna"}]})"));
    EXPECT_EQ(WalletDisplayName("a"), "anna");
    EXPECT_TRUE(before.starts_with("{\n  \"active\": \"b\",\n") && before.ends_with("}\n"))
        << "for people to read";
    SetWalletName("", "nobody");
    SetWalletName("a", "");
    EXPECT_EQ(Content("wallets.json"), before);

    data.Put("wallets.json", "broken");
    SetWalletName("unlisted", "x");
    EXPECT_EQ(Content("wallets.json"), "{\n  \"wallets\": []\n}\n") << "the next write replaces it";
}

TEST_F(SharedStore, AnOldSingleWalletMovesOnceIntoTheListOfWallets) {
    const ManualClock clock(1'700'000'000);
    MigrateSingleWallet();
    EXPECT_FALSE(FileExists(Path("wallets.json"))) << "nothing to move, nothing written";

    data.Put("orvane_pouch.json", "the old wallet");
    data.Put("wallets", "a file in the folder's place");
    MigrateSingleWallet();
    EXPECT_EQ(Content("orvane_pouch.json"), "the old wallet") << "one that cannot move stays";
    EXPECT_EQ(ListWallets().size(), 1u) << "and is listed all the same";
    RemoveFile(Path("wallets"));
    MigrateSingleWallet();  // the next start moves it
    EXPECT_FALSE(FileExists(Path("orvane_pouch.json")));
    EXPECT_EQ(Content("wallets/w1700000000000/wallet.json"), "the old wallet");
    const json expected = {{"active", "w1700000000000"},
                           {"wallets", {{{"id", "w1700000000000"}, {"name", "Wallet 1"}}}}};
    EXPECT_EQ(json::parse(Content("wallets.json")), expected);

    // A store with wallets takes none over, wherever their files are.
    data.Put("orvane_pouch.json", "another");
    for (const std::string& registry :
         {expected.dump(),
          std::string(R"({"wallets":[{"id":"w1","name":"anna"},{"id":"w2","name":"Wallet 1"}]})"),
          std::string(R"({"wallets":[{"id":"a","name":"Wallet 1"}]})")}) {
        data.Put("wallets.json", registry);
        MigrateSingleWallet();
        EXPECT_EQ(Content("orvane_pouch.json"), "another") << registry;
        EXPECT_EQ(Content("wallets.json"), registry);
    }
}

TEST_F(SharedStore, TheLockOfTheFileEndsWithTheOutermostScope) {
    const auto another_could_lock = [&] {
        const int file = ::open(Path("wallets.lock").c_str(), O_RDWR);
        EXPECT_GE(file, 0);
        struct flock byte = {};
        byte.l_type = F_WRLCK;
        byte.l_whence = SEEK_SET;
        byte.l_len = 1;
        const bool locked = ::fcntl(file, F_OFD_SETLK, &byte) == 0;
        ::close(file);
        return locked;
    };
    {
        const StoreLock outer;
        EXPECT_FALSE(another_could_lock());
        EXPECT_TRUE(ListWallets().empty());  // takes the lock as well
        EXPECT_FALSE(another_could_lock());
    }
    EXPECT_TRUE(another_could_lock());
}

TEST_F(SharedStore, TwoProcessesThatWriteLoseNothingOfEachOther) {
    for (const char* kind : {"wallets", "names"}) {
        ChildProcess one(kStoreWriter, {kind, "one", "1000"});
        ChildProcess two(kStoreWriter, {kind, "two", "1000"});
        EXPECT_EQ(one.Wait(), 0) << kind << ", 3: it missed what it had written";
        EXPECT_EQ(two.Wait(), 0) << kind;
    }
    const Lines wallets = Wallets();
    const std::set<std::string> ids(wallets.begin(), wallets.end());
    EXPECT_EQ(ids.size(), 20u + 20u);
    EXPECT_TRUE(ids.contains("one999=n") && ids.contains("two999=n"));
    const json names = ReadStoreJson(Path("orvane_paymail.json")).at("names");
    EXPECT_EQ(names.at("one").at("address"), "999");
    EXPECT_EQ(names.at("two").at("address"), "999");
}

// What a writer is traced to: each entry into the kernel and each return from it, or each opening of a file.
enum class Moments { kAll, kOpenings };

bool IsOpening(pid_t pid) {
    __ptrace_syscall_info call = {};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof(call), &call);
    return call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == SYS_openat;
}

// Lets the kernel run the writer to its next stop; false when it has ended instead.
bool RunOn(ChildProcess& writer) {
    int status = 0;
    EXPECT_EQ(::ptrace(PTRACE_SYSCALL, writer.Pid(), nullptr, nullptr), 0);
    EXPECT_EQ(::waitpid(writer.Pid(), &status, 0), writer.Pid());
    if (!WIFSTOPPED(status)) writer.SetReaped();
    return WIFSTOPPED(status);
}

// Runs a stopped writer up to the moment of that number; false when it has ended before.
bool RunTo(ChildProcess& writer, int moment, Moments moments) {
    int status = 0;
    EXPECT_EQ(::waitpid(writer.Pid(), &status, WUNTRACED), writer.Pid());
    EXPECT_EQ(::ptrace(PTRACE_SEIZE, writer.Pid(), nullptr, PTRACE_O_TRACESYSGOOD), 0);
    writer.Signal(SIGCONT);
    EXPECT_EQ(::waitpid(writer.Pid(), &status, 0), writer.Pid());
    for (int met = 0; met < moment;) {
        if (!RunOn(writer)) return false;
        met += moments == Moments::kAll || IsOpening(writer.Pid());
    }
    return true;
}

// Kills writers one after the other, each three moments later than the one before, until one ends by itself.
// `prepare` comes before each, `check` behind it.
template <typename Prepare, typename Check>
void KillAtEveryThirdMoment(const char* kind, const Prepare& prepare, const Check& check) {
    bool alive = true;
    for (int moment = 0; alive && moment < 2000 && !testing::Test::HasFailure(); moment += 3) {
        SCOPED_TRACE(moment);
        prepare();
        {
            ChildProcess writer(kStoreWriter, {kind, "killed", "1", "stop"});
            alive = RunTo(writer, moment, Moments::kAll);
        }
        check();
    }
    EXPECT_FALSE(alive);
}

TEST_F(SharedStore, AWriterKilledAtAnyMomentLeavesAWholeRegistryAndNoLock) {
    const Lines former{"a=a"}, latter{"a=a", "killed0=n"};
    int without_entry = 0, with_entry = 0;
    KillAtEveryThirdMoment(
        "wallets", [&] { data.Put("wallets.json", R"({"wallets":[{"id":"a"}]})"); },
        [&] {
            EXPECT_TRUE(json::parse(Content("wallets.json"), nullptr, false).is_object());
            const Lines wallets = Wallets();  // would wait for a lock left behind
            EXPECT_TRUE(wallets == former || wallets == latter);
            ++(wallets == former ? without_entry : with_entry);
        });
    EXPECT_GT(without_entry, 6);
    EXPECT_GT(with_entry, 1);
    SetWalletName("a", "anna");
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(Path(""))) {
        names.insert(entry.path().filename().string());
    }
    EXPECT_EQ(names, (std::set<std::string>{"wallets.json", "wallets.lock"})) << "the next writer clears up";
}

TEST_F(SharedStore, AMigrationKilledAtAnyMomentIsFinishedByTheNextStart) {
    int unfinished = 0;
    KillAtEveryThirdMoment(
        "migrate",
        [&] {
            std::filesystem::remove_all(Path(""));
            data.Put("orvane_pouch.json", "the old wallet");
        },
        [&] {
            unfinished += FileExists(Path("wallets.json")) && FileExists(Path("orvane_pouch.json"));
            MigrateSingleWallet();
            const std::vector<WalletInfo> wallets = ListWallets();
            ASSERT_EQ(wallets.size(), 1u);
            EXPECT_EQ(wallets[0].name, "Wallet 1");
            EXPECT_EQ(Content("wallets/" + wallets[0].id + "/wallet.json"), "the old wallet");
            EXPECT_FALSE(FileExists(Path("orvane_pouch.json")));
        });
    EXPECT_GT(unfinished, 1) << "between the list and the move";
}

// Each opening of a file in turn gets no descriptor, and all the others do.
TEST_F(SharedStore, AMomentWithoutDescriptorsLosesNothing) {
    const std::string names = R"({"names":{"other":{"pubkey":"02"}}})";
    for (const char* kind : {"rename", "names"}) {
        int unchanged = 0, written = 0;
        bool alive = true;
        for (int opening = 1; alive && opening < 2000 && !HasFailure(); ++opening) {
            SCOPED_TRACE(kind + std::to_string(opening));
            data.Put("wallets.json",
                     R"({"wallets":[{"id":"other","name":"o"},{"id":"starved","name":"s"}]})");
            data.Put("orvane_paymail.json", names);
            ChildProcess writer(kStoreWriter, {kind, "starved", "1", "stop"});
            alive = RunTo(writer, opening, Moments::kOpenings);
            rlimit former = {};
            if (alive) {
                EXPECT_EQ(::prlimit(writer.Pid(), RLIMIT_NOFILE, nullptr, &former), 0);
                const rlimit none = {0, former.rlim_max};
                EXPECT_EQ(::prlimit(writer.Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
                ASSERT_TRUE(RunOn(writer));
                EXPECT_EQ(::prlimit(writer.Pid(), RLIMIT_NOFILE, &former, nullptr), 0);
                EXPECT_EQ(::ptrace(PTRACE_DETACH, writer.Pid(), nullptr, nullptr), 0);
                writer.Wait();
            }
            const json paymail = ReadStoreJson(Path("orvane_paymail.json"));
            EXPECT_EQ(paymail.at("names").at("other"), json::parse(names)["names"]["other"]);
            const Lines wallets = Wallets();
            ASSERT_EQ(wallets.size(), 2u);
            EXPECT_EQ(wallets[0], "other=o");
            ++(wallets[1] == "starved=n" || paymail["names"].contains("starved") ? written : unchanged);
        }
        EXPECT_FALSE(alive);
        EXPECT_GE(unchanged, 2) << "no descriptor to read, none to write";
        EXPECT_GE(written, 2) << "what does not hinder, and none at all";
    }
}

}  // namespace
}  // namespace brickfall
