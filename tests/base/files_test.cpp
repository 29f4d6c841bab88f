#include "base/files.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "tests/support/full_disk.h"
#include "tests/support/temp_folder.h"

namespace brickfall {
namespace {

// What a full disk and a reader meanwhile come to stands in the story of the files.
struct Files : testing::Test {
    std::set<std::string> Names(const std::string& below = "") const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(base + below)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    const TempFolder folder;
    const std::string base = folder.Path();
};

TEST_F(Files, AreMadeForTheUserAloneWhereTheirLinksEnd) {
    const mode_t former = ::umask(0);
    ASSERT_TRUE(MakeFolders(base + "/a/far"));
    ASSERT_EQ(::symlink("a/far/link", (base + "/link").c_str()), 0);
    ASSERT_EQ(::symlink((base + "/a/far/file").c_str(), (base + "/a/far/link").c_str()), 0);
    ASSERT_TRUE(ReplaceFile(base + "/link", "one"));  // where nothing was yet
    ::umask(former);
    for (const auto& [path, mode] : {std::pair("/a", 0700), {"/a/far", 0700}, {"/a/far/file", 0600}}) {
        EXPECT_EQ(std::filesystem::status(base + path).permissions(), std::filesystem::perms(mode)) << path;
    }
    ASSERT_TRUE(ReplaceFile(base + "/link", "two"));
    EXPECT_EQ(ReadFile(base + "/a/far/file"), "two");
    for (const char* link : {"/link", "/a/far/link"}) {
        EXPECT_TRUE(std::filesystem::is_symlink(base + link)) << link;
    }
    EXPECT_EQ(Names(), (std::set<std::string>{"a", "link"}));
    EXPECT_EQ(Names("/a/far"), (std::set<std::string>{"file", "link"}));
}

TEST_F(Files, AreNotWrittenWhereNoneCanBe) {
    ASSERT_TRUE(MakeFolders(base + "/folder"));
    ASSERT_EQ(::mkfifo((base + "/pipe").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("/dev/full", (base + "/device").c_str()), 0);
    ASSERT_EQ(::symlink("circle", (base + "/circle").c_str()), 0);
    const std::set<std::string> before = Names();
    for (const char* name : {"folder", "pipe", "device", "circle", "missing/file"}) {
        EXPECT_FALSE(ReplaceFile(base + "/" + name, "new")) << name;
    }
    {
        const FullDisk full(2);
        EXPECT_FALSE(ReplaceFile(base + "/another", "new"));
    }
    EXPECT_EQ(Names(), before);
    EXPECT_TRUE(std::filesystem::is_fifo(base + "/pipe"));
}

TEST_F(Files, AWriterClearsTheTemporaryFilesOfTheDeadAlone) {
    const std::string living = ".brickfall-" + std::to_string(::getpid()) + "-999999.tmp";
    std::set<std::string> names = {living, ".brickfall-7-1.tmp", ".brickfall-7.tmp.old", ".brickfall-x.tmp",
                                   "other.tmp"};
    for (const std::string& name : names) ASSERT_TRUE(WriteFile(base + "/" + name, ""));
    ByteLock writer;
    ASSERT_TRUE(writer.Acquire(base + "/" + living));
    ASSERT_TRUE(ReplaceFile(base + "/file", "one"));
    names.erase(".brickfall-7-1.tmp");
    names.insert("file");
    EXPECT_EQ(Names(), names);
}

TEST_F(Files, AreReadInAnySizeAndTellWhatIsNotThereFromWhatCannotBeRead) {
    const std::string path = base + "/file";
    for (const std::size_t size : {0u, 4095u, 4096u, 1'000'000u}) {
        const std::string content(size, 'x');
        ASSERT_TRUE(WriteFile(path, content));
        EXPECT_EQ(ReadFile(path), content) << size;
    }
    const auto state_of = [](const std::string& name) {
        std::string content = "former";
        const FileState state = ReadFile(name, content);
        EXPECT_TRUE(content.empty() || state == FileState::kRead) << name;
        return state;
    };
    ASSERT_EQ(::truncate(path.c_str(), kMaxFileBytes), 0);
    EXPECT_EQ(state_of(path), FileState::kRead);
    ASSERT_EQ(::truncate(path.c_str(), off_t{1} << 40), 0);
    ASSERT_EQ(::mkfifo((base + "/pipe").c_str(), 0600), 0);
    for (const std::string& unreadable : {path, base + "/pipe", base, std::string("/dev/zero")}) {
        EXPECT_EQ(state_of(unreadable), FileState::kUnreadable) << unreadable;
    }
    rlimit former = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
    const rlimit none = {0, former.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const FileState without_descriptors = state_of(path);
    const bool replaced = ReplaceFile(path, "new");
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &former), 0);
    EXPECT_EQ(without_descriptors, FileState::kUnreadable);
    EXPECT_FALSE(replaced);
    EXPECT_EQ(state_of(base + "/missing"), FileState::kMissing);
    EXPECT_EQ(state_of(path + "/below"), FileState::kMissing);
}

TEST(Environment, TheUserDataFolderFollowsIt) {
    const std::string former_home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    ::setenv("LOCALAPPDATA", "/one", 1);
    ::setenv("XDG_DATA_HOME", "/two", 1);
    ::setenv("HOME", "/three", 1);
    EXPECT_EQ(UserDataFolder(), "/one");
    ::setenv("LOCALAPPDATA", "", 1);
    EXPECT_EQ(UserDataFolder(), "/two");
    ::unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(UserDataFolder(), "/three/.local/share");
    ::unsetenv("HOME");
    EXPECT_EQ(UserDataFolder(), ".");
    ::setenv("HOME", former_home.c_str(), 1);
}

TEST(Environment, TheProgramMayOpenMoreThanTheUsualLimit) {
    rlimit former = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
    rlimit limit = {100, former.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    RaiseDescriptorLimit();
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_GE(limit.rlim_cur, std::min<rlim_t>(8'192, former.rlim_max));
    EXPECT_EQ(limit.rlim_max, former.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &former);
}

}  // namespace
}  // namespace brickfall
