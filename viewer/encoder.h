// encoder.h - the distribution's ffmpeg, started as a program: frames and sound go in through pipes, and a
// film comes out. One thread for the frames, one for the sound.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "platform/geometry.h"

namespace brickfall {

class Encoder {
  public:
    Encoder() = default;
    ~Encoder() { Stop(); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    // Nothing has the name `path` until Finish. False when the program cannot be started; `error` says why.
    bool Start(const std::string& path, Size size, bool with_sound, std::string& error);

    // False when the program takes no more, or a signal has come.
    bool WriteFrame(std::span<const uint8_t> yuv420) const { return Write(frames_, yuv420); }
    bool WriteSound(std::span<const int16_t> samples) const;
    void EndSound();
    void EndFrames();
    void Kill() const;  // both pipes are let go; Finish or Stop is still to come

    // Waits for the last frame to be in the film, which then stands under its name. On false `error` says
    // why, and nothing of it is left.
    bool Finish(std::string& error);
    void Stop();  // nothing of it is left

  private:
    static bool Write(int pipe, std::span<const uint8_t> bytes);
    int WaitForIt();

    std::string path_;
    std::string part_;
    std::FILE* said_ = nullptr;  // what it has to complain of
    pid_t pid_ = -1;
    int frames_ = -1;
    int sound_ = -1;
};

}  // namespace brickfall
