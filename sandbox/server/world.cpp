#include "sandbox/server/world.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/clock.h"
#include "base/text.h"
#include "sandbox/server/architect.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr std::size_t kLongestAlias = 64;

// The sandbox stands for other machines: a clock that a test has installed is not theirs.
int64_t Now() { return SystemClock().unix_millis(SystemClock().self) / 1000; }

std::string TextOf(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

int64_t IntegerOf(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_number_integer() ? found->get<int64_t>() : 0;
}

bool IsAlias(std::string_view text) {
    const auto is_allowed = [](char c) {
        return (IsAsciiLetterOrDigit(c) && (c < 'A' || c > 'Z')) || c == '_' || c == '-' || c == '.';
    };
    return !text.empty() && text.size() <= kLongestAlias && std::all_of(text.begin(), text.end(), is_allowed);
}

json IdentityLine(const PublishedIdentity& identity) {
    return {{"alias", identity.alias},
            {"pubkey", identity.pubkey},
            {"address", identity.address},
            {"avatar", identity.avatar},
            {"ordAddress", identity.ord_address},
            {"frozen", identity.frozen},
            {"frozenNote", identity.frozen_note},
            {"role", identity.role}};
}

PublishedIdentity IdentityFrom(const json& line) {
    const auto frozen = line.find("frozen");
    return {TextOf(line, "alias"),      TextOf(line, "pubkey"),
            TextOf(line, "address"),    TextOf(line, "avatar"),
            TextOf(line, "ordAddress"), frozen != line.end() && frozen->is_boolean() && frozen->get<bool>(),
            TextOf(line, "frozenNote"), TextOf(line, "role")};
}

void NoticeReport(World& world, const Digest& id) {
    std::optional<Report> report = ReadReport(FindTransaction(world.chain, id)->tx, world.identities);
    if (!report) return;
    // A transaction that was dropped may come again.
    std::erase_if(world.reports, [&report](const Report& held) { return held.txid == report->txid; });
    world.reports.push_back(*report);
    if (world.on_report) world.on_report(*report);
}

bool Replay(World& world, const json& line) {
    const std::string kind = TextOf(line, "kind");
    const auto raw = FromHex(TextOf(line, "raw"));
    if (kind == "funding") return raw && AddFunding(world.chain, *raw, IntegerOf(line, "time"));
    if (kind == "transaction") {
        Digest id{};
        if (!raw || !Submit(world.chain, *raw, id).Accepted()) return false;
        NoticeReport(world, id);
        return true;
    }
    if (kind == "block") {
        MineBlock(world.chain, IntegerOf(line, "time"));
        return true;
    }
    if (kind == "forgotten") {
        const auto id = ParseIdText(TextOf(line, "txid"));
        return id && ForgetTransaction(world.chain, *id);
    }
    if (kind == "identity") {
        const PublishedIdentity identity = IdentityFrom(line);
        world.identities[identity.alias] = identity;
        return !identity.alias.empty();
    }
    if (kind == "claim") {
        std::string error;
        const auto claim = line.find("claim");
        return claim != line.end() && TakeClaim(world, *claim, error) == 0;
    }
    if (kind == "seeded") {
        world.seeded_week = IntegerOf(line, "week");
        return true;
    }
    return false;
}

int64_t BlockTime(const World& world, std::optional<int64_t> wanted) {
    if (!wanted) return Now();
    return world.chain.blocks.empty() ? *wanted : std::max(*wanted, world.chain.blocks.back().time);
}

}  // namespace

bool OpenJournal(World& world, const std::string& path, std::string& error) {
    return world.journal.Open(
        path, [&world](const json& line) { return Replay(world, line); }, error);
}

std::string FundAddress(World& world, std::string_view address, int64_t satoshis,
                        std::optional<int64_t> time) {
    const auto hash = ParseAddress(address);
    if (!hash) return "";
    const Bytes raw = MakeFundingTx(world.chain, *hash, satoshis);
    const int64_t block_time = BlockTime(world, time);
    if (!AddFunding(world.chain, raw, block_time)) return "";
    world.journal.Write({{"kind", "funding"}, {"raw", ToHex(raw)}, {"time", block_time}});
    return IdText(world.chain.order.back());
}

void Mine(World& world, std::optional<int64_t> time) {
    const int64_t block_time = BlockTime(world, time);
    MineBlock(world.chain, block_time);
    world.journal.Write({{"kind", "block"}, {"time", block_time}});
}

bool Forget(World& world, std::string_view txid) {
    const auto id = ParseIdText(txid);
    if (!id || !ForgetTransaction(world.chain, *id)) return false;
    world.journal.Write({{"kind", "forgotten"}, {"txid", txid}});
    return true;
}

Verdict TakeTransaction(World& world, std::string_view raw_hex, bool lose, std::string& txid) {
    txid.clear();
    const std::optional<Bytes> raw = FromHex(raw_hex);
    const std::optional<ParsedTx> tx = raw ? ParseTransaction(*raw) : std::nullopt;
    if (!tx) return {.fault = TxFault::kDecodeFailed};
    txid = IdText(tx->id);
    world.submissions.emplace_back(raw_hex);
    if (lose) return Judge(world.chain, *tx, raw->size());
    Digest id{};
    const Verdict verdict = Submit(world.chain, *raw, id);
    if (verdict.Accepted()) {
        world.journal.Write({{"kind", "transaction"}, {"raw", raw_hex}});
        NoticeReport(world, id);
    }
    return verdict;
}

bool AppointArchitect(World& world, const std::string& folder) {
    const PublishedIdentity identity = ArchitectIdentity();
    if (!world.identities.contains(identity.alias)) PublishIdentity(world, identity);
    return WriteArchitectKey(folder);
}

void PublishIdentity(World& world, const PublishedIdentity& identity) {
    world.identities[identity.alias] = identity;
    json line = IdentityLine(identity);
    line["kind"] = "identity";
    world.journal.Write(line);
}

const PublishedIdentity* IdentityOfKey(const World& world, std::string_view pubkey) {
    for (const auto& [alias, identity] : world.identities) {
        if (Lower(identity.pubkey) == Lower(pubkey)) return &identity;
    }
    return nullptr;
}

void RememberSeeding(World& world, int64_t week) {
    world.seeded_week = week;
    world.journal.Write({{"kind", "seeded"}, {"week", week}});
}

int TakeClaim(World& world, const json& claim, std::string& error) {
    const auto refuse = [&error](int status, const char* why) {
        error = why;
        return status;
    };
    if (!claim.is_object()) return refuse(400, "a claim is a JSON object");
    PublishedIdentity wanted = IdentityFrom(claim);
    wanted.frozen = false;
    wanted.frozen_note.clear();
    wanted.role.clear();
    const int64_t ts = IntegerOf(claim, "ts");
    const auto key = FromHex(wanted.pubkey);
    if (!IsAlias(wanted.alias)) return refuse(400, "that is no name");
    if (wanted.pubkey != Lower(wanted.pubkey) || !key || key->size() != 33 || !IsPublicKey(*key)) {
        return refuse(400, "pubkey is no compressed public key");
    }
    if (!ParseAddress(wanted.address)) return refuse(400, "address is no address");
    if (!claim.contains("avatar") || !claim["avatar"].is_string()) return refuse(400, "avatar is missing");
    if (claim.contains("ordAddress") && !ParseAddress(wanted.ord_address)) {
        return refuse(400, "ordAddress is no address");
    }
    if (ts < 1) return refuse(400, "ts is missing");

    std::string text = "OV-PAYMAIL-CLAIM|" + wanted.alias + "|" + wanted.pubkey + "|" + wanted.address + "|" +
                       wanted.avatar + "|";
    if (!wanted.ord_address.empty()) text += wanted.ord_address + "|";
    text += std::to_string(ts);
    const auto signature = FromBase64(TextOf(claim, "sig"));
    if (!signature || !VerifySignedText(text, *key, *signature)) {
        return refuse(403, "the signature is not by that key over that claim");
    }

    const auto held = world.identities.find(wanted.alias);
    if (held != world.identities.end()) {
        if (Lower(held->second.pubkey) != wanted.pubkey) return refuse(409, "that name is taken");
        wanted.frozen = held->second.frozen;
        wanted.frozen_note = held->second.frozen_note;
        wanted.role = held->second.role;
    }
    world.identities[wanted.alias] = wanted;
    world.journal.Write({{"kind", "claim"}, {"claim", claim}});
    return 0;
}

}  // namespace brickfall::sandbox
