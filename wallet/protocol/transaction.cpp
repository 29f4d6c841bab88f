#include "wallet/protocol/transaction.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#include "base/text.h"
#include "wallet/protocol/ecdsa.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

constexpr uint32_t kTxVersion = 1;
constexpr uint32_t kTxLockTime = 0;
constexpr uint32_t kFinalSequence = 0xFFFFFFFF;
constexpr uint8_t kSkeletonScriptLength = 107;  // a signature and a compressed key, counted but not written
constexpr std::size_t kSkeletonInputBytes = 32 + 4 + 1 + 4;
constexpr std::size_t kChangeOutputBytes = 8 + 1 + kP2pkhScriptBytes;

void AppendBytes(ByteBuffer& out, std::span<const uint8_t> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

// The id in the byte order of the chain, and the index. False for an id that is no 32 bytes.
bool AppendOutpoint(ByteBuffer& out, const SpendInput& input) {
    const ByteBuffer id = HexDecode(input.txid);
    if (id.size() != 32) return false;
    out.insert(out.end(), id.rbegin(), id.rend());
    AppendU32Le(out, input.vout);
    return true;
}

void AppendOutput(ByteBuffer& out, const PayOutput& output) {
    AppendU64Le(out, static_cast<uint64_t>(output.value));
    AppendVarInt(out, output.script.size());
    AppendBytes(out, output.script);
}

std::size_t VarIntSize(std::size_t value) {
    ByteBuffer bytes;
    AppendVarInt(bytes, value);
    return bytes.size();
}

// The length of a skeleton with `input_count` inputs, without making one for each candidate tried.
std::size_t SkeletonSize(std::size_t input_count, std::size_t output_list_bytes) {
    return 4 + VarIntSize(input_count) + input_count * kSkeletonInputBytes + output_list_bytes + 4;
}

// Of outputs whose scripts have these lengths.
std::size_t OutputListSize(std::span<const std::size_t> script_sizes) {
    std::size_t size = VarIntSize(script_sizes.size());
    for (const std::size_t script : script_sizes) size += 8 + VarIntSize(script) + script;
    return size;
}

int64_t FeeOf(std::size_t skeleton_size) { return std::max<int64_t>(static_cast<int64_t>(skeleton_size), 1); }

// Amounts are never negative here, so the unsigned sum of two of them cannot wrap.
uint64_t Sum(int64_t a, int64_t b) { return static_cast<uint64_t>(a) + static_cast<uint64_t>(b); }

bool Fits(int64_t total, int64_t value) { return value <= std::numeric_limits<int64_t>::max() - total; }

// False for an output that cannot be paid, and for amounts whose sum is no amount any more.
bool AddUpOutputs(std::span<const PayOutput> outputs, int64_t& total) {
    total = 0;
    for (const PayOutput& output : outputs) {
        if (output.value < 0 || output.script.empty() || !Fits(total, output.value)) return false;
        total += output.value;
    }
    return true;
}

// What a payment takes of coins in their order: of the first `end`, those worth `least` or more.
struct CoinChoice {
    std::size_t end = 0;
    std::size_t count = 0;
    int64_t total = 0;
    int64_t least = 0;

    bool Takes(int64_t value) const { return value >= least && Fits(total, value); }
    void Take(int64_t value) {
        total += value;
        ++count;
    }
};

// Takes coins until amount, fee and a change output are covered. Where all of them together do not cover
// these, those that bring more than their bytes cost may, or may come to amount and fee exactly: strangers'
// dust on an older address must not make a payment fail that the wallet can make without it. `value_of` gives
// -1 for a coin that cannot be used.
template <typename ValueOf>
CoinChoice ChooseCoins(std::size_t coin_count, const ValueOf& value_of, std::size_t output_list_bytes,
                       int64_t total_out) {
    const auto covers = [&](const CoinChoice& choice) {
        const int64_t fee = FeeOf(SkeletonSize(choice.count, output_list_bytes) + kChangeOutputBytes);
        return choice.count > 0 && static_cast<uint64_t>(choice.total) >= Sum(total_out, fee);
    };
    const auto choose = [&](int64_t least) {
        CoinChoice choice;
        choice.least = least;
        while (choice.end < coin_count && !covers(choice)) {
            const int64_t value = value_of(choice.end++);
            if (choice.Takes(value)) choice.Take(value);
        }
        return choice;
    };
    const auto pays_exactly = [&](const CoinChoice& choice) {
        const int64_t fee = FeeOf(SkeletonSize(choice.count, output_list_bytes));
        return choice.count > 0 && static_cast<uint64_t>(choice.total) == Sum(total_out, fee);
    };
    const CoinChoice plain = choose(0);
    if (covers(plain)) return plain;
    const CoinChoice worthy = choose(kSkeletonInputBytes + 1);
    return covers(worthy) || pays_exactly(worthy) ? worthy : plain;
}

struct Reckoning {
    int64_t fee = 0;
    int64_t change = 0;  // 0: there is no change output
};

// Where too little is left for a change output, the fee stays as it was reckoned with one.
Reckoning Reckon(const CoinChoice& coins, std::vector<std::size_t> script_sizes, int64_t total_out) {
    const auto total = static_cast<uint64_t>(coins.total);
    const auto fee = [&] { return FeeOf(SkeletonSize(coins.count, OutputListSize(script_sizes))); };
    Reckoning reckoned{fee()};
    if (total <= Sum(total_out, reckoned.fee)) return reckoned;
    script_sizes.push_back(kP2pkhScriptBytes);
    reckoned.fee = fee();
    if (total > Sum(total_out, reckoned.fee)) reckoned.change = coins.total - total_out - reckoned.fee;
    return reckoned;
}

// Leaves of the candidates those chosen.
CoinChoice ChooseInputs(std::vector<SpendInput>& candidates, std::size_t output_list_bytes,
                        int64_t total_out) {
    const auto value_of = [&](std::size_t at) {
        return IsTxidText(candidates[at].txid) ? candidates[at].value : -1;
    };
    const CoinChoice choice = ChooseCoins(candidates.size(), value_of, output_list_bytes, total_out);
    CoinChoice taken;
    taken.least = choice.least;
    std::vector<SpendInput> chosen;
    for (std::size_t at = 0; at < choice.end; ++at) {
        if (!taken.Takes(value_of(at))) continue;
        taken.Take(candidates[at].value);
        chosen.push_back(std::move(candidates[at]));
    }
    candidates = std::move(chosen);
    return choice;
}

bool ForkIdDigest(const SpendInput& input, const SharedDigests& shared, const Hash160& owner_hash,
                  Hash256& digest) {
    const ByteBuffer script_code = P2pkhScript(owner_hash);
    ByteBuffer preimage;
    AppendU32Le(preimage, kTxVersion);
    AppendBytes(preimage, shared.outpoints);
    AppendBytes(preimage, shared.sequences);
    if (!AppendOutpoint(preimage, input)) return false;
    AppendVarInt(preimage, script_code.size());
    AppendBytes(preimage, script_code);
    AppendU64Le(preimage, static_cast<uint64_t>(input.value));
    AppendU32Le(preimage, kFinalSequence);
    AppendBytes(preimage, shared.outputs);
    AppendU32Le(preimage, kTxLockTime);
    AppendU32Le(preimage, kSigHashAllForkId);
    digest = Sha256Twice(preimage);
    return true;
}

}  // namespace

ByteBuffer SerializeTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                       bool skeleton) {
    ByteBuffer raw;
    AppendU32Le(raw, kTxVersion);
    AppendVarInt(raw, inputs.size());
    for (const SpendInput& input : inputs) {
        if (!AppendOutpoint(raw, input)) return {};
        if (skeleton) {
            raw.push_back(kSkeletonScriptLength);
        } else {
            AppendVarInt(raw, input.script_sig.size());
            AppendBytes(raw, input.script_sig);
        }
        AppendU32Le(raw, kFinalSequence);
    }
    AppendVarInt(raw, outputs.size());
    for (const PayOutput& output : outputs) AppendOutput(raw, output);
    AppendU32Le(raw, kTxLockTime);
    return raw;
}

bool BuildTransaction(std::vector<SpendInput>& candidates, std::vector<PayOutput>& outputs,
                      const Hash160& change_hash, std::span<const PayOutput> wanted, int64_t& fee,
                      std::string& error) {
    fee = 0;
    error.clear();
    outputs.assign(wanted.begin(), wanted.end());
    if (outputs.empty()) {
        error = "nothing to pay.";
        return false;
    }
    int64_t total_out = 0;
    if (!AddUpOutputs(outputs, total_out)) {
        error = "invalid inscription output.";
        return false;
    }

    std::vector<std::size_t> script_sizes;
    for (const PayOutput& output : outputs) script_sizes.push_back(output.script.size());
    const CoinChoice chosen = ChooseInputs(candidates, OutputListSize(script_sizes), total_out);
    if (SerializeTx(candidates, outputs, /*skeleton=*/true).empty()) {
        error = "failed to build transaction.";
        return false;
    }
    const Reckoning reckoned = Reckon(chosen, std::move(script_sizes), total_out);
    fee = reckoned.fee;
    if (reckoned.change > 0) outputs.push_back({reckoned.change, P2pkhScript(change_hash)});
    if (static_cast<uint64_t>(chosen.total) >= Sum(total_out, fee)) return true;
    error = "insufficient funds. Need " + std::to_string(Sum(total_out, fee)) + " sats, you have " +
            std::to_string(chosen.total) + " in your Pouch wallet.";
    return false;
}

int64_t EstimateFee(std::span<const int64_t> coins, std::vector<std::size_t> script_sizes,
                    int64_t total_out) {
    const auto value_of = [&](std::size_t at) { return coins[at]; };
    const CoinChoice chosen = ChooseCoins(coins.size(), value_of, OutputListSize(script_sizes), total_out);
    return Reckon(chosen, std::move(script_sizes), total_out).fee;
}

std::optional<SharedDigests> MakeSharedDigests(std::span<const SpendInput> inputs,
                                               std::span<const PayOutput> outputs) {
    ByteBuffer outpoints;
    ByteBuffer sequences;
    for (const SpendInput& input : inputs) {
        if (!AppendOutpoint(outpoints, input)) return std::nullopt;
        AppendU32Le(sequences, kFinalSequence);
    }
    ByteBuffer output_bytes;
    for (const PayOutput& output : outputs) AppendOutput(output_bytes, output);
    return SharedDigests{Sha256Twice(outpoints), Sha256Twice(sequences), Sha256Twice(output_bytes)};
}

bool SignInput(SpendInput& input, const SharedDigests& shared, const Hash160& owner_hash,
               std::string_view private_hex, std::string_view public_hex) {
    Hash256 digest{};
    ByteBuffer signature;
    if (!ForkIdDigest(input, shared, owner_hash, digest)) return false;
    if (!SignDigest(private_hex, digest, signature)) return false;
    signature.push_back(kSigHashAllForkId);
    input.script_sig.clear();
    AppendPushData(input.script_sig, signature);
    AppendPushData(input.script_sig, HexDecode(public_hex));
    return true;
}

bool SignInput(SpendInput& input, std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
               const Hash160& owner_hash, std::string_view private_hex, std::string_view public_hex) {
    const std::optional<SharedDigests> shared = MakeSharedDigests(inputs, outputs);
    return shared && SignInput(input, *shared, owner_hash, private_hex, public_hex);
}

std::string TxidOf(std::span<const uint8_t> raw) {
    Hash256 hash = Sha256Twice(raw);
    std::reverse(hash.begin(), hash.end());
    return HexEncode(hash);
}

}  // namespace brickfall
