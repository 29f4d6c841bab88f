#include "sandbox/server/faults.h"

#include <array>
#include <limits>
#include <nlohmann/json.hpp>

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

template <typename T>
struct Named {
    std::string_view name;
    T value;
};

constexpr Named<Service> kServices[] = {
    {"chain", Service::kChain},     {"ordinals", Service::kOrdinals}, {"content", Service::kContent},
    {"arc", Service::kArc},         {"relay", Service::kRelay},       {"indexer", Service::kIndexer},
    {"paymail", Service::kPaymail}, {"download", Service::kDownload},
};

constexpr Named<FaultKind> kKinds[] = {
    {"delay", FaultKind::kDelay},
    {"no_answer", FaultKind::kNoAnswer},
    {"drop", FaultKind::kDrop},
    {"cut_body", FaultKind::kCutBody},
    {"reply", FaultKind::kReply},
    {"act_and_reply", FaultKind::kActAndReply},
    {"lose_accepted", FaultKind::kLoseAccepted},
    {"stale_listing", FaultKind::kStaleListing},
    {"flip_txids", FaultKind::kFlipTxids},
};

template <typename T, std::size_t Count>
std::optional<T> ByName(const Named<T> (&table)[Count], std::string_view name) {
    for (const Named<T>& row : table) {
        if (row.name == name) return row.value;
    }
    return std::nullopt;
}

template <typename T, std::size_t Count>
std::string_view NameIn(const Named<T> (&table)[Count], T value) {
    for (const Named<T>& row : table) {
        if (row.value == value) return row.name;
    }
    return "";
}

bool Concerns(FaultKind fault, RequestKind request) {
    switch (fault) {
        case FaultKind::kLoseAccepted:
            return request == RequestKind::kSubmission;
        case FaultKind::kStaleListing:
        case FaultKind::kFlipTxids:
            return request == RequestKind::kListing;
        case FaultKind::kDelay:
        case FaultKind::kNoAnswer:
        case FaultKind::kDrop:
        case FaultKind::kCutBody:
        case FaultKind::kReply:
        case FaultKind::kActAndReply:
            return true;
    }
    return false;
}

// False when another fault has decided the end of the request already.
bool Meet(const SetFault& set, MetFaults& met) {
    switch (set.fault.kind) {
        case FaultKind::kDelay:
            break;
        case FaultKind::kLoseAccepted:
            met.lose = true;
            break;
        case FaultKind::kStaleListing:
            if (met.listed) return false;
            met.listed = set.chain_then;
            break;
        case FaultKind::kFlipTxids:
            met.flip_ids = true;
            break;
        case FaultKind::kNoAnswer:
        case FaultKind::kDrop:
        case FaultKind::kCutBody:
        case FaultKind::kReply:
        case FaultKind::kActAndReply:
            if (met.ending) return false;
            met.ending = set.fault;
            break;
    }
    met.delay_ms += set.fault.delay_ms;
    return true;
}

template <typename T>
bool Read(const json& object, const char* key, T& value) {
    const auto found = object.find(key);
    if (found == object.end()) return true;
    if constexpr (std::is_integral_v<T>) {
        if (!found->is_number_integer()) return false;
        const auto number = found->get<int64_t>();
        if (number < std::numeric_limits<T>::min() || number > std::numeric_limits<T>::max()) return false;
        value = static_cast<T>(number);
    } else {
        if (!found->is_string()) return false;
        value = found->get<std::string>();
    }
    return true;
}

bool ReadHeaders(const json& object, std::map<std::string, std::string>& headers) {
    const auto found = object.find("headers");
    if (found == object.end()) return true;
    if (!found->is_object()) return false;
    for (const auto& [name, value] : found->items()) {
        if (!value.is_string()) return false;
        headers[name] = value.get<std::string>();
    }
    return true;
}

}  // namespace

MetFaults TakeFaults(std::vector<SetFault>& faults, Service service, RequestKind kind,
                     std::string_view target) {
    MetFaults met;
    for (SetFault& set : faults) {
        const bool matches = set.service == service && set.fault.times != 0 &&
                             target.find(set.fault.path_contains) != std::string_view::npos &&
                             Concerns(set.fault.kind, kind);
        if (!matches || !Meet(set, met)) continue;
        met.kinds.push_back(set.fault.kind);
        if (set.fault.times > 0) --set.fault.times;
    }
    return met;
}

std::string_view NameOf(Service service) { return NameIn(kServices, service); }
std::string_view NameOf(FaultKind kind) { return NameIn(kKinds, kind); }
std::optional<Service> ServiceByName(std::string_view name) { return ByName(kServices, name); }
std::optional<FaultKind> FaultKindByName(std::string_view name) { return ByName(kKinds, name); }

std::optional<Fault> FaultFromJson(const json& object, std::string& error) {
    std::string name;
    Fault fault;
    if (!object.is_object() || !Read(object, "kind", name)) {
        error = "a fault is an object with a text kind";
        return std::nullopt;
    }
    const std::optional<FaultKind> kind = ByName(kKinds, name);
    if (!kind) {
        error = "unknown kind of fault";
        return std::nullopt;
    }
    fault.kind = *kind;
    if (!Read(object, "status", fault.status) || !Read(object, "body", fault.body) ||
        !Read(object, "content_type", fault.content_type) || !ReadHeaders(object, fault.headers) ||
        !Read(object, "delay_ms", fault.delay_ms) || !Read(object, "times", fault.times) ||
        !Read(object, "path_contains", fault.path_contains) || fault.status < 100 || fault.status > 599 ||
        fault.delay_ms < 0) {
        error = "a field of the fault has the wrong type or range";
        return std::nullopt;
    }
    return fault;
}

}  // namespace brickfall::sandbox
