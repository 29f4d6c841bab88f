#include "audit/entry_payment.h"

#include "deployment/deployment.h"
#include "wallet/json/json_numbers.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/script.h"

namespace brickfall {

Paid PaidTo(const AuditTransaction& transaction, const char* address, int64_t wanted) {
    Paid paid;
    Hash160 owner{};
    if (!DecodeAddress(address, owner)) return paid;
    const ByteBuffer script = P2pkhScript(owner);
    for (const AuditOutput& output : transaction.outputs) {
        if (output.script != script) continue;
        paid.exactly = paid.exactly || output.satoshis == wanted;
        if (output.satoshis > 0) paid.sum = AddSatoshis(paid.sum, output.satoshis);
    }
    return paid;
}

bool PaysEntry(const AuditTransaction& transaction) {
    return PaidTo(transaction, kArcadeHouseAddress, kArcadeHouseSats).exactly &&
           PaidTo(transaction, kArcadePotAddress, kArcadePotSats).exactly;
}

}  // namespace brickfall
