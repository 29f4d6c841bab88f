// faces.h - the small pictures that are built into the sandbox, drawn for it: the faces of its players.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace brickfall::sandbox {

struct Face {
    std::string_view name;  // of the file, such as "yuna.webp"
    std::span<const uint8_t> bytes;
};

std::span<const Face> Faces();

const Face* FindFace(std::string_view name);
std::string_view FaceType(const Face& face);  // "image/webp" and the like

}  // namespace brickfall::sandbox
