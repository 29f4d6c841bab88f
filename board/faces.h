// faces.h - the players' pictures: which one belongs to a row, and its file's bytes. They are decoded where
// they are drawn. No state; any thread.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "board/watch_reader.h"

namespace brickfall {

inline constexpr int kFaceSize = 38;              // side of a face, pixels
inline constexpr std::size_t kFaceMinBytes = 33;  // a shorter download is no picture

// Picture files by face key.
using FaceBytes = std::map<std::string, std::string>;

// The name of a row without its domain, or else its pay address.
std::string FaceKey(const ScoreRow& row);

// Where the player's picture is; empty when there is none. Blocks for one request of up to 14 s.
std::string ResolveAvatarUrl(std::string_view key);

// Downloads the picture of each row that has one, each key once. One request at a time.
void LoadFaces(const std::vector<ScoreRow>& rows, FaceBytes& face_bytes);

}  // namespace brickfall
