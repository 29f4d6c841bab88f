#include "platform/midi_out.h"

#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "platform/fluidsynth/synth.h"

namespace brickfall {
namespace {

struct DriverDeleter {
    void operator()(fluid_audio_driver_t* driver) const { delete_fluid_audio_driver(driver); }
};
using DriverPtr = std::unique_ptr<fluid_audio_driver_t, DriverDeleter>;

class FluidMidiOut : public MidiOut {
  public:
    FluidMidiOut(Synth synth, DriverPtr driver) : synth_(std::move(synth)), driver_(std::move(driver)) {}

    void ShortMessage(uint32_t message) override { PlayShortMessage(synth_, message); }
    void Reset() override { fluid_synth_system_reset(synth_.synth.get()); }

  private:
    Synth synth_;
    DriverPtr driver_;  // ends before the synthesiser that it reads
};

// ---- What there is to play on. The audio libraries complain, wait or start a server where there is nothing,
// so they are asked only where somebody listens.

bool SocketAnswers(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int file = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (file < 0) return false;
    const bool answers = ::connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(file);
    return answers;
}

// A sound server of this machine and this user; one behind a network could keep the program waiting.
bool HasSoundServer() {
    if (const char* const server = std::getenv("PULSE_SERVER"); server != nullptr && *server != '\0') {
        std::string_view path = server;
        if (path.starts_with("unix:")) path.remove_prefix(5);
        return path.starts_with('/') && SocketAnswers(std::string(path));
    }
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    struct stat folder = {};
    if (runtime == nullptr || ::stat(runtime, &folder) != 0 || folder.st_uid != ::geteuid()) return false;
    return SocketAnswers(std::string(runtime) + "/pulse/native");
}

bool HasSoundCard() {
    std::error_code error;
    std::filesystem::directory_iterator entry("/dev/snd", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const bool plays = name.starts_with("pcm") && name.ends_with('p');
        if (plays && ::access(entry->path().c_str(), W_OK) == 0) return true;
    }
    return false;
}

// ---- The driver, quietly.

void IgnoreSoundCardError(const char*, int, const char*, int, const char*, ...) {}

// A tune needs no short answer; a long buffer plays on while the machine is busy.
void SetBuffer(fluid_settings_t* settings) {
    fluid_settings_setint(settings, "audio.period-size", 256);
    fluid_settings_setint(settings, "audio.periods", 8);
    fluid_settings_setint(settings, "audio.realtime-prio", 0);
}

DriverPtr OpenDriver(const Synth& synth, const char* name) {
    fluid_settings_setstr(synth.settings.get(), "audio.driver", name);
    return DriverPtr(new_fluid_audio_driver(synth.settings.get(), synth.synth.get()));
}

}  // namespace

std::unique_ptr<MidiOut> OpenMidiOut() {
    const bool has_server = HasSoundServer();
    const bool has_card = HasSoundCard();
    if (!has_server && !has_card) return nullptr;
    snd_lib_error_set_handler(IgnoreSoundCardError);
    Synth synth = OpenSynth();
    if (synth.synth == nullptr) return nullptr;
    SetBuffer(synth.settings.get());
    DriverPtr driver;
    if (has_server) driver = OpenDriver(synth, "pulseaudio");
    if (driver == nullptr && has_card) driver = OpenDriver(synth, "alsa");
    if (driver == nullptr) return nullptr;
    return std::make_unique<FluidMidiOut>(std::move(synth), std::move(driver));
}

}  // namespace brickfall
