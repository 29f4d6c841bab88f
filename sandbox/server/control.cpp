#include "sandbox/server/control.h"

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "sandbox/server/bytes.h"
#include "sandbox/server/faults.h"
#include "sandbox/server/services.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

HttpReply Refuse(const std::string& error) { return JsonReply(400, {{"error", error}}); }

HttpReply Fund(Operations& sandbox, const HttpRequest& request) {
    const json body = ParseBody(request);
    const auto satoshis = body.is_object() ? body.find("satoshis") : body.end();
    if (satoshis == body.end() || !satoshis->is_number_integer()) {
        return Refuse("fund takes an address and a whole number of satoshis");
    }
    const std::string txid = sandbox.Fund(TextField(body, "address"), satoshis->get<int64_t>());
    return txid.empty() ? Refuse("no such address, or no such amount") : JsonReply(200, {{"txid", txid}});
}

HttpReply AddFault(Operations& sandbox, const HttpRequest& request) {
    const json body = ParseBody(request);
    const auto service = ServiceByName(TextField(body, "service"));
    if (!service) return Refuse("unknown service");
    std::string error;
    const auto fault = FaultFromJson(body, error);
    if (!fault) return Refuse(error);
    sandbox.AddFault(*service, *fault);
    return JsonReply(200, {{"ok", true}});
}

HttpReply Reports(const Operations& sandbox) {
    json read = json::array();
    json refused = json::array();
    for (const Report& report : sandbox.Reports()) {
        if (report.refusal.empty()) {
            read.push_back(
                {{"txid", report.txid}, {"handle", report.handle}, {"ts", report.ts}, {"text", report.text}});
        } else {
            refused.push_back({{"txid", report.txid}, {"refusal", report.refusal}});
        }
    }
    return JsonReply(200, {{"reports", std::move(read)}, {"refused", std::move(refused)}});
}

HttpReply Read(const Operations& sandbox, std::string_view path) {
    const std::string_view subject = TakeSegment(path);
    if (subject == "transactions" && path.empty()) {
        return JsonReply(200, {{"transactions", sandbox.RawTransactions()}});
    }
    if (subject == "state" && path.empty()) {
        return JsonReply(200, {{"funded", sandbox.TotalFunded()},
                               {"unspent", sandbox.TotalUnspent()},
                               {"fees", sandbox.TotalFees()},
                               {"transactions", sandbox.RawTransactions().size()}});
    }
    if (subject == "reports" && path.empty()) return Reports(sandbox);
    if (subject == "balance") {
        if (!ParseAddress(path)) return Refuse("no such address");
        return JsonReply(200, {{"address", path}, {"satoshis", sandbox.BalanceOf(path)}});
    }
    if (subject == "requests") {
        const auto service = ServiceByName(path);
        if (!service) return Refuse("unknown service");
        return JsonReply(200, {{"requests", sandbox.Requests(*service)}});
    }
    return JsonReply(404, {{"error", "no such control"}});
}

}  // namespace

HttpReply AnswerControl(Operations& sandbox, const HttpRequest& request) {
    const std::string_view path = StripFront(request.path, "/");
    if (request.method == "GET") return Read(sandbox, path);
    if (request.method == "POST" && path == "fund") return Fund(sandbox, request);
    if (request.method == "POST" && path == "mine") {
        sandbox.Mine();
        return JsonReply(200, {{"ok", true}});
    }
    if (request.method == "POST" && path == "build") {
        return sandbox.SetBuild(TextField(ParseBody(request), "build"))
                   ? JsonReply(200, {{"ok", true}})
                   : Refuse("build takes a number such as \"0.002\"");
    }
    if (request.method == "POST" && path == "fault") return AddFault(sandbox, request);
    if (request.method == "DELETE" && path == "fault") {
        sandbox.ClearFaults();
        return JsonReply(200, {{"ok", true}});
    }
    return JsonReply(404, {{"error", "no such control"}});
}

}  // namespace brickfall::sandbox
