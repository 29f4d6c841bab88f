// brickfall-sandbox - every remote service of the game on 127.0.0.1, until SIGTERM or SIGINT.
//
//   brickfall-sandbox --folder DIR [--port N] [--journal FILE] [--port-file FILE] [--seed-board]
//                     [--userinfo DIR]...
//
//   --folder DIR      keeps the certificate authority; made at the first start
//   --port N          the port to serve on; 0, which is the default, takes a free one
//   --journal FILE    keeps the chain and the names, and goes on with them at the next start
//   --port-file FILE  receives the port, in decimal, once it serves
//   --seed-board      fills the weekly board with players, faces and runs, once for each week
//   --userinfo DIR    receives the architect's key file, which a report to it needs; may stand there again
//
// Each report that the architect has opened is printed as "report from HANDLE: TEXT". The line "sandbox ready
// on 127.0.0.1:PORT, authority PEMFILE" says that it serves. Exit code 0 after a signal, 1 when it cannot
// serve, 2 for a wrong command line.
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "base/files.h"
#include "sandbox/server/sandbox.h"

namespace {

struct ProgramOptions {
    brickfall::sandbox::Options sandbox;
    std::string port_file;
    bool seed_board = false;
    std::vector<std::string> userinfo;
};

bool ParsePort(std::string_view text, int& port) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && stop == end && port >= 0 && port <= 65535;
}

bool ParseCommandLine(int count, char** arguments, ProgramOptions& options, std::string& error) {
    for (int i = 1; i < count; ++i) {
        const std::string_view name = arguments[i];
        if (name == "--seed-board") {
            options.seed_board = true;
            continue;
        }
        const bool known = name == "--folder" || name == "--port" || name == "--journal" ||
                           name == "--port-file" || name == "--userinfo";
        if (!known || i + 1 == count || arguments[i + 1][0] == '\0') {
            error = known ? std::string(name) + " needs a value" : "unknown option " + std::string(name);
            return false;
        }
        const char* const value = arguments[++i];
        if (name == "--folder") options.sandbox.folder = value;
        if (name == "--journal") options.sandbox.journal_file = value;
        if (name == "--port-file") options.port_file = value;
        if (name == "--userinfo") options.userinfo.push_back(value);
        if (name == "--port" && !ParsePort(value, options.sandbox.port)) {
            error = "--port needs a number from 0 to 65535";
            return false;
        }
    }
    if (options.sandbox.folder.empty()) error = "--folder DIR is missing";
    return error.empty();
}

// What a stranger has written must not move the terminal's cursor.
std::string Shown(std::string text) {
    for (char& c : text) {
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7f) c = '?';
    }
    return text;
}

void PrintReport(const brickfall::sandbox::Report& report) {
    if (report.refusal.empty()) {
        std::printf("report from %s: %s\n", Shown(report.handle).c_str(), Shown(report.text).c_str());
    } else {
        std::printf("a report was refused: %s\n", report.refusal.c_str());
    }
    std::fflush(stdout);
}

int Fail(int code, const std::string& error) {
    std::fprintf(stderr, "brickfall-sandbox: %s\n", error.c_str());
    return code;
}

}  // namespace

int main(int count, char** arguments) {
    ProgramOptions options;
    std::string error;
    if (!ParseCommandLine(count, arguments, options, error)) return Fail(2, error);

    // Blocked before any thread starts, so that only the wait below takes them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    options.sandbox.on_report = PrintReport;
    brickfall::sandbox::Sandbox sandbox(options.sandbox);
    if (!sandbox.Start(error)) return Fail(1, error);
    for (const std::string& folder : options.userinfo) {
        if (!sandbox.AppointArchitect(folder)) return Fail(1, "cannot write a key file into " + folder);
    }
    if (options.seed_board && !sandbox.SeedBoard(brickfall::UnixSeconds())) {
        return Fail(1, "cannot fill the board");
    }
    const std::string port = std::to_string(sandbox.Port());
    if (!options.port_file.empty() && !brickfall::ReplaceFile(options.port_file, port + "\n")) {
        return Fail(1, "cannot write " + options.port_file);
    }
    std::printf("sandbox ready on 127.0.0.1:%s, authority %s\n", port.c_str(), sandbox.CaFile().c_str());
    std::fflush(stdout);

    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
    sandbox.Stop();
    return 0;
}
