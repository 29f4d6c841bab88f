// store_writer KIND PREFIX COUNT - another program that works on the shared store COUNT times. Before
// each time it must find there exactly what it left; 3 is the exit code when somebody has lost that, or
// brought something older back.
//   wallets  adds the entries PREFIX0, PREFIX1 and so on to the list of wallets, and takes its own out again
//            when they are kKept rewrites old, so that the list stays short
//   names    registers the paymail name PREFIX with the address 0, 1 and so on
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "wallet/json/store_json.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

constexpr std::size_t kKept = 20;

int RewriteWallets(const std::string& id, const std::string& prefix) {
    static std::vector<std::string> own;
    const StoreLock lock;
    ListWallets();  // takes the lock once more, and must leave it with the outer scope
    nlohmann::json registry = ReadRegistry().document;
    nlohmann::json others = nlohmann::json::array();
    std::vector<std::string> found;
    for (const nlohmann::json& entry : registry["wallets"]) {
        const std::string entry_id = StoreText(entry, "id");
        if (entry_id.starts_with(prefix)) {
            found.push_back(entry_id);
        } else {
            others.push_back(entry);
        }
    }
    if (found != own) return 3;
    own.push_back(id);
    if (own.size() > kKept) own.erase(own.begin());
    for (const std::string& own_id : own) others.push_back({{"id", own_id}, {"name", "n"}});
    registry["wallets"] = others;
    return WriteRegistry(registry) ? 0 : 1;
}

int RegisterName(const std::string& name, int round) {
    const nlohmann::json registry = ReadStoreJson(StoreRoot() + "/orvane_paymail.json");
    if (round > 0 && StoreText(registry.at("names").at(name), "address") != std::to_string(round - 1)) {
        return 3;
    }
    return RegisterPaymail(name, "key of " + name, std::to_string(round)).empty() ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) return 2;
    const std::string kind = arguments[1];
    const std::string prefix = arguments[2];
    int result = 0;
    for (int i = 0; i < std::atoi(arguments[3]) && result == 0; ++i) {
        result =
            kind == "wallets" ? RewriteWallets(prefix + std::to_string(i), prefix) : RegisterName(prefix, i);
    }
    return result;
}
