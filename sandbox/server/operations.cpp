#include "sandbox/server/operations.h"

#include "base/text.h"
#include "sandbox/server/seed_board.h"
#include "sandbox/server/state.h"

namespace brickfall::sandbox {

Operations::Operations(Options options) : state_(std::make_unique<SandboxState>(std::move(options))) {}
Operations::~Operations() = default;

std::string Operations::Fund(std::string_view address, int64_t satoshis, std::optional<int64_t> block_time) {
    const std::lock_guard lock(state_->mutex);
    return FundAddress(state_->world, address, satoshis, block_time);
}

void Operations::Mine(std::optional<int64_t> block_time) {
    const std::lock_guard lock(state_->mutex);
    sandbox::Mine(state_->world, block_time);
}

bool Operations::Submit(std::string_view raw_hex, std::string& txid, std::string& reason) {
    const std::lock_guard lock(state_->mutex);
    const Verdict verdict = TakeTransaction(state_->world, raw_hex, /*lose=*/false, txid);
    reason = ReasonText(verdict);
    return verdict.Accepted();
}

void Operations::Forget(std::string_view txid) {
    const std::lock_guard lock(state_->mutex);
    sandbox::Forget(state_->world, txid);
}

std::vector<std::string> Operations::RawTransactions() const {
    const std::lock_guard lock(state_->mutex);
    std::vector<std::string> list;
    for (const bool funding : {true, false}) {
        for (const Digest& id : state_->world.chain.order) {
            const ChainTx& entry = *FindTransaction(state_->world.chain, id);
            if (entry.funding == funding) list.push_back(ToHex(entry.raw));
        }
    }
    return list;
}

std::optional<std::string> Operations::RawTransaction(std::string_view txid) const {
    const std::lock_guard lock(state_->mutex);
    const auto id = ParseIdText(txid);
    const ChainTx* const entry = id ? FindTransaction(state_->world.chain, *id) : nullptr;
    return entry != nullptr ? std::optional(ToHex(entry->raw)) : std::nullopt;
}

std::vector<ChainOutput> Operations::Unspent(std::string_view address) const {
    const std::lock_guard lock(state_->mutex);
    const Chain& chain = state_->world.chain;
    std::vector<ChainOutput> list;
    const auto owner = ParseAddress(address);
    if (!owner) return list;
    for (const Outpoint& outpoint : UnspentOf(chain, *owner)) {
        list.push_back({IdText(outpoint.id), outpoint.index, chain.coins.at(outpoint).output.value,
                        IsMempoolTransaction(chain, outpoint.id)});
    }
    return list;
}

int64_t Operations::BalanceOf(std::string_view address) const {
    int64_t total = 0;
    for (const ChainOutput& output : Unspent(address)) total += output.value;
    return total;
}

int64_t Operations::TotalFunded() const {
    const std::lock_guard lock(state_->mutex);
    return state_->world.chain.total_funded;
}

int64_t Operations::TotalUnspent() const {
    const std::lock_guard lock(state_->mutex);
    return UnspentTotal(state_->world.chain);
}

int64_t Operations::TotalFees() const {
    const std::lock_guard lock(state_->mutex);
    return state_->world.chain.total_fees;
}

void Operations::Publish(const PublishedIdentity& identity) {
    const std::lock_guard lock(state_->mutex);
    PublishIdentity(state_->world, identity);
}

std::optional<PublishedIdentity> Operations::Identity(std::string_view alias) const {
    const std::lock_guard lock(state_->mutex);
    const auto found = state_->world.identities.find(Lower(alias));
    return found != state_->world.identities.end() ? std::optional(found->second) : std::nullopt;
}

void Operations::MarkOrdinal(std::string_view address, const OrdinalMark& mark) {
    const std::lock_guard lock(state_->mutex);
    state_->world.ordinals[std::string(address)].push_back(mark);
}

void Operations::SetIndexerKnows(bool every_transaction) {
    const std::lock_guard lock(state_->mutex);
    state_->world.indexer_knows = every_transaction;
}

bool Operations::SeedBoard(int64_t now) {
    const std::lock_guard lock(state_->mutex);
    return sandbox::SeedBoard(state_->world, now);
}

bool Operations::AppointArchitect(const std::string& folder) {
    const std::lock_guard lock(state_->mutex);
    return sandbox::AppointArchitect(state_->world, folder);
}

std::vector<Report> Operations::Reports() const {
    const std::lock_guard lock(state_->mutex);
    std::vector<Report> list;
    for (const Report& report : state_->world.reports) {
        const auto id = ParseIdText(report.txid);
        if (id && FindTransaction(state_->world.chain, *id) != nullptr) list.push_back(report);
    }
    return list;
}

bool Operations::SetBuild(std::string_view build) {
    constexpr std::size_t kLongest = 32;
    if (build.empty() || build.size() > kLongest || build.find_first_not_of("0123456789.") != build.npos) {
        return false;
    }
    const std::lock_guard lock(state_->mutex);
    state_->world.build = build;
    return true;
}

void Operations::AddFault(Service service, const Fault& fault) {
    const std::lock_guard lock(state_->mutex);
    SetFault set = {service, fault, nullptr};
    if (fault.kind == FaultKind::kStaleListing) {
        set.chain_then = std::make_shared<const Chain>(state_->world.chain);
    }
    state_->faults.push_back(std::move(set));
}

void Operations::ClearFaults() {
    const std::lock_guard lock(state_->mutex);
    state_->faults.clear();
}

std::vector<std::string> Operations::Requests(Service service) const {
    const std::lock_guard lock(state_->mutex);
    const auto found = state_->requests.find(service);
    return found != state_->requests.end() ? found->second : std::vector<std::string>();
}

int Operations::MostRequestsAtOnce() const {
    const std::lock_guard lock(state_->mutex);
    return state_->most_answering;
}

std::vector<std::string> Operations::Submissions() const {
    const std::lock_guard lock(state_->mutex);
    return state_->world.submissions;
}

void Operations::ClearRequests() {
    const std::lock_guard lock(state_->mutex);
    state_->requests.clear();
    state_->world.submissions.clear();
}

FaultCounts Operations::FaultsMet() const {
    const std::lock_guard lock(state_->mutex);
    return state_->faults_met;
}

}  // namespace brickfall::sandbox
