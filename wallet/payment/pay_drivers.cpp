#include "wallet/payment/pay_drivers.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <limits>
#include <new>
#include <optional>
#include <utility>

#include "base/text.h"
#include "deployment/deployment.h"
#include "wallet/chain/chain_api.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/reservations.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/broadcast.h"
#include "wallet/payment/coin_selection.h"
#include "wallet/payment/output_recovery.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

constexpr int kAttempts = 3;
constexpr char kPaymentFailedText[] = "error: payment failed.";

// What one call of PayOutputs remembers from attempt to attempt.
struct Payment {
    std::string wallet_id;  // the wallet that pays; another one in its place ends the payment
    int64_t total_out = 0;
    int64_t fee_paid = 0;                  // of the latest built transaction
    Hash160 wallet_hash{};                 // takes the change, and owns the inputs without keys of their own
    std::string last_txid;                 // of the latest transaction given to the network
    std::vector<SpendInput> saved_inputs;  // of that transaction, as are the outputs
    std::vector<PayOutput> saved_outputs;
};

bool IsSuccess(std::string_view text) { return text.starts_with("success"); }

bool IsConflict(std::string_view text) { return text.find("mempool-conflict") != std::string_view::npos; }

// Wraps around where the sum is no amount any more; such outputs are refused before anything is built.
int64_t AddUp(std::span<const PayOutput> outputs) {
    uint64_t total = 0;
    for (const PayOutput& output : outputs) total += static_cast<uint64_t>(output.value);
    return static_cast<int64_t>(total);
}

std::string Finish(const Payment& payment, std::string text) {
    return FinishPay(std::move(text), payment.total_out + payment.fee_paid);
}

// The success text when the latest transaction can be seen after all; empty otherwise.
std::string ResultIfVisible(const Payment& payment) {
    if (!TxVisible(payment.last_txid)) return {};
    std::string adopted =
        AdoptBroadcast(payment.last_txid, payment.saved_inputs, payment.saved_outputs, payment.wallet_hash);
    return adopted.empty() ? adopted : Finish(payment, std::move(adopted));
}

std::string ResultIfVisibleOr(const Payment& payment, std::string_view otherwise) {
    std::string result = ResultIfVisible(payment);
    return result.empty() ? std::string(otherwise) : result;
}

bool SignAll(std::vector<SpendInput>& inputs, std::span<const PayOutput> outputs,
             const Hash160& wallet_hash) {
    const std::optional<SharedDigests> shared = MakeSharedDigests(inputs, outputs);
    return shared && std::ranges::all_of(inputs, [&](SpendInput& input) {
               const bool own_key = !input.priv.empty();
               const std::string& pub = input.pub.empty() ? wallet_keys.pub : input.pub;
               const std::string_view priv = own_key ? input.priv : std::string_view(wallet_keys.priv);
               return SignInput(input, *shared, own_key ? input.hash : wallet_hash, priv, pub);
           });
}

bool AnyReserved(const Reserves& reserves, std::span<const SpendInput> inputs) {
    return std::ranges::any_of(inputs, [&reserves](const SpendInput& input) {
        return IsReserved(reserves, input.txid, input.vout);
    });
}

// The network says that other transactions spend these inputs. No read of the chain is needed.
void DropConflictingInputs(std::span<const SpendInput> inputs) {
    MarkSpent(inputs);
    PruneCacheOfSpent();
}

// The network does not know these inputs as unspent: what the cache believed is out of date.
void DropMissingInputs(WalletLock& lock, std::span<const SpendInput> inputs) {
    MarkSpent(inputs);
    PruneCacheOfSpent();
    RescanPlainOutputs(lock);
}

// The result text, or nothing when another attempt is due.
std::optional<std::string> Attempt(WalletLock& lock, std::span<const PayOutput> outputs, bool is_last,
                                   Payment& payment) {
    std::string error;
    if (!EnsureUtxoCache(lock, error)) return "error: " + error;
    // The lock was released there, and in the rescan before it: neither the wallet nor the address that it
    // shows need be the ones from before.
    if (WalletCacheId() != payment.wallet_id || !wallet_keys.is_hd) return "error: wallet changed.";
    if (!DecodeAddress(wallet_keys.address, payment.wallet_hash))
        return "error: pouch address decode failed.";

    std::vector<SpendInput> inputs;
    int64_t collected = 0;
    if (!CollectSpendable(inputs, collected, error)) {
        return ResultIfVisibleOr(
            payment, error.empty() ? "error: you have 0 in your Pouch wallet." : "error: " + error);
    }
    std::vector<PayOutput> built_outputs;
    int64_t fee = 0;
    if (!BuildTransaction(inputs, built_outputs, payment.wallet_hash, outputs, fee, error)) {
        std::string result = ResultIfVisibleOr(payment, is_last ? "error: " + error : "");
        return result.empty() ? std::nullopt : std::optional(std::move(result));
    }
    payment.fee_paid = fee;
    // A coin that another program has promised to somebody since the collection began is not spent.
    Reserves reserves;
    if (!LoadReserves(reserves, error)) return ResultIfVisibleOr(payment, "error: " + error);
    if (AnyReserved(reserves, inputs)) return std::nullopt;

    std::string text = "error: signing failed.";
    if (SignAll(inputs, built_outputs, payment.wallet_hash)) {
        payment.saved_inputs = inputs;
        payment.saved_outputs = built_outputs;
        try {
            text = BroadcastTx(inputs, built_outputs, payment.wallet_hash, payment.last_txid);
        } catch (const std::bad_alloc&) {
            text = kPaymentFailedText;  // whether it was sent shows below
        }
    }
    if (IsSuccess(text)) return Finish(payment, std::move(text));
    std::string visible = ResultIfVisible(payment);
    if (!visible.empty()) return visible;

    if (IsConflict(text)) {
        DropConflictingInputs(inputs);
    } else if (IsMissingInputsText(text)) {
        DropMissingInputs(lock, inputs);
    } else {
        return text;
    }
    return std::nullopt;
}

// What the drivers share. `fill` makes the outputs, with wallet_mutex held, and gives a refusal or nothing.
std::string RunDriver(const std::function<std::string(std::vector<PayOutput>&)>& fill) {
    try {
        WalletLock lock(wallet_mutex);
        std::vector<PayOutput> outputs;
        const std::string refusal = fill(outputs);
        return refusal.empty() ? PayOutputs(lock, outputs) : refusal;
    } catch (const std::exception&) {
        return kPaymentFailedText;  // out of memory; a worker that threw would end the program
    }
}

constexpr char kNotConnectedText[] =
    "error: Pouch wallet not connected. Create or Restore in Pouch, then Connect in the app.";

bool AddPayment(std::vector<PayOutput>& outputs, int64_t value, std::string_view address) {
    Hash160 hash{};
    if (!DecodeAddress(address, hash)) return false;
    outputs.push_back({value, P2pkhScript(hash)});
    return true;
}

}  // namespace

std::string PayArcadeEntry(std::string_view house_address, std::string_view pot_address) {
    if (!IsConnected()) return kNotConnectedText;
    return RunDriver([&](std::vector<PayOutput>& outputs) -> std::string {
        if (!AddPayment(outputs, kArcadeHouseSats, house_address)) {
            return "error: arcade house address decode failed.";
        }
        if (!AddPayment(outputs, kArcadePotSats, pot_address)) {
            return "error: arcade pot address decode failed.";
        }
        return {};
    });
}

std::string PayArcadeScore(std::string_view watch_address, std::string_view payload) {
    if (!IsConnected()) return kNotConnectedText;
    if (payload.empty()) return "error: empty arcade score payload.";
    return RunDriver([&](std::vector<PayOutput>& outputs) -> std::string {
        if (!AddPayment(outputs, kMarkerSats, watch_address)) return "error: arcade oracle decode failed.";
        outputs.push_back({0, DataCarrierScript(payload)});
        return {};
    });
}

int64_t EstimateScoreFee(std::size_t payload_bytes, std::span<const int64_t> coins) {
    constexpr int64_t kOneLargeCoin[] = {std::numeric_limits<int64_t>::max()};
    if (coins.empty()) coins = kOneLargeCoin;
    return EstimateFee(coins, {kP2pkhScriptBytes, DataCarrierSize(payload_bytes)}, kMarkerSats);
}

std::string PayReport(std::string_view payload) {
    if (!IsConnected()) return kNotConnectedText;
    if (payload.empty()) return "error: empty report payload.";
    return RunDriver([&](std::vector<PayOutput>& outputs) -> std::string {
        if (!AddPayment(outputs, kReportFeeSats, kReportFeeAddress)) {
            return "error: report fee address decode failed.";
        }
        if (!AddPayment(outputs, kMarkerSats, kReportOracleAddress)) {
            return "error: report oracle decode failed.";
        }
        outputs.push_back({0, DataCarrierScript(payload)});
        return {};
    });
}

std::string PayOutputs(WalletLock& lock, std::span<const PayOutput> outputs) {
    Payment payment;
    payment.total_out = AddUp(outputs);
    if (!LoadWallet()) return "error: no Orvane Pouch wallet. Use pouch create first.";
    if (!wallet_keys.is_hd) return "error: need an HD Pouch wallet.";
    if (!DecodeAddress(wallet_keys.address, payment.wallet_hash))
        return "error: pouch address decode failed.";
    payment.wallet_id = WalletCacheId();

    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const bool is_last = attempt + 1 == kAttempts;
        if (auto result = Attempt(lock, outputs, is_last, payment)) return *std::move(result);
    }
    return ResultIfVisibleOr(payment, "error: broadcast failed after retry.");
}

std::string AdoptBroadcast(const std::string& txid, std::span<const SpendInput> saved_inputs,
                           std::span<const PayOutput> saved_outputs, const Hash160& wallet_hash) {
    if (!IsTxidText(txid)) return {};
    last_broadcast_txid = txid;
    if (saved_inputs.empty()) {
        RecoverOutputsFromTx(txid);
    } else {
        RecordSentTx(saved_inputs, saved_outputs, txid, wallet_hash);
    }
    return "success: " + txid;
}

std::string FinishPay(std::string text, int64_t spent) {
    try {
        if (IsSuccess(text)) NoteSpend(spent);
    } catch (const std::bad_alloc&) {
        // It is paid all the same; the next refresh tells the balance.
    }
    return text;
}

}  // namespace brickfall
