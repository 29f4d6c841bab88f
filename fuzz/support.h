// support.h - what fuzz targets share: a check that always stands, the input as text, and a store of their
// own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/files.h"

namespace brickfall {

// A law that an input may break. Compiled in always, unlike assert.
inline void Require(bool holds) {
    if (!holds) std::abort();
}

inline std::string_view AsText(const uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// A new user-data folder with the store's folder and `below` in it, gone with its scope.
class FuzzStore {
  public:
    explicit FuzzStore(const std::string& below = "")
        : path_((std::filesystem::temp_directory_path() / "brickfall-fuzz-XXXXXX").string()) {
        Require(::mkdtemp(path_.data()) != nullptr);
        ::setenv("LOCALAPPDATA", path_.c_str(), 1);
        Require(MakeFolders(path_ + "/Orvane" + below));
    }
    ~FuzzStore() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    FuzzStore(const FuzzStore&) = delete;
    FuzzStore& operator=(const FuzzStore&) = delete;
    const std::string& Path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace brickfall
