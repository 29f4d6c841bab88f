#include "cabinet/ui_settings.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "base/files.h"
#include "cabinet/sound.h"
#include "wallet/json/store_json.h"
#include "wallet/store/shared_store.h"

namespace brickfall {

nlohmann::json& ui_doc = *new nlohmann::json(nlohmann::json::object());

namespace {

using nlohmann::json;

// The file was there and could not be read, so that `ui_doc` knows nothing of what it holds.
bool file_is_unknown = false;

std::string SettingsPath() { return StoreRoot() + "/brickfall_ui.json"; }

template <typename Switch>
void TakeSwitch(const char* key, Switch& value) {
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
    StoreFile file = ReadStoreFile(SettingsPath());
    file_is_unknown = file.state == FileState::kUnreadable;
    if (!file.document.is_object()) return;
    ui_doc = std::move(file.document);
    TakeSwitch("music", music_on);
    TakeSwitch("sfx", sfx_on);
    TakeVolume("music_vol", music_vol);
    TakeVolume("sfx_vol", sfx_vol);
}

EyeSettings ReadEyeSettings() {
    constexpr std::pair<const char*, Palette> kPalettes[] = {{"standard", Palette::kStandard},
                                                             {"contrast", Palette::kContrast},
                                                             {"protan", Palette::kProtan},
                                                             {"deutan", Palette::kDeutan},
                                                             {"tritan", Palette::kTritan}};
    EyeSettings eyes;
    TakeSwitch("steady", eyes.steady);
    TakeSwitch("strength_marks", eyes.strength_marks);
    const auto palette = ui_doc.find("palette");
    for (const auto& [name, value] : kPalettes) {
        if (palette != ui_doc.end() && *palette == name) eyes.palette = value;
    }
    return eyes;
}

void SaveUiSettings(Flush flush) {
    ui_doc["music"] = music_on.load();
    ui_doc["sfx"] = sfx_on.load();
    ui_doc["music_vol"] = music_vol.load();
    ui_doc["sfx_vol"] = sfx_vol.load();
    const std::string path = SettingsPath();
    SecretString present;
    const FileState state = ReadStoreText(path, present);
    if (state == FileState::kMissing) file_is_unknown = false;
    if (state == FileState::kUnreadable || file_is_unknown) return;
    ReplaceFile(path, StoreDump(ui_doc), flush);
}

}  // namespace brickfall
