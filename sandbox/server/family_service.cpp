// The family's own host: relay, indexer and paymail.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "deployment/deployment.h"
#include "sandbox/server/faces.h"
#include "sandbox/server/services.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr std::string_view kGameId = "brickfall";

std::vector<Digest> WatchTransactions(const Chain& chain) {
    const auto watch = ParseAddress(kArcadeWatchAddress);
    std::vector<Digest> ids;
    if (!watch) return ids;
    for (const Digest& id : TransactionsOf(chain, *watch)) {
        const auto& outputs = FindTransaction(chain, id)->tx.outputs;
        const auto pays = [&watch](const TxOutput& output) { return PaidKeyHash(output.locking) == watch; };
        if (std::any_of(outputs.begin(), outputs.end(), pays)) ids.push_back(id);
    }
    std::reverse(ids.begin(), ids.end());
    return ids;
}

HttpReply OracleIds(const World& world, const HttpRequest& request, std::string_view game, const Bend& bend) {
    json list = json::array();
    if (game == kGameId) {
        const std::vector<Digest> ids = WatchTransactions(world.chain);
        const std::size_t from = std::min(CountParameter(request, "offset", 0), ids.size());
        const std::size_t count = std::min(CountParameter(request, "limit", 100), ids.size() - from);
        for (std::size_t i = from; i < from + count; ++i) list.push_back(ShownId(ids[i], bend));
    }
    return JsonReply(200, {{"txids", std::move(list)}});
}

HttpReply PaymailNotFound() {
    return JsonReply(404, {{"code", "error-paymail-not-found"}, {"message", "paymail not found"}});
}

const PublishedIdentity* IdentityOf(const World& world, std::string_view handle) {
    const std::size_t at = handle.find('@');
    if (at == std::string_view::npos || Lower(handle.substr(at + 1)) != Lower(kPaymailDomain)) return nullptr;
    const auto found = world.identities.find(Lower(handle.substr(0, at)));
    return found != world.identities.end() ? &found->second : nullptr;
}

std::string HandleOf(const PublishedIdentity& identity) { return identity.alias + "@" + kPaymailDomain; }

HttpReply KeyDocument(const World& world, std::string_view handle) {
    const PublishedIdentity* const identity = IdentityOf(world, handle);
    if (identity == nullptr) return PaymailNotFound();
    return JsonReply(200,
                     {{"bsvalias", "1.0"}, {"handle", HandleOf(*identity)}, {"pubkey", identity->pubkey}});
}

// A picture is a web address, or the origin of an inscription.
HttpReply PublicProfile(const World& world, std::string_view handle) {
    const PublishedIdentity* const identity = IdentityOf(world, handle);
    if (identity == nullptr) return PaymailNotFound();
    const bool is_url = identity->avatar.starts_with("https://");
    return JsonReply(200, {{"name", identity->alias},
                           {"avatar", is_url ? identity->avatar : ""},
                           {"ord", is_url ? "" : identity->avatar}});
}

HttpReply FreezeNote(const World& world, std::string_view pubkey) {
    json body = {{"pubkey", Lower(pubkey)}, {"frozen", false}, {"frozenNote", ""}};
    for (const auto& [alias, identity] : world.identities) {
        if (Lower(identity.pubkey) != Lower(pubkey)) continue;
        body["alias"] = alias;
        if (!identity.frozen) continue;
        body["frozen"] = true;
        body["frozenNote"] = identity.frozen_note;
        break;
    }
    return JsonReply(200, body);
}

HttpReply Quota(const World& world, std::string_view pubkey) {
    const PublishedIdentity* const identity = IdentityOfKey(world, pubkey);
    return JsonReply(200, {{"pubkey", Lower(pubkey)}, {"role", identity != nullptr ? identity->role : ""}});
}

HttpReply Capabilities() {
    const std::string base = std::string(kApiBaseUrl) + "/api/bsvalias/";
    const std::string handle = "{alias}@{domain.tld}";
    return JsonReply(
        200, {{"bsvalias", "1.0"},
              {"capabilities",
               {{"pki", base + "id/" + handle}, {"f12f968c92d6", base + "public-profile/" + handle}}}});
}

HttpReply FacePicture(std::string_view name) {
    const Face* const face = FindFace(name);
    if (face == nullptr) return NotFound();
    HttpReply reply;
    reply.body.assign(face->bytes.begin(), face->bytes.end());
    reply.content_type = FaceType(*face);
    return reply;
}

HttpReply Claim(World& world, const HttpRequest& request) {
    std::string error;
    const int status = TakeClaim(world, ParseBody(request), error);
    return status == 0 ? JsonReply(200, {{"ok", true}}) : JsonReply(status, {{"error", error}});
}

}  // namespace

HttpReply AnswerRelay(World& world, const HttpRequest& request, const Bend& bend) {
    if (request.method != "POST") return NotFound();
    std::string txid;
    const Verdict verdict = TakeTransaction(world, TextField(ParseBody(request), "txhex"), bend.lose, txid);
    if (verdict.Accepted() || verdict.fault == TxFault::kAlreadyKnown) {
        return JsonReply(200, {{"ok", true}, {"txid", txid}});
    }
    return JsonReply(200, {{"ok", false}, {"error", ReasonText(verdict)}});
}

HttpReply AnswerIndexer(const World& world, const HttpRequest& request, const Bend& bend) {
    if (request.method != "GET") return NotFound();
    std::string_view path = StripFront(request.path, "/");
    TakeSegment(path);  // "oi"
    const std::string_view subject = TakeSegment(path);
    const std::string_view name = TakeSegment(path);
    if (subject == "oracle" && path == "txids") return OracleIds(world, request, name, bend);
    const auto id = ParseIdText(name);
    const ChainTx* const entry =
        id && world.indexer_knows && path.empty() ? FindTransaction(world.chain, *id) : nullptr;
    if (subject != "tx" || entry == nullptr) return JsonReply(404, {{"error", "not found"}});
    HttpReply reply;
    reply.body = DecodedTransaction(world.chain, *entry);
    return reply;
}

HttpReply AnswerPaymail(World& world, const HttpRequest& request) {
    std::string_view path = StripFront(request.path, "/");
    if (request.method == "POST") {
        return path == "api/paymail/claim" ? Claim(world, request) : NotFound();
    }
    if (request.method != "GET") return NotFound();
    if (path == ".well-known/bsvalias") return Capabilities();
    const std::size_t last = path.rfind('/');
    if (last == std::string_view::npos) return NotFound();
    const std::string_view folder = path.substr(0, last);
    const std::string_view name = path.substr(last + 1);
    if (folder == "faces") return FacePicture(name);
    if (folder == "api/bsvalias/id") return KeyDocument(world, name);
    if (folder == "api/bsvalias/public-profile") return PublicProfile(world, name);
    if (!IsHexText(name, 66)) return NotFound();
    if (folder == "api/paymail/quota") return Quota(world, name);
    return folder == "api/paymail/identity" ? FreezeNote(world, name) : NotFound();
}

}  // namespace brickfall::sandbox
