// signing.h - turns a prepared row into one that any reader accepts, or says why not. Runs on the caller's
// thread and may block for the key look-up of its self-check.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace brickfall {

bool SignMessage(nlohmann::json& row, std::string& error);

}  // namespace brickfall
