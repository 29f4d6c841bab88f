// options.h - the auditor's command line. Pure.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "audit/collect.h"

namespace brickfall {

struct AuditOptions {
    AuditScope scope;
    std::string file;  // evidence is read from it, and no service is asked; empty: from the services
    std::string save;  // where the evidence goes that was used; empty: nowhere
    std::string page;  // where the page goes that replays the runs; empty: nowhere
    bool json = false;
    bool payout = false;
    bool one_each = false;  // of --payout: a player has one place at most
    bool check = false;     // the services are asked, and no record is looked at
    bool help = false;
    bool version = false;
};

extern const char* const kAuditHelp;

// `now`: Unix seconds, of the present week. On false `error` says what is wrong.
bool ParseAuditOptions(std::span<char* const> arguments, int64_t now, AuditOptions& options,
                       std::string& error);

}  // namespace brickfall
