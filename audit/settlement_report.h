// settlement_report.h - a week's settlement, for people and for programs. Pure.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "audit/payout.h"

namespace brickfall {

// Lines, each with its end. Names of players are shown harmlessly, whatever their bytes.
std::string SettlementText(const Settlement& settlement);

// As docs/formats.md says.
nlohmann::json SettlementJson(const Settlement& settlement);

}  // namespace brickfall
