// Any text as an address, as hexadecimal digits and as a tape: what is taken is the one text of its bytes,
// decoding forgets nothing, and the seal of a tape depends on its bytes alone.
#include <algorithm>
#include <vector>

#include "base/text.h"
#include "fuzz/support.h"
#include "game/input_tape.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace {

using namespace brickfall;

void CheckTape(std::string_view text) {
    std::string normal = NormalizeHex(text);
    Require(normal.size() <= text.size());
    Require(NormalizeHex("\n " + normal + "\t") == normal);

    std::vector<uint8_t> bytes;
    const bool decodes = HexToBytes(normal, bytes);
    Require(decodes == (normal.size() % 2 == 0 && IsHexText(normal, normal.size())));
    std::string again;
    AppendHex(again, bytes);
    Require(again == (decodes ? normal : ""));

    const std::string seal = TapeHash(text);
    Require(decodes ? IsHexText(seal, 64) : seal.empty());
    for (char& c : normal) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    Require(TapeHash(normal) == seal);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view text = AsText(data, size);
    Hash160 hash{}, wanted{};
    if (DecodeAddress(text, hash)) Require(Base58CheckEncode(hash) == text);
    std::copy_n(data, std::min(size, wanted.size()), wanted.begin());
    Require(DecodeAddress(Base58CheckEncode(wanted), hash) && hash == wanted);

    const ByteBuffer bytes = HexDecode(text);
    if (!bytes.empty()) Require(HexEncode(bytes).size() == size && HexDecode(HexEncode(bytes)) == bytes);
    CheckTape(text);
    return 0;
}
