// books.h - what the chain's transactions and the store's files say by themselves, and what must hold of them
// whatever has happened. It asks no wallet: transactions are read by the sandbox's own code, files as JSON.
// No lock: one thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/server/operations.h"
#include "sandbox/server/raw_transaction.h"

namespace brickfall::soak {

// Something that must hold does not.
struct Violation : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void Require(bool held, const std::string& what);

// A wallet as its words determine it.
struct WalletPlan {
    std::string id;
    std::string name;  // the local part of its paymail, at first
    std::string words;
    std::vector<std::string> receive;
    std::string identity;
    std::string ordinals;  // never spent from
};

enum class PaymentKind { kEntry, kRecord, kReport };

struct Payment {
    std::string txid;
    PaymentKind kind = PaymentKind::kEntry;
    std::size_t wallet = 0;        // who paid: its place in the list of wallets
    std::set<std::string> spends;  // "<txid>:<vout>"
    std::string entry;             // of a record: the payment that its row names
    std::string run;               // of a record: the seal of the run's tape
};

struct Coin {
    std::string outpoint;  // "<txid>:<vout>"
    std::string address;
    int64_t value = 0;
};

// A transaction as somebody handed it to a service, whatever came of it.
struct Submission {
    std::string txid;
    std::set<std::string> spends;
    std::set<std::size_t> payers;  // wallets whose coins it spends; coins that nobody knows have none
    bool spends_ordinals_address = false;
};

class Books {
  public:
    explicit Books(const std::vector<WalletPlan>& wallets);

    // Reads the chain anew. Every satoshi that was made must be held by somebody known or have gone to a fee
    // of the agreed rate, no coin may be spent twice, and every payment must be an entry, a record or a
    // report, of one wallet, with its change going back to it.
    void ReadChain(const sandbox::Operations& chain);
    const std::vector<Payment>& Payments() const { return payments_; }  // in the order accepted
    const Payment* Find(std::string_view txid) const;

    // Unspent coins at the wallet's receive addresses, largest first.
    std::vector<Coin> CoinsOf(std::size_t wallet) const;

    // Its outputs are known from then on, as a payment that is lost leaves them to the wallet's memory.
    Submission ReadSubmission(std::string_view raw_hex);

  private:
    struct Output {
        std::string address;
        int64_t value = 0;
        bool spent = false;
    };

    void ReadPayment(const sandbox::ParsedTx& tx, std::size_t raw_size);
    std::optional<std::size_t> OwnerOf(const std::string& address) const;

    const std::vector<WalletPlan>& wallets_;
    std::map<std::string, std::size_t> owners_;     // by address
    std::map<std::string, Output> outputs_;         // of the chain, by outpoint
    std::map<std::string, std::string> submitted_;  // addresses of the outputs handed in, by outpoint
    std::vector<Payment> payments_;
    int64_t fees_ = 0;
};

// Every file below the folder: whole, of the user alone, and JSON where its name says so; no temporary file
// is left.
void CheckStoreFiles(const std::string& root);

// The outpoints of a wallet's spent file; empty when there is none.
std::set<std::string> SpentFile(const std::string& root, const std::string& wallet_id);

// The id that an installation's bind file names; empty when there is none.
std::string BoundWallet(const std::string& root, std::string_view installation);

// The wallet's file still holds its words and counters.
void CheckWalletFile(const std::string& root, const WalletPlan& plan, uint32_t last_receive);

// No record stands twice among the cabinet's own scores.
void CheckLocalScores(const std::string& root);

}  // namespace brickfall::soak
