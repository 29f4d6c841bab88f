// evidence.h - what is known of one recorded score before it is judged: its transaction, the row in it, the
// published key of its signer, its entry's transaction. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

#include "audit/transaction_reader.h"
#include "net/http_client.h"

namespace brickfall {

// What a transaction says of a score.
enum class RowState {
    kRow,         // an object of type "arcade_score"
    kUnreadable,  // it pays the watch address and carries data that is no JSON object
    kNone         // no record of a score
};

struct Evidence {
    std::string txid;  // of the record

    LookUp record = LookUp::kFailed;  // whether the transaction was found
    std::string record_error;         // why the look-up failed
    AuditTransaction transaction;

    RowState row_state = RowState::kNone;
    nlohmann::json row;
    std::size_t row_bytes = 0;  // of the payload

    LookUp key = LookUp::kFailed;  // kNone: nobody has published one
    std::string key_error = "not asked for";
    std::string public_key;  // 66 lower-case hex digits

    LookUp entry = LookUp::kFailed;
    std::string entry_error = "not asked for";
    AuditTransaction entry_transaction;
};

// Fills the row's part from `transaction`. A row that the board reads comes before one that is too large for
// it.
void ReadRow(Evidence& evidence);

// The id of the entry that the row names, in lower case; empty when it names none.
std::string EntryTxid(const Evidence& evidence);

// Under which the row's signer has published a key, name@domain; empty when there can be none.
std::string SignerName(const Evidence& evidence);

// The same text for two tapes of the same events, whatever the size of the players' windows; empty when there
// are none. It judges no tape.
std::string EventsKey(const Evidence& evidence);

}  // namespace brickfall
