#include "cabinet/settings_window.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "cabinet/controls.h"
#include "cabinet/sound.h"
#include "cabinet/theme.h"
#include "cabinet/tool_window.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "platform/desktop.h"

namespace brickfall {
namespace {

enum SettingsControlId : int {
    kControlMusic = 1301,
    kControlSound = 1302,
    kControlMusicVolume = 1303,
    kControlSoundVolume = 1304,
    kControlMusicLabel = 1305,
    kControlSoundLabel = 1306,
    kControlCloseSettings = 1307,
    kControlSite = 1308,
};

// The host of the download page's address.
std::string SiteName() {
    std::string_view site = kDownloadPageUrl;
    if (const std::size_t scheme = site.find("://"); scheme != std::string_view::npos)
        site.remove_prefix(scheme + 3);
    return std::string(site.substr(0, site.find('/')));
}

std::string MusicCaption() { return music_on ? "Music  On" : "Music  Off"; }
std::string SoundCaption() { return sfx_on ? "Sound  On" : "Sound  Off"; }

void CreateSettings(WindowId window) {
    MakeButton(window, MusicCaption(), kControlMusic, {24, 24, 140, 36}, "Switches the music. Free.");
    CreateText(window, kControlMusicLabel, {180, 30, 70, 24}, "Volume", theme.font_button);
    CreateTrackBar(window, kControlMusicVolume, {250, 26, 260, 32}, 0, 100, music_vol);
    MakeButton(window, SoundCaption(), kControlSound, {24, 82, 140, 36}, "Switches the sounds. Free.");
    CreateText(window, kControlSoundLabel, {180, 88, 70, 24}, "Volume", theme.font_button);
    CreateTrackBar(window, kControlSoundVolume, {250, 84, 260, 32}, 0, 100, sfx_vol);
    CreateText(window, kControlSite, {24, 148, 200, 20}, SiteName(), theme.font_small, /*clickable=*/true);
    MakeButton(window, "Close", kControlCloseSettings, {400, 200, 110, 36}, kCloseTip);
    SetAccessibleControlName(window, kControlMusicVolume, "Music volume");
    SetAccessibleControlName(window, kControlSoundVolume, "Sound volume");
}

void Flip(std::atomic<bool>& flag) { flag = !flag; }

void OnCommand(WindowId window, int id) {
    switch (id) {
        case kControlMusic:
            Flip(music_on);
            if (!music_on) AllNotesOff();
            break;
        case kControlSound:
            Flip(sfx_on);
            break;
        case kControlSite:
            return OpenAddress(kDownloadPageUrl);
        case kControlCloseSettings:
            return DestroyWindow(window);
        default:
            return;
    }
    SetControlText(window, kControlMusic, MusicCaption());
    SetControlText(window, kControlSound, SoundCaption());
    SaveUiSettings();
}

void OnScroll(int id, int32_t position) {
    if (id == kControlMusicVolume) {
        music_vol = position;
        SetChannelVolume(kLeadChannel, position);
        SetChannelVolume(kBassChannel, position);
    } else if (id == kControlSoundVolume) {
        sfx_vol = position;
    }
    // A drag saves at each step, perhaps beside a running game: none of its frames waits for the disk. The
    // last save of the program, with the window's place, does.
    SaveUiSettings(Flush::kLater);
}

}  // namespace

WindowId OpenSettingsWindow(WindowId owner) {
    return OpenToolWindow(owner, {"Settings", {540, 320}}, [](WindowId window, Message& message) {
        switch (message.type) {
            case MessageType::kCreate:
                CreateSettings(window);
                return true;
            case MessageType::kCommand:
                OnCommand(window, message.id);
                return true;
            case MessageType::kScroll:
                OnScroll(message.id, static_cast<int32_t>(message.value));
                return true;
            case MessageType::kTextStyle:
                message.style = {message.id == kControlSite ? kAccentColor : kMutedColor, kBgColor,
                                 message.id == kControlSite};
                return true;
            case MessageType::kPaint:
                message.canvas->Fill({0, 0, message.size.w, message.size.h}, kBgColor);
                return true;
            default:
                return false;
        }
    });
}

}  // namespace brickfall
