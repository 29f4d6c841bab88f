#include "cabinet/ui_settings.h"

#include <unistd.h>

#include <atomic>
#include <cstdint>
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
    json read = ReadStoreJson(SettingsPath());
    if (!read.is_object()) return;
    ui_doc = std::move(read);
    TakeSwitch("music", music_on);
    TakeSwitch("sfx", sfx_on);
    TakeVolume("music_vol", music_vol);
    TakeVolume("sfx_vol", sfx_vol);
}

void SaveUiSettings(Flush flush) {
    ui_doc["music"] = music_on.load();
    ui_doc["sfx"] = sfx_on.load();
    ui_doc["music_vol"] = music_vol.load();
    ui_doc["sfx_vol"] = sfx_vol.load();
    // Through a file of this process's own, so that an interrupted save, or two programs at once, leave one
    // whole file.
    const std::string path = SettingsPath();
    const std::string temporary = path + "." + std::to_string(::getpid()) + ".tmp";
    if (!ReplaceFile(path, temporary, StoreDump(ui_doc), flush)) RemoveFile(temporary);
}

}  // namespace brickfall
