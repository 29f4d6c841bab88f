// Any bytes as the hexadecimal text of a tape: decoding accepts exactly the texts of digit pairs, forgets
// nothing, and the seal depends on the decoded bytes alone.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/text.h"
#include "fuzz/support.h"
#include "game/input_tape.h"

namespace {

using namespace brickfall;

std::string Upper(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string normal = NormalizeHex(text);
    Require(normal.size() <= text.size());
    Require(NormalizeHex(normal) == normal);
    Require(NormalizeHex("\n " + normal + "\t") == normal);

    std::vector<uint8_t> bytes;
    const bool decodes = HexToBytes(normal, bytes);
    Require(decodes == (normal.size() % 2 == 0 && IsHexText(normal, normal.size())));
    std::string again;
    AppendHex(again, bytes);
    Require(again == (decodes ? normal : ""));

    const std::string seal = TapeHash(text);
    Require(decodes ? IsHexText(seal, 64) : seal.empty());
    Require(TapeHash(Upper(normal)) == seal);
    return 0;
}
