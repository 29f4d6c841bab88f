#include "soak/world.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "base/files.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/mnemonic.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/shared_store.h"

namespace brickfall::soak {
namespace {

using nlohmann::json;

constexpr int64_t kBetweenCommandsMs = 200;

// Words of BIP39's published test values: nobody's wallet.
constexpr const char* kWords[][3] = {
    {"w1700000000000", "ada",
     "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon about"},
    {"w1700000000001", "ben", "legal winner thank year wave sausage worth useful legal winner thank yellow"},
};

WalletPlan Plan(const char* const (&row)[3]) {
    WalletPlan plan = {row[0], row[1], row[2], {}, {}, {}};
    const WalletLock lock(wallet_mutex);
    ClearWalletState();
    wallet_keys.mnemonic = plan.words;
    Require(ValidateMnemonic(), "no words of a wallet");
    wallet_keys.is_hd = true;
    const auto address_at = [](const KeyPath& path) {
        SecretString private_hex;
        std::string public_hex, address;
        Require(DeriveAtPath(path, private_hex, public_hex, address), "no key at a path");
        return address;
    };
    for (uint32_t i = 0; i < kReceiveAddresses; ++i) plan.receive.push_back(address_at(ReceivePath(i)));
    plan.identity = address_at(kIdentityPath);
    plan.ordinals = address_at(kOrdinalsPath);
    ClearWalletState();
    return plan;
}

void Write(const std::string& path, const json& document) {
    Require(
        MakeFolders(path.substr(0, path.rfind('/'))) && ReplaceFile(path, document.dump(2), Flush::kLater),
        "the companion cannot write " + path);
}

std::unique_ptr<sandbox::Sandbox> StartSandbox() {
    static const TempFolder folder;  // the certificate authority in it is made once
    sandbox::Options options;
    options.folder = folder.Path();
    auto box = std::make_unique<sandbox::Sandbox>(options);
    std::string error;
    Require(box->Start(error), "the sandbox does not start: " + error);
    return box;
}

}  // namespace

const std::vector<WalletPlan>& Wallets() {
    static const std::vector<WalletPlan> plans = {Plan(kWords[0]), Plan(kWords[1])};
    return plans;
}

World::World(std::string program)
    : program_(std::move(program)), box_(StartSandbox()), last_receive_(Wallets().size(), 0) {
    json registry = {{"active", Wallets().front().id}, {"wallets", json::array()}};
    for (std::size_t i = 0; i < Wallets().size(); ++i) {
        const WalletPlan& plan = Wallets()[i];
        registry["wallets"].push_back({{"id", plan.id}, {"name", plan.name}});
        WriteWallet(
            i,
            {{"version", 2}, {"mnemonic", plan.words}, {"recv", {0, 0, 0, 0, 0, 0}}, {"paymail", plan.name}});
    }
    Write(Store() + "/wallets.json", registry);
    for (std::size_t cabinet = 0; cabinet < kCabinets; ++cabinet) {
        installations_.push_back(folder_.Path() + "/cabinet" + std::to_string(cabinet));
        Require(
            MakeFolders(installations_.back()) && box_->AppointArchitect(installations_.back() + "/userinfo"),
            "no installation can be made");
        Restart(cabinet);
    }
}

json World::Restart(std::size_t cabinet) {
    cabinets_[cabinet].reset();
    cabinets_[cabinet] = std::make_unique<ChildProcess>(
        program_,
        std::vector<std::string>{"--cabinet", installations_[cabinet], box_->ConnectTo(), box_->CaFile()});
    return Ask({cabinet}, {{"do", "start"}}).front();
}

std::vector<json> World::Ask(const std::vector<std::size_t>& cabinets, json command) {
    passed_ms_ += kBetweenCommandsMs;
    command["now"] = start_ms_ + passed_ms_ + wrong_ms_;
    command["passed"] = passed_ms_;
    command["divisor"] = time_divisor;
    for (const std::size_t cabinet : cabinets) {
        command["cabinet"] = cabinet;
        cabinets_[cabinet]->Write(command.dump() + "\n");
        command["now"] =
            command["now"].get<int64_t>() + 1;  // no two ids of the store are made at one instant
    }
    std::vector<json> answers;
    int64_t slept = 0;
    for (const std::size_t cabinet : cabinets) {
        const auto line = cabinets_[cabinet]->ReadLine();
        if (!line) {
            const int end = cabinets_[cabinet]->Wait();
            throw Violation("the cabinet's process has ended, with " + std::to_string(end));
        }
        answers.push_back(json::parse(*line));
        slept = std::max(slept, answers.back().at("slept").get<int64_t>());
    }
    passed_ms_ += slept;
    box_->WaitUntilIdle();
    return answers;
}

std::string World::Fund(const std::string& address, int64_t satoshis) {
    const std::string txid = box_->Fund(address, satoshis, UnixSecondsNow());
    Require(!txid.empty(), "no money can be made");
    return txid + ":0";
}

std::string World::CurrentAddress(std::size_t wallet) const {
    return Wallets()[wallet].receive[last_receive_[wallet]];
}

json World::ReadWallet(std::size_t wallet) const {
    const auto text = ReadFile(Store() + "/wallets/" + Wallets()[wallet].id + "/wallet.json");
    json document = text ? json::parse(*text, nullptr, /*allow_exceptions=*/false) : json();
    Require(document.is_object(), "the companion cannot read its wallet");
    return document;
}

void World::WriteWallet(std::size_t wallet, const json& document) {
    const StoreLock lock;
    Write(Store() + "/wallets/" + Wallets()[wallet].id + "/wallet.json", document);
}

void World::TakeNextAddress(std::size_t wallet) {
    if (last_receive_[wallet] + 1 >= kReceiveAddresses) return;
    json document = ReadWallet(wallet);
    document["recv"][1] = ++last_receive_[wallet];
    WriteWallet(wallet, document);
}

void World::ChangeNameOf(std::size_t wallet) {
    json document = ReadWallet(wallet);
    const std::string& first = Wallets()[wallet].name;
    document["paymail"] = document.value("paymail", "") == first ? first + "-two" : first;
    WriteWallet(wallet, document);
}

void World::SetAvatar(std::size_t wallet, const std::string& origin) {
    json document = ReadWallet(wallet);
    document["ord_avatar"] = origin;
    WriteWallet(wallet, document);
}

void World::Promise(std::size_t wallet, const std::vector<std::string>& outpoints) {
    json promised = json::array();
    for (std::string outpoint : outpoints) {
        std::ranges::replace(outpoint, ':', '_');
        promised.push_back(outpoint);
    }
    Write(Store() + "/gallery/offer_locks_" + Wallets()[wallet].id + ".json", {{"utxos", promised}});
}

}  // namespace brickfall::soak
