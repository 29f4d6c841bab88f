// registry_writer PREFIX COUNT [stop] - another program that rewrites the shared store's list of wallets
// COUNT times: it adds the entries PREFIX0, PREFIX1 and so on, and takes out its own again when they are
// kKept rewrites old, so that the list stays short. Before each rewrite its entries must be exactly those
// that it left there; 3 is the exit code when somebody has lost one, or brought one back. With "stop" it
// stops itself (SIGSTOP) before the first of them, for a test that traces it.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "wallet/shared_store.h"

namespace {

using namespace brickfall;

constexpr std::size_t kKept = 20;

int Rewrite(const std::string& id, const std::string& prefix, std::vector<std::string>& own) {
    const StoreLock lock;
    nlohmann::json registry = ReadRegistry();
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

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) return 2;
    if (count > 3) ::raise(SIGSTOP);
    const std::string prefix = arguments[1];
    std::vector<std::string> own;
    int result = 0;
    for (int i = 0; i < std::atoi(arguments[2]) && result == 0; ++i) {
        result = Rewrite(prefix + std::to_string(i), prefix, own);
    }
    ::_exit(result);  // nothing to tidy, and a leak check cannot run in a traced process
}
