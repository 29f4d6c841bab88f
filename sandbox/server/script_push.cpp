#include "sandbox/server/script_push.h"

namespace brickfall::sandbox {

void PutPush(Bytes& script, ByteView data) {
    if (data.size() < 0x4c) {
        script.push_back(static_cast<uint8_t>(data.size()));
    } else {
        const std::size_t width = data.size() <= 0xff ? 1 : data.size() <= 0xffff ? 2 : 4;
        script.push_back(static_cast<uint8_t>(width == 1 ? 0x4c : width == 2 ? 0x4d : 0x4e));
        for (std::size_t i = 0; i < width; ++i)
            script.push_back(static_cast<uint8_t>(data.size() >> (8 * i)));
    }
    PutBytes(script, data);
}

std::optional<Bytes> TakeOpcode(ByteView& script, uint8_t& opcode) {
    opcode = script[0];
    const std::size_t width = opcode == 0x4c ? 1 : opcode == 0x4d ? 2 : opcode == 0x4e ? 4 : 0;
    script = script.subspan(1);
    if (opcode > 0x4e) return std::nullopt;
    std::size_t length = width > 0 ? 0 : opcode;
    if (width > script.size()) return std::nullopt;
    for (std::size_t i = 0; i < width; ++i) length |= std::size_t{script[i]} << (8 * i);
    script = script.subspan(width);
    if (length > script.size()) return std::nullopt;
    const Bytes data(script.begin(), script.begin() + static_cast<std::ptrdiff_t>(length));
    script = script.subspan(length);
    return data;
}

}  // namespace brickfall::sandbox
