// eye_settings.h - how the picture is changed for eyes that need it, as the settings file says.
#pragma once

namespace brickfall {

// Of the bricks: as they are given, for low sight, and one for each kind of colour blindness.
enum class Palette { kStandard, kContrast, kProtan, kDeutan, kTritan };

struct EyeSettings {
    bool steady = false;  // nothing blinks
    Palette palette = Palette::kStandard;
    bool strength_marks = false;  // a brick has as many notches as hits left

    bool operator==(const EyeSettings&) const = default;
};

}  // namespace brickfall
