#include "sandbox/server/raw_transaction.h"

#include <algorithm>

namespace brickfall::sandbox {
namespace {

constexpr std::size_t kShortestInput = 32 + 4 + 1 + 4;
constexpr std::size_t kShortestOutput = 8 + 1;

// Once a read has failed, every later one fails too.
class Reader {
  public:
    explicit Reader(ByteView bytes) : rest_(bytes) {}

    bool Failed() const { return failed_; }
    bool AtEnd() const { return !failed_ && rest_.empty(); }
    std::size_t Left() const { return rest_.size(); }
    void Fail() { failed_ = true; }

    ByteView Take(uint64_t length) {
        if (failed_ || length > rest_.size()) {
            failed_ = true;
            return {};
        }
        const ByteView taken = rest_.first(static_cast<std::size_t>(length));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    uint64_t Integer(std::size_t width) {
        const ByteView bytes = Take(width);
        uint64_t value = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) value |= static_cast<uint64_t>(bytes[i]) << (8 * i);
        return value;
    }

    uint32_t U32() { return static_cast<uint32_t>(Integer(4)); }

    uint64_t CompactSize() {
        const uint64_t first = Integer(1);
        if (first < 0xfd) return first;
        const uint64_t value = Integer(first == 0xfd ? 2 : first == 0xfe ? 4 : 8);
        const uint64_t least = first == 0xfd ? 0xfd : first == 0xfe ? 0x10000 : 0x100000000;
        if (value < least) failed_ = true;
        return value;
    }

    Bytes Script() {
        const ByteView script = Take(CompactSize());
        return {script.begin(), script.end()};
    }

  private:
    ByteView rest_;
    bool failed_ = false;
};

// A count that the bytes left cannot hold is refused before anything is allocated for it.
uint64_t ReadCount(Reader& reader, std::size_t shortest) {
    const uint64_t count = reader.CompactSize();
    if (count > reader.Left() / shortest) reader.Fail();
    return reader.Failed() ? 0 : count;
}

}  // namespace

std::optional<ParsedTx> ParseTransaction(ByteView raw) {
    Reader reader(raw);
    ParsedTx tx;
    tx.version = reader.U32();
    for (uint64_t left = ReadCount(reader, kShortestInput); left > 0 && !reader.Failed(); --left) {
        TxInput input;
        const ByteView id = reader.Take(input.spent.id.size());
        std::copy(id.begin(), id.end(), input.spent.id.begin());
        input.spent.index = reader.U32();
        input.unlocking = reader.Script();
        input.sequence = reader.U32();
        tx.inputs.push_back(std::move(input));
    }
    for (uint64_t left = ReadCount(reader, kShortestOutput); left > 0 && !reader.Failed(); --left) {
        TxOutput output;
        output.value = static_cast<int64_t>(reader.Integer(8));
        output.locking = reader.Script();
        tx.outputs.push_back(std::move(output));
    }
    tx.lock_time = reader.U32();
    if (!reader.AtEnd()) return std::nullopt;
    tx.id = DoubleSha256(raw);
    return tx;
}

Bytes WriteTransaction(const ParsedTx& tx) {
    Bytes raw;
    PutU32(raw, tx.version);
    PutCompactSize(raw, tx.inputs.size());
    for (const TxInput& input : tx.inputs) {
        PutBytes(raw, input.spent.id);
        PutU32(raw, input.spent.index);
        PutCompactSize(raw, input.unlocking.size());
        PutBytes(raw, input.unlocking);
        PutU32(raw, input.sequence);
    }
    PutCompactSize(raw, tx.outputs.size());
    for (const TxOutput& output : tx.outputs) {
        PutU64(raw, static_cast<uint64_t>(output.value));
        PutCompactSize(raw, output.locking.size());
        PutBytes(raw, output.locking);
    }
    PutU32(raw, tx.lock_time);
    return raw;
}

bool IsCoinbase(const ParsedTx& tx) {
    return std::any_of(tx.inputs.begin(), tx.inputs.end(),
                       [](const TxInput& input) { return input.spent == kNoOutpoint; });
}

}  // namespace brickfall::sandbox
