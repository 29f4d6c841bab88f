// watch_reader.h - finds the recorded row inside a transaction. Pure functions; any thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace brickfall {

// The payload of the first push behind OP_RETURN of a data carrier script. False when the script is none, or
// the push is empty, is cut short, or is an OP_PUSHDATA4.
bool ExtractPushPayload(std::string_view script_hex, std::string& payload);

// The first output of a decoded transaction that carries an object of type "arcade_score".
bool FindScorePayload(const nlohmann::json& transaction, nlohmann::json& row);

}  // namespace brickfall
