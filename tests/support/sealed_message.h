// sealed_message.h - opens what was sealed, for tests: written from the published description of the scheme,
// and sharing no code with what seals. Also a working folder of its own, where the key files lie.
#pragma once

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/temp_folder.h"

namespace brickfall {

// All parts of a row, joined, by the content key that is sealed at `wrap_key`.
std::optional<std::string> OpenMessage(const nlohmann::json& row, const char* wrap_key,
                                       std::string_view private_hex);

// Makes a new folder the working folder of the process until its scope ends.
class WorkingFolder {
  public:
    WorkingFolder() : before_(std::filesystem::current_path()) { std::filesystem::current_path(own_.Path()); }
    ~WorkingFolder() { std::filesystem::current_path(before_); }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

  private:
    TempFolder own_;
    std::filesystem::path before_;
};

}  // namespace brickfall
