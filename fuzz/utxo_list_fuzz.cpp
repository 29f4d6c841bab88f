// Any bytes as the body of a listing: what is taken from it is an output, and what stood in the list before
// is untouched. Read element by element, a text gives what its whole document does.
#include <algorithm>
#include <iterator>
#include <vector>

#include "base/foreign_json.h"
#include "base/text.h"
#include "fuzz/support.h"
#include "wallet/chain/chain_api.h"
#include "wallet/protocol/outpoint.h"

namespace {

using namespace brickfall;
using nlohmann::json;

void CheckOutput(const Utxo& utxo) {
    Require(IsTxidText(utxo.txid));
    Require(utxo.value > 0);
    const std::string flipped = FlipTxidHex(utxo.txid);
    Require(FlipTxidHex(flipped) == Lower(utxo.txid));
    Require(SameOutpointText(utxo.txid, flipped) && SameOutpointText(flipped, utxo.txid));
}

constexpr std::string_view kMembers[] = {"txid", "value", "result"};
constexpr JsonLimits kLimits = {.bytes = 1 << 20, .values = kMaxElementValues, .depth = kMaxElementDepth + 1};

// What is left of a value when other members are passed over.
json Cut(const json& value) {
    if (!value.is_structured()) return value;
    json cut(value.type());
    for (const auto& [key, inner] : value.items()) {
        if (value.is_array()) {
            cut.push_back(Cut(inner));
        } else if (std::find(std::begin(kMembers), std::end(kMembers), key) != std::end(kMembers)) {
            cut[key] = Cut(inner);
        }
    }
    return cut;
}

void CheckElements(std::string_view body) {
    json elements = json::array();
    const bool read = ForEachElement(body, {.root_is_list = true, .members = kMembers}, kLimits,
                                     [&elements](const json& element) {
                                         elements.push_back(element);
                                         return true;
                                     });
    const json document = ParseForeignJson(body, kLimits);
    Require(read == document.is_array());
    Require(!read || elements == Cut(document));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view body = AsText(data, size);
    std::vector<Utxo> list{{"kept", 1, 2}};
    const bool is_list = ParseUtxoList(body, list);
    Require(list.front().txid == "kept" && list.front().vout == 1 && list.front().value == 2);
    Require(is_list || list.size() == 1);
    Require(!is_list || json::accept(body));
    Require(list.size() <= 1 + body.size() / 64);
    for (std::size_t i = 1; i < list.size(); ++i) CheckOutput(list[i]);
    CheckElements(body);
    return 0;
}
