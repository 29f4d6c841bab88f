// Any bytes as the answers of the routes along which a transaction is sent. It counts as sent exactly when an
// answer says so by the rule of its route, under the id that was said; nothing else marks a coin as spent;
// and no request is made but those that the rules ask for.
#include "base/foreign_json.h"
#include "base/text.h"
#include "base/workers.h"
#include "fuzz/answers.h"
#include "fuzz/support.h"
#include "net/http_client.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/broadcast.h"
#include "wallet/protocol/script.h"

namespace {

using namespace brickfall;
using nlohmann::json;

std::size_t asked = 0;
Answer now;

// Only 429 is asked again. True for an answer of 200.
bool Ask(int tries) {
    do now = AnswerAt(asked++);
    while (now.status == 429 && --tries > 0);
    return now.status == 200;
}

bool Says(const std::string& text, std::initializer_list<const char*> words) {
    return std::ranges::any_of(words,
                               [&text](const char* word) { return text.find(word) != std::string::npos; });
}
bool SaysMissing(const std::string& text) {
    return Says(text, {"Missing inputs", "missing inputs", "missingorspent"});
}

// The document's value, null where it is no object or has none.
json Told(const char* key) {
    const json document = ParseForeignJson(now.body, kShortAnswer);
    return document.is_object() ? document.value(key, json()) : json();
}
std::string Text(const json& value) { return value.is_string() ? value.get<std::string>() : ""; }

bool IsVisible() { return (Ask(4) && now.body.size() > 20) || (Ask(4) && Says(now.body, {"txid"})); }

std::string NamedId() {
    std::string bare = now.body;
    bare.erase(0, bare.find_first_not_of("\" \n"));
    bare.erase(bare.find_last_not_of("\" \n\r") + 1);
    if (bare.size() == 64) return bare;
    return Told("txid").is_null() ? Text(ParseForeignJson(now.body, kShortAnswer)) : Text(Told("txid"));
}

bool ArcTakesIt() {
    for (const char* const key : {"txStatus", "extraInfo", "txid"}) {
        if (!Told(key).is_null() && !Told(key).is_string()) return false;
    }
    return ParseForeignJson(now.body, kShortAnswer).is_object() && Told("txStatus") != "REJECTED" &&
           Told("txStatus") != "DOUBLE_SPEND_ATTEMPTED" && !SaysMissing(Text(Told("extraInfo")));
}

// What is shown of a refusal.
std::string Words() {
    if (now.status == 0) return "no answer";
    if (now.status == 429) return kRateLimitText;
    std::string text = "HTTP " + std::to_string(now.status);
    if (now.body.empty() || Says(now.body, {"<html", "<HTML", "<!DOCTYPE"})) return text;
    return text + " – " +
           now.body.substr(0, std::min<std::size_t>(120, now.body.find_last_not_of("\r\n ") + 1));
}

std::string Outcome(const std::string& own) {
    if (Ask(1) && Told("ok") != json(false)) {
        Ask(1);  // the public chain is told as well, whatever it says
        return "success: " + own;
    }
    if (Ask(2)) {
        if (IsTxidText(NamedId())) return "success: " + NamedId();
        if (IsVisible()) return "success: " + own;
        return "error: broadcast did not confirm. Wait a few seconds and try again.";
    }
    const std::string words = Words();
    const bool known = Says(words, {"mempool-conflict", "txn-already", "already have"});
    if ((known && IsVisible()) || (SaysMissing(words) && Ask(2) && ArcTakesIt())) return "success: " + own;
    return "error: broadcast failed: " + words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const FuzzStore store;
    static const bool ready = (StopClock(), SetInlineWorkers(true), true);
    static_cast<void>(ready);
    const SpendInput input = {std::string(64, 'c'), 3, 10'000, {}, {}, {}, {}};
    const std::vector<PayOutput> outputs = {{5'000, P2pkhScript(Hash160{})}};
    const std::string own = TxidOf(SerializeTx({&input, 1}, outputs, /*skeleton=*/false));
    std::string txid, told;
    ClearUtxoState();
    last_broadcast_txid.clear();
    AnswerWith(AsText(data, size));
    {
        const CostBound cost(30'000, size, 300);
        told = BroadcastTx({&input, 1}, outputs, Hash160{9}, txid);
    }
    asked = 0;
    Require(told == Outcome(own) && txid == own && requests_made == asked);
    const bool sent = told.starts_with("success: ");
    Require(last_broadcast_txid == (sent ? told.substr(9) : ""));
    Require(IsSpent(input.txid, input.vout) == sent && spent_set.empty() == !sent);
    return 0;
}
