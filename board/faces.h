// faces.h - the players' pictures: which one belongs to a row, and its file's bytes. They are decoded where
// they are drawn. No state; any thread.
#pragma once

#include <cstddef>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "board/watch_reader.h"

namespace brickfall {

inline constexpr int kFaceSize = 38;                    // side of a face, pixels
inline constexpr std::size_t kFaceMinBytes = 33;        // a shorter download is no picture
inline constexpr std::size_t kFaceMaxBytes = 16 << 20;  // and a longer one none for a disc of 38 pixels

// Picture files by face key.
using FaceBytes = std::map<std::string, std::string>;

// The name of a row without its domain, or else its pay address.
std::string FaceKey(const ScoreRow& row);

// Where the player's picture is; empty when there is none. Blocks for one request of up to 14 s.
std::string ResolveAvatarUrl(std::string_view key);

// The same of a profile in hand: a web address, or that of an inscription.
std::string AvatarOfProfile(const nlohmann::json& profile);

// Downloads the picture of each row that has one, each picture once, one request at a time. A key that failed
// is tried again for its next row.
void LoadFaces(const std::vector<ScoreRow>& rows, FaceBytes& face_bytes);

}  // namespace brickfall
