#include "tests/support/temp_folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace brickfall {

bool WriteFile(const std::string& path, std::string_view content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    return !file.fail();
}

TempFolder::TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "brickfall-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = name;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

TempUserData::TempUserData() { ::setenv("LOCALAPPDATA", folder_.Path().c_str(), 1); }

TempUserData::~TempUserData() { ::setenv("LOCALAPPDATA", "/nonexistent-brickfall-test", 1); }

void TempUserData::Put(std::string_view name, std::string_view content) const {
    const std::string path = InStore(name);
    std::filesystem::create_directories(path.substr(0, path.rfind('/')));
    if (!WriteFile(path, content)) throw std::runtime_error("cannot write " + path);
}

}  // namespace brickfall
