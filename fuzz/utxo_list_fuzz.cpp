// Any bytes as the body of a listing: what is taken from it is an output, in the order of the document, and
// what stood in the list before is untouched.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "fuzz/support.h"
#include "wallet/json_numbers.h"
#include "wallet/utxo_discovery.h"

namespace {

using namespace brickfall;

void CheckOutput(const Utxo& utxo) {
    Require(IsTxidText(utxo.txid));
    Require(utxo.value > 0);
    const std::string flipped = FlipTxidHex(utxo.txid);
    Require(FlipTxidHex(flipped) == Lower(utxo.txid));
    Require(SameOutpointText(utxo.txid, flipped) && SameOutpointText(flipped, utxo.txid));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    const nlohmann::json document = ParseForeignJson(body);
    std::vector<Utxo> list{{"kept", 1, 2}};
    const bool is_list = ParseUtxoList(document, list);
    Require(list.front().txid == "kept" && list.front().vout == 1 && list.front().value == 2);
    if (!is_list) {
        Require(list.size() == 1);
        return 0;
    }
    const nlohmann::json& listing = document.is_array() ? document : document.at("result");
    Require(list.size() <= 1 + listing.size());
    for (std::size_t i = 1; i < list.size(); ++i) CheckOutput(list[i]);
    return 0;
}
