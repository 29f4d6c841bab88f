// ordinals_api.h - what the ordinals service says of an address: the outputs that carry something, and those
// that do not. Network; no lock is needed.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <vector>

#include "wallet/protocol/outpoint.h"

namespace brickfall {

// The outputs of an address that carry nothing, single satoshis aside. False when none are listed.
bool ScanPlainOutputs(const std::string& address, std::vector<Utxo>& list);

// The outpoint keys of those that carry something. False when the service did not answer; a list of tokens
// that alone fails is told beside it.
bool ScanOrdinals(const std::string& address, std::set<std::string>& keys, bool* tokens_listed = nullptr);

std::string OriginOf(const nlohmann::json& object);  // of a listing's element; empty when it has none

}  // namespace brickfall
