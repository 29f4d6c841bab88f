#include "sandbox/server/sandbox.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "sandbox/server/certificates.h"
#include "sandbox/server/control.h"
#include "sandbox/server/https_server.h"
#include "sandbox/server/services.h"
#include "sandbox/server/state.h"

namespace brickfall::sandbox {
namespace {

HttpReply Answer(SandboxState& state, Service service, const HttpRequest& request, const MetFaults& met) {
    const std::lock_guard lock(state.mutex);
    return AnswerFor(service, state.world, request, {met.listed.get(), met.flip_ids, met.lose});
}

HttpReply ServeService(SandboxState& state, Service service, const HttpRequest& request,
                       const WaitFunction& wait) {
    MetFaults met;
    {
        const std::lock_guard lock(state.mutex);
        state.requests[service].push_back(request.method + " " + request.target);
        met = TakeFaults(state.faults, service, KindOf(service, request), request.target);
        for (const FaultKind kind : met.kinds) ++state.faults_met[{service, kind}];
    }
    HttpReply dropped;
    dropped.end = HttpReply::End::kDropped;
    if (met.delay_ms > 0 && !wait(met.delay_ms)) return dropped;
    if (!met.ending) return Answer(state, service, request, met);

    const Fault& fault = *met.ending;
    switch (fault.kind) {
        case FaultKind::kNoAnswer:
            wait(-1);
            return dropped;
        case FaultKind::kDrop:
            return dropped;
        case FaultKind::kCutBody: {
            HttpReply cut = Answer(state, service, request, met);
            cut.end = cut.body.empty() ? HttpReply::End::kDropped : HttpReply::End::kCut;
            return cut;
        }
        case FaultKind::kActAndReply:
            Answer(state, service, request, met);
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

HttpReply Serve(SandboxState& state, const HttpRequest& request, const WaitFunction& wait) {
    const std::optional<Service> service = ServiceOf(request);
    if (!service) return NotFound();
    {
        const std::lock_guard lock(state.mutex);
        state.most_answering = std::max(state.most_answering, ++state.answering);
    }
    HttpReply reply = ServeService(state, *service, request, wait);
    const std::lock_guard lock(state.mutex);
    --state.answering;
    return reply;
}

}  // namespace

Sandbox::Sandbox(Options options)
    : Operations(std::move(options)), server_(std::make_unique<HttpsServer>()) {}
Sandbox::~Sandbox() { Stop(); }

bool Sandbox::Start(std::string& error) {
    SandboxState& state = *state_;
    TlsContext context = MakeServerContext(state.options.folder, ServedHosts(), error);
    if (!context) return false;
    {
        const std::lock_guard lock(state.mutex);
        const std::string& journal = state.options.journal_file;
        if (!journal.empty() && !state.journal_open) {
            if (!OpenJournal(state.world, journal, error)) return false;
            state.journal_open = true;
        }
        // What stands in the journal has been told before.
        state.world.on_report = state.options.on_report;
    }
    return server_->Start(
        state.options.port, std::move(context),
        [this, &state](const HttpRequest& request, const WaitFunction& wait) {
            return request.host == kControlHost ? AnswerControl(*this, request) : Serve(state, request, wait);
        },
        error);
}

void Sandbox::Stop() { server_->Stop(); }

int Sandbox::Port() const { return server_->Port(); }
void Sandbox::WaitUntilIdle() const { server_->WaitUntilIdle(); }
std::string Sandbox::ConnectTo() const { return "::127.0.0.1:" + std::to_string(Port()); }
std::string Sandbox::CaFile() const { return AuthorityFile(state_->options.folder); }

}  // namespace brickfall::sandbox
