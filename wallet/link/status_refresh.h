// status_refresh.h - brings wallet, registry and paymail host together: outputs, balance, name and role.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace brickfall {

struct StatusResult {
    bool chain_ok = false;            // the outputs of at least one address are known
    int64_t balance = 0;              // satoshis, -1 when unknown
    std::vector<int64_t> coins = {};  // SpendableValues
};
StatusResult StatusRefresh();  // takes wallet_mutex, and releases it around the network's work

extern std::atomic<bool>& balance_busy;

// Thread body: one StatusRefresh, its result handed to `post`, then balance_busy cleared.
void BalanceWorker(const std::function<void(const StatusResult&)>& post);

}  // namespace brickfall
