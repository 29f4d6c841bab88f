// faces.h - the players' pictures: which one belongs to a row, fetched and read by a decoder that is handed
// in. No state; any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/image.h"
#include "board/watch_reader.h"

namespace brickfall {

inline constexpr int kFaceSize = 38;  // side of a face, pixels
inline constexpr int kFaceMaxSide =
    4 * kFaceSize;  // kept of a picture: sharp on a screen of four times the density
inline constexpr std::size_t kFaceMinBytes = 33;  // a shorter download is no picture

inline constexpr std::size_t kFaceMaxBytes = 16 << 20;  // a longer one is given up

// The picture in a file from anywhere, neither side above `max_side`; nothing for what is no picture.
using FaceDecoder = std::function<std::optional<Image>(std::string file, int max_side)>;

// Pictures by face key.
using Faces = std::map<std::string, Image, std::less<>>;

// The name of a row without its domain, or else its pay address.
std::string FaceKey(const ScoreRow& row);

// Where the player's picture is; empty when there is none. Blocks for one request of up to 14 s.
std::string ResolveAvatarUrl(std::string_view key);

// The same of a profile in hand: a web address, or that of an inscription.
std::string AvatarOfProfile(const nlohmann::json& profile);

// The player's picture, downloaded and decoded; nothing where there is none. Blocks for two requests.
std::optional<Image> LoadFace(const std::string& key, const FaceDecoder& decode);

// Downloads and decodes the picture of each row that has one, one at a time. A key is looked up once, for its
// first row, whatever comes of it.
void LoadFaces(const std::vector<ScoreRow>& rows, const FaceDecoder& decode, Faces& faces);

}  // namespace brickfall
