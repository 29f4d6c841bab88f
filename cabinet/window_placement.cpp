#include "cabinet/window_placement.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "cabinet/ui_settings.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kFullScreenKey[] = "full_screen";
constexpr int kSmallestSavedSide = 80;
constexpr int64_t kSmallestSavedHeight = 400;  // a lower one says nothing about the height to come back with
// Larger than any desktop; what lies beyond it touches no monitor anyway.
constexpr int64_t kFarthest = 1 << 20;

struct SavedPlacement {
    std::optional<int64_t> x;
    std::optional<int64_t> y;
    int64_t w = kDefaultWindowW;
    int64_t h = kDefaultWindowH;
};

// False for a key of the wrong type. A number that is none of 64 bits, or beyond any desktop, is cut to its
// edge.
bool ReadWhole(const char* key, std::optional<int64_t>& value) {
    const auto found = ui_doc.find(key);
    if (found == ui_doc.end()) return true;
    if (!found->is_number_integer()) return false;
    value = found->is_number_unsigned()
                ? static_cast<int64_t>(std::min<uint64_t>(found->get<uint64_t>(), uint64_t{kFarthest}))
                : std::clamp(found->get<int64_t>(), -kFarthest, kFarthest);
    return true;
}

// Nothing when a key has the wrong type.
std::optional<SavedPlacement> ReadSaved() {
    SavedPlacement saved;
    std::optional<int64_t> w;
    std::optional<int64_t> h;
    if (!ReadWhole("x", saved.x) || !ReadWhole("y", saved.y) || !ReadWhole("w", w) || !ReadWhole("h", h))
        return {};
    saved.w = w.value_or(saved.w);
    saved.h = h.value_or(saved.h);
    const auto max = ui_doc.find("max");
    if (max != ui_doc.end() && !max->is_boolean()) return {};
    return saved;
}

}  // namespace

void SaveWindowPlacement(const WindowPlacement& placement) {
    const Rect& normal = placement.normal;
    if (placement.minimized || normal.w < kSmallestSavedSide || normal.h < kSmallestSavedSide) return;
    ui_doc["x"] = normal.x;
    ui_doc["y"] = normal.y;
    ui_doc["w"] = normal.w;
    ui_doc["h"] = normal.h;
    ui_doc["max"] = placement.maximized;
    SaveUiSettings();
}

RestoredPlacement RestoreWindowPlacement(std::span<const Monitor> monitors) {
    RestoredPlacement restored{std::nullopt, {kDefaultWindowW, kDefaultWindowH}};
    const std::optional<SavedPlacement> saved = ReadSaved();
    if (!saved || !saved->x || !saved->y) return restored;
    const Rect rect = {static_cast<int>(*saved->x), static_cast<int>(*saved->y),
                       static_cast<int>(saved->w > kSmallestSavedSide ? saved->w : kDefaultWindowW),
                       static_cast<int>(saved->h > kSmallestSavedSide ? saved->h : kDefaultWindowH)};
    const bool seen = std::any_of(monitors.begin(), monitors.end(),
                                  [&rect](const Monitor& monitor) { return monitor.area.Touches(rect); });
    if (!seen) return restored;
    restored.position = Point{rect.x, rect.y};
    if (saved->h >= kSmallestSavedHeight) restored.size.h = std::max(rect.h, kDefaultWindowH);
    return restored;
}

bool StartMaximized() {
    const auto max = ui_doc.find("max");
    return max != ui_doc.end() && max->is_boolean() && max->get<bool>();
}

bool StartFullScreen() {
    const auto full = ui_doc.find(kFullScreenKey);
    return full != ui_doc.end() && full->is_boolean() && full->get<bool>();
}

void SaveFullScreen(bool on) {
    if (on) {
        ui_doc[kFullScreenKey] = true;
    } else {
        ui_doc.erase(kFullScreenKey);
    }
    SaveUiSettings();
}

Point PlaceBeside(const Rect& main, const Rect& work, Size size) {
    Point at = {main.Right() + 8, main.y};
    if (at.x + size.w > work.Right()) at.x = main.x - size.w - 8;
    if (at.y + size.h > work.Bottom()) at.y = work.Bottom() - size.h;
    return {std::max(at.x, work.x), std::max(at.y, work.y)};
}

}  // namespace brickfall
