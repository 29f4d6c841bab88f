#include "sandbox/server/seed_board.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "deployment/deployment.h"
#include "game/week.h"
#include "sandbox/server/faces.h"
#include "sandbox/server/script_push.h"
#include "sandbox/server/seeded_runs.h"
#include "sandbox/server/test_key.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr int64_t kWeek = 7 * 86'400;
constexpr int64_t kPurse = 100'000;  // satoshis that each player starts with
constexpr int64_t kHouseShare = 2'000;
constexpr int64_t kPotShare = 3'000;
constexpr std::size_t kUnlockingSize = 1 + 73 + 1 + 33;  // bytes, at most: a signature and a key

// A key and its one coin.
struct Purse {
    TestKey key;
    Outpoint coin;
    int64_t satoshis = 0;
};

struct Seeding {
    World& world;
    std::map<std::string, Purse> purses;  // by player
};

std::string AddressOf(const Purse& purse) { return AddressText(purse.key.hash); }

bool OpenPurse(Seeding& seeding, const std::string& name, int64_t time) {
    Purse purse;
    purse.key = TestKeyOf(name);
    purse.satoshis = kPurse;
    const auto id = ParseIdText(FundAddress(seeding.world, AddressOf(purse), kPurse, time));
    if (!id) return false;
    purse.coin = {*id, 0};
    return seeding.purses.emplace(name, std::move(purse)).second;
}

TxOutput Payment(const char* address, int64_t satoshis) {
    const auto owner = ParseAddress(address);
    return {satoshis, owner ? PayToKeyHash(*owner) : Bytes()};
}

TxOutput DataOutput(const std::string& text) {
    Bytes script = {0x00, 0x6a};  // OP_FALSE OP_RETURN
    PutPush(script, ViewOf(text));
    return {0, std::move(script)};
}

// A P2PKH output of 1 satoshi that carries a file in the envelope of inscriptions.
TxOutput InscribedOutput(const KeyHash& owner, const Face& face) {
    Bytes script = PayToKeyHash(owner);
    PutBytes(script, ViewOf(std::string_view("\x00\x63\x03ord\x51", 7)));  // OP_FALSE OP_IF "ord" OP_1
    PutPush(script, ViewOf(FaceType(face)));
    script.push_back(0x00);
    PutPush(script, face.bytes);
    script.push_back(0x68);  // OP_ENDIF
    return {1, std::move(script)};
}

// Pays the outputs out of the purse, with the change behind them, in a block of its own.
bool Pay(Seeding& seeding, Purse& purse, std::vector<TxOutput> outputs, int64_t time, std::string& txid) {
    World& world = seeding.world;
    ParsedTx tx;
    tx.version = 1;
    tx.inputs.push_back({purse.coin, {}, 0xffffffff});
    tx.outputs = std::move(outputs);
    int64_t change = purse.satoshis;
    for (const TxOutput& output : tx.outputs) change -= output.value;
    tx.outputs.push_back({0, PayToKeyHash(purse.key.hash)});
    const auto size = static_cast<int64_t>(WriteTransaction(tx).size() + kUnlockingSize);
    change -= std::max<int64_t>((world.chain.fee_per_kilobyte * size + 999) / 1000, 1);
    if (change <= 0) return false;
    tx.outputs.back().value = change;

    Bytes signature = SignDigest(purse.key, SignatureDigest(tx, 0, DigestsOf(tx), tx.outputs.back().locking,
                                                            purse.satoshis, kHashTypeAllForkId));
    signature.push_back(kHashTypeAllForkId);
    PutPush(tx.inputs[0].unlocking, signature);
    PutPush(tx.inputs[0].unlocking, purse.key.public_key);
    const std::string raw = ToHex(WriteTransaction(tx));
    if (!TakeTransaction(world, raw, /*lose=*/false, txid).Accepted()) return false;
    purse.coin = {world.chain.order.back(), static_cast<uint32_t>(tx.outputs.size() - 1)};
    purse.satoshis = change;
    Mine(world, time);
    return true;
}

bool PublishPlayer(Seeding& seeding, const Player& player, int64_t time) {
    Purse& purse = seeding.purses.at(player.name);
    PublishedIdentity identity;
    identity.alias = player.name;
    identity.pubkey = ToHex(purse.key.public_key);
    identity.address = AddressOf(purse);
    if (player.picture == Picture::kWebAddress) {
        identity.avatar = std::string(kApiBaseUrl) + "/faces/" + player.face;
    } else if (player.picture == Picture::kInscription) {
        const Face* const face = FindFace(player.face);
        std::string txid;
        if (face == nullptr || !Pay(seeding, purse, {InscribedOutput(purse.key.hash, *face)}, time, txid)) {
            return false;
        }
        identity.avatar = txid + "_0";
    }
    PublishIdentity(seeding.world, identity);
    return true;
}

json SignedRow(const SeededRun& run, const Purse& purse, const std::string& entry) {
    const TestKey key = run.flaw == Flaw::kForeignKey ? TestKeyOf("somebody else") : purse.key;
    const std::string game = run.flaw == Flaw::kOtherGame ? "other" : "brickfall";
    json row = {{"protocol", "Cairn-Wire"},
                {"type", "arcade_score"},
                {"location", "arcade"},
                {"handle", run.player},
                {"actor", run.player},
                {"paymail", std::string(run.player) + "@" + kPaymailDomain},
                {"game", game},
                {"score", run.score},
                {"week", run.week},
                {"entry", entry},
                {"pay_addr", AddressOf(purse)},
                {"tape", run.tape},
                {"tape_hash", run.seal},
                {"ts", run.record_time},
                {"pubkey", ToHex(key.public_key)}};
    std::string text = "OV1|arcade_score|arcade|";
    text += std::string(run.player) + "|" + run.player + "|" + std::to_string(run.record_time) + "|" + game +
            "|" + std::to_string(run.score) + "|" + std::to_string(run.week) + "|" + entry + "|" +
            AddressOf(purse) + "|" + run.seal;
    row["sig"] = SignText(key, text);
    if (run.flaw == Flaw::kBentScore) row["score"] = 99'999;
    return row;
}

// One payment of a run: its entry or its record.
struct Step {
    int64_t time;
    std::size_t run;
    bool is_record;
};

// In the order of time: players are in the arcade at once. Who records has entered before, and so has the
// player of the row before.
std::vector<Step> StepsOf(const std::vector<SeededRun>& runs) {
    std::vector<Step> steps;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (runs[i].flaw != Flaw::kUsedEntry) steps.push_back({runs[i].entry_time, i, false});
        steps.push_back({runs[i].record_time, i, true});
    }
    std::ranges::stable_sort(steps, {}, &Step::time);
    return steps;
}

bool Take(Seeding& seeding, const Step& step, const SeededRun& run, std::vector<std::string>& entries) {
    Purse& purse = seeding.purses.at(run.player);
    if (!step.is_record) {
        return Pay(seeding, purse,
                   {Payment(kArcadeHouseAddress, kHouseShare), Payment(kArcadePotAddress, kPotShare)},
                   step.time, entries[step.run]);
    }
    const std::string& entry = entries[run.flaw == Flaw::kUsedEntry ? step.run - 1 : step.run];
    std::string txid;
    return Pay(seeding, purse,
               {Payment(kArcadeWatchAddress, 1), DataOutput(SignedRow(run, purse, entry).dump())}, step.time,
               txid);
}

}  // namespace

bool SeedBoard(World& world, int64_t now) {
    const int64_t week = WeekStart(now);
    const int64_t former = week - kWeek;
    if (former < 0) return false;
    if (world.seeded_week >= week) return true;
    const bool both = world.seeded_week < former;

    std::vector<SeededRun> runs;
    if (both) runs = PlayFormerWeek(former, week);
    std::ranges::move(PlayThisWeek(week, now), std::back_inserter(runs));
    const std::vector<Step> steps = StepsOf(runs);
    // The first of a week may have entered before it began.
    const int64_t start = std::min(both ? former : week, steps.front().time);

    Seeding seeding = {world, {}};
    for (const Player& player : SeededPlayers()) {
        if (!OpenPurse(seeding, player.name, start)) return false;
        // A name that is taken stays as it is, be it by an earlier seeding or by somebody else.
        if (world.identities.contains(player.name)) continue;
        if (!PublishPlayer(seeding, player, start)) return false;
    }
    std::vector<std::string> entries(runs.size());
    for (const Step& step : steps) {
        if (!Take(seeding, step, runs[step.run], entries)) return false;
    }
    RememberSeeding(world, week);
    return true;
}

}  // namespace brickfall::sandbox
