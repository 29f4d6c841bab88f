// film.h - a run as a film with sound, or as single pictures beside a sound file. Main thread only. Blocks
// until all is written, or Interrupted.
#pragma once

#include <functional>
#include <string>

#include "viewer/film_frames.h"

namespace brickfall {

// `done` of `of` pictures are made.
using FilmProgress = std::function<void(std::size_t done, std::size_t of)>;

// On false `error` says why, or is empty after an interrupt; nothing half done is left. `note` tells of what
// the film lacks.
bool ExportFilm(FilmFrames& frames, const std::string& path, const FilmProgress& progress, std::string& note,
                std::string& error);

// frame-000001.png and so on, and sound.wav; each whole or not there.
bool ExportFrames(FilmFrames& frames, const std::string& folder, const FilmProgress& progress,
                  std::string& note, std::string& error);

}  // namespace brickfall
