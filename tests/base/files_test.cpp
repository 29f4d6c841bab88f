#include "base/files.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "tests/support/full_disk.h"
#include "tests/support/temp_folder.h"

namespace brickfall {
namespace {

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777;
}

TEST(Files, TheProgramMayOpenMoreThanTheUsualLimit) {
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

std::set<std::string> Names(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

TEST(Files, WhatIsWrittenIsForTheUserAloneOrKeepsItsMode) {
    const TempFolder folder;
    const std::string deep = folder.Path() + "/a/b";
    const mode_t former = ::umask(0);
    ASSERT_TRUE(MakeFolders(deep));
    ASSERT_TRUE(ReplaceFile(deep + "/file", "one"));
    ::umask(former);
    EXPECT_EQ(ModeOf(folder.Path() + "/a"), 0700u);
    EXPECT_EQ(ModeOf(deep), 0700u);
    EXPECT_EQ(ModeOf(deep + "/file"), 0600u);
    ASSERT_EQ(::chmod((deep + "/file").c_str(), 0664), 0);
    ASSERT_TRUE(ReplaceFile(deep + "/file", "two"));
    EXPECT_EQ(ModeOf(deep + "/file"), 0664u);
    EXPECT_EQ(ReadFile(deep + "/file"), "two");
}

TEST(Files, AFileIsReplacedWholeWhereItsLinksEnd) {
    const TempFolder folder;
    const std::string base = folder.Path();
    ASSERT_TRUE(MakeFolders(base + "/far"));
    ASSERT_EQ(::symlink("far/link", (base + "/link").c_str()), 0);
    ASSERT_EQ(::symlink((base + "/far/file").c_str(), (base + "/far/link").c_str()), 0);
    ASSERT_TRUE(ReplaceFile(base + "/link", "one"));  // made where nothing was yet
    std::ifstream reader(base + "/far/file");
    ASSERT_TRUE(ReplaceFile(base + "/link", "two"));
    std::string seen;
    reader >> seen;
    EXPECT_EQ(seen, "one") << "who has the former file open still reads that one";
    EXPECT_EQ(ReadFile(base + "/far/file"), "two");
    EXPECT_TRUE(std::filesystem::is_symlink(base + "/link") &&
                std::filesystem::is_symlink(base + "/far/link"));
    EXPECT_EQ(Names(base), (std::set<std::string>{"far", "link"}));
    EXPECT_EQ(Names(base + "/far"), (std::set<std::string>{"file", "link"}));
}

TEST(Files, AFailedReplaceLeavesEverythingAsItWas) {
    const TempFolder folder;
    const std::string base = folder.Path();
    ASSERT_TRUE(WriteFile(base + "/file", "former"));
    ASSERT_TRUE(MakeFolders(base + "/folder"));
    ASSERT_EQ(::mkfifo((base + "/pipe").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("/dev/full", (base + "/device").c_str()), 0);
    ASSERT_EQ(::symlink("circle", (base + "/circle").c_str()), 0);
    const std::set<std::string> before = Names(base);
    for (const char* name : {"folder", "pipe", "device", "circle", "missing/file"}) {
        EXPECT_FALSE(ReplaceFile(base + "/" + name, "new")) << name;
    }
    {
        const FullDisk full(2);
        EXPECT_FALSE(ReplaceFile(base + "/file", "new"));
        EXPECT_FALSE(ReplaceFile(base + "/another", "new"));
    }
    EXPECT_EQ(ReadFile(base + "/file"), "former");
    EXPECT_EQ(Names(base), before);
    EXPECT_TRUE(std::filesystem::is_fifo(base + "/pipe"));
}

TEST(Files, AWriterClearsTheTemporaryFilesOfTheDeadAlone) {
    const TempFolder folder;
    const std::string base = folder.Path();
    const std::string living = ".brickfall-" + std::to_string(::getpid()) + "-999999.tmp";
    for (const std::string& name :
         {std::string(".brickfall-7-1.tmp"), living, std::string(".brickfall-7.tmp.old"),
          std::string(".brickfall-x.tmp"), std::string("other.tmp")}) {
        ASSERT_TRUE(WriteFile(base + "/" + name, ""));
    }
    ByteLock writer;
    ASSERT_TRUE(writer.Acquire(base + "/" + living));
    ASSERT_TRUE(ReplaceFile(base + "/file", "one"));
    EXPECT_EQ(Names(base), (std::set<std::string>{living, ".brickfall-7.tmp.old", ".brickfall-x.tmp",
                                                  "other.tmp", "file"}));
}

TEST(Files, ReadsAnySizeAndTellsWhatIsNotThereFromWhatCannotBeRead) {
    const TempFolder folder;
    const std::string path = folder.Path() + "/file";
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 1'000'000u}) {
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
    ASSERT_EQ(::mkfifo((folder.Path() + "/pipe").c_str(), 0600), 0);
    for (const std::string& unreadable :
         {path, folder.Path() + "/pipe", folder.Path(), std::string("/dev/zero")}) {
        EXPECT_EQ(state_of(unreadable), FileState::kUnreadable) << unreadable;
    }
    EXPECT_EQ(state_of(folder.Path() + "/missing"), FileState::kMissing);
    EXPECT_EQ(state_of(path + "/below"), FileState::kMissing);
}

TEST(Files, TheUserDataFolderFollowsTheEnvironment) {
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

}  // namespace
}  // namespace brickfall
