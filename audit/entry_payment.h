// entry_payment.h - what a transaction pays to an address, and whether it pays for a run. Pure.
#pragma once

#include <cstdint>

#include "audit/transaction_reader.h"

namespace brickfall {

struct Paid {
    int64_t sum = 0;       // over all outputs, satoshis
    bool exactly = false;  // one output is of the amount asked for
};

Paid PaidTo(const AuditTransaction& transaction, const char* address, int64_t wanted);

// An output of 2,000 satoshis to the house and one of 3,000 to the pot, whatever else it pays.
bool PaysEntry(const AuditTransaction& transaction);

}  // namespace brickfall
