#include "base/secret.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <mutex>

#if defined(__SANITIZE_ADDRESS__)
#define BRICKFALL_CHECKED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BRICKFALL_CHECKED_HEAP 1
#endif
#endif

namespace brickfall {
namespace {

std::mutex& dump_lock = *new std::mutex;
bool forbidden = false;  // guarded by dump_lock, with what stood before
int former_dumpable = 1;
rlimit former_core = {};

}  // namespace

#ifdef BRICKFALL_CHECKED_HEAP
// Where every access is checked, that is worth more than where the pages lie.
void* AllocateSecret(std::size_t bytes) { return ::operator new(bytes); }

void FreeSecret(void* place, std::size_t bytes) {
    OPENSSL_cleanse(place, bytes);
    ::operator delete(place);
}
#else
namespace {

// The library's secure heap, which its own big numbers use too. A process may lock little, so that what is
// larger than a key or a phrase, such as a wallet's file, has pages of its own while it is needed.
constexpr std::size_t kHeapBytes = std::size_t{256} * 1024;
constexpr std::size_t kSmallestBlock = 32;
constexpr std::size_t kLargestBlock = 4096;

// False without memory; the next call tries again. A limit on locked pages is no failure: they are kept out
// of dumps all the same.
bool HaveHeap() {
    static std::mutex& lock = *new std::mutex;
    const std::lock_guard guard(lock);
    return CRYPTO_secure_malloc_initialized() == 1 ||
           CRYPTO_secure_malloc_init(kHeapBytes, kSmallestBlock) != 0;
}

void* MapPages(std::size_t bytes) {
    void* const place =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, /*fd=*/-1, /*offset=*/0);
    if (place == MAP_FAILED) throw std::bad_alloc();
    static_cast<void>(::mlock(place, bytes));
    static_cast<void>(::madvise(place, bytes, MADV_DONTDUMP));
    return place;
}

}  // namespace

void* AllocateSecret(std::size_t bytes) {
    if (!HaveHeap()) throw std::bad_alloc();
    void* const place = bytes <= kLargestBlock ? OPENSSL_secure_malloc(bytes) : nullptr;
    return place != nullptr ? place : MapPages(bytes);
}

void FreeSecret(void* place, std::size_t bytes) {
    if (CRYPTO_secure_allocated(place) == 1) {
        OPENSSL_secure_clear_free(place, bytes);
        return;
    }
    OPENSSL_cleanse(place, bytes);
    ::munmap(place, bytes);
}
#endif

void ForbidDumps() {
    const std::lock_guard guard(dump_lock);
    if (forbidden) return;
    forbidden = true;
    former_dumpable = ::prctl(PR_GET_DUMPABLE);
    ::getrlimit(RLIMIT_CORE, &former_core);
    const rlimit none = {0, former_core.rlim_max};
    ::setrlimit(RLIMIT_CORE, &none);
    ::prctl(PR_SET_DUMPABLE, 0);
}

void PermitDumps() {
    const std::lock_guard guard(dump_lock);
    if (!forbidden) return;
    forbidden = false;
    ::setrlimit(RLIMIT_CORE, &former_core);
    if (former_dumpable == 1) ::prctl(PR_SET_DUMPABLE, 1);  // the kernel takes no other value
}

}  // namespace brickfall
