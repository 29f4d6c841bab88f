#include "base/files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace brickfall {
namespace {

class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.Detach()) {}
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }
    int Detach() { return std::exchange(descriptor_, -1); }

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

std::string FolderOf(const std::string& path) {
    std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

// A name reaches the disk with its folder's entry. A folder that cannot be synced is no failure.
void FlushFolder(const std::string& folder) {
    const FileDescriptor file(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file) (void)::fsync(file.Get());
}

// Where the links at `path` end, whether a file is there yet or not; empty when they do not end.
std::string FollowLinks(std::string path) {
    constexpr int kMaxLinks = 40;
    char target[PATH_MAX];
    for (int links = 0; links < kMaxLinks; ++links) {
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) return path;
        const std::string_view link(target, static_cast<std::size_t>(length));
        path = (std::filesystem::path(path).parent_path() / link).string();
    }
    return {};
}

// The exclusive lock of the first byte, which belongs to this open file and ends with it: it excludes the
// process's own threads too, and closing another descriptor of the file does not drop it. 0 or an errno.
int LockFirstByte(int file, bool wait) {
    struct flock byte = {};
    byte.l_type = F_WRLCK;
    byte.l_whence = SEEK_SET;
    byte.l_start = 0;
    byte.l_len = 1;
    while (::fcntl(file, wait ? F_OFD_SETLKW : F_OFD_SETLK, &byte) != 0) {
        if (errno != EINTR) return errno;
    }
    return 0;
}

// Temporary files are named by process and number, and locked while they are in use.
constexpr std::string_view kTemporaryFront = ".brickfall-";
constexpr std::string_view kTemporaryBack = ".tmp";

bool IsTemporaryName(std::string_view name) {
    if (!name.starts_with(kTemporaryFront) || !name.ends_with(kTemporaryBack)) return false;
    name.remove_prefix(kTemporaryFront.size());
    return name.find_first_not_of("0123456789-") == name.size() - kTemporaryBack.size();
}

// A new, empty file in the folder, for the user alone; no descriptor when there can be none.
FileDescriptor OpenTemporary(const std::string& folder, std::string& path) {
    constexpr int kTries = 100;
    static std::atomic<uint64_t> number = 0;
    for (int i = 0; i < kTries; ++i) {
        path = folder + '/' + std::string(kTemporaryFront) + std::to_string(::getpid()) + '-' +
               std::to_string(++number) + std::string(kTemporaryBack);
        // Whatever has the name already, a link or a pipe for instance, is not opened.
        FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file && errno == EEXIST) continue;
        if (!file) return file;
        const int failure = LockFirstByte(file.Get(), /*wait=*/false);
        struct stat status = {};
        const bool taken = failure == EAGAIN || failure == EACCES;  // by one who clears leftovers
        if (!taken && ::fstat(file.Get(), &status) == 0 && status.st_nlink > 0) return file;
    }
    return FileDescriptor(-1);
}

// The owner is kept where this user may give a file away: a run as root takes nobody's file from him.
bool KeepOwnerAndMode(int file, const struct stat& former) {
    const bool given = ::fchown(file, former.st_uid, former.st_gid) == 0;
    static_cast<void>(given);
    return ::fchmod(file, former.st_mode & 0777) == 0;
}

// Removes the temporary files of processes that ended in the middle of a write: those that nobody has locked.
void RemoveLeftovers(const std::string& folder) {
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string path = entry->path().string();
        if (!IsTemporaryName(entry->path().filename().string())) continue;
        const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file && LockFirstByte(file.Get(), /*wait=*/false) == 0) ::unlink(path.c_str());
    }
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

bool ReplaceFile(const std::string& path, std::string_view content, Flush flush) {
    const std::string target = FollowLinks(path);
    if (target.empty()) return false;
    struct stat former = {};
    {
        const FileDescriptor present(::open(target.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!present && errno != ENOENT) return false;
        if (present && (::fstat(present.Get(), &former) != 0 || !S_ISREG(former.st_mode) ||
                        ::access(target.c_str(), W_OK) != 0)) {
            return false;
        }
    }
    const bool is_new = former.st_nlink == 0;
    const std::string folder = FolderOf(target);
    std::string temporary;
    FileDescriptor file = OpenTemporary(folder, temporary);
    if (!file) return false;
    const bool is_in_place = (is_new || KeepOwnerAndMode(file.Get(), former)) &&
                             WriteAll(file.Get(), content) &&
                             (flush == Flush::kLater || ::fsync(file.Get()) == 0) &&
                             ::rename(temporary.c_str(), target.c_str()) == 0;
    if (!is_in_place) {
        ::unlink(temporary.c_str());
        return false;
    }
    if (flush == Flush::kLater) return true;
    FlushFolder(folder);
    RemoveLeftovers(folder);
    return true;
}

bool MakeFolders(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);
    const std::string parent = FolderOf(path);
    if (parent != path && !MakeFolders(parent)) return false;
    if (::mkdir(path.c_str(), 0700) == 0) {
        FlushFolder(parent);
        return true;
    }
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool FileExists(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0;
}

bool RemoveFile(const std::string& path) { return ::unlink(path.c_str()) == 0 || errno == ENOENT; }

bool MoveFile(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) == 0) {
        FlushFolder(FolderOf(to));
        FlushFolder(FolderOf(from));
        return true;
    }
    SecretString content;
    if (ReadSecretFile(from, content) != FileState::kRead || !ReplaceFile(to, content)) return false;
    return RemoveFile(from);
}

void RaiseDescriptorLimit() {
    constexpr rlim_t kWanted = 8'192;
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kWanted) return;
    limit.rlim_cur = std::min(kWanted, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

bool ByteLock::Acquire(const std::string& path) {
    Release();
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file || LockFirstByte(file.Get(), /*wait=*/true) != 0) return false;
    file_ = file.Detach();
    return true;
}

void ByteLock::Release() {
    if (file_ < 0) return;
    ::close(file_);
    file_ = -1;
}

}  // namespace brickfall
