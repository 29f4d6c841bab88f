// wallet_events.h - the wallet core's progress texts and tagged lines, to whoever shows the wallet. Any
// thread.
#pragma once

#include <functional>
#include <initializer_list>
#include <mutex>
#include <string_view>

namespace brickfall {

using WalletHook = std::function<void(std::string_view)>;

// Guards the two hooks; they are called outside it.
extern std::mutex& wallet_sink_mutex;
extern WalletHook& wallet_log_hook;
extern WalletHook& wallet_event_hook;

void WalletLog(std::string_view text);
void EmitWalletEvent(std::string_view kind, std::initializer_list<std::string_view> fields = {});
void EmitTaggedLine(std::string_view line);  // to wallet_event_hook, as it stands

}  // namespace brickfall
