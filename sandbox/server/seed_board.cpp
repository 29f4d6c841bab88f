#include "sandbox/server/seed_board.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "deployment/deployment.h"
#include "sandbox/server/faces.h"
#include "sandbox/server/script_push.h"
#include "sandbox/server/test_key.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr int64_t kDay = 86'400;
constexpr int64_t kWeek = 7 * kDay;
constexpr int64_t kPurse = 100'000;  // satoshis that each player starts with
constexpr int64_t kHouseShare = 2'000;
constexpr int64_t kPotShare = 3'000;
constexpr std::size_t kUnlockingSize = 1 + 73 + 1 + 33;  // bytes, at most: a signature and a key
constexpr uint32_t kTooManyEvents = 6'700;  // a tape whose hex alone is longer than 65,535 characters

enum class Picture { kNone, kWebAddress, kInscription };

struct Player {
    const char* name;
    const char* face;
    Picture picture;
};

constexpr Player kPlayers[] = {
    {"mirabel", "mirabel.png", Picture::kWebAddress},
    {"oskar_t", "oskar_t.jpg", Picture::kWebAddress},
    {"yuna", "yuna.webp", Picture::kWebAddress},
    {"brickwitch", "brickwitch.png", Picture::kInscription},
    {"jonas", "jonas.jpg", Picture::kInscription},
    {"low-orbit", "low-orbit.webp", Picture::kInscription},
    {"tove", "tove.png", Picture::kWebAddress},
    {"halfpint", "halfpint.webp", Picture::kInscription},
    {"noor", "", Picture::kNone},
    {"zed", "", Picture::kNone},
    {"quill", "", Picture::kNone},
    {"marguerite-of-the-upper-arcade", "", Picture::kNone},
};

// What keeps a row off the board.
enum class Flaw { kNone, kForeignKey, kBentScore, kOtherGame, kTooLong };

struct Run {
    const char* player;
    int64_t score;
    Flaw flaw = Flaw::kNone;
};

constexpr Run kFormerWeek[] = {
    {"zed", 512},           {"noor", 3'350},
    {"jonas", 9'012},       {"mirabel", 31'204},
    {"tove", 6'203},        {"yuna", 20'418},
    {"brickwitch", 14'777}, {"marguerite-of-the-upper-arcade", 11'894},
    {"halfpint", 2'046},    {"low-orbit", 17'530},
};

// A beginner's run finds its place among the last of them.
constexpr Run kThisWeek[] = {
    {"yuna", 5'212},        {"zed", 87},
    {"mirabel", 12'480},    {"jonas", 64'000, Flaw::kForeignKey},
    {"tove", 3'341},        {"quill", 541},
    {"jonas", 806},         {"noor", 6'630},
    {"brickwitch", 18'875}, {"zed", 340, Flaw::kBentScore},
    {"halfpint", 412},      {"zed", 655},
    {"oskar_t", 4'120},     {"marguerite-of-the-upper-arcade", 9'744},
    {"low-orbit", 22'310},  {"quill", 71'000, Flaw::kOtherGame},
    {"tove", 7'125},        {"yuna", 15'060},
    {"noor", 718},          {"halfpint", 690},
    {"mirabel", 5'109},     {"noor", 88'000, Flaw::kTooLong},
    {"jonas", 4'120},       {"zed", 233},
    {"brickwitch", 27'436}, {"quill", 3'008},
    {"oskar_t", 10'902},    {"low-orbit", 8'391},
};

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

// The Monday, 00:00 UTC, at or before a time.
int64_t WeekOf(int64_t time) { return ((time / kDay + 3) / 7 * 7 - 3) * kDay; }

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

// A tape of the right form: serves and the paddle's keys down and up, the end behind them. Nobody has played
// it; the number of events and their times go with the score.
Bytes MakeTape(uint32_t chance, uint32_t events) {
    constexpr uint8_t kServe = 7;
    constexpr uint8_t kEnd = 255;
    Bytes tape = {1, 3, 32, 0, 32, 0};
    PutU32(tape, events);
    uint32_t tick = 480;
    uint8_t held = 0;
    for (uint32_t i = 0; i < events; ++i) {
        chance = chance * 1'664'525 + 1'013'904'223;
        uint8_t code = kServe;
        if (i + 1 == events) {
            code = kEnd;
        } else if (held != 0) {
            code = static_cast<uint8_t>(held + 8);  // the key that is down comes up
            held = 0;
        } else if (i % 40 != 0) {
            code = held = (chance >> 16) % 2 == 0 ? 1 : 2;
        }
        PutU32(tape, tick);
        tape.push_back(code);
        tick += 16 * (3 + (chance >> 20) % 60);
    }
    return tape;
}

json SignedRow(const Run& run, const Purse& purse, const TestKey& key, const std::string& entry, int64_t week,
               int64_t time) {
    const auto events = static_cast<uint32_t>(std::min<int64_t>(20 + run.score / 60, 400));
    const Bytes tape = MakeTape(static_cast<uint32_t>(run.score * 7 + week / kWeek),
                                run.flaw == Flaw::kTooLong ? kTooManyEvents : events);
    const std::string game = run.flaw == Flaw::kOtherGame ? "other" : "brickfall";
    const std::string seal = ToHex(Sha256(tape));
    json row = {{"protocol", "Cairn-Wire"},
                {"type", "arcade_score"},
                {"location", "arcade"},
                {"handle", run.player},
                {"actor", run.player},
                {"paymail", std::string(run.player) + "@" + kPaymailDomain},
                {"game", game},
                {"score", run.score},
                {"week", week},
                {"entry", entry},
                {"pay_addr", AddressOf(purse)},
                {"tape", ToHex(tape)},
                {"tape_hash", seal},
                {"ts", time},
                {"pubkey", ToHex(key.public_key)}};
    std::string text = "OV1|arcade_score|arcade|";
    text += std::string(run.player) + "|" + run.player + "|" + std::to_string(time) + "|" + game + "|" +
            std::to_string(run.score) + "|" + std::to_string(week) + "|" + entry + "|" + AddressOf(purse) +
            "|" + seal;
    row["sig"] = SignText(key, text);
    if (run.flaw == Flaw::kBentScore) row["score"] = 99'999;
    return row;
}

// Enters, plays until `time` and records.
bool PlayRun(Seeding& seeding, const Run& run, int64_t week, int64_t time) {
    Purse& purse = seeding.purses.at(run.player);
    std::string entry, txid;
    if (!Pay(seeding, purse,
             {Payment(kArcadeHouseAddress, kHouseShare), Payment(kArcadePotAddress, kPotShare)},
             std::max(time - 600, week), entry)) {
        return false;
    }
    const TestKey key = run.flaw == Flaw::kForeignKey ? TestKeyOf("somebody else") : purse.key;
    const json row = SignedRow(run, purse, key, entry, week, time);
    return Pay(seeding, purse, {Payment(kArcadeWatchAddress, 1), DataOutput(row.dump())}, time, txid);
}

// The runs one after the other, evenly from the week's beginning to `end`.
bool PlayWeek(Seeding& seeding, std::span<const Run> runs, int64_t week, int64_t end) {
    const auto count = static_cast<int64_t>(runs.size());
    for (int64_t i = 0; i < count; ++i) {
        const int64_t time = week + (end - week) * (i + 1) / (count + 1);
        if (!PlayRun(seeding, runs[static_cast<std::size_t>(i)], week, time)) return false;
    }
    return true;
}

}  // namespace

bool SeedBoard(World& world, int64_t now) {
    const int64_t week = WeekOf(now);
    const int64_t former = week - kWeek;
    if (former < 0) return false;
    if (world.seeded_week >= week) return true;
    const bool both = world.seeded_week < former;
    const int64_t start = both ? former : week;

    Seeding seeding = {world, {}};
    for (const Player& player : kPlayers) {
        if (!OpenPurse(seeding, player.name, start)) return false;
        // A name that is taken stays as it is, be it by an earlier seeding or by somebody else.
        if (world.identities.contains(player.name)) continue;
        if (!PublishPlayer(seeding, player, start)) return false;
    }
    if (both && !PlayWeek(seeding, kFormerWeek, former, week)) return false;
    if (!PlayWeek(seeding, kThisWeek, week, now)) return false;
    RememberSeeding(world, week);
    return true;
}

}  // namespace brickfall::sandbox
