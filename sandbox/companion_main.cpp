// brickfall-companion - stands in for Pouch in the sandbox: holds a wallet in the shared store and answers
// the connect requests of cabinets. The store is found as the cabinet finds it.
//
//   brickfall-companion [--auto-approve | --auto-deny] [--create-on-connect | --no-wallet] [--name NAME]
//
//   --auto-approve       approve every request; without this and --auto-deny it asks on its terminal
//   --auto-deny          refuse every request
//   --create-on-connect  create the wallet at the first approval instead of at the start. A cabinet binds
//                        the only wallet of a store by itself, so a handshake on a new store needs this.
//   --no-wallet          create no wallet; an approval then names none unless the store has one
//   --name NAME          the paymail name of a wallet that is created here
//
// A wallet that the store has already is used as it is. Requests whose minute is over at the start are left
// alone. The line "companion ready: ADDRESS" ("-" without a wallet) says that requests are watched; each
// request and, once its reply is in place, each answer has a line of its own. It ends on SIGTERM and SIGINT
// with exit code 0; a wrong command line gives 2, a store that cannot be written 1.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "sandbox/companion.h"
#include "wallet/store/paymail_registry.h"

namespace brickfall {
namespace {

constexpr int64_t kLookMs = 100;

enum class Answer { kAsk, kApprove, kDeny };
enum class Creation { kAtStart, kOnConnect, kNever };

struct CompanionOptions {
    Answer answer = Answer::kAsk;
    Creation creation = Creation::kAtStart;
    std::string name;
};

// False with `error` for a command line that makes no sense.
bool ParseOptions(int count, char** arguments, CompanionOptions& options, std::string& error) {
    const auto set_once = [&error](auto& field, auto unset, auto value) {
        if (field != unset && field != value) error = "options that exclude each other";
        field = value;
    };
    for (int i = 1; i < count && error.empty(); ++i) {
        const std::string_view option = arguments[i];
        if (option == "--auto-approve") {
            set_once(options.answer, Answer::kAsk, Answer::kApprove);
        } else if (option == "--auto-deny") {
            set_once(options.answer, Answer::kAsk, Answer::kDeny);
        } else if (option == "--create-on-connect") {
            set_once(options.creation, Creation::kAtStart, Creation::kOnConnect);
        } else if (option == "--no-wallet") {
            set_once(options.creation, Creation::kAtStart, Creation::kNever);
        } else if (option == "--name" && i + 1 < count) {
            options.name = arguments[++i];
            if (options.name.empty() || SanitizePaymailName(options.name) != options.name) {
                error = "a NAME has lower-case letters, digits, '_', '-' and '.' only";
            }
        } else {
            error = "unknown or incomplete option " + std::string(option);
        }
    }
    return error.empty();
}

sigset_t StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

// The stop signals stay blocked and are looked for between two steps, so none cuts a step in half.
bool StopRequested() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1;
}

// Text of another program, fit for a terminal.
std::string Printable(std::string text) {
    for (char& byte : text) {
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f) byte = '?';
    }
    return text;
}

void PrintLine(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// The next byte of the terminal, waiting for it; nothing at its end or when the companion is to stop.
std::optional<char> NextKey() {
    while (!StopRequested()) {
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, 0) > 0) {
            char key = 0;
            return ::read(STDIN_FILENO, &key, 1) == 1 ? std::optional(key) : std::nullopt;
        }
        SleepMs(kLookMs);
    }
    return std::nullopt;
}

std::optional<bool> AskOnTerminal() {
    std::printf("Approve? [y/n] ");
    std::fflush(stdout);
    for (;;) {
        const std::optional<char> key = NextKey();
        if (!key && StopRequested()) return std::nullopt;
        if (!key || *key == 'n' || *key == 'N') return false;  // with nobody there to ask: no
        if (*key == 'y' || *key == 'Y') return true;
    }
}

std::optional<bool> Decide(Answer answer, const ConnectRequest& request) {
    PrintLine("connect request " + Printable(request.id) + ": " + Printable(request.app) + " in " +
              Printable(request.instance));
    if (answer == Answer::kAsk) return AskOnTerminal();
    return answer == Answer::kApprove;
}

std::string CreateWallet(const CompanionOptions& options) {
    const std::string id = CreateCompanionWallet(options.name);
    if (id.empty()) std::fprintf(stderr, "brickfall-companion: cannot write a wallet to the store\n");
    return id;
}

std::optional<std::string> ChooseWallet(const CompanionOptions& options) {
    std::string id = OfferedWallet();
    if (!id.empty() || options.creation == Creation::kNever) return id;
    id = CreateWallet(options);
    if (id.empty()) return std::nullopt;
    PrintLine("wallet created: " + CompanionAddress(id));
    return id;
}

int RunCompanion(const CompanionOptions& options) {
    const sigset_t signals = StopSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::set<std::string> ignored = AbandonedRequestIds();
    std::string wallet_id = OfferedWallet();
    if (wallet_id.empty() && options.creation == Creation::kAtStart) {
        wallet_id = CreateWallet(options);
        if (wallet_id.empty()) return 1;
    }
    const std::string address = wallet_id.empty() ? std::string() : CompanionAddress(wallet_id);
    PrintLine("companion ready: " + (address.empty() ? "-" : Printable(address)));
    while (!StopRequested()) {
        const std::vector<ConnectAnswer> answers = AnswerRequests(
            ignored, [&](const ConnectRequest& request) { return Decide(options.answer, request); },
            [&] { return ChooseWallet(options); });
        for (const ConnectAnswer& answer : answers) {
            PrintLine((answer.approved ? "approved " : "denied ") + Printable(answer.request_id));
        }
        SleepMs(kLookMs);
    }
    return 0;
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    brickfall::CompanionOptions options;
    std::string error;
    if (!brickfall::ParseOptions(count, arguments, options, error)) {
        std::fprintf(stderr, "brickfall-companion: %s\n", error.c_str());
        return 2;
    }
    return brickfall::RunCompanion(options);
}
