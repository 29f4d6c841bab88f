// What the sandbox's chain takes and what it refuses. Good transactions come from the wallet's own builder;
// bad ones are good ones with one thing wrong, so that only the rule in question can refuse them.
#include <gtest/gtest.h>
#include <openssl/ecdsa.h>

#include <functional>

#include "sandbox/server/sandbox.h"
#include "sandbox/server/script_check.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {
namespace {

using sandbox::Sandbox;

constexpr int64_t kCoin = 100'000;
constexpr int64_t kFee = 500;
constexpr int64_t kMaxMoney = 2'100'000'000'000'000;

struct Owner {
    explicit Owner(char digit) : private_hex(64, digit) {
        EXPECT_TRUE(PublicKeyFromPrivate(private_hex, public_hex));
        address = AddressFromPublicKey(public_hex);
        hash = AddressHash(address);
    }
    PayOutput Paid(int64_t value) const { return {value, P2pkhScript(hash)}; }

    std::string private_hex, public_hex, address;
    Hash160 hash{};
};

// A chain with one coin of the owner's, and a transaction that spends it.
struct Workshop {
    Workshop() {
        inputs = {Coin(box.Fund(owner.address, kCoin), 0, kCoin)};
        outputs = {other.Paid(kCoin - kFee)};
    }

    static SpendInput Coin(const std::string& txid, uint32_t vout, int64_t value) {
        SpendInput coin;
        coin.txid = txid;
        coin.vout = vout;
        coin.value = value;
        return coin;
    }

    // By one owner's private key, with another's public key beside the signature.
    void Sign(const Owner& payer, const Owner& signer, const Owner& shown) {
        for (SpendInput& input : inputs) {
            ASSERT_TRUE(SignInput(input, inputs, outputs, payer.hash, signer.private_hex, shown.public_hex));
        }
    }
    void Sign() { Sign(owner, owner, owner); }
    ByteBuffer Bytes() const { return SerializeTx(inputs, outputs, /*skeleton=*/false); }
    ByteBuffer SignedBytes() {
        Sign();
        return Bytes();
    }
    ByteBuffer& Script() { return inputs[0].script_sig; }

    // Empty when it is taken.
    std::string Refusal(const ByteBuffer& bytes) {
        std::string reason;
        return box.Submit(HexEncode(bytes), txid, reason) ? "" : reason;
    }

    Sandbox box{{}};
    Owner owner{'1'}, other{'2'};
    std::vector<SpendInput> inputs;
    std::vector<PayOutput> outputs;
    ByteBuffer raw;
    std::string txid;  // of what was taken last
};

enum Moment { kUnsigned, kSigned, kBytes };

using Change = std::function<void(Workshop&)>;

Change Pays(std::vector<int64_t> values) {
    return [values](Workshop& shop) {
        shop.outputs.clear();
        for (const int64_t value : values) shop.outputs.push_back(shop.other.Paid(value));
    };
}

Change Spends(std::string txid, uint32_t vout) {
    return [txid, vout](Workshop& shop) {
        shop.inputs = {Workshop::Coin(txid.empty() ? shop.inputs[0].txid : txid, vout, kCoin)};
    };
}

Change WithHashType(uint8_t hash_type) {
    return [hash_type](Workshop& shop) { shop.Script()[shop.Script()[0]] = hash_type; };
}

// The twin of the signature, with s on the other side of the order.
void MirrorS(Workshop& shop) {
    const ByteBuffer script = shop.Script();
    const uint8_t* der = script.data() + 1;
    const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &der, script[0] - 1));
    BignumPtr r(BN_dup(ECDSA_SIG_get0_r(signature.get())));
    BignumPtr s(BN_new());
    BN_sub(s.get(), EC_GROUP_get0_order(Secp256k1()), ECDSA_SIG_get0_s(signature.get()));
    ECDSA_SIG_set0(signature.get(), r.release(), s.release());
    ByteBuffer push(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)));
    uint8_t* place = push.data();
    i2d_ECDSA_SIG(signature.get(), &place);
    push.push_back(0x41);
    shop.Script().clear();
    AppendPushData(shop.Script(), push);
    shop.Script().insert(shop.Script().end(), script.begin() + 1 + script[0], script.end());
}

void SignAsAnother(Workshop& shop) { shop.Sign(shop.owner, shop.other, shop.other); }
void ShowTheRightKey(Workshop& shop) { shop.Sign(shop.owner, shop.other, shop.owner); }

struct BadRow {
    const char* why;
    const char* reason;  // stands in the refusal
    Moment moment;
    Change change;
};

constexpr char kVerify[] = "mandatory-script-verify";
constexpr char kUndecoded[] = "TX decode failed";

const BadRow kBadRows[] = {
    {"an output changed", kVerify, kSigned, [](Workshop& shop) { shop.outputs[0].value -= 1; }},
    {"another amount", kVerify, kUnsigned, [](Workshop& shop) { shop.inputs[0].value += 1; }},
    {"one bit of s", kVerify, kSigned, [](Workshop& shop) { shop.Script()[shop.Script()[0] - 1U] ^= 1; }},
    {"s in the upper half", "S value is unnecessarily high", kSigned, MirrorS},
    {"hash type without the fork id", "hash type", kSigned, WithHashType(0x01)},
    {"hash type of no outputs", "hash type", kSigned, WithHashType(0x42)},
    {"the key of somebody else", "OP_EQUALVERIFY", kSigned, SignAsAnother},
    {"somebody else's signature under the right key", kVerify, kSigned, ShowTheRightKey},
    {"not signed", "stack size", kSigned, [](Workshop& shop) { shop.Script().clear(); }},
    {"outputs above inputs", "bad-txns-in-belowout", kUnsigned, Pays({kCoin + 1})},
    {"a negative output", "bad-txns-vout-negative", kUnsigned, Pays({kCoin, -kFee})},
    {"more than all the money", "bad-txns-vout-toolarge", kUnsigned, Pays({kMaxMoney + 1})},
    {"the same together", "bad-txns-txouttotal-toolarge", kUnsigned, Pays({kMaxMoney, 1})},
    // 191 or 192 bytes signed: 19 satoshis at 100 a kilobyte, rounded down.
    {"a fee one satoshi too low", "66: insufficient priority", kUnsigned, Pays({kCoin - 18})},
    {"the same input twice", "bad-txns-inputs-duplicate", kUnsigned,
     [](Workshop& shop) { shop.inputs.push_back(shop.inputs[0]); }},
    {"an unknown transaction", "Missing inputs", kUnsigned, Spends(std::string(64, 'a'), 0)},
    {"an index that is not there", "Missing inputs", kUnsigned, Spends("", 1)},
    {"money out of nothing", "coinbase", kUnsigned, Spends(std::string(64, '0'), 0xffffffff)},
    {"no inputs", "bad-txns-vin-empty", kUnsigned, [](Workshop& shop) { shop.inputs.clear(); }},
    {"no outputs", "bad-txns-vout-empty", kUnsigned, Pays({})},
    {"a byte behind the end", kUndecoded, kBytes, [](Workshop& shop) { shop.raw.push_back(0); }},
    {"a byte short", kUndecoded, kBytes, [](Workshop& shop) { shop.raw.pop_back(); }},
};

TEST(ChainRules, BadTransactionsAreRefusedAndLeaveNoTrace) {
    for (const BadRow& row : kBadRows) {
        SCOPED_TRACE(row.why);
        Workshop shop;
        const ByteBuffer good = shop.SignedBytes();
        if (row.moment == kUnsigned) row.change(shop);
        shop.Sign();
        if (row.moment == kSigned) row.change(shop);
        shop.raw = shop.Bytes();
        if (row.moment == kBytes) row.change(shop);
        const std::string reason = shop.Refusal(shop.raw);
        EXPECT_NE(reason.find(row.reason), std::string::npos) << reason;
        EXPECT_EQ(shop.box.BalanceOf(shop.owner.address), kCoin);
        EXPECT_EQ(shop.box.TotalUnspent(), kCoin);
        EXPECT_EQ(shop.box.RawTransactions().size(), 1u);
        EXPECT_EQ(shop.Refusal(good), "") << "the coin is as good as before";
    }
}

TEST(ChainRules, GoodTransactionsAreTakenAndTheBooksBalance) {
    Workshop shop;
    shop.outputs = {shop.other.Paid(10'000),
                    {0, DataCarrierScript(std::string(70'000, 'x'))},
                    shop.owner.Paid(kCoin - 10'000 - 7'100)};
    const ByteBuffer raw = shop.SignedBytes();
    ASSERT_EQ(shop.Refusal(raw), "");
    EXPECT_EQ(shop.txid, TxidOf(raw));
    EXPECT_EQ(shop.box.RawTransaction(shop.txid), HexEncode(raw));

    // The smallest fee: 19 satoshis for 191 or 192 bytes. The spent output is still in the mempool.
    const int64_t change = shop.outputs[2].value;
    shop.inputs = {Workshop::Coin(shop.txid, 2, change)};
    shop.outputs = {shop.other.Paid(change - 19)};
    ASSERT_EQ(shop.Refusal(shop.SignedBytes()), "");
    EXPECT_EQ(shop.box.BalanceOf(shop.owner.address), 0);
    EXPECT_EQ(shop.box.BalanceOf(shop.other.address), 10'000 + change - 19);
    EXPECT_EQ(shop.box.TotalFees(), 7'100 + 19);
    EXPECT_EQ(shop.box.TotalFunded(), shop.box.TotalUnspent() + shop.box.TotalFees());

    const std::string late = shop.box.Fund(shop.owner.address, 5);
    EXPECT_EQ(shop.box.RawTransactions()[1], shop.box.RawTransaction(late)) << "before what spends";
}

TEST(ChainRules, DoubleSpendsAndForgottenTransactions) {
    Workshop shop;
    const ByteBuffer first = shop.SignedBytes();
    ASSERT_EQ(shop.Refusal(first), "");
    EXPECT_EQ(shop.Refusal(first), "257: txn-already-known");
    shop.outputs = {shop.owner.Paid(kCoin - 2 * kFee)};
    const ByteBuffer rival = shop.SignedBytes();
    EXPECT_EQ(shop.Refusal(rival), "258: txn-mempool-conflict");
    shop.box.Forget(TxidOf(first));  // lost, the first makes room for the rival
    EXPECT_EQ(shop.box.TotalFees(), 0);
    EXPECT_EQ(shop.box.BalanceOf(shop.owner.address), kCoin);
    ASSERT_EQ(shop.Refusal(rival), "");

    shop.box.Mine();
    EXPECT_EQ(shop.Refusal(first), "Missing inputs");
    EXPECT_EQ(shop.Refusal(rival), "257: txn-already-known");
    shop.box.Forget(TxidOf(rival));
    EXPECT_TRUE(shop.box.RawTransaction(TxidOf(rival)).has_value()) << "a block keeps what it has";
}

// BIP143, "Native P2WPKH": the digest that the judge goes by is the standard's.
TEST(ChainRules, TheDigestIsThatOfBip143) {
    const ByteBuffer raw = HexDecode(
        "0100000002fff7f7881a8099afa6940d42d1e7f6362bec38171ea3edf433541db4e4ad969f0000000000eeffffff"
        "ef51e1b804cc89d182d279655c3aa89e815b1b309fe287d9b2b55d57b90ec68a0100000000ffffffff"
        "02202cb206000000001976a9148280b37df378db99f66f85c95a783a76ac7a6d5988ac"
        "9093510d000000001976a9143bde42dbee7e4dbe6a21b2d50ce2f0167faa815988ac11000000");
    const auto tx = sandbox::ParseTransaction(raw);
    ASSERT_TRUE(tx.has_value());
    EXPECT_EQ(sandbox::WriteTransaction(*tx), raw);
    const sandbox::SharedDigests shared = sandbox::DigestsOf(*tx);
    const ByteBuffer script_code = HexDecode("76a9141d0f172a0ecb48aee1be1f2687d2963ae33f71a188ac");
    EXPECT_EQ(HexEncode(sandbox::SignatureDigest(*tx, 1, shared, script_code, 600'000'000, 1)),
              "c37af31116d1b27caf68aae9e3ac82f1477929014d5b917657d0eb49478cb670");
}

}  // namespace
}  // namespace brickfall
