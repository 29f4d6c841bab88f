#include "wallet/protocol/transaction.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <limits>

#include "base/text.h"
#include "sandbox/server/raw_transaction.h"
#include "sandbox/server/script_check.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

constexpr int64_t kMaxAmount = std::numeric_limits<int64_t>::max();

// A key pair printed in BIP143, with the hash of its public key.
constexpr char kPriv[] = "619c335025c7f4012e556c2a58b2506e30b8511b53ade95ea316fd8c3286feb9";
constexpr char kPub[] = "025476c2e83188368da1ff3e292e7acafcdb3566bb0ad253f62fc70f07aeee6357";
constexpr char kPubHash[] = "1d0f172a0ecb48aee1be1f2687d2963ae33f71a1";

Hash160 OwnHash() {
    Hash160 hash{};
    EXPECT_TRUE(HexDecodeSecret(kPubHash, hash));
    return hash;
}

SpendInput Coin(int number, int64_t value) {
    SpendInput input;
    input.txid = std::string(64, 'a');
    input.txid[0] = "0123456789abcdef"[number & 15];
    input.txid[63] = "0123456789abcdef"[(number >> 4) & 15];
    input.vout = static_cast<uint32_t>(number);
    input.value = value;
    return input;
}

std::vector<PayOutput> EntryOutputs() {
    return {{2'000, P2pkhScript(OwnHash())}, {3'000, P2pkhScript(Hash160{})}};
}

struct Built {
    bool ok = false;
    std::vector<SpendInput> inputs;
    std::vector<PayOutput> outputs;
    int64_t fee = -1;
    std::string error = "left from before";
};

Built Build(std::vector<SpendInput> candidates, const std::vector<PayOutput>& wanted) {
    Built built;
    built.inputs = std::move(candidates);
    built.ok = BuildTransaction(built.inputs, built.outputs, OwnHash(), wanted, built.fee, built.error);
    return built;
}

std::string Short(const std::string& need, int64_t have) {
    return "insufficient funds. Need " + need + " sats, you have " + std::to_string(have) +
           " in your Pouch wallet.";
}

TEST(SerializeTx, WritesThePublishedBytesOfTheFirstTransactionOfTheChain) {
    SpendInput input;
    input.txid = std::string(64, '0');
    input.vout = 0xFFFFFFFF;
    input.script_sig = HexDecode(
        "04ffff001d0104455468652054696d65732030332f4a616e2f32303039204368616e63656c6c6f72206f6e206272696e6b"
        "206f66207365636f6e64206261696c6f757420666f722062616e6b73");
    const PayOutput output{
        5'000'000'000,
        HexDecode("4104678afdb0fe5548271967f1a67130b7105cd6a828e03909a67962e0ea1f61deb649f6bc3f4cef38c4f35504"
                  "e51ec112de5c384df7ba0b8d578a4c702b6bf11d5fac")};
    const auto serialize = [&](std::size_t outputs, bool skeleton) {
        return SerializeTx(std::span(&input, 1), std::span(&output, outputs), skeleton);
    };
    EXPECT_EQ(TxidOf(serialize(1, false)),
              "4a5e1e4baab89f3a32518a88c31bc87f618f76673e2cc77ab2127b7afdeda33b");

    input.txid = "0011223344556677" + std::string(48, 'F');
    EXPECT_EQ(HexEncode(serialize(0, /*skeleton=*/true)), "0100000001" + std::string(48, 'f') +
                                                              "7766554433221100ffffffff"
                                                              "6bffffffff0000000000");
    for (const std::string& bad :
         {std::string(), std::string(63, '0'), std::string(66, '0'), std::string(63, '0') + "g"}) {
        input.txid = bad;
        EXPECT_TRUE(serialize(1, false).empty() && serialize(1, true).empty()) << bad;
    }
}

TEST(BuildTransaction, FeeAndChangeAtTheirEdges) {
    const struct {
        const char* why;
        int64_t coin, fee, change;  // no change: no such output
        bool ok;
    } rows[] = {
        {"change is the last output", 10'000, 153, 4'847, true},
        {"a change of one satoshi is paid out: there is no dust limit", 5'154, 153, 1, true},
        {"change of nothing goes away, and its bytes stay in the fee", 5'153, 153, 0, true},
        {"a change output that cannot pay for itself", 5'152, 153, 0, false},
        {"the same at its lower end", 5'120, 153, 0, false},
        {"nothing is left over: the change is never tried", 5'119, 119, 0, true},
        {"one satoshi short", 5'118, 119, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const Built built = Build({Coin(1, row.coin)}, EntryOutputs());
        EXPECT_EQ(built.ok, row.ok);
        EXPECT_EQ(built.fee, row.fee);
        EXPECT_EQ(built.error, row.ok ? "" : Short(std::to_string(5'000 + row.fee), row.coin));
        ASSERT_EQ(built.outputs.size(), row.change > 0 ? 3u : 2u);
        if (row.change == 0) continue;
        EXPECT_EQ(built.outputs[2].value, row.change);
        EXPECT_EQ(HexEncode(built.outputs[2].script), std::string("76a914") + kPubHash + "88ac");
    }
}

TEST(BuildTransaction, RefusesWhatCannotBePaid) {
    const ByteBuffer script = P2pkhScript(Hash160{});
    const std::string invalid = "invalid inscription output.";
    const struct {
        const char* why;
        std::vector<PayOutput> wanted;
        std::string error;
    } rows[] = {
        {"no output", {}, "nothing to pay."},
        {"an output without a script", {{0, {}}}, invalid},
        {"a negative amount", {{5, script}, {-1, script}}, invalid},
        {"amounts whose sum is no amount", {{kMaxAmount, script}, {1, script}}, invalid},
        {"no fee can be added in 64 signed bits",
         {{kMaxAmount, script}},
         Short("9223372036854775892", 1'000)},
    };
    for (const auto& row : rows) {
        const Built built = Build({Coin(1, 1'000)}, row.wanted);
        EXPECT_FALSE(built.ok) << row.why;
        EXPECT_EQ(built.error, row.error) << row.why;
    }
    EXPECT_EQ(Build({}, EntryOutputs()).error, Short("5078", 0));
}

TEST(BuildTransaction, PassesOverCoinsThatCannotBeSpent) {
    SpendInput no_hex = Coin(1, 50'000);
    no_hex.txid[5] = 'x';
    SpendInput short_id = Coin(2, 50'000);
    short_id.txid.pop_back();
    const Built built =
        Build({no_hex, short_id, Coin(3, -7), Coin(4, 6'000), Coin(5, 50'000)}, EntryOutputs());
    ASSERT_TRUE(built.ok) << built.error;
    ASSERT_EQ(built.inputs.size(), 1u);
    EXPECT_EQ(built.inputs[0].vout, 4u);

    const Built huge = Build({Coin(1, 5'000), Coin(2, kMaxAmount), Coin(3, 1'000)}, EntryOutputs());
    ASSERT_TRUE(huge.ok) << huge.error;  // a sum past 64 bits must not come out as a debt
    ASSERT_EQ(huge.inputs.size(), 2u);
    EXPECT_EQ(huge.inputs[1].vout, 3u);
}

// The same selection with a whole skeleton made for each test, as slow and as plain as can be.
Built BuildPlainly(const std::vector<SpendInput>& candidates, const std::vector<PayOutput>& wanted,
                   bool without_dust = false) {
    const auto size = [](const Built& built) {
        return static_cast<int64_t>(SerializeTx(built.inputs, built.outputs, true).size());
    };
    Built built;
    built.outputs = wanted;
    int64_t total_out = 0;
    int64_t have = 0;
    for (const PayOutput& output : wanted) total_out += output.value;
    for (const SpendInput& candidate : candidates) {
        if (!built.inputs.empty() && have >= size(built) + 34 + total_out) break;
        if (!IsTxidText(candidate.txid) || (without_dust && candidate.value <= 41)) continue;
        built.inputs.push_back(candidate);
        have += candidate.value;
    }
    const bool enough = !built.inputs.empty() && have >= size(built) + 34 + total_out;
    if (without_dust && !enough) return {};
    if (!enough) {
        Built clean = BuildPlainly(candidates, wanted, /*without_dust=*/true);
        if (clean.ok) return clean;
    }
    built.fee = size(built);
    if (have - built.fee - total_out >= 1) {
        built.outputs.push_back({0, P2pkhScript(OwnHash())});
        built.fee = size(built);
        built.outputs.back().value = have - built.fee - total_out;
        if (built.outputs.back().value < 1) built.outputs.pop_back();
    }
    built.ok = have >= total_out + built.fee;
    return built;
}

TEST(BuildTransaction, AgreesWithThePlainWayOfChoosing) {
    EXPECT_TRUE(rc::check([] {
        std::vector<SpendInput> candidates;
        const int count =
            *rc::gen::weightedOneOf<int>({{9, rc::gen::inRange(0, 12)}, {1, rc::gen::inRange(250, 260)}});
        for (int i = 0; i < count; ++i) {
            candidates.push_back(Coin(i, *rc::gen::oneOf(rc::gen::inRange(1, 60), rc::gen::inRange(1, 400))));
            if (*rc::gen::inRange(0, 8) == 0) candidates.back().txid[9] = '-';
        }
        std::vector<PayOutput> wanted;
        const int outputs = *rc::gen::inRange(1, 4);
        for (int i = 0; i < outputs; ++i) {
            const auto script = static_cast<std::size_t>(*rc::gen::element(1, 25, 252, 253, 300, 70'000));
            wanted.push_back({*rc::gen::inRange(0, 1'500), ByteBuffer(script, 106)});
        }
        const Built built = Build(candidates, wanted);
        const Built plain = BuildPlainly(candidates, wanted);
        RC_ASSERT(built.ok == plain.ok);
        RC_ASSERT(built.fee == plain.fee);
        RC_ASSERT(SerializeTx(built.inputs, built.outputs, true) ==
                  SerializeTx(plain.inputs, plain.outputs, true));
        int64_t balance = 0;
        for (const SpendInput& input : built.inputs) balance += input.value;
        for (const PayOutput& output : built.outputs) balance -= output.value;
        if (built.ok) RC_ASSERT(balance == built.fee);  // no satoshi is lost on the way
    }));
}

// Judged by the sandbox's script check, whose digest is proven against BIP143.
sandbox::ScriptFault Judge(const std::vector<SpendInput>& inputs, const std::vector<PayOutput>& outputs,
                           std::size_t index) {
    const auto tx = sandbox::ParseTransaction(SerializeTx(inputs, outputs, /*skeleton=*/false));
    if (!tx) return sandbox::ScriptFault::kForeignOutput;
    return CheckInput(*tx, index, DigestsOf(*tx), P2pkhScript(OwnHash()), inputs[index].value);
}

TEST(SignInput, EveryInputSatisfiesTheChain) {
    const std::vector<PayOutput> outputs = EntryOutputs();
    std::vector<SpendInput> inputs{Coin(1, 0), Coin(2, 0)};
    for (int64_t n = 1; n <= 50; ++n) {  // about half of the signatures come out with a high s at first
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            inputs[i].value = n * 100'000'007;
            ByteBuffer former;
            for (int twice = 0; twice < 2; ++twice) {
                ASSERT_TRUE(SignInput(inputs[i], inputs, outputs, OwnHash(), kPriv, kPub));
                ASSERT_EQ(Judge(inputs, outputs, i), sandbox::ScriptFault::kNone);
                ASSERT_NE(inputs[i].script_sig, former) << "a nonce was used twice";
                former = inputs[i].script_sig;
            }
        }
    }
    const ByteBuffer before = inputs[0].script_sig;
    EXPECT_FALSE(SignInput(inputs[0], inputs, outputs, OwnHash(), "12", kPub));
    inputs[1].txid[0] = 'x';
    EXPECT_FALSE(SignInput(inputs[0], inputs, outputs, OwnHash(), kPriv, kPub));
    EXPECT_EQ(inputs[0].script_sig, before);
}

}  // namespace
}  // namespace brickfall
