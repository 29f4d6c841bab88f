// wallet_fixture.h - a loaded wallet in a store of its own, and every remote service beside it, for tests of
// what stands on the wallet.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sandbox/server/sandbox.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"
#include "wallet/events/wallet_events.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {

// The all-zero entropy of BIP39: public, so never a wallet of anybody.
inline constexpr char kTestPhrase[] =
    "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon about";
inline constexpr char kTestWalletId[] = "w1700000000000";
// Of no key that a test has.
inline constexpr char kForeignAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";

// An id of the right form, another one for each number, and never its own reverse.
std::string TestTxid(uint32_t number);

// "number:vout=value" for each coin, where the id is TestTxid(number); other ids stand as they are.
template <typename Coins>
std::string CoinText(const Coins& coins) {
    std::string text;
    for (const auto& coin : coins) {
        std::string name = coin.txid;
        for (uint32_t number = 0; number < 64; ++number) {
            if (name == TestTxid(number)) name = std::to_string(number);
        }
        if (!text.empty()) text += " ";
        text += name + ":" + std::to_string(coin.vout) + "=" + std::to_string(coin.value);
    }
    return text;
}

// Every event line of the wallet core within its scope, with "|" in the place of the separator.
class EventLines {
  public:
    EventLines();
    ~EventLines() { Install(nullptr); }
    EventLines(const EventLines&) = delete;
    EventLines& operator=(const EventLines&) = delete;
    std::vector<std::string> Take() { return std::exchange(lines_, {}); }

  private:
    static void Install(WalletHook hook);

    std::vector<std::string> lines_;
};

Hash160 AddressHash(std::string_view address);

// What the wallet remembers of an address's coins, "?" in front while it is not valid; "-" when nothing.
std::string CachedText(const std::string& address);

// A new store with nothing in it, and a process that knows of no wallet, before its scope and behind it.
struct StoreFixture {
    StoreFixture();
    ~StoreFixture();
    StoreFixture(const StoreFixture&) = delete;
    StoreFixture& operator=(const StoreFixture&) = delete;

    TempUserData data;
};

// Writes the wallet into the store, binds this process to it and loads it. `last_receive` is recv[1], and the
// current address is the one of that index.
struct WalletFixture : StoreFixture {
    explicit WalletFixture(std::string_view paymail = "ada", uint32_t last_receive = 0,
                           std::string_view phrase = kTestPhrase);
    ~WalletFixture();  // while its clock still runs

    // As after a new start of the program: memory is empty, then bound and loaded from the files again.
    void Restart();

    // `tail` begins with a slash.
    std::string StorePath(std::string_view tail) const { return data.InStore(tail.substr(1)); }
    std::string ReceiveAddress(uint32_t index) const;
    std::string IdentityAddress() const;
    std::string IdentityKey() const;  // the public one

    ManualClock clock;
    bool loaded = false;  // LoadWallet's answer
};

// A sandbox with an empty chain, to which every request of this process goes until the scope's end; from then
// on they are refused. Time-outs are divided by `timeout_divisor`.
struct SandboxFixture {
    explicit SandboxFixture(int timeout_divisor = 1);
    ~SandboxFixture();
    SandboxFixture(const SandboxFixture&) = delete;
    SandboxFixture& operator=(const SandboxFixture&) = delete;

    // What the service does, until the faults are cleared, with requests whose path contains `path`.
    void Reply(sandbox::Service service, std::string_view path, int status, std::string body, int times = -1);
    void Disturb(sandbox::Service service, sandbox::FaultKind kind, std::string_view path = "");

    // The requests to the service whose target contains `part`.
    int64_t Asked(sandbox::Service service, std::string_view part = "") const;

  private:
    std::unique_ptr<sandbox::Sandbox> owned_;

  public:
    sandbox::Sandbox& box;
};

}  // namespace brickfall
