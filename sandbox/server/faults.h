// faults.h - the faults that are set, which requests meet them, and how a fault is told in JSON. No lock of
// its own: the caller guards it.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/server/chain.h"
#include "sandbox/server/types.h"

namespace brickfall::sandbox {

// What a request is about, as far as faults ask.
enum class RequestKind { kListing, kSubmission, kOther };

struct SetFault {
    Service service = Service::kChain;
    Fault fault;
    std::shared_ptr<const Chain> chain_then;  // for kStaleListing
};

// What one request meets. Delays add up, and the bends of an answer join them; of the kinds that replace an
// answer or break a connection the one set first counts, and only that one is used up.
struct MetFaults {
    int64_t delay_ms = 0;
    std::optional<Fault> ending;  // kNoAnswer, kDrop, kCutBody, kReply or kActAndReply
    std::shared_ptr<const Chain> listed;
    bool flip_ids = false;
    bool lose = false;
    std::vector<FaultKind> kinds;  // of all that it meets
};

MetFaults TakeFaults(std::vector<SetFault>& faults, Service service, RequestKind kind,
                     std::string_view target);

// The names of the control endpoint: "chain", "no_answer" and the like.
std::string_view NameOf(Service service);
std::string_view NameOf(FaultKind kind);
std::optional<Service> ServiceByName(std::string_view name);
std::optional<FaultKind> FaultKindByName(std::string_view name);
std::optional<Fault> FaultFromJson(const nlohmann::json& object, std::string& error);

}  // namespace brickfall::sandbox
