#include "wallet/chain/address_refresh.h"

#include <new>
#include <utility>

#include "base/workers.h"
#include "wallet/chain/chain_api.h"
#include "wallet/chain/ordinals_api.h"

namespace brickfall {

void FetchRefreshRecords(std::vector<AddressRefresh>& records, OrdinalScans scans) {
    RunInParallel(records.size(), kMostFetchesAtOnce, [&records, scans](std::size_t i) {
        AddressRefresh& record = records[i];
        try {
            if (!record.scan_only) {
                std::string error;
                record.ok = FetchUtxos(record.address, record.utxos, error, &record.complete);
            }
            const bool has_coins = record.scan_only || !record.utxos.empty();
            record.scanned = scans == OrdinalScans::kAll || (scans == OrdinalScans::kWhereCoins && has_coins);
            if (record.scanned) {
                record.guard_ok = ScanOrdinals(record.address, record.guard_keys, &record.tokens_listed);
            }
        } catch (const std::bad_alloc&) {
            AddressRefresh unknown;  // counts as not fetched
            unknown.address = std::move(record.address);
            record = std::move(unknown);
        }
    });
}

}  // namespace brickfall
