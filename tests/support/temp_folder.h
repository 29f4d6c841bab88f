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

// Makes a new folder the user-data folder of the process, so that no test touches the user's own; in it lies
// the store.
class TempUserData {
  public:
    TempUserData();
    ~TempUserData();
    const std::string& Path() const { return folder_.Path(); }
    std::string InStore(std::string_view name) const { return Path() + "/Orvane/" + std::string(name); }
    void Put(std::string_view name, std::string_view content) const;  // and the folders above the file

  private:
    TempFolder folder_;
};

}  // namespace brickfall
