#include "base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace brickfall {
namespace {

class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { Close(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }
    int Detach() { return std::exchange(descriptor_, -1); }
    bool Close() {
        if (descriptor_ < 0) return true;
        return ::close(Detach()) == 0;
    }

  private:
    int descriptor_;
};

// Reads into a string of any allocator through a buffer of its own kind, so that a secret leaves no copy
// behind.
template <typename String>
FileState ReadAll(const std::string& path, String& content, std::size_t max_bytes) {
    content.clear();
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) return errno == ENOENT || errno == ENOTDIR ? FileState::kMissing : FileState::kUnreadable;
    struct stat status = {};
    // A device or a pipe has no end that can be relied on.
    if (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return FileState::kUnreadable;
    if (static_cast<uint64_t>(status.st_size) > max_bytes) return FileState::kUnreadable;
    String read;
    read.reserve(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t used = 0;
    for (;;) {
        read.resize(std::max<std::size_t>(read.capacity(), used + 4096));
        const ssize_t got = ::read(file.Get(), read.data() + used, read.size() - used);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return FileState::kUnreadable;
        if (got == 0) break;
        used += static_cast<std::size_t>(got);
        if (used > max_bytes) return FileState::kUnreadable;  // it grows while it is read
    }
    read.resize(used);
    content = std::move(read);
    return FileState::kRead;
}

bool WriteAll(int file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t put = ::write(file, content.data(), content.size());
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        content.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

int OpenForWriting(const std::string& path) {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

std::string UserDataFolder() {
    if (std::string folder = Environment("LOCALAPPDATA"); !folder.empty()) return folder;
    if (std::string folder = Environment("XDG_DATA_HOME"); !folder.empty()) return folder;
    if (std::string home = Environment("HOME"); !home.empty()) return home + "/.local/share";
    return ".";
}

FileState ReadFile(const std::string& path, std::string& content, std::size_t max_bytes) {
    return ReadAll(path, content, max_bytes);
}

FileState ReadSecretFile(const std::string& path, SecretString& content, std::size_t max_bytes) {
    return ReadAll(path, content, max_bytes);
}

std::optional<std::string> ReadFile(const std::string& path) {
    std::string content;
    if (ReadAll(path, content, kMaxFileBytes) != FileState::kRead) return std::nullopt;
    return content;
}

std::optional<SecretString> ReadSecretFile(const std::string& path) {
    SecretString content;
    if (ReadAll(path, content, kMaxFileBytes) != FileState::kRead) return std::nullopt;
    return content;
}

bool WriteFile(const std::string& path, std::string_view content) {
    FileDescriptor file(OpenForWriting(path));
    if (!file) return false;
    const bool written = WriteAll(file.Get(), content);
    return file.Close() && written;
}

bool ReplaceFile(const std::string& path, const std::string& temporary, std::string_view content,
                 Flush flush) {
    FileDescriptor file(OpenForWriting(temporary));
    if (!file) return false;
    const bool written =
        WriteAll(file.Get(), content) && (flush == Flush::kLater || ::fsync(file.Get()) == 0);
    if (!file.Close() || !written) return false;
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    if (flush == Flush::kLater) return true;
    // The move itself reaches the disk with the folder's entry; a folder that cannot be synced is no failure.
    const std::string folder = std::filesystem::path(path).parent_path().string();
    FileDescriptor parent(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent) (void)::fsync(parent.Get());
    return true;
}

bool MakeFolders(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);
    const std::string parent = std::filesystem::path(path).parent_path().string();
    if (!parent.empty() && parent != path && !MakeFolders(parent)) return false;
    if (::mkdir(path.c_str(), 0700) == 0) return true;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool FileExists(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0;
}

bool RemoveFile(const std::string& path) { return ::unlink(path.c_str()) == 0 || errno == ENOENT; }

bool MoveFile(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) == 0) return true;
    const std::optional<SecretString> content = ReadSecretFile(from);
    if (!content || !WriteFile(to, *content)) return false;
    return RemoveFile(from);
}

bool ByteLock::Acquire(const std::string& path) {
    Release();
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file) return false;
    struct flock byte = {};
    byte.l_type = F_WRLCK;
    byte.l_whence = SEEK_SET;
    byte.l_start = 0;
    byte.l_len = 1;
    // A lock of the open file description: it excludes the process's own threads too, and closing another
    // descriptor of the file does not drop it.
    while (::fcntl(file.Get(), F_OFD_SETLKW, &byte) != 0) {
        if (errno != EINTR) return false;
    }
    file_ = file.Detach();
    return true;
}

void ByteLock::Release() {
    if (file_ < 0) return;
    ::close(file_);
    file_ = -1;
}

}  // namespace brickfall
