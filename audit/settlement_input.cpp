#include "audit/settlement_input.h"

#include <string>
#include <utility>

namespace brickfall {
namespace {

// Where a time was not told, a verdict may be missing: enough to show a row, not to pay for it.
RowStanding StandingOf(const RowAudit& audit) {
    switch (audit.Status()) {
        case AuditStatus::kSound:
            return audit.not_judged.empty() ? RowStanding::kSound : RowStanding::kNotLookedAt;
        case AuditStatus::kUnsound:
            return RowStanding::kUnsound;
        case AuditStatus::kCouldNotLook:
            break;
    }
    return audit.has_row ? RowStanding::kNotLookedAt : RowStanding::kNotRead;
}

// In one line; the verdicts, or else the look-ups.
std::string WhyNotSound(const RowAudit& audit) {
    std::string why;
    const auto add = [&why](const std::string& reason) { why += (why.empty() ? "" : "; ") + reason; };
    for (const Finding& finding : audit.findings) add(VerdictText(finding.verdict));
    if (!why.empty()) return why;
    for (const NotLooked& look_up : audit.not_looked) add(std::string(look_up.what) + ": " + look_up.why);
    for (const char* const time : audit.not_judged) add(std::string(time) + " not told");
    return why;
}

JudgedRow JudgedRowOf(const RowAudit& audit) {
    JudgedRow row;
    row.txid = audit.txid;
    row.pubkey = audit.public_key;
    row.handle = audit.handle.empty() ? audit.actor : audit.handle;
    row.pay_addr = audit.pay_addr;
    row.entry = audit.entry;
    row.score = audit.score;
    row.week = audit.week;
    row.ts = audit.ts;
    row.standing = StandingOf(audit);
    row.why = WhyNotSound(audit);
    row.mined = audit.block.IsMined();
    return row;
}

}  // namespace

SettlementInput MakeSettlementInput(int64_t week_start, const Collected& collected,
                                    const std::vector<RowAudit>& rows, bool one_each) {
    SettlementInput input;
    input.week_start = week_start;
    input.one_each = one_each;
    if (collected.pot.week_start == week_start) {  // else it was listed for another week
        if (collected.pot.known_at > 0) input.known_at = collected.pot.known_at;
        input.all_rows_listed = collected.all_rows_listed;
        input.all_payments_listed = collected.pot.all_listed;
    }
    for (const RowAudit& audit : rows) input.rows.push_back(JudgedRowOf(audit));
    input.payments = PaymentsToPot(collected.pot);
    return input;
}

}  // namespace brickfall
