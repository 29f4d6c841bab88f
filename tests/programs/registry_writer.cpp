// registry_writer PREFIX COUNT - another program that adds wallets to the shared store: COUNT entries with
// the ids PREFIX0, PREFIX1 and so on, a rewrite of the registry each. With a third argument it stops itself
// (SIGSTOP) before the first of them, for a test that traces it.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "wallet/shared_store.h"

int main(int count, char** arguments) {
    if (count < 3) return 2;
    if (count > 3) ::raise(SIGSTOP);
    const int entries = std::atoi(arguments[2]);
    for (int i = 0; i < entries; ++i) {
        const brickfall::StoreLock lock;
        nlohmann::json registry = brickfall::ReadRegistry();
        registry["wallets"].push_back({{"id", arguments[1] + std::to_string(i)}, {"name", "n"}});
        if (!brickfall::WriteRegistry(registry)) return 1;
    }
    ::_exit(0);  // nothing to tidy, and a leak check cannot run in a traced process
}
