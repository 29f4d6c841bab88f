#include "tests/support/wallet_fixture.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "base/files.h"
#include "base/workers.h"
#include "deployment/sandbox_route.h"
#include "net/http_client.h"
#include "wallet/keys/bip32.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
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

WalletFixture::WalletFixture(std::string_view paymail, uint32_t last_receive, std::string_view phrase) {
    ForgetWallet();
    const std::string folder = StorePath("/wallets/") + kTestWalletId;
    MakeFolders(folder);
    const json registry = {{"active", kTestWalletId},
                           {"wallets", {{{"id", kTestWalletId}, {"name", "Wallet 1"}}}}};
    WriteFile(StorePath("/wallets.json"), registry.dump(2));
    json wallet = {{"version", 2}, {"mnemonic", phrase}, {"recv", {0, last_receive, 0, 0, 0, 0}}};
    if (!paymail.empty()) wallet["paymail"] = paymail;
    WriteFile(folder + "/wallet.json", wallet.dump(2));
    loaded = BindAndLoad();
}

WalletFixture::~WalletFixture() { ForgetWallet(); }

void WalletFixture::Restart() {
    ForgetWallet();
    loaded = BindAndLoad();
}

std::string WalletFixture::StorePath(std::string_view tail) const {
    return data.Path() + "/Orvane" + std::string(tail);
}

std::string WalletFixture::ReceiveAddress(uint32_t index) const { return AddressAt(ReceivePath(index)); }

std::string WalletFixture::IdentityAddress() const { return AddressAt(kIdentityPath); }

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

void SandboxFixture::Reply(sandbox::Service service, std::string_view path, int status, std::string body,
                           int times) {
    sandbox::Fault fault;
    fault.status = status;
    fault.body = std::move(body);
    fault.path_contains = path;
    fault.times = times;
    box.AddFault(service, fault);
}

void SandboxFixture::Disturb(sandbox::Service service, sandbox::FaultKind kind, std::string_view path) {
    sandbox::Fault fault;
    fault.kind = kind;
    fault.body = "try later";
    fault.path_contains = path;
    box.AddFault(service, fault);
}

}  // namespace brickfall
