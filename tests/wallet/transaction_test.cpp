#include "wallet/transaction.h"

#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/obj_mac.h>
#include <openssl/sha.h>
#include <rapidcheck.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <set>

#include "base/text.h"

namespace brickfall {
namespace {

constexpr int64_t kMaxAmount = std::numeric_limits<int64_t>::max();

// A key pair printed in BIP143, with the hash of its public key.
constexpr char kPriv[] = "619c335025c7f4012e556c2a58b2506e30b8511b53ade95ea316fd8c3286feb9";
constexpr char kPub[] = "025476c2e83188368da1ff3e292e7acafcdb3566bb0ad253f62fc70f07aeee6357";
constexpr char kPubHash[] = "1d0f172a0ecb48aee1be1f2687d2963ae33f71a1";

Hash160 HashFromHex(const char* hex) {
    Hash160 hash{};
    const ByteBuffer bytes = HexDecode(hex);
    std::copy(bytes.begin(), bytes.end(), hash.begin());
    return hash;
}

std::string TestId(int number) {
    std::string id(64, 'a');
    id[0] = "0123456789abcdef"[number & 15];
    id[63] = "0123456789abcdef"[(number >> 4) & 15];
    return id;
}

SpendInput Coin(int number, int64_t value) {
    SpendInput input;
    input.txid = TestId(number);
    input.vout = static_cast<uint32_t>(number);
    input.value = value;
    return input;
}

std::vector<PayOutput> EntryOutputs() {
    return {{2'000, P2pkhScript(HashFromHex(kPubHash))}, {3'000, P2pkhScript(Hash160{})}};
}

struct Built {
    bool ok = false;
    std::vector<SpendInput> inputs;
    std::vector<PayOutput> outputs;
    int64_t fee = -1;
    std::string error;
};

Built Build(std::vector<SpendInput> candidates, const std::vector<PayOutput>& wanted) {
    Built built;
    built.inputs = std::move(candidates);
    built.error = "left from before";
    built.ok =
        BuildTransaction(built.inputs, built.outputs, HashFromHex(kPubHash), wanted, built.fee, built.error);
    return built;
}

// The digest written down a second time from BIP143's text, over byte strings and with OpenSSL's hash alone.
std::string Le(uint64_t value, int width) {
    std::string bytes;
    for (int i = 0; i < width; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
    return bytes;
}

std::string Raw(const char* hex) {
    const ByteBuffer bytes = HexDecode(hex);
    return {bytes.begin(), bytes.end()};
}

std::string DoubleHash(const std::string& bytes) {
    std::string once(32, '\0');
    std::string twice(32, '\0');
    SHA256(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
           reinterpret_cast<uint8_t*>(once.data()));
    SHA256(reinterpret_cast<const uint8_t*>(once.data()), 32, reinterpret_cast<uint8_t*>(twice.data()));
    return twice;
}

struct DigestParts {
    std::vector<std::string> outpoints;
    std::vector<std::string> sequences;
    std::string key_hash;
    uint64_t amount = 0;
    std::string outputs;
    uint32_t lock_time = 0;
    uint32_t hash_type = 0;
};

std::string Bip143Digest(const DigestParts& parts, std::size_t index) {
    std::string all_outpoints;
    std::string all_sequences;
    for (const std::string& each : parts.outpoints) all_outpoints += each;
    for (const std::string& each : parts.sequences) all_sequences += each;
    return DoubleHash(Le(1, 4) + DoubleHash(all_outpoints) + DoubleHash(all_sequences) +
                      parts.outpoints[index] + Raw("1976a914") + parts.key_hash + Raw("88ac") +
                      Le(parts.amount, 8) + parts.sequences[index] + DoubleHash(parts.outputs) +
                      Le(parts.lock_time, 4) + Le(parts.hash_type, 4));
}

struct Signature {
    std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> sig{nullptr, &ECDSA_SIG_free};
    bool verifies = false;
    bool low_s = false;
};

// Judges a DER signature with bare OpenSSL calls against the public key above.
Signature Judge(std::span<const uint8_t> der, const std::string& digest) {
    Signature result;
    const uint8_t* place = der.data();
    result.sig.reset(d2i_ECDSA_SIG(nullptr, &place, static_cast<long>(der.size())));
    if (!result.sig || place != der.data() + der.size()) return result;
    const std::unique_ptr<EC_KEY, decltype(&EC_KEY_free)> key(EC_KEY_new_by_curve_name(NID_secp256k1),
                                                              &EC_KEY_free);
    const ByteBuffer pub = HexDecode(kPub);
    EC_KEY_oct2key(key.get(), pub.data(), pub.size(), nullptr);
    result.verifies = ECDSA_do_verify(reinterpret_cast<const uint8_t*>(digest.data()), 32, result.sig.get(),
                                      key.get()) == 1;
    BIGNUM* half = nullptr;
    BN_hex2bn(&half, "7FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF5D576E7357A4501DDFE92F46681B20A0");
    result.low_s = BN_cmp(ECDSA_SIG_get0_s(result.sig.get()), half) <= 0;
    BN_free(half);
    return result;
}

// Splits an unlocking script into its two pushes; false if it has any other form.
bool SplitUnlocking(const ByteBuffer& script, ByteBuffer& signature, ByteBuffer& pub) {
    if (script.empty() || script[0] >= 76 || script.size() != 1u + script[0] + 34u) return false;
    const auto middle = script.begin() + 1 + script[0];
    signature.assign(script.begin() + 1, middle);
    pub.assign(middle + 1, script.end());
    return *middle == 33;
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
    const ByteBuffer raw = SerializeTx(std::span(&input, 1), std::span(&output, 1), /*skeleton=*/false);
    EXPECT_EQ(HexEncode(raw).substr(0, 92),
              "01000000010000000000000000000000000000000000000000000000000000000000000000ffffffff4d04ffff00");
    EXPECT_EQ(TxidOf(raw), "4a5e1e4baab89f3a32518a88c31bc87f618f76673e2cc77ab2127b7afdeda33b");

    input.txid = "0011223344556677" + std::string(48, 'F');
    const ByteBuffer skeleton = SerializeTx(std::span(&input, 1), {}, /*skeleton=*/true);
    EXPECT_EQ(HexEncode(skeleton),
              "01000000"
              "01" +
                  std::string(48, 'f') +
                  "7766554433221100"
                  "ffffffff"
                  "6b"
                  "ffffffff"
                  "00"
                  "00000000");

    for (const std::string& bad :
         {std::string(), std::string(63, '0'), std::string(66, '0'), std::string(63, '0') + "g"}) {
        input.txid = bad;
        EXPECT_TRUE(SerializeTx(std::span(&input, 1), std::span(&output, 1), false).empty()) << bad;
        EXPECT_TRUE(SerializeTx(std::span(&input, 1), std::span(&output, 1), true).empty()) << bad;
    }
}

TEST(BuildTransaction, FeeAndChangeAtTheirEdges) {
    struct Row {
        const char* why;
        int64_t coin;
        bool ok;
        int64_t fee;
        int64_t change;  // 0: no change output
        const char* error;
    };
    const Row rows[] = {
        {"change is the last output", 10'000, true, 153, 4'847, ""},
        {"a change of one satoshi is paid out: there is no dust limit", 5'154, true, 153, 1, ""},
        {"change of nothing goes away, and its bytes stay in the fee", 5'153, true, 153, 0, ""},
        {"a change output that cannot pay for itself", 5'152, false, 153, 0,
         "insufficient funds. Need 5153 sats, you have 5152 in your Pouch wallet."},
        {"the same at its lower end", 5'120, false, 153, 0,
         "insufficient funds. Need 5153 sats, you have 5120 in your Pouch wallet."},
        {"nothing is left over: the change is never tried", 5'119, true, 119, 0, ""},
        {"one satoshi short", 5'118, false, 119, 0,
         "insufficient funds. Need 5119 sats, you have 5118 in your Pouch wallet."},
    };
    for (const Row& row : rows) {
        const Built built = Build({Coin(1, row.coin)}, EntryOutputs());
        EXPECT_EQ(built.ok, row.ok) << row.why;
        EXPECT_EQ(built.fee, row.fee) << row.why;
        EXPECT_EQ(built.error, row.error) << row.why;
        ASSERT_EQ(built.outputs.size(), row.change > 0 ? 3u : 2u) << row.why;
        if (row.change == 0) continue;
        EXPECT_EQ(built.outputs[2].value, row.change) << row.why;
        EXPECT_EQ(HexEncode(built.outputs[2].script), std::string("76a914") + kPubHash + "88ac") << row.why;
    }
}

TEST(BuildTransaction, RefusesWhatCannotBePaid) {
    const ByteBuffer script = P2pkhScript(Hash160{});
    struct Row {
        const char* why;
        std::vector<PayOutput> wanted;
        const char* error;
    };
    const Row rows[] = {
        {"no output", {}, "nothing to pay."},
        {"an output without a script", {{0, {}}}, "invalid inscription output."},
        {"a negative amount", {{5, script}, {-1, script}}, "invalid inscription output."},
        {"amounts whose sum is no amount",
         {{kMaxAmount, script}, {1, script}},
         "invalid inscription output."},
        {"an amount that no fee can be added to in 64 signed bits",
         {{kMaxAmount, script}},
         "insufficient funds. Need 9223372036854775892 sats, you have 1000 in your Pouch wallet."},
    };
    for (const Row& row : rows) {
        const Built built = Build({Coin(1, 1'000)}, row.wanted);
        EXPECT_FALSE(built.ok) << row.why;
        EXPECT_EQ(built.error, row.error) << row.why;
    }
    EXPECT_EQ(Build({}, EntryOutputs()).error,
              "insufficient funds. Need 5078 sats, you have 0 in your Pouch wallet.");
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
    EXPECT_EQ(built.inputs[0].txid, TestId(4));

    const Built huge = Build({Coin(1, 5'000), Coin(2, kMaxAmount), Coin(3, 1'000)}, EntryOutputs());
    ASSERT_TRUE(huge.ok) << huge.error;  // a sum past 64 bits must not come out as a debt
    ASSERT_EQ(huge.inputs.size(), 2u);
    EXPECT_EQ(huge.inputs[1].txid, TestId(3));
}

// The same selection with a whole skeleton made for each test, as slow and as plain as can be.
Built BuildPlainly(const std::vector<SpendInput>& candidates, const std::vector<PayOutput>& wanted) {
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
        if (!IsTxidText(candidate.txid)) continue;
        built.inputs.push_back(candidate);
        have += candidate.value;
    }
    built.fee = size(built);
    if (have - built.fee - total_out >= 1) {
        built.outputs.push_back({0, P2pkhScript(HashFromHex(kPubHash))});
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
            candidates.push_back(Coin(i, *rc::gen::inRange(1, 400)));
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

TEST(DataCarrierScript, IsOneSinglePushHoweverLong) {
    struct Row {
        std::size_t length;
        const char* prefix;
    };
    const Row rows[] = {{1, "006a01"},       {75, "006a4b"},         {76, "006a4c4c"},
                        {100, "006a4c64"},   {255, "006a4cff"},      {256, "006a4d0001"},
                        {300, "006a4d2c01"}, {65'535, "006a4dffff"}, {65'536, "006a4e00000100"}};
    for (const Row& row : rows) {
        const std::string payload(row.length, 'p');
        EXPECT_EQ(HexEncode(DataCarrierScript(payload)), row.prefix + HexEncode(AsBytes(payload)))
            << row.length;
    }
}

TEST(SignInput, SignsTheForkIdDigestOfEveryInput) {
    // BIP143, "Native P2WPKH": proof that the digest below is the standard's.
    const DigestParts published{
        {Raw("fff7f7881a8099afa6940d42d1e7f6362bec38171ea3edf433541db4e4ad969f00000000"),
         Raw("ef51e1b804cc89d182d279655c3aa89e815b1b309fe287d9b2b55d57b90ec68a01000000")},
        {Raw("eeffffff"), Raw("ffffffff")},
        Raw(kPubHash),
        600'000'000,
        Raw("202cb206000000001976a9148280b37df378db99f66f85c95a783a76ac7a6d5988ac"
            "9093510d000000001976a9143bde42dbee7e4dbe6a21b2d50ce2f0167faa815988ac"),
        17,
        1};
    ASSERT_EQ(HexEncode(AsBytes(Bip143Digest(published, 1))),
              "c37af31116d1b27caf68aae9e3ac82f1477929014d5b917657d0eb49478cb670");

    std::vector<SpendInput> inputs(2);
    inputs[0].txid = "9f96ade4b41d5433f4eda31e1738ec2b36f6e7d1420d94a6af99801a88f7f7ff";
    inputs[0].value = 625'000'000;
    inputs[1].txid = "8ac60eb9575db5b2d987e29f301b5b819ea83a5c6579d282d189cc04b8e151ef";
    inputs[1].vout = 1;
    inputs[1].value = 600'000'000;
    const std::vector<PayOutput> outputs{
        {112'340'000, HexDecode("76a9148280b37df378db99f66f85c95a783a76ac7a6d5988ac")},
        {223'450'000, HexDecode("76a9143bde42dbee7e4dbe6a21b2d50ce2f0167faa815988ac")}};
    DigestParts parts = published;
    parts.sequences[0] = Raw("ffffffff");
    parts.lock_time = 0;
    parts.hash_type = 0x41;

    for (std::size_t i = 0; i < inputs.size(); ++i) {
        parts.amount = static_cast<uint64_t>(inputs[i].value);
        std::set<ByteBuffer> scripts;
        for (int n = 0; n < 2; ++n) {
            ASSERT_TRUE(SignInput(inputs[i], inputs, outputs, HashFromHex(kPubHash), kPriv, kPub));
            ByteBuffer signature;
            ByteBuffer pub;
            ASSERT_TRUE(SplitUnlocking(inputs[i].script_sig, signature, pub));
            EXPECT_EQ(HexEncode(pub), kPub);
            EXPECT_EQ(signature.back(), 0x41);
            signature.pop_back();
            const Signature judged = Judge(signature, Bip143Digest(parts, i));
            EXPECT_TRUE(judged.verifies) << i;
            EXPECT_TRUE(judged.low_s) << i;
            scripts.insert(inputs[i].script_sig);
        }
        EXPECT_EQ(scripts.size(), 2u) << "a nonce was used twice";
    }

    const ByteBuffer before = inputs[0].script_sig;
    EXPECT_FALSE(SignInput(inputs[0], inputs, outputs, HashFromHex(kPubHash), "12", kPub));
    EXPECT_EQ(inputs[0].script_sig, before);
    inputs[1].txid[0] = 'x';
    EXPECT_FALSE(SignInput(inputs[0], inputs, outputs, HashFromHex(kPubHash), kPriv, kPub));
    EXPECT_EQ(inputs[0].script_sig, before);
}

TEST(SignDigest, StaysInTheLowerHalfAndRefusesWhatIsNoKey) {
    std::set<ByteBuffer> seen;
    for (uint8_t n = 0; n < 100; ++n) {
        Hash256 digest{};
        digest.fill(n);
        ByteBuffer der;
        ASSERT_TRUE(SignDigest(kPriv, digest, der));
        const Signature judged = Judge(der, std::string(digest.begin(), digest.end()));
        ASSERT_TRUE(judged.verifies && judged.low_s) << int{n};
        seen.insert(der);
    }
    EXPECT_EQ(seen.size(), 100u);

    const std::string keys[] = {
        "",
        std::string(kPriv).substr(2),
        std::string(kPriv) + "00",
        "x" + std::string(kPriv).substr(1),
        std::string(64, '0'),
        "fffffffffffffffffffffffffffffffebaaedce6af48a03bbfd25e8cd0364141",  // the order itself
        std::string(64, 'f'),
    };
    for (const std::string& key : keys) {
        ByteBuffer der{1};
        EXPECT_FALSE(SignDigest(key, Hash256{}, der)) << key;
        EXPECT_TRUE(der.empty()) << key;
    }
}

}  // namespace
}  // namespace brickfall
