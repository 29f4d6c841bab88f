// companion.h - the wallet application that the sandbox puts in Pouch's place: it creates a wallet in the
// shared store and answers connect requests there. It meets the cabinet in those files only.
// One thread. The wallet state of the process is used for the derivation and is empty afterwards, so a
// process that holds a wallet of its own must not call CreateCompanionWallet or CompanionAddress.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

struct ConnectRequest {
    std::string id;
    std::string app;
    std::string instance;
};

// Adds a wallet of twelve fresh random words to the store and makes it the active one. `paymail` is the local
// part of its name and may be empty. The wallet's id, or empty text when a file could not be written.
std::string CreateCompanionWallet(std::string_view paymail);

// The wallet that Pouch would offer: the active one of the registry, or else the first; empty when none.
std::string OfferedWallet();

// The receive address that the wallet's file names, or empty text.
std::string CompanionAddress(std::string_view wallet_id);

// The ids of the requests in the store that have no reply yet, in byte order.
std::set<std::string> OpenRequestIds();

// Those of them whose cabinet no longer waits, since their minute is over.
std::set<std::string> AbandonedRequestIds();

// nothing: no answer for now, the request comes again at the next look.
using RequestDecision = std::function<std::optional<bool>(const ConnectRequest&)>;
// The wallet to name in an approval, empty text to name none; nothing turns the approval into a refusal.
using WalletChoice = std::function<std::optional<std::string>()>;

struct ConnectAnswer {
    std::string request_id;
    bool approved = false;
    std::string wallet_id;
};

// Decides and answers each open request whose id is not in `ignored`, and adds it there. A request that is
// still being written is left for the next look. Gives the answers whose replies are in place.
std::vector<ConnectAnswer> AnswerRequests(std::set<std::string>& ignored, const RequestDecision& decide,
                                          const WalletChoice& choose_wallet);

}  // namespace brickfall
