#include "wallet/store/shared_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
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

class SharedStore : public ::testing::Test {
  protected:
    std::string Path(const std::string& name) const { return user_data_.Path() + "/Orvane/" + name; }
    void Put(const std::string& name, std::string_view content) const {
        ASSERT_TRUE(MakeFolders(Path("")));
        ASSERT_TRUE(WriteFile(Path(name), content)) << name;
    }
    std::string Content(const std::string& name) const { return ReadFile(Path(name)).value_or("(none)"); }
    Lines Names(const std::string& folder) const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Path(folder))) {
            names.insert(entry.path().filename().string());
        }
        return {names.begin(), names.end()};
    }

    const FoldersInMemory in_memory_;
    const TempUserData user_data_;
};

Lines Described(const std::vector<WalletInfo>& wallets) {
    Lines lines;
    for (const WalletInfo& wallet : wallets) lines.push_back(wallet.id + "=" + wallet.name);
    return lines;
}

TEST_F(SharedStore, ARegistryOfAnyBytesReadsAsAnObjectWithAListOfWallets) {
    const std::string deep =  // a copy of it would exhaust the stack
        R"({"wallets": [{"id": "a"}], "x": )" + std::string(200'000, '[') + std::string(200'000, ']') + "}";
    const auto listed = [this](const std::string& content) {
        SCOPED_TRACE(content.substr(0, 100));
        Put("wallets.json", content);
        const json registry = ReadRegistry().document;
        EXPECT_TRUE(registry.is_object() && registry.at("wallets").is_array());
        return Described(ListWallets());
    };
    for (const std::string& broken :
         {std::string(), std::string(R"([{"id": "a"}])"), std::string(R"({"wallets": [{"id": "a"}], "act)"),
          std::string(R"({"wallets": [{"id": "a"}]} {})"), std::string(R"({"wallets": {"id": "a"}})"),
          std::string(R"({"wallets": null})"), std::string("{\"wallets\": [{\"id\": \"a\xff\"}]}"), deep}) {
        EXPECT_EQ(listed(broken), Lines{}) << broken.substr(0, 100);
    }
    EXPECT_EQ(listed(R"({"wallets": [{"id": "a", "name": "One"}, {"id": "b"}]})"), (Lines{"a=One", "b=b"}));
    EXPECT_EQ(listed(R"({"wallets": [7, "a", null, [], {}, {"id": 5}, {"id": "", "name": "x"}, {"name": "y"},
                  {"id": "c", "name": 1e300}, {"id": "d", "name": ""}, {"id": "c", "name": "twice"}]})"),
              (Lines{"c=c", "d=d", "c=twice"}));
    EXPECT_EQ(WalletDisplayName("d"), "d") << "listed without a name";
    EXPECT_EQ(WalletDisplayName("unlisted"), "unlisted");
    RemoveFile(Path("wallets.json"));
    EXPECT_TRUE(ListWallets().empty());

    EXPECT_EQ(ReadRegistry().state, FileState::kMissing);
    for (const std::string& content : {std::string("broken"), "[" + std::string(999'999, ',') + "]"}) {
        Put("wallets.json", content);
        EXPECT_EQ(ReadRegistry().state, FileState::kRead);
    }
    for (const std::string& content : {deep, "[" + std::string(1'000'000, ',') + "]"}) {
        Put("wallets.json", content);
        EXPECT_EQ(ReadRegistry().state, FileState::kUnreadable);
        EXPECT_FALSE(WriteStoreFile(Path("wallets.json"), "{}"));
        Put("orvane_pouch.json", "the old wallet");
        MigrateSingleWallet();
        SetWalletName("a", "anna");
        EXPECT_EQ(Content("wallets.json"), content) << "nothing replaces it";
        EXPECT_EQ(Content("orvane_pouch.json"), "the old wallet");
    }
}

TEST_F(SharedStore, NamingAWalletKeepsEverythingElseOfTheRegistry) {
    Put("wallets.json",
        R"({"theme":{"dark":true},"active":"b","wallets":[{"id":"a","colour":3},4,{"id":"b"},{"id":"a"}]})");
    SetWalletName("a", "anna");
    const json expected = json::parse(R"({"theme":{"dark":true},"active":"b","wallets":
        [{"id":"a","colour":3,"name":"anna"},4,{"id":"b"},{"id":"a","name":"anna"}]})");
    EXPECT_EQ(json::parse(Content("wallets.json")), expected);
    EXPECT_EQ(WalletDisplayName("a"), "anna");

    const std::string before = Content("wallets.json");
    EXPECT_TRUE(before.starts_with("{\n  \"active\": \"b\",\n")) << "for people to read";
    EXPECT_TRUE(before.ends_with("}\n"));
    SetWalletName("", "nobody");
    SetWalletName("a", "");
    EXPECT_EQ(Content("wallets.json"), before);

    Put("wallets.json", "broken");
    SetWalletName("unlisted", "x");
    EXPECT_EQ(Content("wallets.json"), "{\n  \"wallets\": []\n}\n") << "the next write replaces it";
}

TEST_F(SharedStore, AnOldSingleWalletMovesOnceIntoTheListOfWallets) {
    const ManualClock clock(1'700'000'000);
    MigrateSingleWallet();
    EXPECT_FALSE(FileExists(Path("wallets.json"))) << "nothing to move, nothing written";

    Put("orvane_pouch.json", "the old wallet");
    Put("wallets", "a file in the folder's place");
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
    Put("orvane_pouch.json", "another");
    for (const std::string& registry :
         {expected.dump(),
          std::string(R"({"wallets":[{"id":"w1","name":"anna"},{"id":"w2","name":"Wallet 1"}]})"),
          std::string(R"({"wallets":[{"id":"a","name":"Wallet 1"}]})")}) {
        Put("wallets.json", registry);
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

    // Without a lock file the lock of the process alone has to do.
    ASSERT_TRUE(RemoveFile(Path("wallets.lock")));
    ASSERT_TRUE(MakeFolders(Path("wallets.lock")));
    Put("wallets.json", R"({"wallets": [{"id": "a"}]})");
    SetWalletName("a", "anna");
    EXPECT_EQ(WalletDisplayName("a"), "anna");
}

TEST_F(SharedStore, TwoProcessesThatWriteLoseNothingOfEachOther) {
    for (const char* kind : {"wallets", "names"}) {
        ChildProcess one(kStoreWriter, {kind, "one", "1000"});
        ChildProcess two(kStoreWriter, {kind, "two", "1000"});
        EXPECT_EQ(one.Wait(), 0) << kind << ", 3: it missed what it had written";
        EXPECT_EQ(two.Wait(), 0) << kind;
    }
    std::set<std::string> ids;
    for (const WalletInfo& wallet : ListWallets()) ids.insert(wallet.id);
    EXPECT_EQ(ids.size(), 20u + 20u);
    EXPECT_TRUE(ids.contains("one999") && ids.contains("two999"));
    const json names = ReadStoreJson(Path("orvane_paymail.json")).at("names");
    EXPECT_EQ(
        names.at("one").at("address").get<std::string>() + names.at("two").at("address").get<std::string>(),
        "999999");
}

// Runs a stopped writer up to its `stops`-th entry into, or return from, the kernel. True when it had ended
// before.
bool RunTo(ChildProcess& writer, int stops) {
    const pid_t pid = writer.Pid();
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, WUNTRACED), pid);
    EXPECT_EQ(::ptrace(PTRACE_SEIZE, pid, nullptr, PTRACE_O_TRACESYSGOOD), 0);
    writer.Signal(SIGCONT);
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    for (int i = 0; i < stops && WIFSTOPPED(status); ++i) {
        EXPECT_EQ(::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr), 0);
        EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    }
    if (WIFSTOPPED(status)) return false;
    writer.SetReaped();
    return true;
}

bool RunAndKillAt(const char* kind, int stops) {
    ChildProcess writer(kStoreWriter, {kind, "killed", "1", "stop"});
    return RunTo(writer, stops);  // killed and reaped with the scope
}

// The same, but what the writer asks of the kernel there gets no descriptor, and all the rest does.
bool RunWithoutDescriptorAt(const char* kind, int stops) {
    ChildProcess writer(kStoreWriter, {kind, "starved", "1", "stop"});
    if (RunTo(writer, stops)) return true;
    const pid_t pid = writer.Pid();
    rlimit former = {};
    EXPECT_EQ(::prlimit(pid, RLIMIT_NOFILE, nullptr, &former), 0);
    const rlimit none = {0, former.rlim_max};
    EXPECT_EQ(::prlimit(pid, RLIMIT_NOFILE, &none, nullptr), 0);
    int status = 0;
    EXPECT_EQ(::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr), 0);
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    if (WIFSTOPPED(status)) {
        EXPECT_EQ(::prlimit(pid, RLIMIT_NOFILE, &former, nullptr), 0);
        EXPECT_EQ(::ptrace(PTRACE_DETACH, pid, nullptr, nullptr), 0);
        writer.Wait();
    } else {
        writer.SetReaped();
    }
    return false;
}

TEST_F(SharedStore, AWriterKilledAtAnyMomentLeavesAWholeRegistryAndNoLock) {
    const std::string former = "{\n  \"wallets\": [\n    {\n      \"id\": \"a\"\n    }\n  ]\n}\n";
    int without_entry = 0;
    int with_entry = 0;
    bool ended = false;
    for (int stops = 0; !ended && stops < 2000 && !HasFailure(); ++stops) {
        Put("wallets.json", former);
        ended = RunAndKillAt("wallets", stops);
        const json registry = json::parse(Content("wallets.json"), nullptr, false);
        ASSERT_TRUE(registry.is_object()) << "killed at stop " << stops;
        const Lines wallets = Described(ListWallets());  // would wait for a lock left behind
        if (wallets == Lines{"a=a"}) {
            ++without_entry;
        } else {
            EXPECT_EQ(wallets, (Lines{"a=a", "killed0=n"})) << "killed at stop " << stops;
            ++with_entry;
        }
    }
    EXPECT_TRUE(ended);
    EXPECT_GT(without_entry, 20);
    EXPECT_GT(with_entry, 1);
    SetWalletName("a", "anna");
    EXPECT_EQ(Names(""), (Lines{"wallets.json", "wallets.lock"})) << "the next writer clears what they left";
}

TEST_F(SharedStore, AMomentWithoutDescriptorsLosesNothing) {
    const json wallets = {
        {"wallets", {{{"id", "other"}, {"name", "o"}}, {{"id", "starved"}, {"name", "s"}}}}};
    const json names = {{"names", {{"other", {{"pubkey", "02"}}}}}};
    for (const char* kind : {"rename", "names"}) {
        int unchanged = 0;
        int written = 0;
        bool ended = false;
        for (int stops = 0; !ended && stops < 2000 && !HasFailure(); ++stops) {
            Put("wallets.json", wallets.dump());
            Put("orvane_paymail.json", names.dump());
            ended = RunWithoutDescriptorAt(kind, stops);
            const json paymail = ReadStoreJson(Path("orvane_paymail.json"));
            const Lines listed = Described(ListWallets());
            EXPECT_EQ(paymail.at("names").at("other"), names["names"]["other"])
                << kind << " at stop " << stops;
            ASSERT_EQ(listed.size(), 2u) << kind << " at stop " << stops;
            EXPECT_EQ(listed[0], "other=o");
            const bool is_written = listed[1] == "starved=n" || paymail["names"].contains("starved");
            ++(is_written ? written : unchanged);
        }
        EXPECT_TRUE(ended);
        EXPECT_GE(unchanged, 2) << "no descriptor to read, none to write";
        EXPECT_GT(written, 20);
    }
}

TEST_F(SharedStore, AMigrationKilledAtAnyMomentIsFinishedByTheNextStart) {
    int unfinished = 0;
    bool ended = false;
    for (int stops = 0; !ended && stops < 2000 && !HasFailure(); ++stops) {
        std::filesystem::remove_all(Path(""));
        Put("orvane_pouch.json", "the old wallet");
        ended = RunAndKillAt("migrate", stops);
        unfinished += FileExists(Path("wallets.json")) && FileExists(Path("orvane_pouch.json"));
        MigrateSingleWallet();
        const std::vector<WalletInfo> wallets = ListWallets();
        ASSERT_EQ(wallets.size(), 1u) << "killed at stop " << stops;
        EXPECT_EQ(wallets[0].name, "Wallet 1");
        EXPECT_EQ(Content("wallets/" + wallets[0].id + "/wallet.json"), "the old wallet")
            << "at stop " << stops;
        EXPECT_FALSE(FileExists(Path("orvane_pouch.json")));
    }
    EXPECT_TRUE(ended);
    EXPECT_GT(unfinished, 1) << "between the list and the move";
}

}  // namespace
}  // namespace brickfall
