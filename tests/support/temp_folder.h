// temp_folder.h - a private folder that is gone with its scope, and a user-data folder for the code under
// test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brickfall {

// A plain write over what is there, through links too: what another program, or a fault, leaves behind.
inline bool WriteFile(const std::string& path, std::string_view content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content << std::flush;
    return file.good();
}

class TempFolder {
  public:
    TempFolder() {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& Path() const { return path_; }

  private:
    std::string path_ = (std::filesystem::temp_directory_path() / "brickfall-test-XXXXXX").string();
};

// Makes a new folder the user-data folder of the process, so that no test touches the user's own; in it lies
// the store.
class TempUserData {
  public:
    TempUserData() { ::setenv("LOCALAPPDATA", Path().c_str(), 1); }
    ~TempUserData() { ::setenv("LOCALAPPDATA", "/nonexistent-brickfall-test", 1); }
    const std::string& Path() const { return folder_.Path(); }
    std::string InStore(std::string_view name) const { return Path() + "/Orvane/" + std::string(name); }
    void Put(std::string_view name, std::string_view content) const {  // and the folders above the file
        const std::string path = InStore(name);
        std::filesystem::create_directories(path.substr(0, path.rfind('/')));
        if (!WriteFile(path, content)) throw std::runtime_error("cannot write " + path);
    }

  private:
    TempFolder folder_;
};

}  // namespace brickfall
