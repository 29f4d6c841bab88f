#include "audit/collect.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <new>
#include <set>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/text.h"
#include "base/workers.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/week.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "net/url_text.h"
#include "wallet/json/json_numbers.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kMostIds = 200'000;
constexpr int kRawTimeoutSeconds = 15;

// What strangers have written may be held up to here; a byte on the chain is held up to five times.
constexpr std::size_t kMostScriptBytes = 256 << 20;

struct Collector {
    const AuditProgress& progress;
    std::atomic<std::size_t> script_bytes = 0;

    // Does `body` for each number below `count`, many at once.
    void ForEach(const char* what, std::size_t count, const std::function<void(std::size_t)>& body) {
        std::atomic<std::size_t> done = 0;
        progress(what, 0, count);
        RunInParallel(count, kRequestsAtOnce, [&](std::size_t i) {
            body(i);
            progress(what, ++done, count);
        });
    }

    LookUp Find(const std::string& txid, AuditTransaction& transaction, std::string& error) noexcept try {
        const LookUp found = Ask(txid, transaction, error);
        std::size_t bytes = 0;
        for (const AuditOutput& output : transaction.outputs) bytes += output.script.size();
        if (script_bytes.fetch_add(bytes) + bytes <= kMostScriptBytes) return found;
        script_bytes.fetch_sub(bytes);
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
        transaction = {};
        error = kOutOfMemoryText;
        return LookUp::kFailed;
    }

    // The indexer, then the chain API: of a transaction that waits for its block the latter's word counts.
    // What neither tells properly may still be had raw, without its block.
    LookUp Ask(const std::string& txid, AuditTransaction& transaction, std::string& error) {
        bool nobody_knows = true;
        bool found = false;
        error.clear();
        for (const auto& [service, folder] :
             {std::pair{"indexer", std::string(kApiBaseUrl) + "/oi/tx/"},
              std::pair{"chain API", std::string(kChainApiBaseUrl) + "/tx/"}}) {
            json decoded;
            std::string why;
            const LookUp answer = LookUpJson(folder + txid, decoded, why);
            if (answer == LookUp::kNone) continue;
            nobody_knows = false;
            AuditTransaction told;
            if (answer == LookUp::kFound && ReadDecodedTransaction(decoded, txid, told, why)) {
                transaction = std::move(told);
                found = true;
                if (transaction.block.IsMined()) return LookUp::kFound;
            } else {
                error += (error.empty() ? "" : "; ") + std::string(service) + ": " + why;
            }
        }
        if (found) return LookUp::kFound;
        if (nobody_knows) return LookUp::kNone;
        return AskRaw(txid, transaction) ? LookUp::kFound : LookUp::kFailed;
    }

    static bool AskRaw(const std::string& txid, AuditTransaction& transaction) {
        std::string hex, ignored;
        if (!HttpGet(std::string(kChainApiBaseUrl) + "/tx/" + txid + "/hex", hex, ignored,
                     kRawTimeoutSeconds))
            return false;
        std::optional<AuditTransaction> raw = ReadRawTransaction(HexDecode(Trim(hex)));
        if (!raw || raw->txid != txid) return false;
        transaction = *std::move(raw);
        return true;
    }
};

bool AskIndexerForIds(const AuditScope& scope, std::vector<std::string>& ids, std::string& error) {
    const std::string list = std::string(kApiBaseUrl) + "/oi/oracle/" + kBoardGameId +
                             "/txids?limit=" + std::to_string(kIdsAPage) + "&offset=";
    for (;;) {
        json answer;
        const LookUp told = LookUpJson(list + std::to_string(ids.size()), answer, error, kIdsAnswer);
        const json* const page = FindJsonKey(answer, "txids");
        if (told != LookUp::kFound || page == nullptr || !page->is_array()) {
            if (error.empty()) error = "no list";
            return false;
        }
        CollectTxids(answer, ids);
        if (!scope.every_page || page->size() < kIdsAPage || ids.size() >= kMostIds) return true;
    }
}

// Each once, in lower case. What is no id is none of a record.
std::vector<std::string> FindIds(const AuditScope& scope, Collected& collected) {
    std::vector<std::string> ids;
    collected.by_indexer = AskIndexerForIds(scope, ids, collected.list_error);
    collected.listed = collected.by_indexer || ListWatchAddress(ids);
    std::vector<std::string> distinct;
    std::unordered_set<std::string> seen;
    if (scope.kind == ScopeKind::kOne) ids.insert(ids.begin(), scope.txid);
    for (const std::string& listed : ids) {
        std::string id = Lower(listed);
        if (IsTxidText(id) && seen.insert(id).second) distinct.push_back(std::move(id));
    }
    return distinct;
}

void ReadRecords(Collector& collector, std::vector<Evidence>& evidence) {
    collector.ForEach("transactions", evidence.size(), [&](std::size_t i) {
        Evidence& one = evidence[i];
        one.record = collector.Find(one.txid, one.transaction, one.record_error);
        if (one.record != LookUp::kFound) return;
        try {
            ReadRow(one);
        } catch (const std::bad_alloc&) {
            one.record = LookUp::kFailed;
            one.record_error = kOutOfMemoryText;
        }
    });
}

// Each key once and each entry once, whoever names it.
void ReadKeysAndEntries(Collector& collector, std::vector<Evidence>& evidence) {
    struct Entry {
        LookUp state = LookUp::kFailed;
        std::string error;
        AuditTransaction transaction;
    };
    std::map<std::string, IdentityAnswer> keys;
    std::map<std::string, Entry> entries;
    for (const Evidence& one : evidence) {
        if (std::string name = SignerName(one); !name.empty())
            keys.emplace(std::move(name), IdentityAnswer());
        if (std::string id = EntryTxid(one); !id.empty()) entries.emplace(std::move(id), Entry());
    }
    std::vector<std::function<void()>> look_ups;
    for (auto& [name, answer] : keys) {
        look_ups.emplace_back([&name = name, &answer = answer]() noexcept {
            try {
                answer = AskIdentityKey(name);
            } catch (const std::bad_alloc&) {
                answer.error = kOutOfMemoryText;
            }
        });
    }
    for (auto& [id, entry] : entries) {
        look_ups.emplace_back([&collector, &id = id, &entry = entry]() noexcept {
            entry.state = collector.Find(id, entry.transaction, entry.error);
        });
    }
    collector.ForEach("keys and entries", look_ups.size(), [&](std::size_t i) { look_ups[i](); });
    for (Evidence& one : evidence) {
        if (const auto key = keys.find(SignerName(one)); key != keys.end()) {
            one.key = key->second.state;
            one.key_error = "paymail host: " + key->second.error;
            one.public_key = key->second.public_key;
        }
        if (const auto entry = entries.find(EntryTxid(one)); entry != entries.end()) {
            one.entry = entry->second.state;
            one.entry_error = entry->second.error;
            one.entry_transaction = entry->second.transaction;
        }
    }
}

// What was looked up as a row's entry is not asked for again.
void ReadPot(Collector& collector, int64_t week, Collected& collected) {
    std::map<std::string_view, const AuditTransaction*> known;
    for (const Evidence& one : collected.evidence) {
        if (one.entry == LookUp::kFound) known.emplace(one.entry_transaction.txid, &one.entry_transaction);
    }
    const auto find = [&](const std::string& txid, AuditTransaction& transaction, std::string& error) {
        if (const auto entry = known.find(txid); entry != known.end()) {
            transaction = *entry->second;
            return true;
        }
        const LookUp found = collector.Find(txid, transaction, error);
        if (found == LookUp::kNone) error = "no service knows it";
        return found == LookUp::kFound;
    };
    collected.pot = CollectPotHistory(week, kRequestsAtOnce, find, [&](std::size_t done, std::size_t of) {
        collector.progress("payments to the pot", done, of);
    });
}

bool IsInScope(const AuditScope& scope, const Evidence& evidence) {
    if (scope.kind == ScopeKind::kOne) return evidence.txid == scope.txid;
    if (scope.kind == ScopeKind::kAll || evidence.record != LookUp::kFound) return true;
    if (evidence.row_state == RowState::kRow) return JsonInt(evidence.row, "week") == scope.week;
    const BlockPlace& block = evidence.transaction.block;
    return block.time == 0 || WeekStart(block.time) == scope.week;
}

std::string ScopeText(const AuditScope& scope) {
    switch (scope.kind) {
        case ScopeKind::kAsSaved:
            return "";
        case ScopeKind::kWeek:
            return "week " + WeekLabel(scope.week);
        case ScopeKind::kAll:
            return "every record";
        case ScopeKind::kOne:
            return "record " + scope.txid;
    }
    return "";
}

}  // namespace

Collected Collect(const AuditScope& scope, const AuditProgress& progress) {
    Collector collector{progress};
    Collected collected;
    const int64_t asked_at = UnixSeconds();
    for (std::string& txid : FindIds(scope, collected))
        collected.evidence.emplace_back().txid = std::move(txid);
    collected.all_rows_listed = collected.by_indexer && collected.evidence.size() < kMostIds;
    ReadRecords(collector, collected.evidence);
    Select(scope, collected);
    ReadKeysAndEntries(collector, collected.evidence);
    if (!scope.with_pot) return collected;
    ReadPot(collector, scope.week, collected);
    collected.pot.known_at = asked_at;  // before the first list: there may be more by now
    return collected;
}

void Select(const AuditScope& scope, SavedEvidence& saved) {
    if (scope.kind == ScopeKind::kAsSaved) return;
    saved.scope = ScopeText(scope);
    std::vector<Evidence>& evidence = saved.evidence;
    std::erase_if(evidence, [&scope](const Evidence& one) {
        return one.record == LookUp::kFound && one.row_state == RowState::kNone && one.txid != scope.txid;
    });
    const auto is_asked_for = [&scope](const Evidence& one) { return one.txid == scope.txid; };
    if (scope.kind == ScopeKind::kOne && std::ranges::none_of(evidence, is_asked_for)) {
        Evidence& missing = evidence.emplace_back();
        missing.txid = scope.txid;
        missing.record_error = "not in the file";
    }
    const auto others = std::stable_partition(
        evidence.begin(), evidence.end(), [&scope](const Evidence& one) { return IsInScope(scope, one); });
    saved.judged = static_cast<std::size_t>(others - evidence.begin());
    std::set<std::string> entries, events;
    for (auto one = evidence.begin(); one != others; ++one) {
        entries.insert(EntryTxid(*one));
        events.insert(EventsKey(*one));
    }
    entries.erase("");
    events.erase("");
    evidence.erase(std::remove_if(others, evidence.end(),
                                  [&](const Evidence& one) {
                                      return !entries.contains(EntryTxid(one)) &&
                                             !events.contains(EventsKey(one));
                                  }),
                   evidence.end());
}

}  // namespace brickfall
