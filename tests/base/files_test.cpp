#include "base/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/temp_folder.h"

namespace brickfall {
namespace {

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777;
}

TEST(Files, WhatIsWrittenIsForTheUserAlone) {
    const TempFolder folder;
    const std::string deep = folder.Path() + "/a/b";
    const mode_t former = ::umask(0);
    ASSERT_TRUE(MakeFolders(deep));
    ASSERT_TRUE(WriteFile(deep + "/plain", "one"));
    ASSERT_TRUE(ReplaceFile(deep + "/whole", deep + "/whole.tmp", "two"));
    ::umask(former);
    EXPECT_EQ(ModeOf(folder.Path() + "/a"), 0700u);
    EXPECT_EQ(ModeOf(deep), 0700u);
    EXPECT_EQ(ModeOf(deep + "/plain"), 0600u);
    EXPECT_EQ(ModeOf(deep + "/whole"), 0600u);
    EXPECT_EQ(ReadFile(deep + "/plain"), "one");
    EXPECT_EQ(ReadFile(deep + "/whole"), "two");
    EXPECT_FALSE(FileExists(deep + "/whole.tmp"));
}

TEST(Files, AFailedReplaceLeavesTheFormerFileWhole) {
    const TempFolder folder;
    const std::string path = folder.Path() + "/file";
    ASSERT_TRUE(WriteFile(path, "former"));
    // A device that is always full: the temporary file opens, its write fails.
    ASSERT_EQ(::symlink("/dev/full", (path + ".tmp").c_str()), 0);
    EXPECT_FALSE(ReplaceFile(path, path + ".tmp", "new"));
    EXPECT_EQ(ReadFile(path), "former");
    // A folder in the target's place: the move fails and the temporary file goes.
    const std::string taken = folder.Path() + "/taken";
    ASSERT_TRUE(MakeFolders(taken + "/inside"));
    EXPECT_FALSE(ReplaceFile(taken, taken + ".tmp", "new"));
    EXPECT_FALSE(FileExists(taken + ".tmp"));
}

TEST(Files, ReadsAnySizeAndReportsWhatIsNotThere) {
    const TempFolder folder;
    const std::string path = folder.Path() + "/file";
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 1'000'000u}) {
        const std::string content(size, 'x');
        ASSERT_TRUE(WriteFile(path, content));
        EXPECT_EQ(ReadFile(path), content) << size;
    }
    EXPECT_EQ(ReadFile(folder.Path() + "/missing"), std::nullopt);
    EXPECT_EQ(ReadFile(folder.Path()), std::nullopt) << "a folder";
    EXPECT_EQ(ReadFile("/dev/full"), std::nullopt) << "a device without end";
    EXPECT_FALSE(WriteFile(folder.Path() + "/missing/file", "x"));
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
