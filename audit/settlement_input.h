// settlement_input.h - what an audit knows, as a settlement takes it. Pure.
#pragma once

#include <cstdint>
#include <vector>

#include "audit/collect.h"
#include "audit/judge.h"
#include "audit/payout.h"

namespace brickfall {

// Of the week that starts so. `rows`: the audit of every record that may be of the week.
SettlementInput MakeSettlementInput(int64_t week_start, const Collected& collected,
                                    const std::vector<RowAudit>& rows, bool one_each);

}  // namespace brickfall
