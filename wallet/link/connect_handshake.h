// connect_handshake.h - connects the cabinet to a wallet of Pouch through a request and a reply file, ends
// the connection again, and carries the wallet core's progress texts.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

namespace brickfall {

inline constexpr int64_t kConnectPollMs = 500;
inline constexpr int kConnectPollCount = 120;
inline constexpr char kPouchWindowClass[] = "OrvanePouchShell";
inline constexpr char kPouchExecutable[] = "Pouch.exe";

// What the handshake asks of the desktop; installed once by the program. Empty members count as "not there".
struct PouchDesktop {
    std::function<bool(std::string_view window_class)> raise_window;  // true when there is one
    std::function<std::string()> executable_folder;
    std::function<bool(const std::string& program, const std::string& folder)> start_program;
};
void InstallPouchDesktop(PouchDesktop desktop);

std::string ConnectToPouch();  // blocks for up to a minute; "success" or a text that begins with "error: "
std::string UnbindWallet();    // "success"

std::string WriteConnectRequest();                          // the request id, or empty text
std::string ReadConnectReply(std::string_view request_id);  // "pending", "ok" or "denied"
bool RaisePouch();

using WalletHook = std::function<void(std::string_view)>;

// Guards the two hooks; they are called outside it.
extern std::mutex& wallet_sink_mutex;
extern WalletHook& wallet_log_hook;
extern WalletHook& wallet_event_hook;

void WalletLog(std::string_view text);
void EmitWalletEvent(std::string_view kind, std::initializer_list<std::string_view> fields = {});
void EmitTaggedLine(std::string_view line);  // to wallet_event_hook, as it stands

}  // namespace brickfall
