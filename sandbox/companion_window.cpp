// brickfall-companion-window - the companion with a window of its own: shows the wallet and its balance, puts
// play money in, lets a person approve or deny connect requests, and shows the reports that the architect has
// read. The store is found as the cabinet finds it.
//
//   brickfall-companion-window [NAME]     NAME: the name that the field proposes to publish
//
// The wallet is created with the first play money or at the first approval, under the name that stands in the
// field then: a cabinet binds the only wallet of a store by itself, and a person wants to see the handshake.
// Where BRICKFALL_SANDBOX_RUN names a process, it ends with that.
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "base/workers.h"
#include "net/http_client.h"
#include "platform/desktop.h"
#include "platform/window.h"
#include "sandbox/companion.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/store/paymail_registry.h"

namespace brickfall {
namespace {

constexpr char kControlUrl[] = "https://control.sandbox.test";
constexpr int64_t kPlayMoney = 100'000;  // satoshis
constexpr int kLookTimer = 1;
constexpr int kLookMs = 250;
constexpr int kLooksPerRefresh = 8;  // of what the sandbox knows

enum Id : int {
    kTitle = 10,
    kAddress = 11,
    kBalance = 12,
    kAddMoney = 13,
    kNameLabel = 14,
    kName = 15,
    kRequest = 16,
    kApprove = 17,
    kDeny = 18,
    kReportsLabel = 19,
    kReports = 20,
};

enum PostedId : int { kFactsRead = 1 };

// What the sandbox says about the wallet.
struct Facts {
    std::string address;
    std::optional<int64_t> balance;
    std::vector<std::string> reports;
};

constexpr Color kGround = Rgb(0x10141C);
constexpr Color kInk = Rgb(0xE4E8F0);
constexpr Color kFaint = Rgb(0x98A4B8);
constexpr Color kButtonFill = Rgb(0x24406C);

struct Companion {
    WindowId window = 0;
    Font font;
    Font title;
    std::string proposed_name;
    std::set<std::string> ignored;
    std::string shown_request;
    std::optional<bool> answer;  // of the person, to the request that is shown
    int looks = 0;
    bool reading = false;
};

Companion& companion = *new Companion;

Facts ReadFacts(const std::string& address) {
    Facts facts{address, std::nullopt, {}};
    nlohmann::json answer;
    if (!address.empty() && FetchJson(std::string(kControlUrl) + "/balance/" + address, answer)) {
        const nlohmann::json* satoshis = FindJsonKey(answer, "satoshis");
        if (satoshis != nullptr) facts.balance = JsonExactInt64(*satoshis);
    }
    if (FetchJson(std::string(kControlUrl) + "/reports", answer)) {
        const nlohmann::json* reports = FindJsonKey(answer, "reports");
        if (reports != nullptr && reports->is_array()) {
            for (const nlohmann::json& report : *reports) {
                facts.reports.push_back("@" + StoreText(report, "handle") + ": " + StoreText(report, "text"));
            }
        }
    }
    return facts;
}

std::optional<std::string> ChooseWallet() {
    std::string id = OfferedWallet();
    if (!id.empty()) return id;
    id = CreateCompanionWallet(SanitizePaymailName(ControlText(companion.window, kName)));
    if (id.empty()) return std::nullopt;
    std::printf("wallet created: %s\n", CompanionAddress(id).c_str());
    return id;
}

// The wallet's address is read here; the sandbox is asked on a worker. Play money for nobody makes a wallet
// first.
void StartReading(bool add_money) {
    if (companion.reading && !add_money) return;
    companion.reading = true;
    const std::string wallet = add_money ? ChooseWallet().value_or("") : OfferedWallet();
    const std::string address = wallet.empty() ? std::string() : CompanionAddress(wallet);
    StartWorker([window = companion.window, address, add_money] {
        if (add_money && !address.empty()) {
            const nlohmann::json request = {{"address", address}, {"satoshis", kPlayMoney}};
            std::string response;
            std::string error;
            HttpPostJson(std::string(kControlUrl) + "/fund", request.dump(), response, error, 10, 1);
        }
        PostWindowMessage(window, kFactsRead, 0, MakePayload(ReadFacts(address)));
    });
}

void ShowFacts(const Facts& facts) {
    companion.reading = false;
    const WindowId window = companion.window;
    SetControlText(window, kAddress, "Wallet:  " + (facts.address.empty() ? "none yet" : facts.address));
    SetControlText(window, kBalance,
                   "Balance:  " + (facts.balance ? Grouped(*facts.balance) + " sats" : std::string("-")));
    EnableWindowControl(window, kName, facts.address.empty());
    std::string reports;
    for (auto report = facts.reports.rbegin(); report != facts.reports.rend(); ++report)
        reports += *report + "\n";
    SetControlText(window, kReports, reports.empty() ? "none" : reports);
}

void ShowRequest(const std::string& text, bool waiting) {
    SetControlText(companion.window, kRequest, text);
    EnableWindowControl(companion.window, kApprove, waiting);
    EnableWindowControl(companion.window, kDeny, waiting);
}

// A run of the sandbox that a cabinet has started it in ends with its script.
bool RunIsOver() {
    const char* const run = std::getenv("BRICKFALL_SANDBOX_RUN");
    const pid_t process = run != nullptr ? static_cast<pid_t>(std::atoi(run)) : 0;
    return process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

void LookForRequests() {
    if (RunIsOver()) return DestroyWindow(companion.window);
    companion.ignored.merge(AbandonedRequestIds());  // nobody waits for these any more
    bool waiting = false;
    const std::vector<ConnectAnswer> answers = AnswerRequests(
        companion.ignored,
        [&waiting](const ConnectRequest& request) -> std::optional<bool> {
            if (companion.answer && companion.shown_request == request.id) {
                return std::exchange(companion.answer, std::nullopt);
            }
            if (!waiting) {
                waiting = true;
                companion.shown_request = request.id;
                ShowRequest(request.app + " asks to connect.\n" + request.instance, true);
            }
            return std::nullopt;
        },
        ChooseWallet);
    for (const ConnectAnswer& answer : answers) {
        std::printf("%s %s\n", answer.approved ? "approved" : "denied", answer.request_id.c_str());
        std::fflush(stdout);
        companion.looks = 0;
    }
    if (!waiting) ShowRequest("No connect request.", false);
    if (companion.looks++ % kLooksPerRefresh == 0) StartReading(/*add_money=*/false);
}

// A pouch with a coin.
Image IconOf(int side) {
    return DrawToImage({side, side}, [side](Canvas& canvas) {
        const auto part = [side](int sixteenths) { return side * sixteenths / 16; };
        canvas.FillEllipse({part(1), part(4), part(14), part(12)}, Rgb(0x4870A8));
        canvas.Fill({part(5), part(1), part(6), part(5)}, Rgb(0x345890));
        canvas.Fill({part(4), part(4), part(8), std::max(1, part(1))}, kInk);
        canvas.FillEllipse({part(5), part(7), part(6), part(6)}, Rgb(0xE8C448));
    });
}

void Create(WindowId window) {
    companion.window = window;
    const Image icons[] = {IconOf(16), IconOf(32), IconOf(48), IconOf(256)};
    SetWindowIcons(window, icons);
    companion.font = MakeFont("Segoe UI", 18, 400, FontQuality::kAntialiased);
    companion.title = MakeFont("Segoe UI", 24, 700, FontQuality::kAntialiased);
    const Font& font = companion.font;
    CreateText(window, kTitle, {20, 14, 480, 30}, "Pouch, play money", companion.title);
    CreateText(window, kAddress, {20, 52, 480, 22}, "Wallet:", font);
    CreateText(window, kBalance, {20, 78, 260, 22}, "Balance:", font);
    CreateButton(window, kAddMoney, {300, 72, 200, 32}, "Add 100,000 sats", font);
    CreateText(window, kNameLabel, {20, 116, 200, 22}, "Name to publish:", font);
    CreateField(window, kName, {190, 110, 310, 34}, font, 40, kInk, Rgb(0x1C2430));
    SetControlText(window, kName, companion.proposed_name);
    CreateText(window, kRequest, {20, 158, 480, 48}, "No connect request.", font);
    CreateButton(window, kApprove, {20, 212, 150, 34}, "Approve", font);
    CreateButton(window, kDeny, {180, 212, 110, 34}, "Deny", font);
    CreateText(window, kReportsLabel, {20, 262, 480, 22}, "Reports that the architect has read:", font);
    CreateText(window, kReports, {20, 288, 480, 120}, "none", font);
    for (const int id : {kApprove, kDeny}) EnableWindowControl(window, id, false);
    SetAccessibleControlName(window, kName, "Name to publish");
    StartTimer(window, kLookTimer, kLookMs);
}

void PaintPlainButton(WindowId window, const Message& item) {
    const Rect all = {0, 0, item.size.w, item.size.h};
    const ButtonState& button = item.button;
    item.canvas->Fill(all, kGround);
    item.canvas->Fill(all.Grown(-1), button.disabled ? kGround : button.hot ? Rgb(0x345890) : kButtonFill);
    item.canvas->FrameRoundRect(all, 6, button.focused ? kInk : Rgb(0x4870A8), button.focused ? 2 : 1);
    item.canvas->Text(all, ControlText(window, item.id), companion.font, button.disabled ? kFaint : kInk,
                      AlignX::kCentre, AlignY::kCentre);
}

bool CompanionProc(WindowId window, Message& message) {
    switch (message.type) {
        case MessageType::kCreate:
            Create(window);
            return true;
        case MessageType::kDestroy:
            QuitMessageLoop(0);
            return true;
        case MessageType::kTimer:
            LookForRequests();
            return true;
        case MessageType::kPosted:
            ShowFacts(TakePayload<Facts>(message.payload));
            return true;
        case MessageType::kCommand:
            if (message.id == kAddMoney) StartReading(/*add_money=*/true);
            if (message.id == kApprove) companion.answer = true;
            if (message.id == kDeny) companion.answer = false;
            return true;
        case MessageType::kTextStyle:
            message.style = {message.id == kTitle || message.id == kRequest ? kInk : kFaint, kGround};
            return true;
        case MessageType::kPaintButton:
            PaintPlainButton(window, message);
            return true;
        case MessageType::kPaint:
            message.canvas->Fill({0, 0, message.size.w, message.size.h}, kGround);
            return true;
        default:
            return false;
    }
}

int RunCompanionWindow() {
    const WindowId window = OpenWindow({.title = "Pouch (sandbox)",
                                        .size = {520, 424},
                                        .size_is_client = true,
                                        .resizable = false,
                                        .background = kGround},
                                       CompanionProc);
    if (window == 0) return 1;
    ShowWindow(window);
    std::printf("companion ready\n");
    std::fflush(stdout);
    return RunMessageLoop();
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    using namespace brickfall;
    if (!DisplayAvailable()) {
        std::fprintf(stderr, "brickfall-companion-window: no display\n");
        return 1;
    }
    int code = 0;
    {
        const Platform platform(count, arguments);
        const std::string name = count > 1 ? arguments[1] : "player";
        if (count > 2 || name.empty() || SanitizePaymailName(name) != name) {
            std::fprintf(
                stderr,
                "brickfall-companion-window: takes one NAME of lower-case letters, digits, '_', '-', '.'\n");
            return 2;
        }
        if (!ClaimWindowClass(kPouchWindowClass, [] { BringToFront(companion.window); })) {
            std::fprintf(stderr, "brickfall-companion-window: another one is running\n");
            return 1;
        }
        companion.proposed_name = name;
        companion.ignored = AbandonedRequestIds();
        StartNetwork();
        code = RunCompanionWindow();
    }
    StopNetwork();
    return code;
}
