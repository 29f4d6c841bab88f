#include "sandbox/server/sandbox.h"

#include <mutex>
#include <utility>

#include "base/text.h"
#include "sandbox/server/architect.h"
#include "sandbox/server/certificates.h"
#include "sandbox/server/control.h"
#include "sandbox/server/https_server.h"
#include "sandbox/server/seed_board.h"
#include "sandbox/server/services.h"
#include "sandbox/server/world.h"

namespace brickfall::sandbox {

struct Sandbox::Impl {
    explicit Impl(Options chosen) : options(std::move(chosen)) {
        world.chain.fee_per_kilobyte = options.fee_per_kilobyte;
    }

    HttpReply Serve(Sandbox& self, const HttpRequest& request, const WaitFunction& wait);
    HttpReply Answer(Service service, const HttpRequest& request, const MetFaults& met);

    const Options options;
    mutable std::mutex mutex;  // guards what stands below, but the server
    World world;
    std::vector<SetFault> faults;
    std::map<Service, std::vector<std::string>> requests;
    bool journal_open = false;

    HttpsServer server;  // last, so that it ends before what it serves
};

HttpReply Sandbox::Impl::Answer(Service service, const HttpRequest& request, const MetFaults& met) {
    const std::lock_guard lock(mutex);
    return AnswerFor(service, world, request, {met.listed.get(), met.flip_ids, met.lose});
}

HttpReply Sandbox::Impl::Serve(Sandbox& self, const HttpRequest& request, const WaitFunction& wait) {
    if (request.host == kControlHost) return AnswerControl(self, request);
    const std::optional<Service> service = ServiceOf(request);
    if (!service) return NotFound();

    MetFaults met;
    {
        const std::lock_guard lock(mutex);
        requests[*service].push_back(request.method + " " + request.target);
        met = TakeFaults(faults, *service, KindOf(*service, request), request.target);
    }
    HttpReply dropped;
    dropped.end = HttpReply::End::kDropped;
    if (met.delay_ms > 0 && !wait(met.delay_ms)) return dropped;
    if (!met.ending) return Answer(*service, request, met);

    const Fault& fault = *met.ending;
    switch (fault.kind) {
        case FaultKind::kNoAnswer:
            wait(-1);
            return dropped;
        case FaultKind::kDrop:
            return dropped;
        case FaultKind::kCutBody: {
            HttpReply cut = Answer(*service, request, met);
            cut.end = cut.body.empty() ? HttpReply::End::kDropped : HttpReply::End::kCut;
            return cut;
        }
        case FaultKind::kActAndReply:
            Answer(*service, request, met);
            [[fallthrough]];
        case FaultKind::kReply:
        case FaultKind::kDelay:
        case FaultKind::kLoseAccepted:
        case FaultKind::kStaleListing:
        case FaultKind::kFlipTxids:
            break;
    }
    return {fault.status, fault.body, fault.content_type, fault.headers, HttpReply::End::kWhole};
}

Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Sandbox::~Sandbox() { Stop(); }

bool Sandbox::Start(std::string& error) {
    TlsContext context = MakeServerContext(impl_->options.folder, ServedHosts(), error);
    if (!context) return false;
    {
        const std::lock_guard lock(impl_->mutex);
        const std::string& journal = impl_->options.journal_file;
        if (!journal.empty() && !impl_->journal_open) {
            if (!OpenJournal(impl_->world, journal, error)) return false;
            impl_->journal_open = true;
        }
        // What stands in the journal has been told before.
        impl_->world.on_report = impl_->options.on_report;
    }
    return impl_->server.Start(
        impl_->options.port, std::move(context),
        [this](const HttpRequest& request, const WaitFunction& wait) {
            return impl_->Serve(*this, request, wait);
        },
        error);
}

void Sandbox::Stop() { impl_->server.Stop(); }

int Sandbox::Port() const { return impl_->server.Port(); }
std::string Sandbox::ConnectTo() const { return "::127.0.0.1:" + std::to_string(Port()); }
std::string Sandbox::CaFile() const { return AuthorityFile(impl_->options.folder); }

std::string Sandbox::Fund(std::string_view address, int64_t satoshis) {
    const std::lock_guard lock(impl_->mutex);
    return FundAddress(impl_->world, address, satoshis);
}

void Sandbox::Mine() {
    const std::lock_guard lock(impl_->mutex);
    sandbox::Mine(impl_->world);
}

bool Sandbox::Submit(std::string_view raw_hex, std::string& txid, std::string& reason) {
    const std::lock_guard lock(impl_->mutex);
    const Verdict verdict = TakeTransaction(impl_->world, raw_hex, /*lose=*/false, txid);
    reason = ReasonText(verdict);
    return verdict.Accepted();
}

void Sandbox::Forget(std::string_view txid) {
    const std::lock_guard lock(impl_->mutex);
    sandbox::Forget(impl_->world, txid);
}

std::vector<std::string> Sandbox::RawTransactions() const {
    const std::lock_guard lock(impl_->mutex);
    std::vector<std::string> list;
    for (const bool funding : {true, false}) {
        for (const Digest& id : impl_->world.chain.order) {
            const ChainTx& entry = *FindTransaction(impl_->world.chain, id);
            if (entry.funding == funding) list.push_back(ToHex(entry.raw));
        }
    }
    return list;
}

std::optional<std::string> Sandbox::RawTransaction(std::string_view txid) const {
    const std::lock_guard lock(impl_->mutex);
    const auto id = ParseIdText(txid);
    const ChainTx* const entry = id ? FindTransaction(impl_->world.chain, *id) : nullptr;
    return entry != nullptr ? std::optional(ToHex(entry->raw)) : std::nullopt;
}

std::vector<ChainOutput> Sandbox::Unspent(std::string_view address) const {
    const std::lock_guard lock(impl_->mutex);
    const Chain& chain = impl_->world.chain;
    std::vector<ChainOutput> list;
    const auto owner = ParseAddress(address);
    if (!owner) return list;
    for (const Outpoint& outpoint : UnspentOf(chain, *owner)) {
        list.push_back({IdText(outpoint.id), outpoint.index, chain.coins.at(outpoint).output.value,
                        IsMempoolTransaction(chain, outpoint.id)});
    }
    return list;
}

int64_t Sandbox::BalanceOf(std::string_view address) const {
    int64_t total = 0;
    for (const ChainOutput& output : Unspent(address)) total += output.value;
    return total;
}

int64_t Sandbox::TotalFunded() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->world.chain.total_funded;
}

int64_t Sandbox::TotalUnspent() const {
    const std::lock_guard lock(impl_->mutex);
    return UnspentTotal(impl_->world.chain);
}

int64_t Sandbox::TotalFees() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->world.chain.total_fees;
}

void Sandbox::Publish(const PublishedIdentity& identity) {
    const std::lock_guard lock(impl_->mutex);
    PublishIdentity(impl_->world, identity);
}

std::optional<PublishedIdentity> Sandbox::Identity(std::string_view alias) const {
    const std::lock_guard lock(impl_->mutex);
    const auto found = impl_->world.identities.find(Lower(alias));
    return found != impl_->world.identities.end() ? std::optional(found->second) : std::nullopt;
}

void Sandbox::MarkOrdinal(std::string_view address, const OrdinalMark& mark) {
    const std::lock_guard lock(impl_->mutex);
    impl_->world.ordinals[std::string(address)].push_back(mark);
}

void Sandbox::SetIndexerKnows(bool every_transaction) {
    const std::lock_guard lock(impl_->mutex);
    impl_->world.indexer_knows = every_transaction;
}

bool Sandbox::SeedBoard(int64_t now) {
    const std::lock_guard lock(impl_->mutex);
    return sandbox::SeedBoard(impl_->world, now);
}

bool Sandbox::AppointArchitect(const std::string& folder) {
    const std::lock_guard lock(impl_->mutex);
    return sandbox::AppointArchitect(impl_->world, folder);
}

std::vector<Report> Sandbox::Reports() const {
    const std::lock_guard lock(impl_->mutex);
    std::vector<Report> list;
    for (const Report& report : impl_->world.reports) {
        const auto id = ParseIdText(report.txid);
        if (id && FindTransaction(impl_->world.chain, *id) != nullptr) list.push_back(report);
    }
    return list;
}

bool Sandbox::SetBuild(std::string_view build) {
    constexpr std::size_t kLongest = 32;
    if (build.empty() || build.size() > kLongest || build.find_first_not_of("0123456789.") != build.npos) {
        return false;
    }
    const std::lock_guard lock(impl_->mutex);
    impl_->world.build = build;
    return true;
}

void Sandbox::AddFault(Service service, const Fault& fault) {
    const std::lock_guard lock(impl_->mutex);
    SetFault set = {service, fault, nullptr};
    if (fault.kind == FaultKind::kStaleListing) {
        set.chain_then = std::make_shared<const Chain>(impl_->world.chain);
    }
    impl_->faults.push_back(std::move(set));
}

void Sandbox::ClearFaults() {
    const std::lock_guard lock(impl_->mutex);
    impl_->faults.clear();
}

std::vector<std::string> Sandbox::Requests(Service service) const {
    const std::lock_guard lock(impl_->mutex);
    const auto found = impl_->requests.find(service);
    return found != impl_->requests.end() ? found->second : std::vector<std::string>();
}

void Sandbox::ClearRequests() {
    const std::lock_guard lock(impl_->mutex);
    impl_->requests.clear();
}

}  // namespace brickfall::sandbox
