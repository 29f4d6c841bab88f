// signing.h - turns a prepared row into one that any reader accepts, or says why not. Runs on the caller's
// thread and may block for the key look-up of its self-check.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace brickfall {

bool SignMessage(nlohmann::json& row, std::string& error);

// The length of the text that goes on chain once the wallet of this name has signed a row that is no web row.
// `handle` is the bare name, `paymail` has its domain. Pure.
std::size_t SignedRowSize(nlohmann::json row, const std::string& handle, const std::string& paymail);

}  // namespace brickfall
