#include "wallet/events/wallet_events.h"

#include <string>
#include <vector>

namespace brickfall {

std::mutex& wallet_sink_mutex = *new std::mutex;
WalletHook& wallet_log_hook = *new WalletHook;
WalletHook& wallet_event_hook = *new WalletHook;

namespace {

constexpr char kFieldSeparator = '\x1f';

void CallHook(const WalletHook& hook, std::string_view text) {
    WalletHook current;
    {
        const std::lock_guard lock(wallet_sink_mutex);
        current = hook;
    }
    if (current) current(text);
}

}  // namespace

void WalletLog(std::string_view text) { CallHook(wallet_log_hook, text); }

void EmitWalletEvent(std::string_view kind, std::initializer_list<std::string_view> fields) {
    std::vector<std::string_view> used(fields);
    while (!used.empty() && used.back().empty()) used.pop_back();
    std::string line = "[OV-POUCH]";
    (line += kFieldSeparator) += kind;
    for (const std::string_view field : used) (line += kFieldSeparator) += field;
    EmitTaggedLine(line);
}

void EmitTaggedLine(std::string_view line) { CallHook(wallet_event_hook, line); }

}  // namespace brickfall
