// fault_shim.cpp - a library for LD_PRELOAD that ends or starves its process at one drawn moment. Once armed
// it counts the calls that change or need something, and at the n-th of them does what its environment says:
//   BRICKFALL_FAULT_KIND   a name of kFaultKinds
//   BRICKFALL_FAULT_AT     n, from 1; 0 only counts
//   BRICKFALL_FAULT_ON     1: from then on; else once
//   BRICKFALL_FAULT_LOG    a file that gets the name of the call that was met, with its file
// The process arms it with fault_shim_arm, found by dlsym, and reads the counts with fault_shim_count. Calls
// go to the kernel directly, so nothing here allocates or takes a lock.
#include "soak/fault_shim.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

using brickfall::FaultKind;
using brickfall::FaultNeed;
using brickfall::kFaultKinds;
using brickfall::kFaultNeeds;
using Act = brickfall::FaultAct;

const FaultKind* kind = nullptr;
uint64_t at = 0;
bool from_then_on = false;
int log_file = -1;
std::atomic<bool> armed = false;
std::atomic<uint64_t> counts[kFaultNeeds];
std::atomic<bool> met = false;
std::atomic<bool> torn = false;  // of "short": the next write finds no room

struct Call {
    const char* name;
    const char* path = nullptr;
    int file = -1;  // where there is no path
};

long Kernel(long number, auto... arguments) { return ::syscall(number, arguments...); }

void Log(const Call& call, uint64_t number) {
    char path[300] = "";
    if (call.path != nullptr) {
        ::strncpy(path, call.path, sizeof path - 1);
    } else if (call.file >= 0) {
        char link[40];
        ::snprintf(link, sizeof link, "/proc/self/fd/%d", call.file);
        const long length = Kernel(SYS_readlinkat, AT_FDCWD, link, path, sizeof path - 1);
        path[length > 0 ? length : 0] = '\0';
    }
    char line[400];
    const int length = ::snprintf(line, sizeof line, "%llu %s %s\n", static_cast<unsigned long long>(number),
                                  call.name, path);
    if (log_file >= 0 && length > 0) Kernel(SYS_write, log_file, line, static_cast<std::size_t>(length));
}

[[noreturn]] void Die() {
    for (;;) Kernel(SYS_kill, ::getpid(), SIGKILL);
}

constexpr unsigned Bit(FaultNeed need) { return 1u << static_cast<unsigned>(need); }
constexpr unsigned kChange = Bit(FaultNeed::kChange);
constexpr unsigned kRoom = Bit(FaultNeed::kRoom);
constexpr unsigned kLeave = Bit(FaultNeed::kLeave);
constexpr unsigned kDescriptor = Bit(FaultNeed::kDescriptor);
constexpr unsigned kMemory = Bit(FaultNeed::kMemory);
constexpr unsigned kObject = Bit(FaultNeed::kObject);

// What becomes of a call with such needs. kKill does not return.
Act Meet(unsigned needs, const Call& call) {
    if (!armed.load(std::memory_order_relaxed)) return Act::kNone;
    uint64_t number = 0;
    for (std::size_t i = 0; i < kFaultNeeds; ++i) {
        if ((needs >> i & 1) == 0) continue;
        const uint64_t count = ++counts[i];
        if (kind != nullptr && static_cast<std::size_t>(kind->need) == i) number = count;
    }
    if (at == 0 || number == 0 || number < at) return Act::kNone;
    if (number > at && !from_then_on) return Act::kNone;
    if (!met.exchange(true)) Log(call, number);
    if (kind->act == Act::kKill) Die();
    return kind->act;
}

// The kernel's answer to the call, or the fault's.
int Do(unsigned needs, const Call& call, long number, auto... arguments) {
    const Act act = Meet(needs, call);
    if (act == Act::kTear && kind->need == FaultNeed::kChange) {
        Kernel(number, arguments...);
        Die();
    }
    if (act == Act::kNone) return static_cast<int>(Kernel(number, arguments...));
    errno = kind->error;
    return -1;
}

bool IsRegular(int file) {
    struct stat status = {};
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

ssize_t Write(int file, const void* data, std::size_t size) {
    const auto put = [&](std::size_t bytes) { return Kernel(SYS_write, file, data, bytes); };
    // The standard streams are nothing that anybody keeps.
    if (file <= STDERR_FILENO || !armed.load(std::memory_order_relaxed)) return put(size);
    const bool regular = IsRegular(file);
    const bool is_full = regular && torn.exchange(false);
    const Act act =
        is_full ? Act::kFail : Meet(regular ? kChange | kRoom : kChange, {"write", nullptr, file});
    if (act == Act::kNone) return put(size);
    const bool halved = act == Act::kTear && size > 1 && put(size / 2) > 0;
    if (kind->need == FaultNeed::kChange) Die();
    errno = kind->error;
    torn = halved;
    return halved ? static_cast<ssize_t>(size / 2) : -1;
}

int OpenAt(int folder, const char* path, int flags, va_list list) {
    unsigned needs = kDescriptor;
    if ((flags & O_ACCMODE) != O_RDONLY) needs |= kChange | kLeave;
    if ((flags & O_CREAT) != 0) needs |= kRoom;
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    return Do(needs, {"open", path}, SYS_openat, folder, path, flags, mode);
}

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}
using OpenFolder = DIR* (*)(const char*);
using StartThread = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
OpenFolder real_opendir = nullptr;
StartThread real_pthread_create = nullptr;

bool Refused() { return Meet(kMemory, {"malloc"}) != Act::kNone; }

__attribute__((constructor)) void Load() {
    real_opendir = Real<OpenFolder>("opendir");
    real_pthread_create = Real<StartThread>("pthread_create");
    const auto value = [](const char* name) {
        const char* text = ::getenv(name);
        return text != nullptr ? text : "";
    };
    for (const FaultKind& each : kFaultKinds) {
        if (std::strcmp(each.name, value("BRICKFALL_FAULT_KIND")) == 0) kind = &each;
    }
    at = ::strtoull(value("BRICKFALL_FAULT_AT"), nullptr, 10);
    from_then_on = std::strcmp(value("BRICKFALL_FAULT_ON"), "1") == 0;
    const char* log = value("BRICKFALL_FAULT_LOG");
    if (*log == '\0') return;
    log_file =
        static_cast<int>(Kernel(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
}

}  // namespace

// The names of the C library, which come before its own.
extern "C" {

__attribute__((visibility("default"))) void fault_shim_arm(int on) { armed = on != 0; }
__attribute__((visibility("default"))) uint64_t fault_shim_count(int need) { return counts[need]; }

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

#define EXPORT __attribute__((visibility("default")))

EXPORT void* malloc(std::size_t size) noexcept {
    if (!Refused()) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}
EXPORT void* calloc(std::size_t count, std::size_t size) noexcept {
    if (!Refused()) return __libc_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}
EXPORT void* realloc(void* place, std::size_t size) noexcept {
    if (!Refused()) return __libc_realloc(place, size);
    errno = ENOMEM;
    return nullptr;
}

EXPORT int open(const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const int file = OpenAt(AT_FDCWD, path, flags, list);
    va_end(list);
    return file;
}
EXPORT int openat(int folder, const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const int file = OpenAt(folder, path, flags, list);
    va_end(list);
    return file;
}
EXPORT DIR* opendir(const char* path) {
    if (Meet(kDescriptor, {"opendir", path}) == Act::kNone) return real_opendir(path);
    errno = kind->error;
    return nullptr;
}
EXPORT ssize_t write(int file, const void* data, std::size_t size) { return Write(file, data, size); }
EXPORT ssize_t send(int file, const void* data, std::size_t size, int flags) {
    const auto send = [&](std::size_t bytes) {
        return Kernel(SYS_sendto, file, data, bytes, flags, nullptr, 0);
    };
    if (Meet(kChange, {"send", nullptr, file}) == Act::kTear) {
        send(size / 2);
        Die();
    }
    return send(size);
}
EXPORT ssize_t recv(int file, void* data, std::size_t size, int flags) {
    return Do(kChange, {"recv", nullptr, file}, SYS_recvfrom, file, data, size, flags, nullptr, nullptr);
}
EXPORT int connect(int file, const sockaddr* address, socklen_t size) {
    return Do(kChange, {"connect", nullptr, file}, SYS_connect, file, address, size);
}
EXPORT int socket(int domain, int type, int protocol) noexcept {
    return Do(kChange | kDescriptor, {"socket"}, SYS_socket, domain, type, protocol);
}
EXPORT int socketpair(int domain, int type, int protocol, int pair[2]) noexcept {
    return Do(kDescriptor, {"socketpair"}, SYS_socketpair, domain, type, protocol, pair);
}
EXPORT int pipe2(int pair[2], int flags) noexcept {
    return Do(kDescriptor, {"pipe2"}, SYS_pipe2, pair, flags);
}
EXPORT int eventfd(unsigned count, int flags) noexcept {
    return Do(kDescriptor, {"eventfd"}, SYS_eventfd2, count, flags);
}
EXPORT int fsync(int file) { return Do(kChange | kRoom, {"fsync", nullptr, file}, SYS_fsync, file); }
EXPORT int ftruncate(int file, off_t size) noexcept {
    return Do(kChange | kRoom, {"ftruncate", nullptr, file}, SYS_ftruncate, file, size);
}
EXPORT int fchmod(int file, mode_t mode) noexcept {
    return Do(kChange | kLeave, {"fchmod", nullptr, file}, SYS_fchmod, file, mode);
}
EXPORT int fchown(int file, uid_t owner, gid_t group) noexcept {
    return Do(kChange | kLeave, {"fchown", nullptr, file}, SYS_fchown, file, owner, group);
}
EXPORT int fcntl(int file, int command, ...) {
    va_list list;
    va_start(list, command);
    void* const argument = va_arg(list, void*);  // as wide as any that the kernel takes
    va_end(list);
    const bool locks = command == F_OFD_SETLK || command == F_OFD_SETLKW;
    return Do(locks ? kChange | kDescriptor : 0, {"lock", nullptr, file}, SYS_fcntl, file, command, argument);
}
EXPORT int rename(const char* from, const char* to) noexcept {
    return Do(kChange | kRoom | kLeave, {"rename", to}, SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}
EXPORT int unlink(const char* path) noexcept {
    return Do(kChange | kLeave, {"unlink", path}, SYS_unlinkat, AT_FDCWD, path, 0);
}
EXPORT int mkdir(const char* path, mode_t mode) noexcept {
    return Do(kChange | kRoom | kLeave, {"mkdir", path}, SYS_mkdirat, AT_FDCWD, path, mode);
}
EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) noexcept {
    if (Meet(kMemory, {"thread"}) != Act::kNone) return EAGAIN;
    return real_pthread_create(thread, attributes, body, argument);
}

}  // extern "C"

EXPORT void* operator new(std::size_t size) {
    void* const place =
        Meet(kMemory | kObject, {"operator new"}) == Act::kNone ? __libc_malloc(size) : nullptr;
    return place != nullptr ? place : throw std::bad_alloc();
}
