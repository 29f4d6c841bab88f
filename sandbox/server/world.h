// world.h - everything that the sandbox's services know: the chain, the identities, the listings. Each change
// goes into the journal. No lock of its own: the caller guards it.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/server/chain.h"
#include "sandbox/server/journal.h"
#include "sandbox/server/types.h"

namespace brickfall::sandbox {

struct World {
    Chain chain;
    Identities identities;
    std::map<std::string, std::vector<OrdinalMark>> ordinals;  // by address
    bool indexer_knows = true;
    int64_t seeded_week = 0;      // the start of the latest week whose board was filled; 0: none
    std::string build = "0.001";  // on the download page
    std::vector<Report> reports;  // to the architect, as accepted
    std::function<void(const Report&)> on_report;
    std::vector<std::string> submissions;  // raw hex, as handed in
    Journal journal;
};

// What the faults of a request bend in its answer.
struct Bend {
    const Chain* listed = nullptr;  // list outputs of this snapshot; nullptr: as they are
    bool flip_ids = false;
    bool lose = false;
};

bool OpenJournal(World& world, const std::string& path, std::string& error);

// Empty when refused. Blocks are made at `time` in Unix seconds, or now; none is older than the one before
// it.
std::string FundAddress(World& world, std::string_view address, int64_t satoshis,
                        std::optional<int64_t> time = {});
void Mine(World& world, std::optional<int64_t> time = {});
bool Forget(World& world, std::string_view txid);

// As from a service. `txid` is empty when the text is no transaction. With `lose` a good transaction is
// answered for and dropped.
Verdict TakeTransaction(World& world, std::string_view raw_hex, bool lose, std::string& txid);

// Publishes the architect, unless its name is held, and writes the key file into the folder, which is made if
// need be.
bool AppointArchitect(World& world, const std::string& folder);

void PublishIdentity(World& world, const PublishedIdentity& identity);
const PublishedIdentity* IdentityOfKey(const World& world, std::string_view pubkey);

// Keeps in mind that the board of the week has been filled.
void RememberSeeding(World& world, int64_t week);

// Publishes what a signed claim says. 0 when it is good, else the HTTP status and what is wrong with it.
int TakeClaim(World& world, const nlohmann::json& claim, std::string& error);

}  // namespace brickfall::sandbox
