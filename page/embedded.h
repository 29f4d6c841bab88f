// embedded.h - what a page is made of, built into the program.
#pragma once

#include <string_view>

namespace brickfall {

std::string_view PageTemplate();
std::string_view PageStyle();
std::string_view PageScript();
std::string_view PageModule();  // WebAssembly; not there in a build without BRICKFALL_PAGES

}  // namespace brickfall
