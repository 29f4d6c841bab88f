// world.h - a small world for cabinets: the sandbox with its chain, a store with two wallets in it, two
// installations that run as processes of their own, the time of day, and what the companion and strangers do
// beside them. One thread drives it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/server/sandbox.h"
#include "soak/books.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace brickfall::soak {

inline constexpr std::size_t kCabinets = 2;
inline constexpr uint32_t kReceiveAddresses = 3;  // of a wallet, at most

// Derived once for the process.
const std::vector<WalletPlan>& Wallets();

class World {
  public:
    // `program` is started as a cabinet with "--cabinet FOLDER CONNECT_TO AUTHORITY". Time-outs of whoever
    // asks a service are divided by `time_divisor`, which may be set anew before each command; 0: none.
    explicit World(std::string program);

    sandbox::Sandbox& Box() { return *box_; }
    std::string Store() const { return data_.Path() + "/Orvane"; }
    const std::string& Installation(std::size_t cabinet) const { return installations_[cabinet]; }
    uint32_t LastReceive(std::size_t wallet) const { return last_receive_[wallet]; }

    // Ends the cabinet's process if one runs, at once, and starts the next.
    nlohmann::json Restart(std::size_t cabinet);
    // Gives the command to each of the cabinets before the first answer is waited for, and returns when the
    // services have dealt with all that was asked. Time passes by what the slowest slept. Throws Violation
    // when a process has ended.
    std::vector<nlohmann::json> Ask(const std::vector<std::size_t>& cabinets, nlohmann::json command);

    int64_t UnixSecondsNow() const { return start_ms_ / 1000 + passed_ms_ / 1000; }
    int64_t PassedMs() const { return passed_ms_; }
    void Pass(int64_t milliseconds) { passed_ms_ += milliseconds; }
    void SetClockWrong(int64_t milliseconds) { wrong_ms_ = milliseconds; }  // the cabinets' time of day

    std::string Fund(const std::string& address, int64_t satoshis);  // the coin's outpoint
    void Mine() { box_->Mine(UnixSecondsNow()); }
    std::string CurrentAddress(std::size_t wallet) const;

    // What the companion writes into the store.
    void TakeNextAddress(std::size_t wallet);  // up to the last of kReceiveAddresses
    void ChangeNameOf(std::size_t wallet);     // to and fro
    void SetAvatar(std::size_t wallet, const std::string& origin);
    void Promise(std::size_t wallet, const std::vector<std::string>& outpoints);  // in the gallery's offers

    int time_divisor = 0;

  private:
    void WriteWallet(std::size_t wallet, const nlohmann::json& document);
    nlohmann::json ReadWallet(std::size_t wallet) const;

    const std::string program_;
    TempUserData data_;
    TempFolder folder_;
    std::vector<std::string> installations_;
    std::unique_ptr<sandbox::Sandbox> box_;
    std::unique_ptr<ChildProcess> cabinets_[kCabinets];
    std::vector<uint32_t> last_receive_;
    int64_t start_ms_ = 1'790'000'000'000;
    int64_t passed_ms_ = 0;
    int64_t wrong_ms_ = 0;
};

}  // namespace brickfall::soak
