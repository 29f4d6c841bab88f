// listing.h - reads the list in a service's answer, element by element. Network; no lock is needed.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "base/foreign_json.h"

namespace brickfall {

// Hands each element to `take`, which may refuse one. False when there is no URL, the request fails, the
// answer is no such list or `take` refuses: what was handed over until then is not to be relied on.
bool ReadListing(const std::optional<std::string>& url, const ListShape& shape, int timeout_seconds,
                 const std::function<bool(const nlohmann::json& element)>& take);

}  // namespace brickfall
