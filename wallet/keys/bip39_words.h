// bip39_words.h - the English word list of BIP39, in its order.
#pragma once

#include <array>
#include <string_view>

namespace brickfall {

extern const std::array<std::string_view, 2048> kBip39Words;

}  // namespace brickfall
