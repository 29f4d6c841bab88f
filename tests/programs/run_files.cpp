// run_files DIR: checks the four files that a headless run leaves against one another, by the sandbox's
// own hashes and by its judgement of each transaction, in their order. Exit 1 with the first thing that does
// not fit.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "base/files.h"
#include "deployment/deployment.h"
#include "sandbox/server/chain.h"

namespace {

using nlohmann::json;
using namespace brickfall;
using namespace brickfall::sandbox;

void Require(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "run_files: %s\n", what.c_str());
    std::exit(1);
}

std::string Text(const std::string& path) { return ReadFile(path).value_or(""); }
json Parsed(const std::string& path) { return json::parse(Text(path), nullptr, /*allow_exceptions=*/false); }

bool Pays(const ParsedTx& tx, const char* address, int64_t satoshis) {
    const Bytes script = PayToKeyHash(ParseAddress(address).value());
    return std::ranges::any_of(tx.outputs, [&](const TxOutput& output) {
        return output.value == satoshis && output.locking == script;
    });
}

bool Carries(const ParsedTx& tx, const std::string& text) {
    return std::ranges::any_of(tx.outputs, [&](const TxOutput& output) {
        return std::string(output.locking.begin(), output.locking.end()).ends_with(text);
    });
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    const std::string folder = std::string(arguments[1]) + "/";
    const json run = Parsed(folder + "run.json");
    const json row = Parsed(folder + "row.json");
    const json wallet = Parsed(folder + "wallet.json");
    Require(run.is_object() && row.is_object() && wallet.is_object(), "a file is missing, or no JSON");

    const Bytes tape = FromHex(run.value("tape", "")).value_or(Bytes());
    Require(tape.size() > 10 && tape.back() == 255, "the tape has no end");
    const std::string seal = ToHex(Sha256(tape));
    Require(run.value("tape_hash", "") == seal && row.value("tape_hash", "") == seal,
            "the seal is of another tape");
    for (const char* const key : {"tape", "score"})
        Require(row.at(key) == run.at(key), "the row tells another run");
    Require(row.at("pay_addr") == wallet.at("address"), "the row is to be paid to another wallet");

    Chain chain;
    int entries = 0, records = 0;
    for (const json& hex : Parsed(folder + "transactions.json")) {
        const Bytes raw = FromHex(hex.get<std::string>()).value_or(Bytes());
        const ParsedTx tx = ParseTransaction(raw).value_or(ParsedTx());
        Digest id{};
        Require(AddFunding(chain, raw, 0) || Submit(chain, raw, id).Accepted(),
                IdText(tx.id) + " is no good");
        if (IdText(tx.id) == row.at("entry")) {
            ++entries;
            Require(Pays(tx, kArcadeHouseAddress, 2'000) && Pays(tx, kArcadePotAddress, 3'000),
                    "the entry pays something else");
        }
        if (Carries(tx, Text(folder + "row.json"))) {
            ++records;
            Require(Pays(tx, kArcadeWatchAddress, 1), "the record pays something else");
        }
    }
    Require(entries == 1 && records == 1, "the row, or its entry, is not on the chain once");
    Require(chain.total_fees > 0 && chain.total_funded == UnspentTotal(chain) + chain.total_fees,
            "the books do not balance");
    std::puts("run_files: the seal, the ids and the satoshis of the run fit");
    return 0;
}
