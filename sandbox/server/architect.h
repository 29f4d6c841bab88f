// architect.h - plays the person to whom reports go: keys of its own, and the opening of what is sealed to
// them, in code that shares nothing with what seals. No state.
#pragma once

#include <optional>
#include <string>

#include "sandbox/server/raw_transaction.h"
#include "sandbox/server/types.h"

namespace brickfall::sandbox {

PublishedIdentity ArchitectIdentity();

// Writes the key file that senders need into the folder, which is made if need be.
bool WriteArchitectKey(const std::string& folder);

// The report to the architect that a transaction carries, read or refused; nothing when it carries none.
// `identities` are the names published by then.
std::optional<Report> ReadReport(const ParsedTx& tx, const Identities& identities);

}  // namespace brickfall::sandbox
