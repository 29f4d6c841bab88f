// The seal of a tape, apart from the rest of input_tape.h, so that a run can be played and replayed where
// there is no library of hashes.
#include <openssl/sha.h>

#include "base/text.h"
#include "game/input_tape.h"

namespace brickfall {

std::string TapeHash(std::string_view hex_text) {
    std::vector<uint8_t> bytes;
    if (!HexToBytes(NormalizeHex(hex_text), bytes)) return "";
    uint8_t digest[SHA256_DIGEST_LENGTH];
    SHA256(bytes.data(), bytes.size(), digest);
    std::string text;
    AppendHex(text, digest);
    return text;
}

}  // namespace brickfall
