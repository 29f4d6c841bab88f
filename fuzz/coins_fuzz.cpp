// Any bytes as up to twelve coins and a payment, against every subset of the coins: it is made exactly when
// it must be, from the coins that the rules name, fee and change are exact, nothing that is spent, promised
// or an ordinal's is touched, and the auditor reads what the wallet has built.
#include <algorithm>
#include <functional>
#include <set>

#include "audit/transaction_reader.h"
#include "base/text.h"
#include "fuzz/test_wallet.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/coin_selection.h"
#include "wallet/protocol/script.h"

namespace {

using namespace brickfall;

using Coins = std::vector<SpendInput>;

constexpr uint8_t kMostCoins = 12;
constexpr int64_t kInputBytes = 41, kChangeBytes = 34;

// The length of a script, and with what says it.
constexpr std::pair<std::size_t, int64_t> kScripts[] = {
    {25, 26}, {1, 2}, {252, 253}, {253, 256}, {70'000, 70'005}};

enum Kind : uint8_t { kFree, kSpent, kEmporium, kGallery, kExpired, kOffer, kNamed, kNoId, kKinds };

struct Payment {
    std::vector<PayOutput> outputs;
    int64_t need = 4 + 1 + 1 + 4;  // the amount, and the fee without inputs and change

    // What is left of the coins without a change output.
    int64_t Left(const Coins& coins, unsigned subset = ~0u) const {
        int64_t left = -need;
        for (std::size_t i = 0; i < coins.size(); ++i) {
            if ((subset >> i & 1) != 0) left += coins[i].value - kInputBytes;
        }
        return left;
    }
    bool Pays(const Coins& coins) const { return Left(coins) == 0 || Left(coins) >= kChangeBytes; }
};

// The shortest beginning of the coins worth `least` that covers the payment and a change output; all of them
// where none does.
Coins Beginning(const Coins& coins, int64_t least, const Payment& payment) {
    Coins taken;
    for (const SpendInput& coin : coins) {
        if (payment.Left(taken) >= kChangeBytes) break;
        if (coin.value >= least) taken.push_back(coin);
    }
    return taken;
}

bool SameCoins(const Coins& a, const Coins& b) {
    return std::ranges::equal(a, b, {}, &SpendInput::txid, &SpendInput::txid) &&
           std::ranges::equal(a, b, {}, &SpendInput::value, &SpendInput::value);
}

int64_t Sum(const Coins& coins) {
    int64_t sum = 0;
    for (const SpendInput& coin : coins) sum += coin.value;
    return sum;
}

void CheckChoice(const Coins& offered, const Payment& payment) {
    Coins usable = offered;
    std::erase_if(usable, [](const SpendInput& coin) { return !IsTxidText(coin.txid); });
    const Coins all = Beginning(usable, 0, payment), worthy = Beginning(usable, kInputBytes + 1, payment);
    const bool all_cover = payment.Left(all) >= kChangeBytes;
    const Coins& wanted = !all_cover && payment.Pays(worthy) ? worthy : all;
    bool any_covers = false;
    for (unsigned subset = 1; subset < 1u << usable.size(); ++subset)
        any_covers |= payment.Left(usable, subset) >= kChangeBytes;

    Coins chosen = offered;
    std::vector<PayOutput> built;
    std::vector<int64_t> values;
    std::vector<std::size_t> scripts;
    int64_t fee = 0, amount = 0;
    std::string error;
    const bool paid = BuildTransaction(chosen, built, Hash160{9}, payment.outputs, fee, error);
    Require(paid == (any_covers || payment.Pays(usable) || payment.Pays(worthy)));
    Require(paid == error.empty() && SameCoins(chosen, wanted));
    for (const SpendInput& coin : usable) values.push_back(coin.value);
    for (const PayOutput& output : payment.outputs) {
        scripts.push_back(output.script.size());
        amount += output.value;
    }
    Require(fee == EstimateFee(values, scripts, amount));
    Require(fee ==
            Sum(wanted) - payment.Left(wanted) - amount + (payment.Left(wanted) > 0 ? kChangeBytes : 0));
    if (!paid) {
        return Require(error == "insufficient funds. Need " + std::to_string(amount + fee) +
                                    " sats, you have " + std::to_string(Sum(usable)) +
                                    " in your Pouch wallet.");
    }
    std::vector<PayOutput> outputs = payment.outputs;
    const int64_t change = payment.Left(wanted) - kChangeBytes;
    if (change > 0) outputs.push_back({change, P2pkhScript(Hash160{9})});
    const ByteBuffer raw = SerializeTx(chosen, built, /*skeleton=*/false);
    const auto read = ReadRawTransaction(raw);
    Require(read && read->txid == TxidOf(raw) && read->outputs.size() == outputs.size());
    for (std::size_t i = 0; i < outputs.size(); ++i)
        Require(read->outputs[i].satoshis == outputs[i].value &&
                read->outputs[i].script == outputs[i].script);
}

std::string IdOf(uint8_t kind, uint8_t number) {
    return std::string(60, 'c') + HexEncode(ByteBuffer{kind, number});
}

// Other programs' promises and the spent set, of twelve coins of each kind.
bool HoldBack(const FuzzStore& store) {
    std::string emporium = R"({"reserves":[{})", gallery = emporium, offers = R"({"utxos":[0)";
    for (uint8_t i = 0; i < kMostCoins; ++i) {
        emporium += R"(,{"exp":1,"utxo":"CC)" + IdOf(kEmporium, i).substr(2) + ":0\"}";
        gallery += R"(,{"pic_utxo":"x","cert_utxo":")" + IdOf(kGallery, i) + "_0\"}";
        gallery += R"(,{"exp":1,"pic_utxo":")" + IdOf(kExpired, i) + "_0\"}";
        offers += ",\"" + IdOf(kOffer, i) + "_0\"";
        MarkSpentInMemory(FlipTxidHex(IdOf(kSpent, i)), 0);
    }
    const std::string root = store.Path() + "/Orvane";
    Require(MakeFolders(root + "/emporium") && MakeFolders(root + "/gallery"));
    return ReplaceFile(root + "/emporium/reserves_w1.json", emporium + "]}") &&
           ReplaceFile(root + "/gallery/reserves_w1.json", gallery + "]}") &&
           ReplaceFile(root + "/gallery/offer_locks_w1.json", offers + "]}");
}

// What the wallet offers of coins on its address and of pending ones; the first byte of `hash` has the kind.
Coins Collect(Coins listed, Coins pending, bool scanned) {
    std::vector<Utxo> list;
    for (const SpendInput& coin : listed) list.push_back({coin.txid, 0, coin.value});
    pending_outputs.clear();
    StoreUtxoList(wallet_keys.address, list, /*ok=*/true, /*merge=*/false);
    for (const SpendInput& coin : pending) pending_outputs.push_back({coin.txid, 0, coin.value, {}, {}, {}});
    std::set<std::string> named;
    for (uint8_t i = 0; i < kMostCoins; ++i) named.insert(OutpointKey(IdOf(kNamed, i), 0));
    ClearGuardState();
    StoreOrdinalGuard("elsewhere", named, /*ok=*/true);
    StoreOrdinalGuard(wallet_keys.address, {}, scanned);

    Coins wanted, inputs;
    for (Coins* const coins : {&listed, &pending}) {
        std::ranges::stable_sort(*coins, std::greater(), &SpendInput::value);
        for (const SpendInput& coin : *coins) {
            const bool free = coin.hash[0] == kFree || coin.hash[0] == kExpired;
            const auto same = [&coin](const SpendInput& taken) { return SameOutpoint(taken, coin); };
            if (free && (coin.value > 1 || scanned) && std::ranges::none_of(wanted, same))
                wanted.push_back(coin);
        }
    }
    int64_t total = 0;
    std::string error;
    Require(CollectSpendable(inputs, total, error) == !wanted.empty() && error.empty());
    Require(SameCoins(inputs, wanted) && total == Sum(wanted));
    return inputs;
}

}  // namespace

// Byte 0: whether the coins go through the wallet, and whether its address was scanned; 1 and 2 the amount, 3
// the outputs; then three bytes a coin: kind and place, value less 1. One of 192 and more is the coin before
// it once more, its id written the other way round.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const FuzzStore store("/wallets/w1");
    static const bool ready = OpenTestWallet(store) && HoldBack(store);
    Require(ready);
    if (size < 4) return 0;
    const CostBound cost(5'000'000, size, 0);
    Payment payment;
    for (uint8_t i = 0; i <= data[3] % 3; ++i) {
        const int64_t value = i == 0 ? data[1] + 256 * data[2] : i;
        const auto& [script, bytes] = kScripts[data[3] / 3 % std::size(kScripts)];
        payment.outputs.push_back({value, ByteBuffer(script, 0x51)});
        payment.need += value + 8 + bytes;
    }
    const bool through_wallet = (data[0] & 1) != 0;
    Coins listed, pending;
    const uint8_t* at = data + 4;
    for (uint8_t i = 0; i < kMostCoins && at + 3 <= data + size; ++i, at += 3) {
        const auto kind = static_cast<uint8_t>(at[0] % kKinds);
        SpendInput coin = {IdOf(kind, i), 0, 1 + at[1] + 256 * at[2], {}, {}, {}, {kind}};
        if (coin.hash[0] == kNoId) coin.txid.back() = 'x';
        if (through_wallet && at[0] >= 192 && !listed.empty()) {
            coin.txid = FlipTxidHex(listed.back().txid);
            coin.hash = listed.back().hash;
        }
        (through_wallet && (at[0] & 64) != 0 ? pending : listed).push_back(coin);
    }
    CheckChoice(through_wallet ? Collect(listed, pending, (data[0] & 2) != 0) : listed, payment);
    return 0;
}
