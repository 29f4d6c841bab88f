// ARC: broadcast with a status, and problem objects by number.
#include <nlohmann/json.hpp>

#include "base/clock.h"
#include "deployment/deployment.h"
#include "sandbox/server/services.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

struct Problem {
    int status;
    const char* title;
    const char* detail;
};

constexpr Problem kBadRequest = {400, "Bad request",
                                 "The request seems to be malformed and cannot be processed"};
constexpr Problem kUnknown = {404, "Not found", "The requested resource could not be found"};
constexpr Problem kUnlocking = {461, "Malformed transaction",
                                "Transaction is malformed and cannot be processed"};
constexpr Problem kInputs = {462, "Invalid inputs",
                             "Transaction is invalid because the inputs are non-existent or spent"};
constexpr Problem kMalformed = {463, "Malformed transaction",
                                "Transaction is malformed and cannot be processed"};
constexpr Problem kOutputs = {464, "Invalid outputs",
                              "Transaction is invalid because the outputs are non-existent or invalid"};
constexpr Problem kFee = {465, "Fee too low", "The fees are too low"};

const Problem& ProblemFor(TxFault fault) {
    switch (fault) {
        case TxFault::kDecodeFailed:
        case TxFault::kCoinbase:
        case TxFault::kNotFinal:
            return kMalformed;
        case TxFault::kNoInputs:
        case TxFault::kDuplicateInput:
        case TxFault::kMissingInputs:
            return kInputs;
        case TxFault::kNoOutputs:
        case TxFault::kNegativeOutput:
        case TxFault::kOutputTooLarge:
        case TxFault::kTotalTooLarge:
        case TxFault::kOutputsAboveInputs:
            return kOutputs;
        case TxFault::kFeeTooLow:
            return kFee;
        case TxFault::kBadScript:
            return kUnlocking;
        case TxFault::kNone:
        case TxFault::kAlreadyKnown:
        case TxFault::kMempoolConflict:
            break;  // answered with a status
    }
    return kBadRequest;
}

std::string ExtraInfo(const Problem& problem, const Verdict& verdict) {
    const std::string prefix = "arc error " + std::to_string(problem.status) + ": ";
    if (verdict.fault != TxFault::kFeeTooLow) return prefix + ReasonText(verdict);
    return prefix +
           "transaction fee is too low\nminimum expected fee: " + std::to_string(verdict.required_fee) +
           ", actual fee: " + std::to_string(verdict.fee);
}

HttpReply ProblemReply(const Problem& problem, const std::string& txid, const std::string& extra) {
    json body = {{"type", "https://bitcoin-sv.github.io/arc/#/errors?id=_" + std::to_string(problem.status)},
                 {"title", problem.title},
                 {"status", problem.status},
                 {"detail", problem.detail},
                 {"instance", nullptr}};
    if (!txid.empty()) body["txid"] = txid;
    if (!extra.empty()) body["extraInfo"] = extra;
    return JsonReply(problem.status, body);
}

// RFC 3339, UTC, to the second.
std::string Timestamp() {
    const time_t now = static_cast<time_t>(SystemClock().unix_millis(SystemClock().self) / 1000);
    tm parts = {};
    gmtime_r(&now, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

json StatusBody(const World& world, const std::string& txid, const char* status) {
    json body = {{"blockHash", ""}, {"blockHeight", 0},   {"extraInfo", ""},         {"merklePath", ""},
                 {"txid", txid},    {"txStatus", status}, {"timestamp", Timestamp()}};
    const auto id = ParseIdText(txid);
    const ChainTx* const entry = id ? FindTransaction(world.chain, *id) : nullptr;
    if (entry != nullptr && entry->height > 0) {
        const auto index = static_cast<std::size_t>(entry->height - kFirstHeight - 1);
        body["blockHash"] = IdText(world.chain.blocks[index].id);
        body["blockHeight"] = entry->height;
        body["txStatus"] = "MINED";
    }
    return body;
}

HttpReply TakeArcBroadcast(World& world, const HttpRequest& request, const Bend& bend) {
    const std::string hex = TextField(ParseBody(request), "rawTx");
    if (hex.empty()) {
        return ProblemReply(kBadRequest, "",
                            "error parsing transactions from request: no transaction found - empty request "
                            "body");
    }
    std::string txid;
    const Verdict verdict = TakeTransaction(world, hex, bend.lose, txid);
    const bool in_doubt = verdict.fault == TxFault::kMempoolConflict;
    if (!verdict.Accepted() && !in_doubt && verdict.fault != TxFault::kAlreadyKnown) {
        const Problem& problem = ProblemFor(verdict.fault);
        return ProblemReply(problem, txid, ExtraInfo(problem, verdict));
    }
    json body = StatusBody(world, txid, in_doubt ? "DOUBLE_SPEND_ATTEMPTED" : "SEEN_ON_NETWORK");
    if (in_doubt) body["competingTxs"] = json::array({IdText(verdict.rival)});
    body["status"] = 200;
    body["title"] = "OK";
    return JsonReply(200, body);
}

}  // namespace

HttpReply AnswerArc(World& world, const HttpRequest& request, const Bend& bend) {
    std::string_view path = PathBehind(request, kArcBroadcastUrl);
    const bool below = request.path.starts_with("/v1/tx");
    if (below && request.method == "POST" && path.empty()) return TakeArcBroadcast(world, request, bend);
    if (below && request.method == "GET") {
        const auto id = ParseIdText(path);
        if (id && FindTransaction(world.chain, *id) != nullptr) {
            return JsonReply(200, StatusBody(world, IdText(*id), "SEEN_ON_NETWORK"));
        }
    }
    if (request.path == "/v1/policy" && request.method == "GET") {
        const json fee = {{"satoshis", world.chain.fee_per_kilobyte}, {"bytes", 1000}};
        return JsonReply(200, {{"timestamp", Timestamp()}, {"policy", {{"miningFee", fee}}}});
    }
    return ProblemReply(kUnknown, "", "");
}

}  // namespace brickfall::sandbox
