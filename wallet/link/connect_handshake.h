// connect_handshake.h - connects the cabinet to a wallet of Pouch through a request and a reply file, and
// ends the connection again.
#pragma once

#include <cstdint>
#include <functional>
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

}  // namespace brickfall
