// Any bytes as what the services say of an address, a transaction, a name or the board: what is taken from an
// answer is within its bounds, two readers of one answer agree, and what nobody has signed is on no board.
#include <algorithm>
#include <iterator>
#include <set>

#include "audit/pot_history.h"
#include "base/foreign_json.h"
#include "base/text.h"
#include "board/faces.h"
#include "deployment/deployment.h"
#include "fuzz/answers.h"
#include "fuzz/test_wallet.h"
#include "game/flows.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "wallet/chain/chain_api.h"
#include "wallet/chain/ordinals_api.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/link/paymail_host.h"
#include "wallet/payment/output_recovery.h"

namespace {

using namespace brickfall;
using nlohmann::json;

constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";
const std::string kTxid(64, 'b');

json Document() { return ParseForeignJson(AnswerAt(0).body, kTransactionAnswer); }

void CheckListing(std::string_view input) {
    std::vector<Utxo> list;
    std::string error;
    bool complete = true;
    const bool fetched = FetchUtxos(kAddress, list, error, &complete);
    Require(fetched == error.empty() && (fetched || (list.empty() && !complete)));
    Require(std::is_sorted(list.begin(), list.end(), IsLarger));
    std::set<std::string> keys;
    for (const Utxo& utxo : list) {
        Require(IsTxidText(utxo.txid) && utxo.value > 0);
        Require(keys.insert(EitherOrderKey(utxo.txid, utxo.vout)).second);
    }
    // The history alone: only a coin that some answer names leaves the list.
    AnswerWith(input);
    list = {{kTxid, 0, 7}};
    DropMempoolSpent(kAddress, list);
    const bool named = std::ranges::any_of(answers, [](const Answer& answer) {
        return Lower(answer.body).find(kTxid) != std::string::npos ||
               answer.body.find("\\u") != std::string::npos;
    });
    Require((list.size() == 1 || (named && answers.size() > 1)) && requests_made <= 4 + 4 * 16);
}

// The guard and the plain scan read the same listing: what an element tells the one, the other does not take.
void CheckOrdinals(std::string_view input) {
    std::set<std::string> keys;
    const bool scanned = ScanOrdinals(kAddress, keys);
    for (const std::string& key : keys)
        Require(key.size() > 65 && IsTxidText(key.substr(0, 64)) && key[64] == ':' && Lower(key) == key);
    AnswerWith(input);
    std::vector<Utxo> plain;
    ScanPlainOutputs(kAddress, plain);
    const json listing = Document();
    for (const Utxo& utxo : plain) {
        Require(IsTxidText(utxo.txid) && utxo.value > 1 && utxo.value <= kMaxSatoshis);
        Require(std::ranges::any_of(listing, [&utxo](const json& element) {
            return OriginOf(element).empty() && JsonString(element, "txid") == utxo.txid &&
                   JsonIndexOr0(element, "vout") == utxo.vout;
        }));
    }
    for (const json& element : scanned&& listing.is_array() ? listing : json::array()) {
        const std::string txid = JsonString(element, "txid");
        if (!OriginOf(element).empty() && IsTxidText(txid) && JsonIndexOr0(element, "vout"))
            Require(keys.contains(OutpointKey(txid, *JsonIndexOr0(element, "vout"))));
    }
}

// The wallet's reader and the auditor's come to the same amounts, where coins are told and no position.
void CheckTransaction(std::string_view) {
    pending_outputs.clear();
    Require(RecoverOutputsFromTx(kTxid) == !pending_outputs.empty());
    AuditTransaction audited;
    std::string error;
    const json document = Document();
    const bool read = ReadDecodedTransaction(document, kTxid, audited, error);
    std::set<uint32_t> positions;
    for (const PendingOutput& pending : pending_outputs) {
        Require(pending.txid == kTxid && pending.value >= 1 && pending.value <= kMaxSatoshis);
        Require(FindOwnedHash(pending.hash) != nullptr && positions.insert(pending.vout).second);
        if (!read || document.contains("hex") || AnswerAt(0).body.find("\"n\"") != std::string::npos)
            continue;
        const json& output = document.at("vout").at(pending.vout);
        if (FindJsonKey(output, "satoshis") == nullptr && output.at("value").get<double>() <= 1'000)
            Require(audited.outputs.at(pending.vout).satoshis == pending.value);
    }
}

// Who keeps a key and who asks each time learn the same.
void CheckNames(std::string_view input) {
    ClearIdentityKeyCache();
    const std::string kept = AnswerAt(0).status == 200 ? LookupIdentityKey("ada", "") : "";
    AnswerWith(input);
    const IdentityAnswer asked = AskIdentityKey(IdentityName("ada", ""));
    Require(AnswerAt(0).status != 200 || kept == asked.public_key);
    Require((asked.state == LookUp::kFound) == (asked.public_key.size() == 66));
    Require((asked.state == LookUp::kFailed) == !asked.error.empty());
    AnswerWith(input);
    std::string note;
    const json document = Document();
    const bool frozen =
        AnswerAt(0).status == 200 && document.is_object() && document.value("frozen", json()) == json(true);
    Require(IsFrozen(note) == (frozen && IsWithinLimits(AnswerAt(0).body, kShortAnswer)));
    AnswerWith(input);
    const std::string picture = ResolveAvatarUrl("ada");
    Require(picture.empty() || picture.starts_with("https://"));
    AnswerWith(input);
    RefreshQuotaRole();
}

void CheckBoard(std::string_view input) {
    std::vector<ScoreRow> rows;
    ScoreRow best;
    bool has_best = true;
    std::string label, message;
    ReadChainBoard(rows, best, has_best, label, message);
    Require(rows.empty() && !has_best && requests_made <= 4 + 2 * kBoardTxidCap);
    AnswerWith(input);
    const auto find = [](const std::string&, AuditTransaction&, std::string&) { return true; };
    const PotHistory history = CollectPotHistory(kFuzzNow, 1, find, [](std::size_t, std::size_t) {});
    Require(history.all_listed == history.error.empty() && requests_made <= 8 + answers.size());
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

// Read element by element, a text gives what its whole document does.
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
    static const FuzzStore store("/wallets/w1");
    static const bool ready = OpenTestWallet(store);
    Require(ready);
    constexpr void (*kChecks[])(std::string_view) = {CheckListing, CheckOrdinals, CheckTransaction,
                                                     CheckNames,   CheckBoard,    CheckElements};
    const std::string_view input = AsText(data, size).substr(size > 0 ? 1 : 0);
    AnswerWith(input);
    // A control byte of what is refused is eight characters in the parser's message.
    const CostBound cost(80'000, size, 1'500);
    kChecks[(size > 0 ? data[0] : 0) % std::size(kChecks)](input);
    return 0;
}
