// sandbox.h - every remote service of the game on this machine, behind one TLS port, told apart by host name.
// The program brickfall-sandbox and the tests run it through this interface. All operations may be called
// from any thread while it serves.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

class Sandbox {
  public:
    explicit Sandbox(Options options);
    ~Sandbox();  // stops
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    bool Start(std::string& error);
    void Stop();

    int Port() const;
    std::string ConnectTo() const;  // for the deployment's route: "::127.0.0.1:PORT"
    std::string CaFile() const;     // PEM

    // The chain.
    std::string Fund(std::string_view address,
                     int64_t satoshis);  // the id of a new funding transaction; empty: bad address
    void Mine();                         // a block of everything in the mempool
    bool Submit(std::string_view raw_hex, std::string& txid,
                std::string& reason);    // checked as from a service
    void Forget(std::string_view txid);  // drops a mempool transaction
    std::vector<std::string> RawTransactions()
        const;  // hex, in the order accepted, funding ones first come first
    std::optional<std::string> RawTransaction(std::string_view txid) const;
    std::vector<ChainOutput> Unspent(std::string_view address) const;
    int64_t BalanceOf(std::string_view address) const;  // satoshis, mempool included
    int64_t TotalFunded() const;
    int64_t TotalUnspent() const;  // over all scripts
    int64_t TotalFees() const;     // TotalFunded() == TotalUnspent() + TotalFees() always

    // Identities and listings.
    void Publish(const PublishedIdentity& identity);
    std::optional<PublishedIdentity> Identity(std::string_view alias) const;
    void MarkOrdinal(std::string_view address, const OrdinalMark& mark);
    void SetIndexerKnows(bool every_transaction);  // false: the indexer answers 404 for transactions

    // Fills the board: twelve players with faces, more than thirty signed rows over this week and the one
    // before `now` (Unix seconds), and four rows that no board may show. Once for each week, as the journal
    // knows.
    bool SeedBoard(int64_t now);

    // Publishes the architect, whose keys are fixed, and writes the key file that senders need into `folder`.
    bool AppointArchitect(const std::string& folder);
    // What the architect has received and opened, in the order accepted.
    std::vector<Report> Reports() const;

    // What the download page says, as text such as "0.002". Digits and points; false for anything else.
    bool SetBuild(std::string_view build);

    // Faults and what was asked.
    void AddFault(Service service, const Fault& fault);
    void ClearFaults();
    std::vector<std::string> Requests(Service service) const;  // "METHOD target", in order
    void ClearRequests();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace brickfall::sandbox
