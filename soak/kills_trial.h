// kills_trial.h - one moment at which the program is ended or starved: a store and a wallet of its own, a
// program under fault_shim that acts a scene there, a new program that opens what is left, and what is read
// of the files and of the sandbox's chain beside them.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sandbox/server/sandbox.h"
#include "soak/fault_shim.h"
#include "soak/kills_scenes.h"
#include "tests/support/temp_folder.h"

namespace brickfall {

struct SomethingLost : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct KillsMoment {
    const KillsScene* scene = nullptr;
    const FaultKind* kind = nullptr;  // none: nothing happens, the calls are counted
    uint64_t at = 0;
    bool on = false;  // from then on

    bool Kills() const { return kind != nullptr && kind->need == FaultNeed::kChange; }
    // Without memory or threads there may be nothing that a program can do but end.
    bool MayEnd() const {
        return kind != nullptr && (kind->need == FaultNeed::kMemory || kind->need == FaultNeed::kObject);
    }
    std::string Text() const;  // as the command line has it
};

// What a program has told.
struct KillsOutcome {
    int exit = 0;  // minus the number of the signal that ended it
    std::optional<std::string> said;
    std::string txid;
    std::optional<std::string> again;
    std::vector<nlohmann::json> known;
    std::vector<uint64_t> counts;  // by FaultNeed
};

class KillsTrial {
  public:
    KillsTrial(sandbox::Sandbox& box, const KillsMoment& moment, int number);

    // What the program under the fault told; throws SomethingLost.
    KillsOutcome Run();

    // The call that was met, with its number and file; empty: the program came to its end before it.
    std::string Met() const;

  private:
    struct Store;
    struct Books;

    void SetUp();
    void LoadPlayer();
    void MakeOld();
    KillsOutcome Act(const char* mode);
    void CheckEnd(const KillsOutcome& first) const;
    void CheckStore(const Store& before, bool is_bound) const;
    void CheckWallet(const nlohmann::json& known, bool is_done);
    Books ReadBooks() const;
    void CheckMoney(const Books& then, const KillsOutcome& first) const;
    void CheckRows(std::size_t from, int64_t paid) const;
    void CheckLeftovers() const;

    sandbox::Sandbox& box_;
    const KillsMoment moment_;
    const KillsScene& scene_;
    const std::string alias_;
    const TempFolder folder_;
    std::string wallet_id_, address_, identity_, public_key_;
};

}  // namespace brickfall
