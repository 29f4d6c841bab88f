#include "viewer/encoder.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "base/files.h"
#include "platform/midi_render.h"
#include "viewer/film_frames.h"
#include "viewer/interrupt.h"

extern char** environ;

namespace brickfall {
namespace {

constexpr int kSoundInProgram = 3;  // its descriptor there
constexpr int kPipeBytes = 1 << 20;

void Close(int& descriptor) {
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

// Held open by nobody but the two that it is made for.
bool MakePipe(int& read_end, int& write_end) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    read_end = ends[0];
    write_end = ends[1];
    ::fcntl(write_end, F_SETPIPE_SZ, kPipeBytes);  // as it comes, where the system allows no more
    return true;
}

std::string LastLine(std::FILE* file) {
    std::string text;
    std::array<char, 4'096> buffer{};
    std::rewind(file);
    for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), file)) > 0 && text.size() < 1 << 16;)
        text.append(buffer.data(), n);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text.substr(text.rfind('\n') + 1);
}

std::vector<std::string> Arguments(const std::string& part, Size size, bool with_sound, bool mp4) {
    std::vector<std::string> words = {"ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", "-y"};
    const auto add = [&words](std::initializer_list<const char*> more) {
        words.insert(words.end(), more.begin(), more.end());
    };
    add({"-f", "rawvideo", "-pix_fmt", "yuv420p", "-color_range", "tv", "-colorspace", "bt709",
         "-video_size"});
    words.push_back(std::to_string(size.w) + "x" + std::to_string(size.h));
    add({"-framerate"});
    words.push_back(std::to_string(kFramesASecond));
    add({"-i", "pipe:0"});
    if (with_sound) {
        add({"-f", "s16le", "-ac", "2", "-ar"});
        words.push_back(std::to_string(kRenderRate));
        words.insert(words.end(), {"-i", "pipe:" + std::to_string(kSoundInProgram)});
        add({"-c:a", "aac", "-b:a", "160k", "-flags:a", "+bitexact"});
    }
    // Where a side is odd, colours cannot be stored at half the size.
    const bool odd = size.w % 2 != 0 || size.h % 2 != 0;
    add({"-c:v", "libx264", "-preset", "ultrafast", "-qp", "18", "-g", "300", "-pix_fmt",
         odd ? "yuv444p" : "yuv420p"});
    add({"-color_primaries", "bt709", "-color_trc", "bt709"});
    // Two exports of one run are the same, byte for byte.
    add({"-flags:v", "+bitexact", "-fflags", "+bitexact", "-map_metadata", "-1"});
    add({"-f", mp4 ? "mp4" : "matroska"});
    words.push_back("file:" + part);
    return words;
}

}  // namespace

bool Encoder::Start(const std::string& path, Size size, bool with_sound, std::string& error) {
    path_ = path;
    part_ = path + ".part";
    int frames_in = -1, sound_in = -1;
    said_ = std::tmpfile();
    if (said_ == nullptr || !MakePipe(frames_in, frames_) || !MakePipe(sound_in, sound_)) {
        error = std::string("cannot start ffmpeg: ") + std::strerror(errno);
        Close(frames_in);
        Close(sound_in);
        Stop();
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, frames_in, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(said_), STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&actions, sound_in, kSoundInProgram);
    // A group of its own: what a terminal sends is for this program to answer. And it ends as usual when its
    // pipes do, whatever is ignored here.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
    std::vector<std::string> words = Arguments(part_, size, with_sound, path.ends_with(".mp4"));
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int fault = ::posix_spawnp(&pid_, "ffmpeg", &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    Close(frames_in);
    Close(sound_in);
    if (fault == 0) return true;
    pid_ = -1;
    error = fault == ENOENT ? "a film needs ffmpeg, which is not installed"
                            : std::string("cannot start ffmpeg: ") + std::strerror(fault);
    Stop();
    return false;
}

bool Encoder::Write(int pipe, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        if (Interrupted()) return false;
        const ssize_t written = ::write(pipe, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

bool Encoder::WriteSound(std::span<const int16_t> samples) const {
    return Write(sound_, {reinterpret_cast<const uint8_t*>(samples.data()), samples.size_bytes()});
}

void Encoder::EndSound() { Close(sound_); }
void Encoder::EndFrames() { Close(frames_); }
void Encoder::Kill() const {
    if (pid_ >= 0) ::kill(pid_, SIGKILL);
}

int Encoder::WaitForIt() {
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        if (Interrupted()) ::kill(pid_, SIGKILL);
    }
    pid_ = -1;
    return status;
}

bool Encoder::Finish(std::string& error) {
    if (pid_ < 0) return false;
    Close(frames_);
    Close(sound_);
    const int status = WaitForIt();
    const bool ended = WIFEXITED(status) && WEXITSTATUS(status) == 0 && !Interrupted();
    if (ended && ::rename(part_.c_str(), path_.c_str()) == 0) {
        part_.clear();
        return true;
    }
    const std::string said = LastLine(said_);
    error = ended ? "cannot write " + path_ : said.empty() ? "ffmpeg has failed" : "ffmpeg: " + said;
    Stop();
    return false;
}

void Encoder::Stop() {
    if (pid_ >= 0) {
        ::kill(pid_, SIGKILL);
        WaitForIt();
    }
    Close(frames_);
    Close(sound_);
    if (said_ != nullptr) std::fclose(std::exchange(said_, nullptr));
    if (!part_.empty()) RemoveFile(std::exchange(part_, {}));
}

}  // namespace brickfall
