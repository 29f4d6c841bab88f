// shadow_memory.h - defines BRICKFALL_SHADOW_MEMORY in builds whose sanitizer keeps memory of its own, which
// no test can search for what a secret has left. They run some ten times as long, so a property goes through
// one case of twenty there: it has held for all of them in the plain build.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BRICKFALL_SHADOW_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define BRICKFALL_SHADOW_MEMORY 1
#endif
#endif

namespace brickfall {

#ifdef BRICKFALL_SHADOW_MEMORY
inline constexpr unsigned kOneCaseOf = 20;
#else
inline constexpr unsigned kOneCaseOf = 1;
#endif

}  // namespace brickfall
