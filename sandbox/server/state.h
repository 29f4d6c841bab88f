// state.h - all that a sandbox knows, with its lock.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "sandbox/server/faults.h"
#include "sandbox/server/types.h"
#include "sandbox/server/world.h"

namespace brickfall::sandbox {

struct SandboxState {
    explicit SandboxState(Options chosen) : options(std::move(chosen)) {
        world.chain.fee_per_kilobyte = options.fee_per_kilobyte;
    }

    const Options options;
    mutable std::mutex mutex;  // guards what stands below
    World world;
    std::vector<SetFault> faults;
    std::map<Service, std::vector<std::string>> requests;
    FaultCounts faults_met;
    int answering = 0;       // requests to services, at this moment
    int most_answering = 0;  // since the start
    bool journal_open = false;
};

}  // namespace brickfall::sandbox
