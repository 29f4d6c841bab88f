#include "wallet/protocol/signed_message.h"

#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"

namespace brickfall {

Hash256 SignedMessageDigest(std::string_view text) {
    constexpr std::string_view kMagic(kSignedMessageMagic);
    ByteBuffer bytes;
    const auto append = [&bytes](std::string_view part) {
        AppendVarInt(bytes, part.size());
        const std::span<const uint8_t> view = AsBytes(part);
        bytes.insert(bytes.end(), view.begin(), view.end());
    };
    append(kMagic);
    append(text);
    return Sha256Twice(bytes);
}

}  // namespace brickfall
