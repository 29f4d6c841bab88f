// operations.h - what can be done to the sandbox and asked of it, whether it serves or not. The control
// endpoint, the program and the tests use it. All operations may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/server/types.h"

namespace brickfall::sandbox {

struct SandboxState;

class Operations {
  public:
    explicit Operations(Options options);
    ~Operations();
    Operations(const Operations&) = delete;
    Operations& operator=(const Operations&) = delete;

    // The chain.
    // `block_time` in Unix seconds, never before that of the last block; nothing: this machine's time.
    std::string Fund(
        std::string_view address, int64_t satoshis,
        std::optional<int64_t> block_time = {});  // the id of a new funding transaction; empty: bad address
    void Mine(std::optional<int64_t> block_time = {});  // a block of everything in the mempool
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
    // The raw hex of each transaction that a service was handed and could read, in order, whatever it
    // answered.
    std::vector<std::string> Submissions() const;
    void ClearRequests();            // and the submissions
    FaultCounts FaultsMet() const;   // since the start
    int MostRequestsAtOnce() const;  // that were being answered at one moment, since the start

  protected:
    const std::unique_ptr<SandboxState> state_;
};

}  // namespace brickfall::sandbox
