// types.h - the records that the sandbox's parts hand to each other and to whoever runs it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace brickfall::sandbox {

// What a fault is aimed at. Relay, indexer and paymail share the family's host and are told apart by path.
enum class Service { kChain, kOrdinals, kContent, kArc, kRelay, kIndexer, kPaymail, kDownload };

enum class FaultKind {
    kDelay,         // answers properly, `delay_ms` late
    kNoAnswer,      // takes the request and never answers (until the client gives up or the sandbox stops)
    kDrop,          // closes the connection without an answer
    kCutBody,       // announces the whole answer and closes the connection in its middle
    kReply,         // answers `status` with `body`, without doing what was asked
    kActAndReply,   // does what was asked, then answers `status` with `body`
    kLoseAccepted,  // answers as if the transaction were taken, and drops it
    kStaleListing,  // lists outputs as they stood when the fault was set, spent ones among them and unflagged
    kFlipTxids,     // lists transaction ids in reversed byte order
};

struct Fault {
    FaultKind kind = FaultKind::kReply;
    int status = 500;
    std::string body;
    std::string content_type = "text/plain";
    std::map<std::string, std::string> headers;
    int64_t delay_ms = 0;
    int times = -1;             // requests that meet it; -1: until cleared
    std::string path_contains;  // only requests whose target contains this; empty: all of the service
};

// How many faults of each kind requests to each service have met.
using FaultCounts = std::map<std::pair<Service, FaultKind>, int64_t>;

// A report to the architect as its transaction holds it.
struct Report {
    std::string txid;
    std::string handle;   // of the sender
    int64_t ts = 0;       // Unix seconds, as signed
    std::string text;     // any bytes
    std::string refusal;  // why it could not be read; empty: `text` is what was written
};

struct Options {
    std::string folder;        // keeps the certificate authority; made at the first start, 0700
    int port = 0;              // 0: a free one
    std::string journal_file;  // optional: raw transactions and claims, replayed at the start
    int64_t fee_per_kilobyte = 100;
    // Called for each report that comes in while it serves, on the thread that brought it; must not call
    // back.
    std::function<void(const Report&)> on_report;
};

struct PublishedIdentity {
    std::string alias;
    std::string pubkey;
    std::string address;
    std::string avatar;
    std::string ord_address;
    bool frozen = false;
    std::string frozen_note;
    std::string role;
};

using Identities = std::map<std::string, PublishedIdentity, std::less<>>;  // by alias

// One unspent output as the chain holds it.
struct ChainOutput {
    std::string txid;  // display byte order
    uint32_t vout = 0;
    int64_t value = 0;
    bool in_mempool = false;
};

// A row of the ordinals listing of an address. `origin` empty: a plain output.
struct OrdinalMark {
    std::string txid;
    uint32_t vout = 0;
    std::string origin;
    bool token = false;  // stands in the "/bsv20/" listing instead
};

}  // namespace brickfall::sandbox
