// One instance, found by the name of its window, also after a crash; and what the desktop starts for us.
#include "platform/desktop.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <string>

#include "base/files.h"
#include "tests/platform/platform_fixture.h"
#include "tests/support/temp_folder.h"

namespace brickfall {
namespace {

class Variable {
  public:
    Variable(const char* name, const std::string& value) : name_(name) {
        if (const char* const former = std::getenv(name)) former_ = former;
        value.empty() ? ::unsetenv(name) : ::setenv(name, value.c_str(), 1);
    }
    ~Variable() { former_.empty() ? ::unsetenv(name_) : ::setenv(name_, former_.c_str(), 1); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    const char* name_;
    std::string former_;
};

TEST(WindowClass, IsClaimedOnceRaisedFromAnywhereAndNeverInTheWay) {
    const TempFolder folder;
    const Variable runtime("XDG_RUNTIME_DIR", folder.Path());
    EXPECT_FALSE(RaiseWindowOfClass("CabinetShell")) << "nobody is there";
    int raised = 0;
    ASSERT_TRUE(ClaimWindowClass("CabinetShell", [&] { ++raised; }));
    EXPECT_FALSE(ClaimWindowClass("CabinetShell", {}));
    EXPECT_TRUE(ClaimWindowClass("Another", {}));
    for (int time = 1; time <= 2; ++time) {
        EXPECT_TRUE(std::async(std::launch::async, RaiseWindowOfClass, "CabinetShell").get());
        PumpMessages();
        EXPECT_EQ(raised, time);
    }
    for (const char* const none : {"../CabinetShell", ""}) EXPECT_FALSE(RaiseWindowOfClass(none)) << none;
    // It comes up even where nothing can be claimed.
    const Variable missing("XDG_RUNTIME_DIR", folder.Path() + "/none");
    EXPECT_TRUE(ClaimWindowClass("Shared", {}));
    const Variable shared("XDG_RUNTIME_DIR", folder.Path());
    ::chmod(folder.Path().c_str(), 0777);  // anybody could take its place
    EXPECT_TRUE(ClaimWindowClass("Shared", {}));
    EXPECT_FALSE(RaiseWindowOfClass("Shared"));
}

TEST(WindowClass, IsFreeAgainAfterACrash) {
    const TempFolder folder;
    const Variable runtime("XDG_RUNTIME_DIR", "");  // the one in the temporary folder
    const Variable temporary("TMPDIR", folder.Path());
    const pid_t other = ::fork();
    if (other == 0) {
        const bool taken = ClaimWindowClass("Crashing", {}) && !ClaimWindowClass("Crashing", {});
        ::kill(::getpid(), taken ? SIGKILL : SIGTERM);
    }
    int ended_by = 0;
    ::waitpid(other, &ended_by, 0);
    EXPECT_EQ(WTERMSIG(ended_by), SIGKILL) << "the other program could not claim it";
    EXPECT_FALSE(RaiseWindowOfClass("Crashing"));
    EXPECT_TRUE(ClaimWindowClass("Crashing", {}));
    EXPECT_TRUE(RaiseWindowOfClass("Crashing"));
    PumpMessages();
}

TEST(Programs, StartDetachedInTheirFolderOrSayThatTheyDoNot) {
    const TempFolder folder;
    const std::string program = folder.Path() + "/program", told = folder.Path() + "/told";
    ASSERT_EQ(::mkfifo(told.c_str(), 0600), 0);
    ASSERT_TRUE(WriteFile(
        program, "#!/bin/sh\necho \"$(pwd) $(ps -o ppid= -p $$ 2>/dev/null | tr -d ' ')\" > told\n"));
    EXPECT_FALSE(StartProgram(program, folder.Path())) << "not executable";
    ::chmod(program.c_str(), 0700);
    EXPECT_FALSE(StartProgram(folder.Path() + "/none", folder.Path()));
    EXPECT_FALSE(StartProgram(program, folder.Path() + "/none"));
    ASSERT_TRUE(StartProgram(program, folder.Path()));
    std::ifstream reader(told);  // waits for the program
    std::string where, parent;
    reader >> where >> parent;
    EXPECT_EQ(where, folder.Path());
    EXPECT_NE(parent, std::to_string(::getpid()));
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "it leaves nothing to wait for";
    EXPECT_TRUE(FileExists(ExecutableFolder() + "/platform_tests"));
}

TEST(Addresses, AreOpenedOnlyWhenTheyAreOfTheWeb) {
    TakeOpenedAddresses();
    for (const char* const url : {"https://downloads.test/game?a=1", "file:///etc/passwd",
                                  "javascript:alert(1)", "", "not an address", "http://downloads.test"}) {
        OpenAddress(url);
    }
    EXPECT_EQ(TakeOpenedAddresses(),
              (std::vector<std::string>{"https://downloads.test/game?a=1", "http://downloads.test"}));
}

TEST(Display, IsNotThereWhereNothingTakesConnections) {
    const Variable wayland("WAYLAND_DISPLAY", "");
    EXPECT_TRUE(DisplayAvailable()) << "off screen there always is one";
    const Variable toolkit("QT_QPA_PLATFORM", "");
    for (const char* const name :
         {"", "nonsense", ":", ":x", ":9731", "unix:9731.0", ":99999999", "127.0.0.1:59000"}) {
        const Variable display("DISPLAY", name);
        EXPECT_FALSE(DisplayAvailable()) << name;
    }
}

}  // namespace
}  // namespace brickfall
