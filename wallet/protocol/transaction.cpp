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
constexpr std::size_t kChangeOutputBytes = 8 + 1 + 25;

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

std::size_t OutputListSize(std::span<const PayOutput> outputs) {
    std::size_t size = VarIntSize(outputs.size());
    for (const PayOutput& output : outputs) {
        size += 8 + VarIntSize(output.script.size()) + output.script.size();
    }
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

// Spending it brings more than its bytes cost.
bool IsWorthItsFee(const SpendInput& input) {
    return input.value > static_cast<int64_t>(kSkeletonInputBytes);
}

// Moves candidates over, in their order, until amount, fee and a change output are covered. Where all of them
// together do not cover these, those that are worth their fee may: strangers' dust on an older address must
// not make a payment fail that the wallet can make without it.
std::vector<SpendInput> ChooseInputs(std::vector<SpendInput>& candidates, std::size_t output_list_bytes,
                                     int64_t total_out, int64_t& chosen_total) {
    const auto covers = [&](std::size_t count, int64_t total) {
        const int64_t fee = FeeOf(SkeletonSize(count, output_list_bytes) + kChangeOutputBytes);
        return count > 0 && static_cast<uint64_t>(total) >= Sum(total_out, fee);
    };
    std::vector<SpendInput> chosen;
    chosen_total = 0;
    for (SpendInput& candidate : candidates) {
        const bool usable =
            IsTxidText(candidate.txid) && candidate.value >= 0 && Fits(chosen_total, candidate.value);
        if (!usable) continue;
        chosen_total += candidate.value;
        chosen.push_back(std::move(candidate));
        if (covers(chosen.size(), chosen_total)) return chosen;
    }
    int64_t worthy_total = 0;
    std::size_t worthy = 0, end = 0;
    while (end < chosen.size() && !covers(worthy, worthy_total)) {
        const SpendInput& input = chosen[end++];
        if (!IsWorthItsFee(input)) continue;
        worthy_total += input.value;
        ++worthy;
    }
    if (!covers(worthy, worthy_total)) return chosen;
    chosen.resize(end);
    std::erase_if(chosen, [](const SpendInput& input) { return !IsWorthItsFee(input); });
    chosen_total = worthy_total;
    return chosen;
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

    int64_t chosen_total = 0;
    candidates = ChooseInputs(candidates, OutputListSize(outputs), total_out, chosen_total);

    const ByteBuffer skeleton = SerializeTx(candidates, outputs, /*skeleton=*/true);
    if (skeleton.empty()) {
        error = "failed to build transaction.";
        return false;
    }
    fee = FeeOf(skeleton.size());
    const auto chosen = static_cast<uint64_t>(chosen_total);
    if (chosen > Sum(total_out, fee)) {
        outputs.push_back({0, P2pkhScript(change_hash)});
        fee = FeeOf(SkeletonSize(candidates.size(), OutputListSize(outputs)));
        if (chosen > Sum(total_out, fee)) {
            outputs.back().value = chosen_total - total_out - fee;
        } else {
            outputs.pop_back();  // too little for a change output; the fee stays as it was reckoned with one
        }
    }
    if (chosen >= Sum(total_out, fee)) return true;
    error = "insufficient funds. Need " + std::to_string(Sum(total_out, fee)) + " sats, you have " +
            std::to_string(chosen_total) + " in your Pouch wallet.";
    return false;
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
