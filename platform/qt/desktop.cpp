// A claimed window class is a lock file and a socket in a folder of the user's own. The lock ends with its
// process, however that ends, so a socket without a locked file is a dead one's.
#include "platform/desktop.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QGuiApplication>
#include <QLibraryInfo>
#include <QSocketNotifier>
#include <QUrl>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/text.h"
#include "platform/automation.h"
#include "platform/qt/convert.h"
#include "platform/qt/desktop_server.h"

namespace brickfall {
namespace {

constexpr int64_t kRaiseNs = 1'000'000'000;
constexpr int64_t kRaiseRetryMs = 20;
constexpr int kConnectMs = 1'000;

class FileHandle {
  public:
    explicit FileHandle(int file = -1) : file_(file) {}
    ~FileHandle() {
        if (file_ >= 0) ::close(file_);
    }
    FileHandle(FileHandle&& other) noexcept : file_(std::exchange(other.file_, -1)) {}
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    FileHandle& operator=(FileHandle&&) = delete;
    int Get() const { return file_; }
    bool Open() const { return file_ >= 0; }

  private:
    int file_;
};

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

// ---- Window classes

// A folder that this user alone can write; empty when there is none.
std::string OwnFolder() {
    std::string folder = Variable("XDG_RUNTIME_DIR");
    if (folder.empty()) {
        const std::string temporary = Variable("TMPDIR");
        folder = (temporary.empty() ? "/tmp" : temporary) + "/window-classes-" + std::to_string(::getuid());
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return {};
    }
    struct stat about {};
    const bool is_own = ::lstat(folder.c_str(), &about) == 0 && S_ISDIR(about.st_mode) &&
                        about.st_uid == ::getuid() && (about.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return is_own ? folder : std::string();
}

// Without an ending; empty when there can be none.
std::string PathOfClass(std::string_view window_class) {
    const std::string folder = OwnFolder();
    if (folder.empty() || window_class.empty()) return {};
    std::string name(window_class);
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !IsAsciiLetterOrDigit(c); }, '_');
    return folder + "/" + name;
}

bool AddressOf(const std::string& path, bool is_abstract, sockaddr_un& address, socklen_t& length) {
    address = {};
    address.sun_family = AF_UNIX;
    const std::size_t before = is_abstract ? 1 : 0;
    if (before + path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path + before, path.data(), path.size());
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + before + path.size() +
                                    (is_abstract ? 0 : 1));
    return true;
}

// Connected, or about to be by a process that is too busy to accept now.
bool CanConnect(const std::string& path, bool is_abstract = false) {
    sockaddr_un address;
    socklen_t length = 0;
    if (!AddressOf(path, is_abstract, address, length)) return false;
    const FileHandle handle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!handle.Open()) return false;
    return ::connect(handle.Get(), reinterpret_cast<const sockaddr*>(&address), length) == 0 ||
           errno == EAGAIN;
}

// Locks of the open file, so that each claim stands for itself, within a process too.
struct flock WholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

bool Lock(int file) {
    struct flock lock = WholeFile();
    return ::fcntl(file, F_OFD_SETLK, &lock) == 0;
}

// Only looks: a lock taken for a moment could make two starts take each other for the first.
bool IsLocked(int file) {
    struct flock lock = WholeFile();
    return ::fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

FileHandle OpenLockFile(const std::string& path) {
    return FileHandle(::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

FileHandle Listen(const std::string& path) {
    sockaddr_un address;
    socklen_t length = 0;
    FileHandle handle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!handle.Open() || !AddressOf(path, false, address, length)) return FileHandle();
    ::unlink(path.c_str());  // of a process that has crashed: the lock is ours
    if (::bind(handle.Get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        ::chmod(path.c_str(), 0600) != 0 || ::listen(handle.Get(), 8) != 0) {
        return FileHandle();
    }
    return handle;
}

struct Claim {
    std::string path;
    FileHandle lock;
    FileHandle socket;
    std::unique_ptr<QSocketNotifier> notifier;
};

std::vector<Claim>& Claims() {
    static auto& claims = *new std::vector<Claim>;
    return claims;
}

// True when somebody of this user has connected.
bool AcceptAll(int socket) {
    bool asked = false;
    for (;;) {
        const FileHandle peer(::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC));
        if (!peer.Open()) return asked;
        ucred who{};
        socklen_t length = sizeof(who);
        if (::getsockopt(peer.Get(), SOL_SOCKET, SO_PEERCRED, &who, &length) == 0 && who.uid == ::getuid()) {
            asked = true;
        }
    }
}

// ---- Displays

bool WaylandAvailable() {
    const std::string name = Variable("WAYLAND_DISPLAY");
    if (name.empty()) return false;
    const QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms"));
    if (plugins.entryList({QStringLiteral("libqwayland*")}, QDir::Files).isEmpty()) return false;
    return CanConnect(name.starts_with('/') ? name : Variable("XDG_RUNTIME_DIR") + "/" + name);
}

bool CanConnectByNet(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return false;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> all(found, ::freeaddrinfo);
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        const FileHandle handle(
            ::socket(one->ai_family, one->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, one->ai_protocol));
        if (!handle.Open()) continue;
        if (::connect(handle.Get(), one->ai_addr, one->ai_addrlen) == 0) return true;
        if (errno != EINPROGRESS) continue;
        pollfd waiting = {handle.Get(), POLLOUT, 0};
        int error = 0;
        socklen_t length = sizeof(error);
        if (::poll(&waiting, 1, kConnectMs) == 1 &&
            ::getsockopt(handle.Get(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0) {
            return true;
        }
    }
    return false;
}

// "host:number.screen"; without a host the display is this machine's.
bool X11Available() {
    const std::string display = Variable("DISPLAY");
    const std::size_t colon = display.rfind(':');
    if (colon == std::string::npos) return false;
    const std::string host = display.substr(0, colon);
    const std::string number = display.substr(colon + 1, display.find('.', colon) - colon - 1);
    const bool is_number =
        !number.empty() && number.size() <= 4 &&
        std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!is_number) return false;
    if (!host.empty() && host != "unix") return CanConnectByNet(host, 6'000 + std::atoi(number.c_str()));
    const std::string path = "/tmp/.X11-unix/X" + number;
    return CanConnect(path, /*is_abstract=*/true) || CanConnect(path);
}

// ---- Programs

// In the child of a fork, where only calls that are safe after one are made. `report` closes with the start.
[[noreturn]] void BecomeProgram(const char* path, const char* folder, int report) {
    ::setsid();
    const pid_t grandchild = ::fork();  // its parent ends at once, so nobody has to wait for it
    if (grandchild > 0) ::_exit(0);
    const int nothing = ::open("/dev/null", O_RDWR);
    for (int standard = 0; nothing >= 0 && standard <= 2; ++standard) ::dup2(nothing, standard);
    if (nothing > 2) ::close(nothing);
    if (grandchild == 0 && (folder[0] == '\0' || ::chdir(folder) == 0)) {
        char* const arguments[] = {const_cast<char*>(path), nullptr};
        ::execv(path, arguments);
    }
    const char failed = 1;
    static_cast<void>(!::write(report, &failed, 1));
    ::_exit(127);
}

bool collect_addresses = false;
std::vector<std::string>& OpenedAddresses() {
    static auto& addresses = *new std::vector<std::string>;
    return addresses;
}

}  // namespace

bool DisplayAvailable() {
    const std::string platform = Variable("QT_QPA_PLATFORM");
    if (!platform.empty() && !platform.starts_with("xcb") && !platform.starts_with("wayland")) return true;
    if (platform.starts_with("xcb")) return X11Available();
    return WaylandAvailable() || X11Available();
}

bool ClaimWindowClass(std::string_view window_class, std::function<void()> raise) {
    const std::string path = PathOfClass(window_class);
    if (path.empty()) return true;  // no place to be found at: better alone than not at all
    FileHandle lock = OpenLockFile(path);
    if (!lock.Open()) return true;
    if (!Lock(lock.Get())) return false;
    Claim claim = {path, std::move(lock), Listen(path + ".socket"), nullptr};
    if (claim.socket.Open()) {
        const int socket = claim.socket.Get();
        claim.notifier = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Read);
        QObject::connect(claim.notifier.get(), &QSocketNotifier::activated, claim.notifier.get(),
                         [socket, raise = std::move(raise)] {
                             if (AcceptAll(socket) && raise) raise();
                         });
    }
    Claims().push_back(std::move(claim));
    return true;
}

void ReleaseWindowClasses() {
    for (Claim& claim : Claims()) {
        claim.notifier.reset();
        if (claim.socket.Open()) ::unlink((claim.path + ".socket").c_str());
    }
    Claims().clear();  // the locks last
}

bool RaiseWindowOfClass(std::string_view window_class) {
    const std::string path = PathOfClass(window_class);
    if (path.empty()) return false;
    const int64_t begin = MonotonicNs();
    for (;;) {
        {
            const FileHandle lock(::open((path + ".lock").c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
            if (!lock.Open() || !IsLocked(lock.Get())) return false;
        }
        if (CanConnect(path + ".socket")) return true;
        if (MonotonicNs() - begin > kRaiseNs - kRaiseRetryMs * 1'000'000) return false;
        SleepMs(kRaiseRetryMs);  // it is just coming up
    }
}

std::string ExecutableFolder() {
    std::string path(4'096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool StartProgram(const std::string& path, const std::string& folder) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    const FileHandle read_end(ends[0]);
    pid_t child = -1;
    {
        const FileHandle write_end(ends[1]);
        child = ::fork();
        if (child == 0) BecomeProgram(path.c_str(), folder.c_str(), write_end.Get());
    }
    if (child < 0) return false;
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    char failed = 0;
    ssize_t count = -1;
    do {
        count = ::read(read_end.Get(), &failed, 1);
    } while (count < 0 && errno == EINTR);
    return count == 0;  // closed by the start of the program
}

void CopyText(std::string_view text) { QGuiApplication::clipboard()->setText(ToQString(text)); }

void OpenAddress(const std::string& url) {
    const QUrl address(ToQString(url), QUrl::StrictMode);
    const bool is_web =
        address.scheme() == QStringLiteral("https") || address.scheme() == QStringLiteral("http");
    if (!address.isValid() || !is_web) return;
    if (collect_addresses) {
        OpenedAddresses().push_back(url);
    } else {
        QDesktopServices::openUrl(address);
    }
}

std::vector<std::string> TakeOpenedAddresses() {
    collect_addresses = true;
    return std::exchange(OpenedAddresses(), {});
}

}  // namespace brickfall
