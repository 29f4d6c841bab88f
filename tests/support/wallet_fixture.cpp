#include "tests/support/wallet_fixture.h"

#include <algorithm>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "base/workers.h"
#include "deployment/sandbox_route.h"
#include "net/http_client.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/bip32.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kClosedPort[] = "::127.0.0.1:1";

void ForgetWallet() {
    WaitForWorkers();
    {
        const WalletLock lock(wallet_mutex);
        ClearWalletState();
    }
    ResetBindingForTest();
}

bool BindAndLoad() {
    BindAtStart("/opt/brickfall", "Brickfall");
    const WalletLock lock(wallet_mutex);
    return LoadWallet();
}

std::string AddressAt(const KeyPath& path) {
    const WalletLock lock(wallet_mutex);
    SecretString private_hex;
    std::string public_hex, address;
    DeriveAtPath(path, private_hex, public_hex, address);
    return address;
}

std::unique_ptr<sandbox::Sandbox> StartSandbox() {
    // One folder for the process: the certificate authority in it is made once.
    static const TempFolder folder;
    sandbox::Options options;
    options.folder = folder.Path();
    auto box = std::make_unique<sandbox::Sandbox>(options);
    std::string error;
    if (!box->Start(error)) throw std::runtime_error("the sandbox does not start: " + error);
    return box;
}

}  // namespace

std::string TestTxid(uint32_t number) {
    ByteBuffer bytes(28, 0xab);
    AppendU32Le(bytes, number);
    return HexEncode(bytes);
}

Hash160 AddressHash(std::string_view address) {
    Hash160 hash{};
    if (!DecodeAddress(address, hash)) throw std::runtime_error("no address: " + std::string(address));
    return hash;
}

std::string CachedText(const std::string& address) {
    const UtxoCacheEntry* entry = FindCacheEntry(address);
    return entry == nullptr ? "-" : (entry->valid ? "" : "?") + CoinText(entry->utxos);
}

EventLines::EventLines() {
    Install([this](std::string_view line) {
        lines_.emplace_back(line);
        std::ranges::replace(lines_.back(), '\x1f', '|');
    });
}

void EventLines::Install(WalletHook hook) {
    const std::lock_guard sink(wallet_sink_mutex);
    wallet_event_hook = std::move(hook);
}

StoreFixture::StoreFixture() { ForgetWallet(); }

StoreFixture::~StoreFixture() { ForgetWallet(); }

WalletFixture::WalletFixture(std::string_view paymail, uint32_t last_receive, std::string_view phrase) {
    const json registry = {{"active", kTestWalletId},
                           {"wallets", {{{"id", kTestWalletId}, {"name", "Wallet 1"}}}}};
    data.Put("wallets.json", registry.dump(2));
    json wallet = {{"version", 2}, {"mnemonic", phrase}, {"recv", {0, last_receive, 0, 0, 0, 0}}};
    if (!paymail.empty()) wallet["paymail"] = paymail;
    data.Put(std::string("wallets/") + kTestWalletId + "/wallet.json", wallet.dump(2));
    loaded = BindAndLoad();
}

WalletFixture::~WalletFixture() { ForgetWallet(); }

void WalletFixture::Restart() {
    ForgetWallet();
    loaded = BindAndLoad();
}

std::string WalletFixture::ReceiveAddress(uint32_t index) const { return AddressAt(ReceivePath(index)); }

std::string WalletFixture::IdentityAddress() const { return AddressAt(kIdentityPath); }

std::string WalletFixture::IdentityKey() const {
    const WalletLock lock(wallet_mutex);
    return wallet_keys.identity_pub;
}

SandboxFixture::SandboxFixture(int timeout_divisor) : owned_(StartSandbox()), box(*owned_) {
    static const bool network_started = (StartNetwork(), true);
    static_cast<void>(network_started);
    SetConnectRoute({box.ConnectTo(), box.CaFile(), timeout_divisor});
}

SandboxFixture::~SandboxFixture() {
    WaitForWorkers();
    SetConnectRoute({kClosedPort, "", 1});
    box.Stop();
}

int64_t SandboxFixture::Asked(sandbox::Service service, std::string_view part) const {
    return std::ranges::count_if(box.Requests(service), [part](const std::string& request) {
        return request.find(part) != std::string::npos;
    });
}

void SandboxFixture::Reply(sandbox::Service service, std::string_view path, int status, std::string body,
                           int times) {
    box.AddFault(
        service,
        {sandbox::FaultKind::kReply, status, std::move(body), "text/plain", {}, 0, times, std::string(path)});
}

void SandboxFixture::Disturb(sandbox::Service service, sandbox::FaultKind kind, std::string_view path) {
    box.AddFault(service, {kind, 500, "try later", "", {}, 0, -1, std::string(path)});
}

}  // namespace brickfall
