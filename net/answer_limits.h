// answer_limits.h - how much of each kind of answer is read. Each limit lies far above what a service really
// sends; an answer beyond it counts as a transfer that broke.
#pragma once

#include <cstddef>

#include "base/foreign_json.h"

namespace brickfall {

// The longest real answer, a transaction with a full tape told as JSON, is below a quarter of it.
inline constexpr std::size_t kMaxBodyBytes = 64 << 20;

// The bodies that all requests in flight, and those that are being read, hold together.
inline constexpr std::size_t kMaxBodyBytesInFlight = 256 << 20;

// One name, key, note, role or verdict: below 4 kB.
inline constexpr JsonLimits kShortAnswer = {.bytes = 1 << 20, .values = 10'000};

// The ids of recorded runs: 2,000 from the indexer, and one row a run from the chain API.
inline constexpr JsonLimits kIdsAnswer = {.bytes = 32 << 20, .values = 1'000'000};

// A decoded transaction: long scripts, and some ten values for each input and output.
inline constexpr JsonLimits kTransactionAnswer = {.bytes = kMaxBodyBytes, .values = 500'000};

// What is read element by element: listings of up to 100,000 outputs of nine values each, whose inscriptions
// may hold whatever strangers have put in them. Nothing is built for a level that is passed over.
inline constexpr JsonLimits kListAnswer = {.bytes = kMaxBodyBytes, .values = 10'000'000, .depth = 20'000};

// The download page, of which the end is read.
inline constexpr std::size_t kMaxPageBytes = 8 << 20;

}  // namespace brickfall
