// The ordinals API and its content service: what an address holds, and what an inscription says.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "base/text.h"
#include "deployment/deployment.h"
#include "sandbox/server/script_push.h"
#include "sandbox/server/services.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

std::string OutpointText(const std::string& txid, uint32_t vout) { return txid + "_" + std::to_string(vout); }

std::string ShownText(const std::string& txid, const Bend& bend) {
    const auto id = ParseIdText(txid);
    return id && bend.flip_ids ? ToHex(*id) : txid;
}

const std::vector<OrdinalMark>& MarksOf(const World& world, std::string_view address) {
    static const std::vector<OrdinalMark>& none = *new std::vector<OrdinalMark>;
    const auto found = world.ordinals.find(std::string(address));
    return found != world.ordinals.end() ? found->second : none;
}

const OrdinalMark* MarkFor(const std::vector<OrdinalMark>& marks, const std::string& txid, uint32_t vout) {
    const auto found = std::find_if(marks.begin(), marks.end(), [&](const OrdinalMark& mark) {
        return mark.vout == vout && Lower(mark.txid) == txid;
    });
    return found != marks.end() ? &*found : nullptr;
}

json ListingRow(std::string_view address, const std::string& txid, uint32_t vout, int64_t satoshis,
                int height, const std::string& origin) {
    json row = {{"txid", txid},         {"vout", vout},     {"outpoint", OutpointText(txid, vout)},
                {"satoshis", satoshis}, {"accSats", "0"},   {"owner", address},
                {"spend", ""},          {"height", height}, {"idx", "0"},
                {"origin", nullptr},    {"data", nullptr}};
    if (!origin.empty()) {
        const json file = {{"hash", ""}, {"size", 0}, {"type", "application/octet-stream"}};
        row["origin"] = {{"outpoint", origin}};
        row["data"] = {{"types", json::array({"insc"})},
                       {"insc", {{"file", file}}},
                       {"list", nullptr},
                       {"bsv20", nullptr}};
    }
    return row;
}

// Every unspent output of the address, plain ones too; a mark gives one its origin, or adds a row of its own.
json OutputListing(const World& world, std::string_view address, const Bend& bend) {
    json list = json::array();
    const std::vector<OrdinalMark>& marks = MarksOf(world, address);
    std::set<std::string> listed;
    const Chain& chain = bend.listed != nullptr ? *bend.listed : world.chain;
    if (const auto owner = ParseAddress(address)) {
        for (const Outpoint& outpoint : UnspentOf(chain, *owner)) {
            const std::string txid = IdText(outpoint.id);
            const OrdinalMark* const mark = MarkFor(marks, txid, outpoint.index);
            if (mark != nullptr && mark->token) continue;
            listed.insert(OutpointText(txid, outpoint.index));
            list.push_back(ListingRow(
                address, ShownId(outpoint.id, bend), outpoint.index, chain.coins.at(outpoint).output.value,
                FindTransaction(chain, outpoint.id)->height, mark != nullptr ? mark->origin : ""));
        }
    }
    for (const OrdinalMark& mark : marks) {
        if (mark.token || listed.contains(OutpointText(Lower(mark.txid), mark.vout))) continue;
        const auto id = ParseIdText(mark.txid);
        if (id && chain.coins.contains({*id, mark.vout})) continue;  // spent, or somebody else's
        list.push_back(ListingRow(address, ShownText(mark.txid, bend), mark.vout, 1, 0, mark.origin));
    }
    return list;
}

json TokenListing(const World& world, std::string_view address, const Bend& bend) {
    json list = json::array();
    for (const OrdinalMark& mark : MarksOf(world, address)) {
        if (!mark.token) continue;
        const auto id = ParseIdText(mark.txid);
        const auto coin = id ? world.chain.coins.find({*id, mark.vout}) : world.chain.coins.end();
        if (coin != world.chain.coins.end() && coin->second.spent) continue;
        const std::string txid = ShownText(mark.txid, bend);
        list.push_back({{"txid", txid},
                        {"vout", mark.vout},
                        {"outpoint", OutpointText(txid, mark.vout)},
                        {"owner", address},
                        {"satoshis", 1},
                        {"spend", ""},
                        {"height", 0},
                        {"idx", "0"},
                        {"op", "transfer"},
                        {"tick", nullptr},
                        {"id", mark.origin.empty() ? OutpointText(txid, mark.vout) : mark.origin},
                        {"sym", "DEMO"},
                        {"dec", 0},
                        {"amt", "1000"},
                        {"status", 1},
                        {"reason", nullptr},
                        {"listing", false}});
    }
    return list;
}

struct Inscription {
    std::string type;
    std::string body;
};

// The envelope: OP_FALSE OP_IF "ord" OP_1 <type> OP_0 <body, in one or more pushes> OP_ENDIF.
std::optional<Inscription> ReadInscription(ByteView script) {
    constexpr std::string_view kEnvelope("\x00\x63\x03ord\x51", 7);
    const ByteView start = ViewOf(kEnvelope);
    const auto found = std::search(script.begin(), script.end(), start.begin(), start.end());
    if (found == script.end()) return std::nullopt;
    script = script.subspan(static_cast<std::size_t>(found - script.begin()) + start.size());
    Inscription inscription;
    uint8_t opcode = 0;
    for (int part = 0; !script.empty(); ++part) {
        const std::optional<Bytes> data = TakeOpcode(script, opcode);
        if (!data) break;
        if (part == 0) inscription.type.assign(data->begin(), data->end());
        if (part > 1) inscription.body.append(data->begin(), data->end());
    }
    return opcode == 0x68 ? std::optional(inscription) : std::nullopt;
}

}  // namespace

HttpReply AnswerOrdinals(const World& world, const HttpRequest& request, const Bend& bend) {
    const HttpReply missing = JsonReply(404, {{"message", "not found"}});
    if (request.method != "GET") return missing;
    std::string_view path = PathBehind(request, kOrdinalsApiBaseUrl);
    std::string_view listing = TakeSegment(path);
    if (listing == "txos" && TakeSegment(path) != "address") return missing;
    const std::string_view address = TakeSegment(path);
    if (path != "unspent") return missing;
    if (listing == "txos") return JsonReply(200, OutputListing(world, address, bend));
    return listing == "bsv20" ? JsonReply(200, TokenListing(world, address, bend)) : missing;
}

HttpReply AnswerContent(const World& world, const HttpRequest& request) {
    std::string_view path = PathBehind(request, kOrdinalsContentBaseUrl);
    // Clients that hold the base with its folder ask for the folder twice.
    if (path.starts_with("content/")) TakeSegment(path);
    const auto id = ParseIdText(path.substr(0, 64));
    const ChainTx* const entry = id ? FindTransaction(world.chain, *id) : nullptr;
    if (entry == nullptr) return JsonReply(404, {{"message", "not found"}});
    for (uint32_t vout = 0; vout < entry->tx.outputs.size(); ++vout) {
        const bool asked = path.size() == 64 || path == OutpointText(IdText(*id), vout);
        const auto inscription =
            asked ? ReadInscription(entry->tx.outputs[vout].locking) : std::optional<Inscription>();
        if (!inscription) continue;
        HttpReply reply;
        reply.body = inscription->body;
        reply.content_type = inscription->type.find_first_of("\r\n") == std::string::npos
                                 ? inscription->type
                                 : "application/octet-stream";
        return reply;
    }
    return JsonReply(404, {{"message", "not found"}});
}

}  // namespace brickfall::sandbox
