// assets.h - the pictures that are built into the program, as PNG files. scripts/make-assets.sh makes them.
#pragma once

#include <string_view>

namespace brickfall {

std::string_view LogoFile1024();
std::string_view IconFile256();
std::string_view IconFile48();
std::string_view IconFile32();
std::string_view IconFile16();

}  // namespace brickfall
