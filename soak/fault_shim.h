// fault_shim.h - what fault_shim.cpp, the library, and the program under it agree on.
#pragma once

#include <cerrno>
#include <cstddef>

namespace brickfall {

// What a call does or needs. Each is counted for itself.
enum class FaultNeed {
    kChange,      // changes a file, or speaks with a service
    kRoom,        // room on the disk
    kLeave,       // leave to write in the folder
    kDescriptor,  // a descriptor or a file lock
    kMemory,      // memory or a thread
    kObject,      // memory by operator new
};
inline constexpr std::size_t kFaultNeeds = 6;

enum class FaultAct { kNone, kKill, kFail, kTear };

struct FaultKind {
    const char* name;
    FaultNeed need;
    FaultAct act;
    int error;
};
inline constexpr FaultKind kFaultKinds[] = {
    {"kill", FaultNeed::kChange, FaultAct::kKill, 0},  // before the call
    {"kill-in", FaultNeed::kChange, FaultAct::kTear,
     0},  // in the middle of what is sent or written, or behind
    {"full", FaultNeed::kRoom, FaultAct::kFail, ENOSPC},
    {"short", FaultNeed::kRoom, FaultAct::kTear, ENOSPC},  // room for half of what is written, then none
    {"read-only", FaultNeed::kLeave, FaultAct::kFail, EROFS},
    {"no-access", FaultNeed::kLeave, FaultAct::kFail, EACCES},
    {"descriptors", FaultNeed::kDescriptor, FaultAct::kFail, EMFILE},
    {"memory", FaultNeed::kMemory, FaultAct::kFail, ENOMEM},   // most of it is asked for by C libraries
    {"objects", FaultNeed::kObject, FaultAct::kFail, ENOMEM},  // what the program itself asks for
};

}  // namespace brickfall
