// headless.cpp - the whole paid loop without a window: connect, claim, pay, play, record, read back, the
// board.
//
//   headless [--out DIR] [--audit DIR] [--report TEXT]
//                      one paid run; DIR gets its files, or those of the audit, TEXT goes to the architect,
//                      sealed
//   headless --board   only loads the board and prints it
//
// It drives the same flows as the cabinet, supplies the operations that they ask of a driver, and prints what
// happens. Exit 0 only when every step held; 1 with the step and the reason; 2 for a wrong command line.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>

#include "base/text.h"
#include "base/workers.h"
#include "cabinet/ui_settings.h"
#include "net/http_client.h"
#include "tools/headless/lines.h"
#include "tools/headless/session.h"
#include "wallet/events/wallet_events.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

int64_t PeakMemoryKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::strtoll(line.c_str() + 6, nullptr, 10);
    }
    return -1;
}

int Main(const HeadlessOptions& options) {
    // The executable's folder is the working folder and, as the installation's key, names its bind.
    const std::string folder = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
    if (::chdir(folder.c_str()) != 0) throw StepFailed("cannot enter " + folder);
    LoadUiSettings();
    BindAtStart(folder, "Brickfall");
    StartNetwork();
    {
        const std::lock_guard lock(wallet_sink_mutex);
        wallet_log_hook = [](std::string_view text) { SayField("Pouch", Trim(text)); };
    }
    if (!options.only_board) std::printf("Brickfall without a window: one paid run, with play money\n");
    std::string failure;
    try {
        Session(options).Run();
    } catch (const StepFailed& failed) {
        failure = failed.what();
    }
    WaitForWorkers();
    StopNetwork();
    if (!failure.empty()) {
        std::fflush(stdout);
        std::fprintf(stderr, "\nFailed at %s\n", failure.c_str());
        return 1;
    }
    if (!options.only_board)
        std::printf("\nAll of it held. Peak memory %.1f MB.\n", static_cast<double>(PeakMemoryKb()) / 1024);
    return 0;
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    brickfall::HeadlessOptions options;
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        if (argument == "--out" && i + 1 < count) {
            options.out_folder = std::filesystem::absolute(arguments[++i]).string();
        } else if (argument == "--report" && i + 1 < count) {
            options.report = arguments[++i];
        } else if (argument == "--audit" && i + 1 < count) {
            options.audit_folder = std::filesystem::absolute(arguments[++i]).string();
        } else if (argument == "--board" && count == 2) {
            options.only_board = true;
        } else {
            std::fprintf(
                stderr,
                "headless: bad argument \"%s\"; usage: headless [--out DIR] [--audit DIR] [--report TEXT] | "
                "--board\n",
                argument.c_str());
            return 2;
        }
    }
    try {
        return brickfall::Main(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "headless: %s\n", failure.what());
        return 1;
    }
}
