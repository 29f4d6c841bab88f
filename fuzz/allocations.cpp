// allocations.cpp - counts what operator new is asked for.
#include <cstdlib>
#include <new>

#include "fuzz/support.h"

#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // said where these are inlined into their callers

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    brickfall::allocated_bytes += size;
    return std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
    void* const place = ::operator new(size, std::nothrow);
    return place != nullptr ? place : throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return ::operator new(size, std::nothrow);
}
void operator delete(void* place) noexcept { std::free(place); }
void operator delete[](void* place) noexcept { std::free(place); }
void operator delete(void* place, std::size_t) noexcept { std::free(place); }
void operator delete[](void* place, std::size_t) noexcept { std::free(place); }
