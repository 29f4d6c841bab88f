// files.h - the file operations that the program's stores are made of. Paths are UTF-8 text.
// Every file that it creates is for the user alone (0600), every folder too (0700). No function throws; any
// thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/secret.h"

namespace brickfall {

// The folder that holds the user's own application data: the environment variable "LOCALAPPDATA", else
// "XDG_DATA_HOME", else ".local/share" below "HOME", else ".". An empty variable counts as unset.
std::string UserDataFolder();

// What a read of a file came to. A file that is there and cannot be read is not an empty one: nothing may
// replace it for having read as nothing.
enum class FileState { kRead, kMissing, kUnreadable };

// No file of the program is anywhere near as long.
inline constexpr std::size_t kMaxFileBytes = 64 << 20;

// The whole content; empty unless the state is kRead. kMissing: nothing has the name. kUnreadable: no regular
// file, longer than `max_bytes`, no permission, no descriptor left, an error of the disk.
FileState ReadFile(const std::string& path, std::string& content, std::size_t max_bytes = kMaxFileBytes);
FileState ReadSecretFile(const std::string& path, SecretString& content,
                         std::size_t max_bytes = kMaxFileBytes);

// The whole content, or nothing when it cannot be had, for whatever reason.
std::optional<std::string> ReadFile(const std::string& path);

// The same for a file that may hold secrets: the content passes through wiped memory only.
std::optional<SecretString> ReadSecretFile(const std::string& path);

// Whether a new content waits for the disk, some ten milliseconds, so that it outlives a loss of power.
enum class Flush { kNow, kLater };

// The one way a file is written: whole, through a temporary file in the same folder that is flushed to the
// disk and moved over `path` in one step, so that a reader, or the next start after a kill at any moment,
// sees the old content or the new. The file keeps its mode; a symbolic link stays, and the file that it leads
// to is replaced. False, and everything is as it was, when something has the name that is no regular file, or
// that this user may not read and write, and when the disk does not take the content.
bool ReplaceFile(const std::string& path, std::string_view content, Flush flush = Flush::kNow);

// Creates the folder with all its parents; true when it is there afterwards.
bool MakeFolders(const std::string& path);

bool FileExists(const std::string& path);

// Removes a file; true when it is gone afterwards.
bool RemoveFile(const std::string& path);

// Moves a file over what has the name; where a rename is not possible (another file system), copies it and
// removes the old one. False when the old file is still in place.
bool MoveFile(const std::string& from, const std::string& to);

// Lets this process have thousands of files and connections open, where the system's administrator allows it:
// the usual limit is one that a wallet of a few hundred addresses meets. Called once, at the program's start.
void RaiseDescriptorLimit();

// An exclusive lock of the first byte of a file between processes. It blocks until granted, without a
// time-out, and ends with the process that holds it, however that ends.
class ByteLock {
  public:
    ByteLock() = default;
    ~ByteLock() { Release(); }
    ByteLock(const ByteLock&) = delete;
    ByteLock& operator=(const ByteLock&) = delete;

    // Opens or creates the file and waits for the byte. False when the file or the lock cannot be had.
    bool Acquire(const std::string& path);
    void Release();

  private:
    int file_ = -1;
};

}  // namespace brickfall
