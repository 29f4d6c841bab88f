// temp_folder.h - a private folder that is gone with its scope, and a user-data folder for the code under
// test.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

// A plain write over what is there, through links too: what another program, or a fault, leaves behind.
bool WriteFile(const std::string& path, std::string_view content);

class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& Path() const { return path_; }

  private:
    std::string path_;
};

// Makes a new folder the user-data folder of the process, so that no test touches the user's own.
class TempUserData {
  public:
    TempUserData();
    ~TempUserData();
    const std::string& Path() const { return folder_.Path(); }

  private:
    TempFolder folder_;
};

}  // namespace brickfall
