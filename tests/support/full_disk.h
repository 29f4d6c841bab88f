// full_disk.h - a disk without room for more.
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace brickfall {

// No file of this process grows beyond `bytes`; what would write on gets an error.
struct FullDisk {
    explicit FullDisk(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before);
        const rlimit limit = {bytes, before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, handler);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

    rlimit before = {};
    void (*const handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

}  // namespace brickfall
