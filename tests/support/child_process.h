// child_process.h - a second process for a test, spoken to line by line. It inherits the environment, so it
// works on the test's own user-data folder. It is killed and reaped with its scope.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

class ChildProcess {
  public:
    // `program` is a path; its standard input and output are pipes to the test.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return pid_; }

    // The next line of its output without the newline, waiting for it; nothing once the output has ended.
    std::optional<std::string> ReadLine();

    // Reads lines until one begins so and gives that one; nothing if the output ends first.
    std::optional<std::string> ReadUntil(std::string_view beginning);

    void Write(std::string_view text);
    void Signal(int number);

    bool HasEnded() const;
    // Waits for its end: the exit code, or minus the number of the signal that ended it.
    int Wait();

  private:
    pid_t pid_ = -1;  // -1 once it is reaped
    int input_ = -1;
    int output_ = -1;
    std::string unread_;
};

}  // namespace brickfall
