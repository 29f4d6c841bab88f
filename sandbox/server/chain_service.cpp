// The chain API: outputs and history of an address, transactions, broadcast.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "deployment/deployment.h"
#include "sandbox/server/services.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr std::size_t kPage = 1000;

enum class Part { kConfirmed, kUnconfirmed };

bool IsIn(Part part, const ChainTx& entry) { return (part == Part::kConfirmed) == (entry.height > 0); }

// Electrum's script hash: the single SHA-256 in reversed byte order.
std::string ScriptHash(const KeyHash& owner) { return IdText(Sha256(PayToKeyHash(owner))); }

// The part of a list that a request asks for, with the token of the next one behind it.
struct Page {
    json rows = json::array();
    bool first = true;
    std::string next;  // empty: nothing more
};

Page TakePage(const HttpRequest& request, const json& whole, std::size_t limit) {
    Page page;
    const std::size_t from = std::min(CountParameter(request, "token", 0), whole.size());
    const std::size_t to = from + std::min(limit, whole.size() - from);
    const auto at = [&whole](std::size_t index) {
        return whole.begin() + static_cast<std::ptrdiff_t>(index);
    };
    page.rows.insert(page.rows.end(), at(from), at(to));
    page.first = from == 0;
    if (to < whole.size()) page.next = std::to_string(to);
    return page;
}

HttpReply EnvelopeReply(std::string_view address, const KeyHash& owner, Page page) {
    json body = {
        {"address", address}, {"script", ScriptHash(owner)}, {"result", std::move(page.rows)}, {"error", ""}};
    if (!page.next.empty()) body["nextPageToken"] = page.next;
    return JsonReply(200, body);
}

// Outputs that no mined transaction has spent. Of the address listings the current generation flags what a
// mempool transaction spends; the legacy one knows no flags and no mempool.
json UnspentList(const Chain& chain, const KeyHash& owner, Part part, bool legacy, const Bend& bend) {
    json list = json::array();
    const auto outpoints = chain.paid_to.find(owner);
    if (outpoints == chain.paid_to.end()) return list;
    for (const Outpoint& outpoint : outpoints->second) {
        const ChainTx& entry = *FindTransaction(chain, outpoint.id);
        const ChainCoin& coin = chain.coins.at(outpoint);
        if (!IsIn(part, entry) || (coin.spent && !IsMempoolTransaction(chain, coin.spender))) continue;
        json row = {{"tx_hash", ShownId(outpoint.id, bend)},
                    {"tx_pos", outpoint.index},
                    {"value", coin.output.value}};
        if (entry.height > 0) row["height"] = entry.height;
        if (!legacy) {
            row["isSpentInMempoolTx"] = coin.spent;
            row["status"] = entry.height > 0 ? "confirmed" : "unconfirmed";
            if (entry.height == 0) row["hex"] = ToHex(coin.output.locking);
        }
        list.push_back(std::move(row));
    }
    return list;
}

json HistoryList(const Chain& chain, const KeyHash& owner, Part part, const Bend& bend) {
    json list = json::array();
    for (const Digest& id : TransactionsOf(chain, owner)) {
        const ChainTx& entry = *FindTransaction(chain, id);
        if (!IsIn(part, entry)) continue;
        json row = {{"tx_hash", ShownId(id, bend)}};
        if (entry.height > 0) row["height"] = entry.height;
        list.push_back(std::move(row));
    }
    return list;
}

// Newest first unless asked otherwise.
Page HistoryPage(const HttpRequest& request, json whole) {
    const auto order = request.query.find("order");
    if (order == request.query.end() || order->second != "asc") std::reverse(whole.begin(), whole.end());
    return TakePage(request, whole,
                    std::clamp<std::size_t>(CountParameter(request, "limit", kPage), 1, kPage));
}

HttpReply AnswerAddress(const World& world, const HttpRequest& request, std::string_view path,
                        const Bend& bend) {
    const std::string_view address = TakeSegment(path);
    const auto owner = ParseAddress(address);
    if (!owner) return NotFound();
    const Chain& listed = bend.listed != nullptr ? *bend.listed : world.chain;
    const auto unspent = [&](Part part) { return UnspentList(listed, *owner, part, false, bend); };
    const auto history = [&](Part part) { return HistoryList(world.chain, *owner, part, bend); };
    const auto reply = [&](Page page) { return EnvelopeReply(address, *owner, std::move(page)); };
    // What is mined comes in pages; what waits stands whole in the first one.
    if (path == "unspent/all" || path == "confirmed/unspent") {
        Page page = TakePage(request, unspent(Part::kConfirmed), kPage);
        if (path == "unspent/all" && page.first) {
            const json waiting = unspent(Part::kUnconfirmed);
            page.rows.insert(page.rows.end(), waiting.begin(), waiting.end());
        }
        return reply(std::move(page));
    }
    if (path == "unconfirmed/unspent") return reply({unspent(Part::kUnconfirmed), true, ""});
    if (path == "unspent") return JsonReply(200, UnspentList(listed, *owner, Part::kConfirmed, true, bend));
    if (path == "history") return JsonReply(200, history(Part::kConfirmed));
    if (path == "unconfirmed/history") return reply({history(Part::kUnconfirmed), true, ""});
    if (path == "confirmed/history") return reply(HistoryPage(request, history(Part::kConfirmed)));
    return NotFound();
}

HttpReply AnswerTransaction(const World& world, std::string_view path) {
    if (path.starts_with("hash/")) TakeSegment(path);
    const std::string_view text = TakeSegment(path);
    if (text.size() != 64) return TextReply(400, "txid must be 64 hex characters in length");
    const auto id = ParseIdText(text);
    const ChainTx* const entry = id ? FindTransaction(world.chain, *id) : nullptr;
    if (entry == nullptr) return NotFound();
    if (path == "hex") return TextReply(200, ToHex(entry->raw));
    if (!path.empty() && path != "decoded") return NotFound();
    HttpReply reply;
    reply.body = DecodedTransaction(world.chain, *entry);
    return reply;
}

HttpReply TakeRawBroadcast(World& world, const HttpRequest& request, const Bend& bend) {
    std::string txid;
    const Verdict verdict = TakeTransaction(world, TextField(ParseBody(request), "txhex"), bend.lose, txid);
    if (!verdict.Accepted()) return TextReply(400, "unexpected response code 500: " + ReasonText(verdict));
    return TextReply(200, "\"" + txid + "\"\n");
}

}  // namespace

HttpReply AnswerChain(World& world, const HttpRequest& request, const Bend& bend) {
    std::string_view path = PathBehind(request, kChainApiBaseUrl);
    if (request.method == "POST") {
        return path == "tx/raw" ? TakeRawBroadcast(world, request, bend) : NotFound();
    }
    const std::string_view subject = TakeSegment(path);
    if (request.method != "GET") return NotFound();
    if (subject == "address") return AnswerAddress(world, request, path, bend);
    return subject == "tx" ? AnswerTransaction(world, path) : NotFound();
}

}  // namespace brickfall::sandbox
