#include "audit/judge.h"

#include <algorithm>
#include <functional>
#include <map>
#include <new>
#include <string_view>
#include <utility>

#include "audit/entry_payment.h"
#include "base/text.h"
#include "base/workers.h"
#include "board/watch_reader.h"
#include "deployment/deployment.h"
#include "game/replay.h"
#include "game/week.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "wallet/json/json_numbers.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

// A block's time may be off by as much, and an entry may wait as long for its block.
constexpr int64_t kBlockTimeSlack = 7'200;
constexpr int64_t kMostSecondsToBlock = 86'400;  // from a row's time, by the player's clock, to its block's

// A cabinet reads the clock once for the week and once more for the time.
constexpr int64_t kClockReadingsApart = 60;

// Two honest runs may be the same few serves and nothing else.
constexpr std::size_t kMostEventsShared = 12;

// A row by itself, and what it is compared by.
struct LoneRow {
    RowAudit audit;
    Hash256 events_hash{};  // of the tape's events, without the header; meaningless below `events` of 1
    std::size_t events = 0;
};

void Blame(RowAudit& audit, Verdict verdict, std::string evidence) {
    audit.findings.push_back({verdict, std::move(evidence)});
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

void ReadFields(const nlohmann::json& row, RowAudit& audit) {
    audit.has_row = true;
    audit.actor = JsonString(row, "actor");
    audit.handle = JsonString(row, "handle");
    if (audit.handle.empty()) audit.handle = audit.actor;
    audit.pay_addr = JsonString(row, "pay_addr");
    audit.entry = JsonString(row, "entry");
    audit.score = JsonInt(row, "score");
    audit.week = JsonInt(row, "week");
    audit.ts = JsonInt(row, "ts");
}

void JudgeKey(const Evidence& evidence, RowAudit& audit) {
    const auto blame = [&audit](std::string why) { Blame(audit, Verdict::kKeyNotPublished, std::move(why)); };
    if (Lower(NormalizeHandle(audit.handle)) != Lower(NormalizeHandle(audit.actor)))
        return blame("shown as " + Quoted(audit.handle) + ", signed as " + Quoted(audit.actor));
    const std::string name = SignerName(evidence);
    if (name.empty()) {
        return blame("no name of " + std::string(kPaymailDomain) + ": " + Quoted(audit.actor) + ", " +
                     Quoted(JsonString(evidence.row, "paymail")));
    }
    if (evidence.key == LookUp::kFailed) {
        audit.not_looked.push_back({"published key", evidence.key_error});
    } else if (evidence.key == LookUp::kNone) {
        blame("nobody has published a key for " + name);
    } else if (evidence.public_key != audit.public_key) {
        blame(name + " has published " + evidence.public_key + ", the row carries " + audit.public_key);
    }
}

void JudgeSignature(const Evidence& evidence, RowAudit& audit) {
    const SignedMessage message = ReadSignedMessage(evidence.row);
    ByteBuffer key;
    if (DecodeKeyHex(message.public_key, key)) audit.public_key = CanonicalPublicKey(key);
    if (message.fault != nullptr) {
        Blame(audit, Verdict::kSignatureWrong, message.fault);
    } else if (audit.public_key.empty()) {
        Blame(audit, Verdict::kSignatureWrong, "the row carries no key");
    } else if (!VerifyCompactSignature(message.text, message.public_key, message.signature)) {
        Blame(audit, Verdict::kSignatureWrong, "not of this row, by the key " + audit.public_key);
    }
    if (!audit.public_key.empty()) JudgeKey(evidence, audit);
}

RunFacts FactsOf(const InputTape& tape, const Replay& replay) {
    RunFacts facts;
    facts.length_ms = static_cast<int64_t>(replay.TickMs());
    facts.score = replay.Game().score;
    facts.level = replay.Game().level;
    facts.events = tape.events.size();
    const InputEvent* last_press = nullptr;
    for (std::size_t i = 0; i < tape.events.size(); ++i) {
        const InputEvent& event = tape.events[i];
        if (event.code != kInputLeftDown && event.code != kInputRightDown && event.code != kInputServe)
            continue;
        const bool shares_tick = (i > 0 && tape.events[i - 1].tick_ms == event.tick_ms) ||
                                 (i + 1 < tape.events.size() && tape.events[i + 1].tick_ms == event.tick_ms);
        facts.same_tick += shares_tick ? 1 : 0;
        if (last_press != nullptr) {
            const int64_t gap = int64_t{event.tick_ms} - last_press->tick_ms;
            facts.shortest_gap_ms = facts.presses == 1 ? gap : std::min(facts.shortest_gap_ms, gap);
        }
        ++facts.presses;
        last_press = &event;
    }
    return facts;
}

std::string FaultText(TapeFault fault, const InputTape& tape) {
    const bool in_an_event = fault == TapeFault::kCode || fault == TapeFault::kTick ||
                             fault == TapeFault::kOrder || fault == TapeFault::kBehindEnd;
    if (!in_an_event) return TapeFaultText(fault);
    return "event " + std::to_string(tape.events.size()) + ": " + TapeFaultText(fault);
}

void JudgeRun(const InputTape& tape, RowAudit& audit) {
    Replay replay(tape);
    replay.GoTo(Replay::kToTheEnd);
    const int64_t reached = replay.Game().score;
    const bool is_full = replay.End() == ReplayEnd::kFull;
    if (replay.End() != ReplayEnd::kLost && !is_full)
        return Blame(audit, Verdict::kNotALostGame, ReplayEndText(replay));
    audit.run = FactsOf(tape, replay);
    if (is_full ? audit.score < reached : audit.score != reached) {
        Blame(audit, Verdict::kScoreDiffers,
              "the row says " + Grouped(audit.score) + ", the replay " +
                  (is_full ? "has passed " : "gives ") + Grouped(reached));
    } else if (is_full) {
        Blame(audit, Verdict::kTapeFull, "after " + Grouped(reached) + " points " + ReplayEndText(replay));
    }
}

void JudgeTape(const nlohmann::json& row, LoneRow& judged) {
    RowAudit& audit = judged.audit;
    ByteBuffer bytes;
    if (!HexToBytes(NormalizeHex(JsonString(row, "tape")), bytes))
        return Blame(audit, Verdict::kTapeMalformed, "no hexadecimal text");
    if (bytes.empty()) return Blame(audit, Verdict::kTapeMalformed, "the row carries none");
    const std::string seal = HexEncode(Sha256Once(bytes));
    if (const std::string said = Lower(JsonString(row, "tape_hash")); said != seal) {
        Blame(audit, Verdict::kSealWrong,
              "the tape's is " + seal + ", the row " + (said.empty() ? "has none" : "says " + said));
    }
    InputTape tape;
    if (const TapeFault fault = ReadTape(bytes, tape); fault != TapeFault::kNone)
        return Blame(audit, Verdict::kTapeMalformed, FaultText(fault, tape));
    judged.events = tape.events.size();
    judged.events_hash = Sha256Once(std::span(bytes).subspan(kTapeHeaderBytes));
    JudgeRun(tape, audit);
}

void JudgeEntry(const Evidence& evidence, RowAudit& audit) {
    const auto blame = [&audit](std::string why) { Blame(audit, Verdict::kEntryUnpaid, std::move(why)); };
    const std::string entry = EntryTxid(evidence);
    if (entry.empty()) return blame("the row names no transaction");
    if (evidence.entry == LookUp::kFailed) {
        audit.not_looked.push_back({"entry", evidence.entry_error});
        return;
    }
    if (evidence.entry == LookUp::kNone) {
        // Services may know a transaction late; not one that was there before a mined one.
        if (audit.block.IsMined()) return blame("there is no transaction " + entry);
        audit.not_looked.push_back({"entry", "no service knows it yet; the record waits for its block too"});
        return;
    }
    const Paid house = PaidTo(evidence.entry_transaction, kArcadeHouseAddress, kArcadeHouseSats);
    const Paid pot = PaidTo(evidence.entry_transaction, kArcadePotAddress, kArcadePotSats);
    if (house.exactly && pot.exactly) return;
    blame(entry + " pays " + Grouped(house.sum) + " to the house and " + Grouped(pot.sum) + " to the pot");
}

void JudgeTimes(const Evidence& evidence, RowAudit& audit) {
    const BlockPlace& record = audit.block;
    if (!record.told || (record.IsMined() && record.time == 0))
        audit.not_judged.push_back("record's block time");
    if (audit.ts < 1) return;  // such a row is signed by nobody
    if (audit.week != WeekStart(audit.ts) && audit.week != WeekStart(audit.ts - kClockReadingsApart)) {
        Blame(audit, Verdict::kWeekWrong,
              "the row is of the week from " + UtcText(audit.week) + ", its time " + UtcText(audit.ts));
    } else if (record.time > 0 && (audit.ts < record.time - kMostSecondsToBlock ||
                                   audit.ts > record.time + kMostSecondsToBlock)) {
        Blame(audit, Verdict::kWeekWrong,
              "the row's time is " + UtcText(audit.ts) + ", its block's " + UtcText(record.time));
    }
    if (evidence.entry != LookUp::kFound || !audit.run) return;
    const BlockPlace& entry = evidence.entry_transaction.block;
    if (!entry.told || (entry.IsMined() && entry.time == 0)) audit.not_judged.push_back("entry's block time");
    if (entry.time == 0) return;
    const int64_t told = std::min(audit.ts, kLastBlockTime) + kMostSecondsToBlock;
    const int64_t recorded = record.time > 0 ? std::min(told, record.time) : told;
    const int64_t length = audit.run->length_ms / 1'000;
    if (entry.time > recorded + kBlockTimeSlack - length) {
        Blame(audit, Verdict::kRunTooLong,
              Grouped(length) + " s of play; entry in the block of " + UtcText(entry.time) + ", record by " +
                  UtcText(recorded));
    }
}

void JudgeAlone(const Evidence& evidence, LoneRow& judged) {
    RowAudit& audit = judged.audit;
    audit.txid = evidence.txid;
    if (evidence.record != LookUp::kFound) {
        audit.not_looked.push_back({"transaction", evidence.record == LookUp::kNone ? "no service knows it"
                                                                                    : evidence.record_error});
        return;
    }
    audit.block = evidence.transaction.block;
    if (evidence.row_state != RowState::kRow) {
        return Blame(audit, Verdict::kPayloadUnreadable,
                     evidence.row_state == RowState::kUnreadable
                         ? "what the transaction carries is no JSON object of a row's size"
                         : "the transaction carries no score row");
    }
    ReadFields(evidence.row, audit);
    JudgeSignature(evidence, audit);
    if (const std::string game = JsonString(evidence.row, "game");
        !game.empty() && Lower(game) != kBoardGameId) {
        return Blame(audit, Verdict::kAnotherGame, Quoted(game));  // whose laws nobody here knows
    }
    JudgeTape(evidence.row, judged);
    JudgeEntry(evidence, audit);
    JudgeTimes(evidence, audit);
    if (evidence.row_bytes > kBoardRowBytes) {
        Blame(audit, Verdict::kTooLarge,
              Grouped(static_cast<int64_t>(evidence.row_bytes)) + " bytes, of " +
                  Grouped(int64_t{kBoardRowBytes}) + " at most");
    }
}

LoneRow JudgeOne(const Evidence& evidence) {
    LoneRow judged;
    try {
        JudgeAlone(evidence, judged);
    } catch (const std::bad_alloc&) {
        judged = {};
        judged.audit.txid = evidence.txid;
        judged.audit.not_looked.push_back({"transaction", kOutOfMemoryText});
    }
    return judged;
}

// ---- Rows against each other. Which of two came first is told by their blocks alone: a row's own time is
// its signer's word, and whoever copies a row that waits for its block can name an earlier one. Two rows of
// one signer are put in order by his own word.

enum class Order { kBefore, kBehind, kNobodyKnows };

Order OrderOf(int64_t a, int64_t b) {
    if (a == b) return Order::kNobodyKnows;
    return a < b ? Order::kBefore : Order::kBehind;
}

Order BlockOrder(const RowAudit& a, const RowAudit& b) {
    if (!a.block.told || !b.block.told) return Order::kNobodyKnows;
    const auto height = [](const RowAudit& row) {
        return row.block.IsMined() ? row.block.height : INT64_MAX;
    };
    return OrderOf(height(a), height(b));
}

Order OrderOfRows(const RowAudit& a, const RowAudit& b) {
    const Order blocks = BlockOrder(a, b);
    if (blocks != Order::kNobodyKnows || a.public_key != b.public_key) return blocks;
    if (a.ts != b.ts) return OrderOf(a.ts, b.ts);
    return a.txid < b.txid ? Order::kBefore : Order::kBehind;
}

enum class Taken { kNo, kYes, kNobodyKnows };

Taken TakenFirst(const RowAudit& by, const RowAudit& from) {
    switch (OrderOfRows(by, from)) {
        case Order::kBefore:
            return Taken::kYes;
        case Order::kBehind:
            return Taken::kNo;
        case Order::kNobodyKnows:
            return Taken::kNobodyKnows;
    }
    return Taken::kNobodyKnows;
}

// An entry's change goes back to the wallet that paid it, where its rows are to be paid too. Everybody sees
// an entry before its run is recorded, so a row of another signer has it by right only with that address.
Taken EntryTaken(const Evidence& entry_of, const RowAudit& by, const RowAudit& from) {
    if (by.public_key == from.public_key) return TakenFirst(by, from);
    const auto claims = [&entry_of](const RowAudit& row) {
        Hash160 owner{};
        if (!DecodeAddress(row.pay_addr, owner)) return false;
        const ByteBuffer script = P2pkhScript(owner);
        return std::ranges::any_of(entry_of.entry_transaction.outputs,
                                   [&script](const AuditOutput& output) { return output.script == script; });
    };
    const bool by_claims = claims(by), from_claims = claims(from);
    if (by_claims != from_claims) return by_claims ? Taken::kYes : Taken::kNo;
    return by_claims ? Taken::kNobodyKnows : TakenFirst(by, from);
}

std::string RowName(const RowAudit& row) { return row.txid + " of " + Quoted(row.handle); }

// What is found in a row, for another that took something of it first. Only a row that is sound by itself, in
// all that could be looked at, takes anything: else anybody could spoil a row with one of no worth.
class Comparison {
  public:
    Comparison(const std::vector<Evidence>& evidence, std::vector<LoneRow>& rows)
        : evidence_(evidence), rows_(rows) {
        for (const LoneRow& row : rows_) sound_.push_back(row.audit.Status());
    }

    void Run() {
        std::map<std::string, std::vector<std::size_t>> by_entry;
        std::map<Hash256, std::vector<std::size_t>> by_events;
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            const RowAudit& audit = rows_[i].audit;
            if (!audit.has_row || audit.Has(Verdict::kAnotherGame)) continue;
            if (std::string entry = EntryTxid(evidence_[i]); !entry.empty())
                by_entry[std::move(entry)].push_back(i);
            if (rows_[i].events > kMostEventsShared) by_events[rows_[i].events_hash].push_back(i);
        }
        std::vector<std::vector<Finding>> found(rows_.size());
        for (const auto& [entry, group] : by_entry) {
            for (const std::size_t row : group) CompareEntry(row, group, found[row]);
        }
        for (const auto& [events, group] : by_events) {
            for (const std::size_t row : group) CompareEvents(row, group, found[row]);
        }
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            for (Finding& finding : found[i]) rows_[i].audit.findings.push_back(std::move(finding));
        }
    }

  private:
    const RowAudit& At(std::size_t row) const { return rows_[row].audit; }

    bool SameRun(std::size_t a, std::size_t b) const {
        return rows_[a].events > 0 && rows_[a].events_hash == rows_[b].events_hash &&
               At(a).public_key == At(b).public_key && EntryTxid(evidence_[a]) == EntryTxid(evidence_[b]);
    }

    // The first row of the group that took it, or else a note that this is not known.
    template <typename TakenBy>
    void Compare(std::size_t row, const std::vector<std::size_t>& group, const char* what,
                 const TakenBy& taken_by, const std::function<void(std::size_t)>& blame) {
        std::optional<std::size_t> first;
        std::optional<std::size_t> doubtful;
        for (const std::size_t other : group) {
            if (other == row || sound_[other] == AuditStatus::kUnsound) continue;
            const Taken taken = taken_by(other);
            if (taken == Taken::kNo) continue;
            const bool sure = taken == Taken::kYes && (sound_[other] == AuditStatus::kSound ||
                                                       At(other).public_key == At(row).public_key);
            if (!sure) {
                doubtful = other;
            } else if (!first || OrderOfRows(At(other), At(*first)) == Order::kBefore) {
                first = other;
            }
        }
        if (first) return blame(*first);
        if (doubtful) {
            rows_[row].audit.not_looked.push_back(
                {"order", std::string(what) + " stand in " + RowName(At(*doubtful)) +
                              " too; which was first, or sound, is not known"});
        }
    }

    void CompareEntry(std::size_t row, const std::vector<std::size_t>& group, std::vector<Finding>& found) {
        Compare(
            row, group, "its entry and another's",
            [&](std::size_t other) { return EntryTaken(evidence_[row], At(other), At(row)); },
            [&](std::size_t other) {
                found.push_back(
                    {Verdict::kEntryUsed,
                     (SameRun(row, other) ? "the same run is recorded in " : "by ") + RowName(At(other))});
            });
    }

    void CompareEvents(std::size_t row, const std::vector<std::size_t>& group, std::vector<Finding>& found) {
        Compare(
            row, group, "the same events",
            [&](std::size_t other) {
                return SameRun(row, other) ? Taken::kNo : TakenFirst(At(other), At(row));
            },
            [&](std::size_t other) {
                found.push_back(
                    {Verdict::kEventsCopied, "all " + Grouped(static_cast<int64_t>(rows_[row].events)) +
                                                 " stand in " + RowName(At(other))});
            });
    }

    const std::vector<Evidence>& evidence_;
    std::vector<LoneRow>& rows_;
    std::vector<AuditStatus> sound_;  // of each row by itself
};

}  // namespace

const char* VerdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::kPayloadUnreadable:
            return "payload-unreadable";
        case Verdict::kSignatureWrong:
            return "signature-wrong";
        case Verdict::kKeyNotPublished:
            return "key-not-published";
        case Verdict::kAnotherGame:
            return "another-game";
        case Verdict::kTapeMalformed:
            return "tape-malformed";
        case Verdict::kSealWrong:
            return "seal-wrong";
        case Verdict::kNotALostGame:
            return "not-a-lost-game";
        case Verdict::kScoreDiffers:
            return "score-differs";
        case Verdict::kTapeFull:
            return "tape-full";
        case Verdict::kEntryUnpaid:
            return "entry-unpaid";
        case Verdict::kEntryUsed:
            return "entry-used";
        case Verdict::kEventsCopied:
            return "events-copied";
        case Verdict::kRunTooLong:
            return "run-too-long";
        case Verdict::kWeekWrong:
            return "week-wrong";
        case Verdict::kTooLarge:
            return "too-large";
    }
    return "";
}

const char* VerdictText(Verdict verdict) {
    switch (verdict) {
        case Verdict::kPayloadUnreadable:
            return "payload not readable";
        case Verdict::kSignatureWrong:
            return "signature wrong";
        case Verdict::kKeyNotPublished:
            return "key not the published one";
        case Verdict::kAnotherGame:
            return "another game";
        case Verdict::kTapeMalformed:
            return "tape malformed";
        case Verdict::kSealWrong:
            return "seal is not the tape's";
        case Verdict::kNotALostGame:
            return "tape does not end in a lost game";
        case Verdict::kScoreDiffers:
            return "replayed score differs";
        case Verdict::kTapeFull:
            return "tape full, the score cannot be replayed";
        case Verdict::kEntryUnpaid:
            return "entry missing or not paid";
        case Verdict::kEntryUsed:
            return "entry used by another row";
        case Verdict::kEventsCopied:
            return "events copied from an earlier row";
        case Verdict::kRunTooLong:
            return "run longer than the time between entry and record";
        case Verdict::kWeekWrong:
            return "week and time disagree";
        case Verdict::kTooLarge:
            return "row larger than the board reads";
    }
    return "";
}

const char* StatusName(AuditStatus status) {
    switch (status) {
        case AuditStatus::kSound:
            return "sound";
        case AuditStatus::kUnsound:
            return "unsound";
        case AuditStatus::kCouldNotLook:
            return "could-not-look";
    }
    return "";
}

double RunFacts::PressesPerSecond() const {
    return length_ms > 0 ? static_cast<double>(presses) * 1'000 / static_cast<double>(length_ms) : 0;
}

double RunFacts::SameTickShare() const {
    return presses > 0 ? static_cast<double>(same_tick) / static_cast<double>(presses) : 0;
}

bool RowAudit::Has(Verdict verdict) const {
    return std::ranges::any_of(findings,
                               [verdict](const Finding& found) { return found.verdict == verdict; });
}

RowAudit JudgeRow(const Evidence& evidence) {
    RowAudit audit = std::move(JudgeOne(evidence).audit);
    std::ranges::stable_sort(audit.findings, {}, &Finding::verdict);
    return audit;
}

std::vector<RowAudit> JudgeRows(const std::vector<Evidence>& evidence, std::size_t threads) {
    std::vector<LoneRow> rows(evidence.size());
    RunInParallel(rows.size(), threads, [&](std::size_t i) { rows[i] = JudgeOne(evidence[i]); });
    Comparison(evidence, rows).Run();
    std::vector<RowAudit> audits;
    for (LoneRow& row : rows) {
        std::ranges::stable_sort(row.audit.findings, {}, &Finding::verdict);
        audits.push_back(std::move(row.audit));
    }
    return audits;
}

bool RanksAbove(const RowAudit& a, const RowAudit& b) {
    if (a.has_row != b.has_row) return a.has_row;
    return a.score != b.score ? a.score > b.score : a.ts > b.ts;
}

}  // namespace brickfall
