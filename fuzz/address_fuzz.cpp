// A text that decodes is the one text of its hash, and a hash's text decodes to it.
#include <algorithm>
#include <cstdint>

#include "fuzz/support.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

using namespace brickfall;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Hash160 hash{};
    if (DecodeAddress(text, hash)) Require(Base58CheckEncode(hash) == text);

    Hash160 wanted{};
    std::copy_n(data, std::min(size, wanted.size()), wanted.begin());
    Require(DecodeAddress(Base58CheckEncode(wanted), hash) && hash == wanted);

    const ByteBuffer bytes = HexDecode(text);
    if (!bytes.empty()) Require(HexEncode(bytes).size() == size && HexDecode(HexEncode(bytes)) == bytes);
    return 0;
}
