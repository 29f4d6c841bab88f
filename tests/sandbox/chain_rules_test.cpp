// What the sandbox's chain takes and what it refuses. Good transactions come from the wallet's own builder;
// bad ones are good ones with one thing wrong, so that only the rule in question can refuse them.
#include <gtest/gtest.h>
#include <openssl/ecdsa.h>
#include <rapidcheck.h>

#include <functional>
#include <limits>

#include "sandbox/server/sandbox.h"
#include "sandbox/server/script_check.h"
#include "wallet/curve.h"
#include "wallet/transaction.h"

namespace brickfall {
namespace {

using sandbox::Sandbox;

constexpr char kKey[] = "1111111111111111111111111111111111111111111111111111111111111111";
constexpr char kOtherKey[] = "2222222222222222222222222222222222222222222222222222222222222222";
constexpr int64_t kCoin = 100'000;
constexpr int64_t kFee = 500;
constexpr int64_t kMaxMoney = 2'100'000'000'000'000;

struct Owner {
    explicit Owner(const char* key) : private_hex(key) {
        EXPECT_TRUE(PublicKeyFromPrivate(key, public_hex));
        address = AddressFromPublicKey(public_hex);
        EXPECT_TRUE(DecodeAddress(address, hash));
    }
    PayOutput Paid(int64_t value) const { return {value, P2pkhScript(hash)}; }

    std::string private_hex;
    std::string public_hex;
    std::string address;
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

    void Sign() {
        for (SpendInput& input : inputs) {
            ASSERT_TRUE(SignInput(input, inputs, outputs, owner.hash, owner.private_hex, owner.public_hex));
        }
    }
    ByteBuffer Bytes() const { return SerializeTx(inputs, outputs, /*skeleton=*/false); }
    ByteBuffer SignedBytes() {
        Sign();
        return Bytes();
    }

    bool Submit(const ByteBuffer& raw) { return box.Submit(HexEncode(raw), txid, reason); }

    Sandbox box{{}};
    Owner owner{kKey};
    Owner other{kOtherKey};
    std::vector<SpendInput> inputs;
    std::vector<PayOutput> outputs;
    std::string txid;
    std::string reason;
};

// The signature push of an unlocking script, taken apart and put together with another s and hash type.
void RewriteSignature(ByteBuffer& script_sig, bool negate_s, uint8_t hash_type) {
    const std::size_t length = script_sig[0];
    const uint8_t* der = script_sig.data() + 1;
    const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &der, static_cast<long>(length - 1)));
    ASSERT_TRUE(signature);
    if (negate_s) {
        BignumPtr r(BN_dup(ECDSA_SIG_get0_r(signature.get())));
        BignumPtr s(BN_new());
        ASSERT_EQ(BN_sub(s.get(), EC_GROUP_get0_order(Secp256k1()), ECDSA_SIG_get0_s(signature.get())), 1);
        ASSERT_EQ(ECDSA_SIG_set0(signature.get(), r.release(), s.release()), 1);
    }
    ByteBuffer push(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)));
    uint8_t* place = push.data();
    i2d_ECDSA_SIG(signature.get(), &place);
    push.push_back(hash_type);
    const ByteBuffer rest(script_sig.begin() + 1 + static_cast<std::ptrdiff_t>(length), script_sig.end());
    script_sig.clear();
    AppendPushData(script_sig, push);
    script_sig.insert(script_sig.end(), rest.begin(), rest.end());
}

ByteBuffer WithScript(Workshop& shop, const std::function<void(ByteBuffer&)>& change) {
    shop.Sign();
    change(shop.inputs[0].script_sig);
    return shop.Bytes();
}

ByteBuffer WithHashType(Workshop& shop, uint8_t hash_type) {
    return WithScript(shop,
                      [&](ByteBuffer& script) { RewriteSignature(script, /*negate_s=*/false, hash_type); });
}

ByteBuffer WithOutputs(Workshop& shop, std::vector<int64_t> values) {
    shop.outputs.clear();
    for (const int64_t value : values) shop.outputs.push_back(shop.other.Paid(value));
    return shop.SignedBytes();
}

// The input count of a serialised transaction, which is one byte here, in another form.
ByteBuffer WithInputCount(Workshop& shop, const ByteBuffer& count) {
    ByteBuffer raw = shop.SignedBytes();
    raw.erase(raw.begin() + 4);
    raw.insert(raw.begin() + 4, count.begin(), count.end());
    return raw;
}

struct BadRow {
    const char* why;
    const char* reason;  // stands in the refusal
    std::function<ByteBuffer(Workshop&)> make;
};

const BadRow kBadRows[] = {
    {"an output changed after signing", "mandatory-script-verify",
     [](Workshop& shop) {
         shop.Sign();
         shop.outputs[0].value -= 1;
         return shop.Bytes();
     }},
    {"another amount in the digest", "mandatory-script-verify",
     [](Workshop& shop) {
         shop.inputs[0].value += 1;
         return shop.SignedBytes();
     }},
    {"one bit of s", "mandatory-script-verify",
     [](Workshop& shop) {
         return WithScript(shop, [](ByteBuffer& script) { script[script[0] - 1U] ^= 1; });
     }},
    {"s in the upper half", "S value is unnecessarily high",
     [](Workshop& shop) {
         return WithScript(shop, [](ByteBuffer& script) { RewriteSignature(script, true, 0x41); });
     }},
    {"hash type without the fork id", "hash type", [](Workshop& shop) { return WithHashType(shop, 0x01); }},
    {"hash type of no outputs", "hash type", [](Workshop& shop) { return WithHashType(shop, 0x42); }},
    {"hash type of one input", "hash type", [](Workshop& shop) { return WithHashType(shop, 0xc1); }},
    {"no hash type", "mandatory-script-verify",
     [](Workshop& shop) {
         return WithScript(shop, [](ByteBuffer& script) {
             script.erase(script.begin() + script[0]);
             --script[0];
         });
     }},
    {"a padded r", "DER",
     [](Workshop& shop) {
         return WithScript(shop, [](ByteBuffer& script) {
             script.insert(script.begin() + 5, 0);
             script[0] += 1;
             script[2] += 1;
             script[4] += 1;
         });
     }},
    {"the key of somebody else", "OP_EQUALVERIFY",
     [](Workshop& shop) {
         EXPECT_TRUE(SignInput(shop.inputs[0], shop.inputs, shop.outputs, shop.owner.hash,
                               shop.other.private_hex, shop.other.public_hex));
         return shop.Bytes();
     }},
    {"somebody else's signature under the right key", "mandatory-script-verify",
     [](Workshop& shop) {
         EXPECT_TRUE(SignInput(shop.inputs[0], shop.inputs, shop.outputs, shop.owner.hash,
                               shop.other.private_hex, shop.owner.public_hex));
         return shop.Bytes();
     }},
    {"a push too many", "stack size",
     [](Workshop& shop) {
         return WithScript(shop, [](ByteBuffer& script) { script.insert(script.begin(), {1, 7}); });
     }},
    {"a push in a longer form", "stack size",
     [](Workshop& shop) {
         return WithScript(shop, [](ByteBuffer& script) { script.insert(script.begin(), 0x4c); });
     }},
    {"not signed", "stack size", [](Workshop& shop) { return shop.Bytes(); }},
    {"outputs above inputs", "bad-txns-in-belowout",
     [](Workshop& shop) { return WithOutputs(shop, {kCoin + 1}); }},
    {"a negative output", "bad-txns-vout-negative",
     [](Workshop& shop) {
         return WithOutputs(shop, {kCoin, -kFee});
     }},
    {"the most negative output", "bad-txns-vout-negative",
     [](Workshop& shop) { return WithOutputs(shop, {std::numeric_limits<int64_t>::min()}); }},
    {"more than all the money", "bad-txns-vout-toolarge",
     [](Workshop& shop) { return WithOutputs(shop, {kMaxMoney + 1}); }},
    {"the largest output", "bad-txns-vout-toolarge",
     [](Workshop& shop) { return WithOutputs(shop, {std::numeric_limits<int64_t>::max()}); }},
    {"more than all the money together", "bad-txns-txouttotal-toolarge",
     [](Workshop& shop) {
         return WithOutputs(shop, {kMaxMoney, 1});
     }},
    // 191 or 192 bytes signed: 19 satoshis at 100 a kilobyte, rounded down.
    {"a fee one satoshi too low", "66: insufficient priority",
     [](Workshop& shop) { return WithOutputs(shop, {kCoin - 18}); }},
    {"no fee", "66: insufficient priority", [](Workshop& shop) { return WithOutputs(shop, {kCoin}); }},
    {"the same input twice", "bad-txns-inputs-duplicate",
     [](Workshop& shop) {
         shop.inputs.push_back(shop.inputs[0]);
         return shop.SignedBytes();
     }},
    {"an unknown transaction", "Missing inputs",
     [](Workshop& shop) {
         shop.inputs[0].txid = std::string(64, 'a');
         return shop.SignedBytes();
     }},
    {"an index that is not there", "Missing inputs",
     [](Workshop& shop) {
         shop.inputs[0].vout = 1;
         return shop.SignedBytes();
     }},
    {"money out of nothing", "coinbase",
     [](Workshop& shop) {
         shop.inputs[0].txid = std::string(64, '0');
         shop.inputs[0].vout = 0xffffffff;
         return shop.SignedBytes();
     }},
    {"no inputs", "bad-txns-vin-empty",
     [](Workshop& shop) {
         shop.inputs.clear();
         return shop.Bytes();
     }},
    {"no outputs", "bad-txns-vout-empty",
     [](Workshop& shop) {
         shop.outputs.clear();
         return shop.SignedBytes();
     }},
    {"a lock time still to come", "non-final",
     [](Workshop& shop) {
         ByteBuffer raw = shop.SignedBytes();
         raw[raw.size() - 1] = 0x7f;
         const std::size_t sequence = 4 + 1 + 36 + 1 + shop.inputs[0].script_sig.size();
         raw[sequence] = 0;
         return raw;
     }},
    {"a byte behind the end", "TX decode failed",
     [](Workshop& shop) {
         ByteBuffer raw = shop.SignedBytes();
         raw.push_back(0);
         return raw;
     }},
    {"a count in a longer form", "TX decode failed",
     [](Workshop& shop) {
         return WithInputCount(shop, {0xfd, 1, 0});
     }},
    {"a count beyond any memory", "TX decode failed",
     [](Workshop& shop) {
         return WithInputCount(shop, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff});
     }},
    {"nothing at all", "TX decode failed", [](Workshop&) { return ByteBuffer(); }},
};

TEST(ChainRules, BadTransactionsAreRefusedAndLeaveNoTrace) {
    for (const BadRow& row : kBadRows) {
        SCOPED_TRACE(row.why);
        Workshop shop;
        const std::vector<SpendInput> inputs = shop.inputs;
        const std::vector<PayOutput> outputs = shop.outputs;
        EXPECT_FALSE(shop.Submit(row.make(shop)));
        EXPECT_NE(shop.reason.find(row.reason), std::string::npos) << shop.reason;
        EXPECT_EQ(shop.box.BalanceOf(shop.owner.address), kCoin);
        EXPECT_EQ(shop.box.TotalUnspent(), kCoin);
        EXPECT_EQ(shop.box.RawTransactions().size(), 1u);

        shop.inputs = inputs;
        shop.outputs = outputs;
        EXPECT_TRUE(shop.Submit(shop.SignedBytes())) << "the coin is as good as before: " << shop.reason;
    }
}

TEST(ChainRules, GoodTransactionsAreTakenAndTheBooksBalance) {
    Workshop shop;
    shop.outputs = {shop.other.Paid(10'000),
                    {0, DataCarrierScript(std::string(70'000, 'x'))},
                    shop.owner.Paid(kCoin - 10'000 - 7'100)};
    const ByteBuffer raw = shop.SignedBytes();
    ASSERT_TRUE(shop.Submit(raw)) << shop.reason;
    EXPECT_EQ(shop.txid, TxidOf(raw));
    EXPECT_EQ(shop.box.RawTransaction(shop.txid), HexEncode(raw));

    // The smallest fee: 19 satoshis for 191 or 192 bytes. The spent output is still in the mempool.
    const int64_t change = shop.outputs[2].value;
    shop.inputs = {Workshop::Coin(shop.txid, 2, change)};
    shop.outputs = {shop.other.Paid(change - 19)};
    ASSERT_TRUE(shop.Submit(shop.SignedBytes())) << shop.reason;

    EXPECT_EQ(shop.box.BalanceOf(shop.owner.address), 0);
    EXPECT_EQ(shop.box.BalanceOf(shop.other.address), 10'000 + change - 19);
    EXPECT_EQ(shop.box.TotalFees(), 7'100 + 19);
    EXPECT_EQ(shop.box.TotalFunded(), shop.box.TotalUnspent() + shop.box.TotalFees());

    // A later funding still stands before what spends, so that the list can be replayed in its order.
    const std::string late = shop.box.Fund(shop.owner.address, 5);
    EXPECT_EQ(shop.box.RawTransactions()[1], shop.box.RawTransaction(late));

    // A data output holds no key, so what it was given is gone for good.
    shop.inputs = {Workshop::Coin(shop.box.Fund(shop.owner.address, kCoin), 0, kCoin)};
    shop.outputs = {{50'000, DataCarrierScript("burnt")}};
    ASSERT_TRUE(shop.Submit(shop.SignedBytes())) << shop.reason;
    shop.inputs = {Workshop::Coin(shop.txid, 0, 50'000)};
    shop.outputs = {shop.owner.Paid(40'000)};
    EXPECT_FALSE(shop.Submit(shop.SignedBytes()));
    EXPECT_NE(shop.reason.find("mandatory-script-verify"), std::string::npos) << shop.reason;
}

TEST(ChainRules, ATransactionCutShortAnywhereIsNone) {
    Workshop shop;
    const ByteBuffer raw = shop.SignedBytes();
    for (std::size_t length = 0; length < raw.size(); ++length) {
        EXPECT_FALSE(shop.Submit(ByteBuffer(raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(length))));
        EXPECT_EQ(shop.reason, "TX decode failed") << length;
    }
    const std::string hex = HexEncode(raw);
    for (const std::string& text : {hex.substr(1), hex + "0", "zz" + hex.substr(2), hex + "\n"}) {
        EXPECT_FALSE(shop.box.Submit(text, shop.txid, shop.reason));
        EXPECT_EQ(shop.reason, "TX decode failed");
    }
    EXPECT_TRUE(shop.box.Submit(hex, shop.txid, shop.reason)) << shop.reason;
}

TEST(ChainRules, DoubleSpendsAndForgottenTransactions) {
    Workshop shop;
    const std::vector<SpendInput> coin = shop.inputs;
    const ByteBuffer first = shop.SignedBytes();
    ASSERT_TRUE(shop.Submit(first));
    const std::string first_id = shop.txid;
    EXPECT_FALSE(shop.Submit(first));
    EXPECT_EQ(shop.reason, "257: txn-already-known");

    shop.outputs = {shop.owner.Paid(kCoin - 2 * kFee)};
    const ByteBuffer rival = shop.SignedBytes();
    EXPECT_FALSE(shop.Submit(rival));
    EXPECT_EQ(shop.reason, "258: txn-mempool-conflict");

    // Lost, the first makes room for the rival, and takes along what was built on it.
    shop.inputs = {Workshop::Coin(first_id, 0, kCoin - kFee)};
    shop.outputs = {shop.owner.Paid(kCoin - 2 * kFee)};
    ASSERT_TRUE(SignInput(shop.inputs[0], shop.inputs, shop.outputs, shop.other.hash, shop.other.private_hex,
                          shop.other.public_hex));
    const ByteBuffer child = shop.Bytes();
    ASSERT_TRUE(shop.Submit(child)) << shop.reason;
    shop.box.Forget(first_id);
    EXPECT_EQ(shop.box.RawTransactions().size(), 1u);
    EXPECT_EQ(shop.box.TotalFees(), 0);
    EXPECT_EQ(shop.box.BalanceOf(shop.owner.address), kCoin);
    EXPECT_FALSE(shop.Submit(child));
    EXPECT_EQ(shop.reason, "Missing inputs");
    ASSERT_TRUE(shop.Submit(rival)) << shop.reason;
    const std::string rival_id = shop.txid;

    shop.box.Mine();
    EXPECT_FALSE(shop.Submit(first));
    EXPECT_EQ(shop.reason, "Missing inputs");
    EXPECT_FALSE(shop.Submit(rival));
    EXPECT_EQ(shop.reason, "257: txn-already-known");
    shop.box.Forget(rival_id);
    EXPECT_TRUE(shop.box.RawTransaction(rival_id).has_value()) << "a block keeps what it has";
}

TEST(ChainRules, FundingMakesMoneyWithinBounds) {
    Sandbox box{{}};
    const Owner owner(kKey);
    const std::string one = box.Fund(owner.address, 1'000);
    const std::string two = box.Fund(owner.address, 1'000);
    EXPECT_NE(one, two);
    EXPECT_EQ(one.size(), 64u);
    EXPECT_EQ(box.Unspent(owner.address).size(), 2u);
    for (const int64_t bad :
         {int64_t{0}, int64_t{-1}, kMaxMoney - 1'999, std::numeric_limits<int64_t>::max()}) {
        EXPECT_EQ(box.Fund(owner.address, bad), "");
    }
    for (const std::string& bad : {std::string(), owner.address + "1", "1" + owner.address,
                                   owner.address.substr(1), std::string(34, '1'), std::string(1000, 'z')}) {
        EXPECT_EQ(box.Fund(bad, 1'000), "") << bad;
    }
    EXPECT_EQ(box.TotalFunded(), 2'000);
}

// Random payments, double spends, blocks and losses, beside a plain list of what should be there.
TEST(ChainRules, NoSatoshiAppearsOrVanishes) {
    struct Held {
        std::string txid;
        int64_t value;
    };
    rc::check("the chain agrees with a plain ledger", [] {
        Sandbox box{{}};
        const Owner owner(kKey);
        std::vector<Held> held;  // the owner's coins
        std::vector<SpendInput> spent;
        int64_t funded = 0;
        int64_t fees = 0;
        const auto submit = [&](SpendInput coin, int64_t pays) {
            const PayOutput output = owner.Paid(pays);
            SpendInput inputs[] = {std::move(coin)};
            RC_ASSERT(
                SignInput(inputs[0], inputs, {&output, 1}, owner.hash, owner.private_hex, owner.public_hex));
            std::string txid, reason;
            const bool taken = box.Submit(HexEncode(SerializeTx(inputs, {&output, 1}, false)), txid, reason);
            return taken ? txid : std::string();
        };
        const auto steps =
            *rc::gen::resize(40, rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 100)));
        for (const int step : steps) {
            if (step < 20 || held.empty()) {
                held.push_back({box.Fund(owner.address, 1'000 + step), 1'000 + step});
                funded += 1'000 + step;
            } else if (step < 75) {
                const std::size_t at = static_cast<std::size_t>(step) % held.size();
                const Held coin = held[at];
                const int64_t fee = 15 + step % 10;  // 19 are asked for
                const std::string txid = submit(Workshop::Coin(coin.txid, 0, coin.value), coin.value - fee);
                RC_ASSERT(txid.empty() == (fee < 19 || coin.value < fee));
                if (!txid.empty()) {
                    spent.push_back(Workshop::Coin(coin.txid, 0, coin.value));
                    held[at] = {txid, coin.value - fee};
                    fees += fee;
                }
            } else if (step < 90) {
                box.Mine();
            } else if (!spent.empty()) {
                const SpendInput& gone = spent[static_cast<std::size_t>(step) % spent.size()];
                RC_ASSERT(submit(Workshop::Coin(gone.txid, 0, gone.value), gone.value - 100).empty());
            }
        }
        int64_t total = 0;
        for (const Held& coin : held) total += coin.value;
        RC_ASSERT(box.TotalFunded() == funded);
        RC_ASSERT(box.TotalFees() == fees);
        RC_ASSERT(box.TotalUnspent() == total);
        RC_ASSERT(box.BalanceOf(owner.address) == total);
        RC_ASSERT(funded == total + fees);
    });
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
    EXPECT_EQ(HexEncode(shared.outpoints),
              "96b827c8483d4e9b96712b6713a7b68d6e8003a781feba36c31143470b4efd37");
    EXPECT_EQ(HexEncode(shared.sequences),
              "52b0a642eea2fb7ae638c36f6252b6750293dbe574a806984b8e4d8548339a3b");
    EXPECT_EQ(HexEncode(shared.outputs), "863ef3e1a92afbfdb97f31ad0fc7683ee943e9abcf2501590ff8f6551f47e5e5");
    const ByteBuffer script_code = HexDecode("76a9141d0f172a0ecb48aee1be1f2687d2963ae33f71a188ac");
    EXPECT_EQ(HexEncode(sandbox::SignatureDigest(*tx, 1, shared, script_code, 600'000'000, 1)),
              "c37af31116d1b27caf68aae9e3ac82f1477929014d5b917657d0eb49478cb670");
}

}  // namespace
}  // namespace brickfall
