#include "audit/evidence_file.h"

#include <algorithm>
#include <new>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "audit/week_argument.h"
#include "base/foreign_json.h"
#include "base/text.h"
#include "base/workers.h"
#include "board/watch_reader.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "wallet/json/json_numbers.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr JsonLimits kEvidenceFile = {.bytes = kMaxEvidenceBytes, .values = 1'000'000};
constexpr char kNotInFile[] = "not in the file";

// A transaction of the file; nothing for one that cannot be read.
std::optional<AuditTransaction> ReadTold(const json& told) {
    const json* const decoded = FindJsonKey(told, "tx");
    const std::string hex = told.is_string() ? told.get<std::string>() : JsonString(told, "hex");
    std::optional<AuditTransaction> transaction;
    std::string ignored;
    if (decoded == nullptr) {
        transaction = ReadRawTransaction(HexDecode(hex));
    } else if (const std::string txid = JsonString(*decoded, "txid"); IsTxidText(txid)) {
        transaction.emplace();
        if (!ReadDecodedTransaction(*decoded, txid, *transaction, ignored)) return std::nullopt;
        transaction->block = {};
    }
    const json* const height = FindJsonNumber(told, "height");
    const json* const time = FindJsonNumber(told, "time");
    if (transaction && height != nullptr) {
        transaction->block =
            ToldBlock(JsonClampedInt64(*height), time == nullptr ? 0 : JsonClampedInt64(*time));
    }
    return transaction;
}

// The answers of the services, as the file has them.
class Answers {
  public:
    bool Read(std::string_view text, std::size_t threads, std::string& error) {
        file_ = ParseForeignJson(text, kEvidenceFile);
        const json* list = &file_;
        if (!file_.is_array()) {
            const json* const version = FindJsonNumber(file_, "version");
            list = FindJsonKey(file_, "transactions");
            if (version == nullptr || *version != 1 || list == nullptr || !list->is_array()) {
                error = "neither a list of raw transactions nor evidence of version 1";
                return false;
            }
        }
        if (!ReadTransactions(*list, threads)) {
            error = "a transaction that cannot be read";
            return false;
        }
        std::vector<std::string> missing;
        ReadIds(file_, "missing", missing);
        missing_.insert(missing.begin(), missing.end());
        return true;
    }

    // Every record of a score, those that the file names as judged first.
    SavedEvidence Records(std::size_t threads) const {
        std::vector<std::string> judged;
        const bool names_judged = ReadIds(file_, "rows", judged);
        SavedEvidence saved;
        saved.scope = JsonString(file_, "scope");
        if (saved.scope.empty()) saved.scope = "the rows of a file";
        std::set<std::string> seen;
        const auto add = [&](const std::string& txid) {
            if (!seen.insert(txid).second) return;
            saved.evidence.emplace_back().txid = txid;
        };
        for (const std::string& txid : judged) add(txid);
        saved.judged = saved.evidence.size();
        for (const AuditTransaction& transaction : transactions_) add(transaction.txid);
        RunInParallel(saved.evidence.size(), threads, [&](std::size_t i) { Fill(saved.evidence[i]); });
        const auto is_none = [](const Evidence& evidence) {
            return evidence.record == LookUp::kFound && evidence.row_state == RowState::kNone;
        };
        const auto first_other = saved.evidence.begin() + static_cast<std::ptrdiff_t>(saved.judged);
        saved.evidence.erase(std::remove_if(first_other, saved.evidence.end(), is_none),
                             saved.evidence.end());
        if (!names_judged) saved.judged = saved.evidence.size();
        return saved;
    }

    PotHistory Pot(bool& all_rows_listed) const {
        PotHistory pot;
        all_rows_listed = false;
        const json* const settlement = FindJsonKey(file_, "settlement");
        if (settlement == nullptr) {
            for (const AuditTransaction& transaction : transactions_) {
                if (PaidToPot(transaction) > 0) pot.transactions.push_back(transaction);
            }
            return pot;
        }
        pot.week_start = ParseWeek(JsonString(*settlement, "week")).value_or(0);
        pot.known_at = JsonInt(*settlement, "known_at");
        const auto is_true = [settlement](const char* key) {
            const json* const told = FindJsonKey(*settlement, key);
            return told != nullptr && *told == true;
        };
        all_rows_listed = is_true("all_rows_listed");
        pot.all_listed = is_true("all_payments_listed");
        std::vector<std::string> ids;
        if (!ReadIds(*settlement, "payments", ids)) pot.all_listed = false;
        for (const std::string& txid : ids) {
            AuditTransaction transaction;
            std::string error;
            if (Find(txid, transaction, error) == LookUp::kFound) {
                pot.transactions.push_back(std::move(transaction));
            } else {
                pot.not_read.emplace_back(txid, kNotInFile);
            }
        }
        return pot;
    }

  private:
    bool ReadTransactions(const json& list, std::size_t threads) {
        std::vector<std::optional<AuditTransaction>> read(list.size());
        RunInParallel(list.size(), threads, [&](std::size_t i) {
            try {
                read[i] = ReadTold(list[i]);
            } catch (const std::bad_alloc&) {
            }
        });
        for (std::optional<AuditTransaction>& transaction : read) {
            if (!transaction) return false;
            transactions_.push_back(*std::move(transaction));
        }
        for (const AuditTransaction& transaction : transactions_)
            by_id_.emplace(transaction.txid, &transaction);
        return true;
    }

    // False when there is no list of ids alone; those in it are read all the same.
    static bool ReadIds(const json& object, const char* key, std::vector<std::string>& ids) {
        const json* const list = FindJsonKey(object, key);
        if (list == nullptr || !list->is_array()) return false;
        bool ids_alone = true;
        for (const json& id : *list) {
            if (id.is_string() && IsTxidText(id.get_ref<const std::string&>())) {
                ids.push_back(Lower(id.get_ref<const std::string&>()));
            } else {
                ids_alone = false;
            }
        }
        return ids_alone;
    }

    LookUp Find(const std::string& txid, AuditTransaction& transaction, std::string& error) const {
        if (const auto found = by_id_.find(txid); found != by_id_.end()) {
            transaction = *found->second;
            return LookUp::kFound;
        }
        error = kNotInFile;
        return missing_.contains(txid) ? LookUp::kNone : LookUp::kFailed;
    }

    void Fill(Evidence& evidence) const noexcept try {
        evidence.record = Find(evidence.txid, evidence.transaction, evidence.record_error);
        if (evidence.record != LookUp::kFound) return;
        ReadRow(evidence);
        if (evidence.row_state != RowState::kRow) return;
        if (const std::string entry = EntryTxid(evidence); !entry.empty())
            evidence.entry = Find(entry, evidence.entry_transaction, evidence.entry_error);
        evidence.key_error = kNotInFile;
        const json* const identities = FindJsonKey(file_, "identities");
        if (identities == nullptr || !identities->is_object()) return;
        const auto told = identities->find(SignerName(evidence));
        if (told == identities->end()) return;
        ByteBuffer key;
        if (told->is_null()) {
            evidence.key = LookUp::kNone;
        } else if (told->is_string() && DecodeKeyHex(told->get_ref<const std::string&>(), key)) {
            evidence.public_key = CanonicalPublicKey(key);
            if (!evidence.public_key.empty()) evidence.key = LookUp::kFound;
        }
    } catch (const std::bad_alloc&) {
        evidence.record = LookUp::kFailed;
        evidence.record_error = kOutOfMemoryText;
    }

    json file_;
    std::vector<AuditTransaction> transactions_;
    std::unordered_map<std::string, const AuditTransaction*> by_id_;  // the first of each
    std::set<std::string> missing_;
};

json ToldForm(const AuditTransaction& transaction) {
    json told = transaction.raw.empty() ? json{{"tx", DecodedForm(transaction)}}
                                        : json{{"hex", HexEncode(transaction.raw)}};
    if (!transaction.block.told) return told;
    told["height"] = transaction.block.height;
    if (transaction.block.time > 0) told["time"] = transaction.block.time;
    return told;
}

}  // namespace

bool ReadEvidence(std::string_view text, std::size_t threads, SavedEvidence& saved, std::string& error) {
    Answers answers;
    if (!answers.Read(text, threads, error)) return false;
    saved = answers.Records(threads);
    saved.pot = answers.Pot(saved.all_rows_listed);
    return true;
}

std::string WriteEvidence(const SavedEvidence& saved) {
    json file = {{"version", 1},
                 {"scope", saved.scope},
                 {"rows", json::array()},
                 {"transactions", json::array()},
                 {"missing", json::array()},
                 {"identities", json::object()}};
    std::set<std::string> told;
    const auto tell = [&](LookUp found, const std::string& txid, const AuditTransaction& transaction) {
        if (found == LookUp::kFailed || txid.empty() || !told.insert(txid).second) return;
        if (found == LookUp::kNone) {
            file["missing"].push_back(txid);
        } else {
            file["transactions"].push_back(ToldForm(transaction));
        }
    };
    for (std::size_t i = 0; i < saved.evidence.size(); ++i) {
        const Evidence& one = saved.evidence[i];
        if (i < saved.judged) file["rows"].push_back(one.txid);
        tell(one.record, one.txid, one.transaction);
        tell(one.entry, EntryTxid(one), one.entry_transaction);
        if (one.key == LookUp::kFailed) continue;
        file["identities"][SignerName(one)] =
            one.key == LookUp::kFound ? json(one.public_key) : json(nullptr);
    }
    if (const PotHistory& pot = saved.pot; pot.week_start > 0) {
        json payments = json::array();
        for (const AuditTransaction& transaction : pot.transactions) {
            tell(LookUp::kFound, transaction.txid, transaction);
            payments.push_back(transaction.txid);
        }
        for (const auto& [txid, why] : pot.not_read) payments.push_back(txid);
        file["settlement"] = {{"week", WeekLabel(pot.week_start)},
                              {"known_at", pot.known_at},
                              {"all_rows_listed", saved.all_rows_listed},
                              {"all_payments_listed", pot.all_listed},
                              {"payments", std::move(payments)}};
    }
    return DumpRow(file);
}

}  // namespace brickfall
