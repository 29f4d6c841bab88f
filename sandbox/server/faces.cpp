#include "sandbox/server/faces.h"

#include <algorithm>

namespace brickfall::sandbox {

const Face* FindFace(std::string_view name) {
    const std::span<const Face> faces = Faces();
    const auto found =
        std::find_if(faces.begin(), faces.end(), [name](const Face& face) { return face.name == name; });
    return found != faces.end() ? &*found : nullptr;
}

std::string_view FaceType(const Face& face) {
    if (face.name.ends_with(".png")) return "image/png";
    return face.name.ends_with(".webp") ? "image/webp" : "image/jpeg";
}

}  // namespace brickfall::sandbox
