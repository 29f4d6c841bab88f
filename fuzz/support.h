// support.h - what fuzz targets share: a check that always stands, the input as text, a bound on what an
// input may cost, a clock that stands still, and a store of their own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "base/files.h"

namespace brickfall {

// A law that an input may break. Compiled in always, unlike assert.
inline void Require(bool holds) {
    if (!holds) std::abort();
}

inline std::string_view AsText(const uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// The bytes asked of operator new so far: what an input costs, on any machine and in any build.
inline std::atomic<uint64_t> allocated_bytes = 0;

// Within its scope an input may cost so much, and so much more for each of its bytes.
class CostBound {
  public:
    CostBound(uint64_t any_input, std::size_t size, uint64_t each_byte)
        : limit_(allocated_bytes + any_input + size * each_byte) {}
    ~CostBound() {
        if (allocated_bytes <= limit_) return;
        std::fprintf(stderr, "fuzz: asked for %llu bytes more than it may\n",
                     static_cast<unsigned long long>(allocated_bytes - limit_));
        std::abort();
    }
    CostBound(const CostBound&) = delete;
    CostBound& operator=(const CostBound&) = delete;

  private:
    uint64_t limit_;
};

// From now on it is always the same moment, and sleeping takes no time.
inline constexpr int64_t kFuzzNow = 1'790'000'000;  // Unix seconds
inline void StopClock() {
    static constexpr Clock kStopped = {[](void*) { return kFuzzNow * 1'000; }, [](void*) { return kFuzzNow; },
                                       [](void*) { return uint64_t{kFuzzNow}; }, [](void*, int64_t) {},
                                       nullptr};
    InstallClock(&kStopped);
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
