#include "audit/settlement_report.h"

#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "audit/display_text.h"
#include "base/text.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kNameColumns = 40;
constexpr std::size_t kWhyColumns = 120;
constexpr std::size_t kAmountColumns = 20;
constexpr int kSettlementVersion = 1;

// "1 entry", "2 entries".
std::string Counted(std::size_t count, const char* one, const char* many) {
    return Grouped(static_cast<int64_t>(count)) + " " + (count == 1 ? one : many);
}

void AppendShare(const Share& share, std::string& text) {
    text += "\n  " + std::to_string(share.place) + ".  " + std::to_string(share.percent) + " %  " +
            PadLeft(Satoshis(share.satoshis), kAmountColumns) + "  " +
            SafeText(share.row.handle, kNameColumns) + "\n";
    const auto line = [&text](const char* name, const std::string& value) {
        text += std::string("      ") + name + value + "\n";
    };
    line("pay to    ",
         share.has_address ? share.row.pay_addr : "no address: the row names none that can be paid");
    line("identity  ", share.row.pubkey);
    line("score     ", Grouped(share.row.score));
    line("record    ", share.row.txid);
}

void AppendPayments(const char* title, const std::vector<PotPayment>& payments, std::string& text) {
    if (payments.empty()) return;
    text += std::string("\n") + title + "\n";
    for (const PotPayment& payment : payments) {
        text += "  " + payment.txid + "  " + PadLeft(Satoshis(payment.satoshis), kAmountColumns);
        if (!payment.why.empty()) text += "  " + SafeText(payment.why, kWhyColumns);
        text += "\n";
    }
}

// One line each for what might be asked about; the others are counted.
void AppendLeftOut(const std::vector<LeftOutRow>& left_out, std::string& text) {
    if (left_out.empty()) return;
    text += "\nLeft out\n";
    std::map<LeftOutWhy, std::size_t> counts;
    for (const LeftOutRow& row : left_out) {
        if (row.why == LeftOutWhy::kOtherWeek || row.why == LeftOutWhy::kBeneath) {
            ++counts[row.why];
            continue;
        }
        text += "  " + row.row.txid + "  " + LeftOutText(row.why);
        if (!row.row.why.empty()) text += ": " + SafeText(row.row.why, kWhyColumns);
        if (row.row.standing != RowStanding::kNotRead) {
            text += "  (" + SafeText(row.row.handle, kNameColumns) + ", " + Grouped(row.row.score) + ")";
        }
        text += "\n";
    }
    for (const auto& [why, count] : counts) {
        text += "  " + Counted(count, "row", "rows") + " " + LeftOutText(why) + "\n";
    }
}

json PaymentsJson(const std::vector<PotPayment>& payments) {
    json list = json::array();
    for (const PotPayment& payment : payments) {
        json entry = {{"txid", payment.txid}, {"satoshis", payment.satoshis}, {"time", nullptr}};
        if (payment.burial == Burial::kMined) entry["time"] = payment.time;
        if (!payment.why.empty()) entry["why"] = payment.why;
        list.push_back(std::move(entry));
    }
    return list;
}

json ShareJson(const Share& share) {
    json entry = {{"place", share.place},     {"percent", share.percent},     {"satoshis", share.satoshis},
                  {"name", share.row.handle}, {"identity", share.row.pubkey}, {"pay_addr", nullptr},
                  {"score", share.row.score}, {"ts", share.row.ts},           {"txid", share.row.txid}};
    if (share.has_address) entry["pay_addr"] = share.row.pay_addr;
    return entry;
}

json LeftOutJson(const LeftOutRow& left_out) {
    const JudgedRow& row = left_out.row;
    json entry = {{"why", LeftOutName(left_out.why)}, {"txid", row.txid}};
    if (row.standing != RowStanding::kNotRead) {
        entry["name"] = row.handle;
        entry["score"] = row.score;
        entry["week_start"] = row.week;
    }
    if (!row.why.empty()) entry["detail"] = row.why;
    return entry;
}

}  // namespace

std::string SettlementText(const Settlement& settlement) {
    std::string text = "Settlement of " + WeekLabel(settlement.week_start) +
                       (settlement.one_each ? ", one place a player" : "") + "\n\n";
    const auto amount = [&text](const char* name, int64_t satoshis, const std::string& behind) {
        text += std::string("  ") + name + PadLeft(Satoshis(satoshis), kAmountColumns) + behind + "\n";
    };
    amount("pot ", settlement.pot, "  from " + Counted(settlement.entries.size(), "entry", "entries"));
    amount("due ", settlement.due, "");
    if (settlement.held > 0) amount("held", settlement.held, "  without an address to pay to");
    if (settlement.kept > 0) amount("kept", settlement.kept, "  in the pot: nobody has a place");

    for (const Share& share : settlement.shares) AppendShare(share, text);
    std::vector<PotPayment> waiting = settlement.entries;
    std::erase_if(waiting, [](const PotPayment& entry) { return entry.burial == Burial::kMined; });
    AppendPayments("Entries that wait for a block, counted", waiting, text);
    AppendPayments("Other payments to the pot, not shared out", settlement.others, text);
    AppendPayments("Payments to the pot of a time not told, not shared out", settlement.undated, text);
    AppendLeftOut(settlement.left_out, text);

    if (settlement.doubts.empty()) return text + "\nFinal. Nothing has been paid.\n";
    text += "\nProvisional: do not pay yet.\n";
    for (const SettlementDoubt doubt : settlement.doubts) text += std::string("  ") + DoubtText(doubt) + "\n";
    return text;
}

json SettlementJson(const Settlement& settlement) {
    json shares = json::array(), left_out = json::array(), doubts = json::array();
    for (const Share& share : settlement.shares) shares.push_back(ShareJson(share));
    for (const LeftOutRow& row : settlement.left_out) left_out.push_back(LeftOutJson(row));
    for (const SettlementDoubt doubt : settlement.doubts) doubts.push_back(DoubtName(doubt));
    return {{"version", kSettlementVersion},
            {"week", WeekLabel(settlement.week_start)},
            {"week_start", settlement.week_start},
            {"one_each", settlement.one_each},
            {"provisional", !settlement.doubts.empty()},
            {"doubts", std::move(doubts)},
            {"pot", settlement.pot},
            {"due", settlement.due},
            {"held", settlement.held},
            {"kept", settlement.kept},
            {"shares", std::move(shares)},
            {"entries", PaymentsJson(settlement.entries)},
            {"other_payments", PaymentsJson(settlement.others)},
            {"undated_payments", PaymentsJson(settlement.undated)},
            {"left_out", std::move(left_out)}};
}

}  // namespace brickfall
