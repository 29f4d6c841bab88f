// status_refresh.h - brings wallet, registry and paymail host together: the name's sync, its signed claim,
// and the refresh of outputs, balance and role.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace brickfall {

struct StatusResult {
    bool chain_ok = false;  // the outputs of at least one address are known
    int64_t balance = 0;    // satoshis, -1 when unknown
};

std::string NormalizePaymailHandle(std::string_view text);

// Caller holds wallet_mutex.
void PaymailSync(bool announce);
void PublishWalletState();

// These take and release it; it must not be held across ClaimPaymail and ClaimIfChanged.
std::string PublishedHandle();  // name@domain, or empty
std::string ClaimPaymail(std::string_view alias, std::string_view public_hex, std::string_view address,
                         std::string_view avatar, std::string_view ord_address);
void ClaimIfChanged(std::string_view alias, std::string_view public_hex, std::string_view address,
                    std::string_view avatar, std::string_view ord_address);
void RefreshQuotaRole();
StatusResult StatusRefresh();

extern std::atomic<bool>& balance_busy;

// Thread body: one StatusRefresh, its result handed to `post`, then balance_busy cleared.
void BalanceWorker(const std::function<void(const StatusResult&)>& post);

}  // namespace brickfall
