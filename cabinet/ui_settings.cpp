#include "cabinet/ui_settings.h"

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "base/files.h"
#include "cabinet/sound.h"
#include "wallet/shared_store.h"

namespace brickfall {

nlohmann::json& ui_doc = *new nlohmann::json(nlohmann::json::object());

namespace {

using nlohmann::json;

std::string SettingsPath() { return StoreRoot() + "/brickfall_ui.json"; }

constexpr int kMaxNesting = 64;

// Whether a JSON text is nested deeper than anything that belongs here. Copying and writing a value go one
// call deeper a level, so such a text is taken for a broken one.
bool IsNestedTooDeep(const std::string& text) {
    int depth = 0;
    bool in_string = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (in_string) {
            if (c == '\\') ++i;
            if (c == '"') in_string = false;
        } else if (c == '"') {
            in_string = true;
        } else if ((c == '[' || c == '{') && ++depth > kMaxNesting) {
            return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

void TakeSwitch(const char* key, std::atomic<bool>& value) {
    const auto found = ui_doc.find(key);
    if (found != ui_doc.end() && found->is_boolean()) value = found->get<bool>();
}

void TakeVolume(const char* key, std::atomic<int32_t>& value) {
    const auto found = ui_doc.find(key);
    if (found == ui_doc.end() || !found->is_number_integer()) return;
    // An unsigned number above the signed range wraps to a negative one and is out of range too.
    const auto volume = found->get<int64_t>();
    if (volume >= 0 && volume <= 100) value = static_cast<int32_t>(volume);
}

}  // namespace

void LoadUiSettings() {
    ui_doc = json::object();
    const std::optional<std::string> text = ReadFile(SettingsPath());
    if (!text || IsNestedTooDeep(*text)) return;
    json read = json::parse(*text, nullptr, /*allow_exceptions=*/false);
    if (!read.is_object()) return;
    ui_doc = std::move(read);
    TakeSwitch("music", music_on);
    TakeSwitch("sfx", sfx_on);
    TakeVolume("music_vol", music_vol);
    TakeVolume("sfx_vol", sfx_vol);
}

void SaveUiSettings() {
    ui_doc["music"] = music_on.load();
    ui_doc["sfx"] = sfx_on.load();
    ui_doc["music_vol"] = music_vol.load();
    ui_doc["sfx_vol"] = sfx_vol.load();
    // Through a file of this process's own, so that an interrupted save, or two programs at once, leave one
    // whole file.
    const std::string path = SettingsPath();
    ReplaceFile(path, path + "." + std::to_string(::getpid()) + ".tmp", StoreDump(ui_doc));
}

}  // namespace brickfall
