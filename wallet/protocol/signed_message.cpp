#include "wallet/protocol/signed_message.h"

#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"

namespace brickfall {

Hash256 SignedMessageDigest(std::string_view text) {
    constexpr std::string_view kMagic(kSignedMessageMagic);
    ByteBuffer bytes{static_cast<uint8_t>(kMagic.size())};
    const auto append = [&bytes](std::string_view part) {
        const std::span<const uint8_t> view = AsBytes(part);
        bytes.insert(bytes.end(), view.begin(), view.end());
    };
    append(kMagic);
    AppendVarInt(bytes, text.size());
    append(text);
    return Sha256Twice(bytes);
}

}  // namespace brickfall
