#include "soak/books.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/files.h"
#include "deployment/deployment.h"
#include "sandbox/server/bytes.h"
#include "sandbox/server/script_push.h"

namespace brickfall::soak {
namespace {

using nlohmann::json;
using sandbox::Bytes;
using sandbox::ByteView;
using sandbox::ParsedTx;
using sandbox::TxOutput;

constexpr int64_t kHouseSats = 2'000, kPotSats = 3'000, kReportSats = 1'000, kMarkSats = 1;
constexpr int64_t kChangeBytes = 34;  // of an output; too little for one is left to the fee

std::string OutpointText(const std::string& txid, uint32_t vout) { return txid + ":" + std::to_string(vout); }

std::string AddressOf(const TxOutput& output) {
    const auto hash = sandbox::PaidKeyHash(output.locking);
    return hash ? sandbox::AddressText(*hash) : std::string();
}

// The bytes that the fee is paid for: an unlocking script counts as the one byte of its length.
int64_t PaidBytes(const ParsedTx& tx, std::size_t raw_size) {
    auto bytes = static_cast<int64_t>(raw_size);
    for (const sandbox::TxInput& input : tx.inputs) {
        Bytes length;
        sandbox::PutCompactSize(length, input.unlocking.size());
        bytes -= static_cast<int64_t>(input.unlocking.size() + length.size()) - 1;
    }
    return bytes;
}

// The pushed text behind OP_FALSE OP_RETURN; nothing for another script.
std::optional<std::string> DataOf(const TxOutput& output) {
    if (output.value != 0 || output.locking.size() < 3 || output.locking[0] != 0x00 ||
        output.locking[1] != 0x6a)
        return std::nullopt;
    ByteView rest = ByteView(output.locking).subspan(2);
    uint8_t opcode = 0;
    const std::optional<Bytes> data = sandbox::TakeOpcode(rest, opcode);
    return data && rest.empty() ? std::optional(std::string(data->begin(), data->end())) : std::nullopt;
}

struct Shape {
    PaymentKind kind;
    std::vector<std::pair<const char*, int64_t>> pays;
    bool has_data;
};

const std::vector<Shape>& Shapes() {
    static const std::vector<Shape> shapes = {
        {PaymentKind::kEntry, {{kArcadeHouseAddress, kHouseSats}, {kArcadePotAddress, kPotSats}}, false},
        {PaymentKind::kRecord, {{kArcadeWatchAddress, kMarkSats}}, true},
        {PaymentKind::kReport, {{kReportFeeAddress, kReportSats}, {kReportOracleAddress, kMarkSats}}, true},
    };
    return shapes;
}

// Whether the outputs are the shape's, and behind them change or nothing.
bool HasShape(const ParsedTx& tx, const Shape& shape) {
    const std::size_t fixed = shape.pays.size() + (shape.has_data ? 1 : 0);
    if (tx.outputs.size() < fixed || tx.outputs.size() > fixed + 1) return false;
    for (std::size_t i = 0; i < shape.pays.size(); ++i) {
        const auto& [address, value] = shape.pays[i];
        if (AddressOf(tx.outputs[i]) != address || tx.outputs[i].value != value) return false;
    }
    return !shape.has_data || DataOf(tx.outputs[fixed - 1]).has_value();
}

std::optional<json> ReadJson(const std::string& path) {
    const std::optional<std::string> text = ReadFile(path);
    if (!text) return std::nullopt;
    json document = json::parse(*text, nullptr, /*allow_exceptions=*/false);
    return document.is_discarded() ? std::nullopt : std::optional(std::move(document));
}

}  // namespace

void Require(bool held, const std::string& what) {
    if (!held) throw Violation(what);
}

Books::Books(const std::vector<WalletPlan>& wallets) : wallets_(wallets) {
    for (std::size_t i = 0; i < wallets.size(); ++i) {
        for (const std::string& address : wallets[i].receive) owners_[address] = i;
        owners_[wallets[i].identity] = i;
        owners_[wallets[i].ordinals] = i;
    }
}

std::optional<std::size_t> Books::OwnerOf(const std::string& address) const {
    const auto found = owners_.find(address);
    return found != owners_.end() ? std::optional(found->second) : std::nullopt;
}

void Books::ReadChain(const sandbox::Operations& chain) {
    outputs_.clear();
    payments_.clear();
    fees_ = 0;
    int64_t made = 0;
    for (const std::string& hex : chain.RawTransactions()) {
        const std::optional<Bytes> raw = sandbox::FromHex(hex);
        const std::optional<ParsedTx> tx = raw ? sandbox::ParseTransaction(*raw) : std::nullopt;
        Require(tx.has_value(), "a transaction of the chain cannot be read: " + hex);
        const std::string txid = sandbox::IdText(tx->id);
        if (sandbox::IsCoinbase(*tx)) {
            for (const TxOutput& output : tx->outputs) made += output.value;
        } else {
            ReadPayment(*tx, raw->size());
        }
        for (uint32_t vout = 0; vout < tx->outputs.size(); ++vout) {
            const TxOutput& output = tx->outputs[vout];
            outputs_[OutpointText(txid, vout)] = {AddressOf(output), output.value, false};
        }
    }
    int64_t held = 0;
    for (const auto& [outpoint, output] : outputs_) {
        if (!output.spent) held += output.value;
    }
    Require(made == held + fees_, "made " + std::to_string(made) + " sat, held " + std::to_string(held) +
                                      ", fees " + std::to_string(fees_));
}

void Books::ReadPayment(const ParsedTx& tx, std::size_t raw_size) {
    Payment payment;
    payment.txid = sandbox::IdText(tx.id);
    const std::string name = "transaction " + payment.txid;
    int64_t in = 0, out = 0;
    std::set<std::size_t> payers;
    for (const sandbox::TxInput& input : tx.inputs) {
        const std::string outpoint = OutpointText(sandbox::IdText(input.spent.id), input.spent.index);
        const auto coin = outputs_.find(outpoint);
        Require(coin != outputs_.end(), name + " spends what there is not: " + outpoint);
        Require(!std::exchange(coin->second.spent, true), name + " spends a coin twice: " + outpoint);
        const auto owner = OwnerOf(coin->second.address);
        Require(owner.has_value(), name + " spends a stranger's coin");
        payers.insert(*owner);
        in += coin->second.value;
        payment.spends.insert(outpoint);
    }
    Require(payers.size() == 1, name + " is paid by two wallets");
    payment.wallet = *payers.begin();
    for (const TxOutput& output : tx.outputs) out += output.value;

    const auto shape =
        std::ranges::find_if(Shapes(), [&tx](const Shape& each) { return HasShape(tx, each); });
    Require(shape != Shapes().end(), name + " is no entry, record or report");
    payment.kind = shape->kind;
    const std::size_t fixed = shape->pays.size() + (shape->has_data ? 1 : 0);
    const bool has_change = tx.outputs.size() > fixed;
    if (has_change) {
        const std::string to = AddressOf(tx.outputs.back());
        Require(OwnerOf(to) == payment.wallet && to != wallets_[payment.wallet].ordinals,
                name + " sends its change away, to " + to);
    }
    const int64_t fee = in - out, bytes = PaidBytes(tx, raw_size);
    Require(fee >= bytes && fee <= bytes + (has_change ? 0 : kChangeBytes),
            name + " pays a fee of " + std::to_string(fee) + " for " + std::to_string(bytes) + " bytes");
    fees_ += fee;
    if (payment.kind == PaymentKind::kRecord) {
        const json row = json::parse(*DataOf(tx.outputs[fixed - 1]), nullptr, /*allow_exceptions=*/false);
        Require(row.is_object() && row.contains("entry") && row["entry"].is_string() &&
                    row.contains("tape_hash") && row["tape_hash"].is_string(),
                name + " records no score");
        payment.entry = row["entry"].get<std::string>();
        payment.run = row["tape_hash"].get<std::string>();
    }
    payments_.push_back(std::move(payment));
}

const Payment* Books::Find(std::string_view txid) const {
    const auto found = std::ranges::find(payments_, txid, &Payment::txid);
    return found != payments_.end() ? &*found : nullptr;
}

std::vector<Coin> Books::CoinsOf(std::size_t wallet) const {
    const std::vector<std::string>& receive = wallets_[wallet].receive;
    std::vector<Coin> coins;
    for (const auto& [outpoint, output] : outputs_) {
        if (!output.spent && std::ranges::find(receive, output.address) != receive.end()) {
            coins.push_back({outpoint, output.address, output.value});
        }
    }
    std::ranges::stable_sort(coins, std::greater(), &Coin::value);
    return coins;
}

Submission Books::ReadSubmission(std::string_view raw_hex) {
    const std::optional<Bytes> raw = sandbox::FromHex(raw_hex);
    const std::optional<ParsedTx> tx = raw ? sandbox::ParseTransaction(*raw) : std::nullopt;
    Require(tx.has_value(), "what was handed in cannot be read");
    Submission submission;
    submission.txid = sandbox::IdText(tx->id);
    for (const sandbox::TxInput& input : tx->inputs) {
        const std::string outpoint = OutpointText(sandbox::IdText(input.spent.id), input.spent.index);
        submission.spends.insert(outpoint);
        const auto coin = outputs_.find(outpoint);
        const auto told = submitted_.find(outpoint);
        const std::string address = coin != outputs_.end()     ? coin->second.address
                                    : told != submitted_.end() ? told->second
                                                               : std::string();
        const auto owner = OwnerOf(address);
        if (!owner) continue;
        submission.payers.insert(*owner);
        if (address == wallets_[*owner].ordinals) submission.spends_ordinals_address = true;
    }
    for (uint32_t vout = 0; vout < tx->outputs.size(); ++vout) {
        submitted_[OutpointText(submission.txid, vout)] = AddressOf(tx->outputs[vout]);
    }
    return submission;
}

void CheckStoreFiles(const std::string& root) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        const std::string path = entry.path().string();
        struct stat status = {};
        Require(::stat(path.c_str(), &status) == 0 && (status.st_mode & 077) == 0, "open to others: " + path);
        if (entry.is_directory()) continue;
        Require(!path.ends_with(".tmp"), "left behind: " + path);
        if (path.ends_with(".json")) {
            const std::optional<json> document = ReadJson(path);
            Require(document && document->is_object(), "not readable: " + path);
        }
    }
}

std::set<std::string> SpentFile(const std::string& root, const std::string& wallet_id) {
    std::set<std::string> spent;
    const std::optional<json> document = ReadJson(root + "/ord_snap/" + wallet_id + "_spent.json");
    if (!document) return spent;
    for (const json& outpoint : document->at("outpoints")) spent.insert(outpoint.get<std::string>());
    return spent;
}

std::string BoundWallet(const std::string& root, std::string_view installation) {
    for (const auto& entry : std::filesystem::directory_iterator(root + "/binds")) {
        const std::optional<json> bind = ReadJson(entry.path().string());
        if (bind && bind->value("instance", "") == installation) return bind->value("wallet_id", "");
    }
    return {};
}

void CheckWalletFile(const std::string& root, const WalletPlan& plan, uint32_t last_receive) {
    const std::optional<json> file = ReadJson(root + "/wallets/" + plan.id + "/wallet.json");
    Require(file && file->value("mnemonic", "") == plan.words, "the words of " + plan.id + " are gone");
    Require(file->at("recv").at(1) == last_receive, "the counter of " + plan.id + " is another");
}

void CheckLocalScores(const std::string& root) {
    const std::optional<json> settings = ReadJson(root + "/brickfall_ui.json");
    if (!settings || !settings->contains("week_scores")) return;
    std::set<std::string> listed;
    for (const json& score : settings->at("week_scores")) {
        const std::string txid = score.value("txid", "");
        Require(txid.empty() || listed.insert(txid).second, "a score is listed twice: " + txid);
    }
}

}  // namespace brickfall::soak
