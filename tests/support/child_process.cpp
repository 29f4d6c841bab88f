#include "tests/support/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace brickfall {

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments) {
    int to_child[2];
    int from_child[2];
    if (::pipe2(to_child, O_CLOEXEC) != 0 || ::pipe2(from_child, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    std::vector<char*> words = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, to_child[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, from_child[1], STDOUT_FILENO);
    const int failure = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(to_child[0]);
    ::close(from_child[1]);
    input_ = to_child[1];
    output_ = from_child[0];
    if (failure != 0) throw std::runtime_error("cannot start " + program);
}

ChildProcess::~ChildProcess() {
    Signal(SIGKILL);
    Wait();
    ::close(input_);
    ::close(output_);
}

std::optional<std::string> ChildProcess::ReadLine() {
    for (;;) {
        if (const std::size_t end = unread_.find('\n'); end != std::string::npos) {
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        char buffer[4096];
        const ssize_t got = ::read(output_, buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return std::nullopt;
        unread_.append(buffer, static_cast<std::size_t>(got));
    }
}

std::optional<std::string> ChildProcess::ReadUntil(std::string_view beginning) {
    std::optional<std::string> line;
    do {
        line = ReadLine();
    } while (line && !line->starts_with(beginning));
    return line;
}

void ChildProcess::Write(std::string_view text) {
    if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the child does not read");
    }
}

void ChildProcess::Signal(int number) {
    if (pid_ > 0) ::kill(pid_, number);
}

bool ChildProcess::HasEnded() const {
    siginfo_t told{};
    return pid_ <= 0 || (::waitid(P_PID, static_cast<id_t>(pid_), &told, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                         told.si_pid == pid_);
}

int ChildProcess::Wait() {
    int status = 0;
    if (pid_ <= 0) return -1;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace brickfall
