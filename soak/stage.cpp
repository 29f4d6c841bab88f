#include "soak/stage.h"

#include <algorithm>
#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "audit/report.h"
#include "deployment/sandbox_route.h"
#include "game/run_control.h"
#include "game/week.h"
#include "soak/told_texts.h"
#include "soak/world.h"

namespace brickfall::soak {
namespace {

using nlohmann::json;
using sandbox::Service;

constexpr int kSlowDivisor = 200;            // the relay is waited for 10 ms then, a listing 50
constexpr int64_t kOrdinalsRestMs = 20'000;  // for so long a service of ordinals that failed is left alone

// Something that a coin carries.
struct Mark {
    Coin coin;
    bool token = false;
};

// What is known of a cabinet from outside.
struct Watched {
    std::string bound;            // the id of its wallet
    std::set<std::string> spent;  // coins that it has been told are spent by a payment
    std::set<std::string> named;  // marked coins that the ordinals service has named to this process
    int64_t ordinals_failed_at = -kOrdinalsRestMs;
};

// What one cabinet has answered, and what it was told.
struct Answer {
    std::size_t cabinet = 0;
    json body;
    bool Told(std::string_view beginning) const {
        return std::ranges::any_of(body.at("told"), [beginning](const json& text) {
            return text.get_ref<const std::string&>().starts_with(beginning);
        });
    }
};

struct Click {
    Act act;
    PaymentKind kind;
    const char* begins;  // told when a payment begins
    const char* done;    // and when it has succeeded
};

constexpr Click kClicks[] = {
    {Act::kEnter, PaymentKind::kEntry, "Paying enter fee in Pouch...", "Entered. Blocks incoming."},
    {Act::kRecord, PaymentKind::kRecord, "Recording score on-chain (1 sat)...", "Score recorded. "},
    {Act::kReport, PaymentKind::kReport, "Sending report in Pouch...", "Report sent. "},
};

class Stage {
  public:
    explicit Stage(const std::string& program) : world_(program), books_(Wallets()) {}

    void Play(const Step& step);
    sandbox::FaultCounts Faults() { return world_.Box().FaultsMet(); }
    int64_t paid_runs = 0;
    int64_t recorded = 0;

  private:
    void SetFaults(const Step& step);
    void ActInWorld(const Step& step);
    void Receive(const std::string& address, int64_t satoshis, bool token);
    void Audit();
    void ActOfCabinets(const Step& step);
    void NoteConnection(const Step& step, const Answer& answer);
    void CheckPayments(const Step& step, const std::vector<Answer>& answers);
    void CheckSuccess(const Click& click, const Answer& answer, const std::set<std::string>& fresh);
    void CheckSubmissions(const std::vector<Answer>& answers);
    void CheckProtected(const Submission& submission, const std::vector<Answer>& answers);
    void CheckBoard(const Answer& answer);
    void CheckStore();
    void NoteScans(const Step& step, const std::vector<Answer>& answers);
    bool AnyOn(Service service) const;
    bool Calm() const { return in_force_.empty(); }

    World world_;
    Books books_;
    Watched watched_[kCabinets];
    std::vector<Trouble> in_force_;
    std::set<std::string> payments_before_;
    std::map<std::string, Submission> submissions_;  // of this step, by id
    std::vector<Mark> marks_;
    std::map<std::size_t, std::set<std::string>> promised_;    // by wallet
    std::map<std::string, std::set<std::string>> told_spent_;  // by a wallet's id
    std::set<std::string> recorded_runs_;                      // seals of which a success has been told
    int64_t began_ms_ = 0;
};

bool Stage::AnyOn(Service service) const {
    return world_.time_divisor != 0 || std::ranges::any_of(in_force_, [service](const Trouble& trouble) {
               return trouble.service == service;
           });
}

void Stage::SetFaults(const Step& step) {
    if (!step.keeps) {
        world_.Box().ClearFaults();
        in_force_.clear();
    }
    for (const Trouble& trouble : step.troubles) {
        world_.Box().AddFault(trouble.service, FaultOf(trouble));
        in_force_.push_back(trouble);
    }
    world_.time_divisor = std::ranges::any_of(in_force_, IsSlow) ? kSlowDivisor : 0;
}

void Stage::Play(const Step& step) {
    SetFaults(step);
    world_.Box().ClearRequests();
    payments_before_.clear();
    for (const Payment& payment : books_.Payments()) payments_before_.insert(payment.txid);
    began_ms_ = world_.PassedMs();
    if (IsOfCabinet(step.act)) {
        ActOfCabinets(step);
    } else {
        ActInWorld(step);
        books_.ReadChain(world_.Box());
        CheckPayments(step, {});
    }
    CheckStore();
}

void Stage::Receive(const std::string& address, int64_t satoshis, bool token) {
    const std::string outpoint = world_.Fund(address, satoshis);
    const std::string txid = outpoint.substr(0, outpoint.find(':'));
    world_.Box().MarkOrdinal(address, {txid, 0, txid + "_0", token});
    marks_.push_back({{outpoint, address, satoshis}, token});
}

void Stage::ActInWorld(const Step& step) {
    const auto wallet = static_cast<std::size_t>(std::clamp<int64_t>(step.number, 0, 1));
    const int64_t satoshis = std::max<int64_t>(step.number, 1);
    switch (step.act) {
        case Act::kFund:
            world_.Fund(world_.CurrentAddress(0), satoshis);
            break;
        case Act::kFundOther:
            world_.Fund(world_.CurrentAddress(1), satoshis);
            break;
        case Act::kFundFirst:
            world_.Fund(Wallets()[0].receive[0], satoshis);
            break;
        case Act::kDust:
            for (const std::string& address : Wallets()[0].receive) world_.Fund(address, 1);
            break;
        case Act::kInscribe:
        case Act::kToken:
            Receive(world_.CurrentAddress(0), satoshis, step.act == Act::kToken);
            break;
        case Act::kOrdinal:
            Receive(Wallets()[0].ordinals, satoshis, /*token=*/false);
            break;
        case Act::kPromise:
            if (const std::vector<Coin> coins = books_.CoinsOf(0); !coins.empty()) {
                promised_[0].insert(coins.front().outpoint);
            }
            world_.Promise(0, {promised_[0].begin(), promised_[0].end()});
            break;
        case Act::kWithdraw:
            promised_[0].clear();
            world_.Promise(0, {});
            break;
        case Act::kAddress:
            world_.TakeNextAddress(wallet);
            break;
        case Act::kName:
            world_.ChangeNameOf(wallet);
            break;
        case Act::kAvatar:
            world_.SetAvatar(wallet, std::string(64, 'a') + "_0");
            break;
        case Act::kMine:
            world_.Mine();
            break;
        case Act::kPass:
            world_.Mine();  // what waits for days would be an honest reason to doubt a row's time
            world_.Pass(step.number * 1'000);
            break;
        case Act::kClock:
            world_.SetClockWrong(step.number * 1'000);
            break;
        default:
            Audit();
    }
}

// Every recorded score, judged by what the services say. No honest row is blamed: what the auditor may find
// is that the entry which a service named is none, and the same run recorded after a payment that seemed to
// fail.
void Stage::Audit() {
    SetConnectRoute({world_.Box().ConnectTo(), world_.Box().CaFile(), world_.time_divisor});
    AuditScope scope;
    scope.kind = ScopeKind::kAll;
    scope.every_page = true;
    const Collected collected = Collect(scope, [](const char*, std::size_t, std::size_t) {});
    world_.Box().WaitUntilIdle();
    const AuditReport report = MakeReport(collected, 1);
    std::map<std::string, int> records_of_run;
    std::size_t records = 0;
    for (const Payment& payment : books_.Payments()) {
        if (payment.kind != PaymentKind::kRecord) continue;
        ++records_of_run[payment.run];
        ++records;
    }
    if (Calm())
        Require(report.listed && report.rows.size() == records, "the audit does not see every record");
    // Who is told by every service that there is none has to believe it, and so whoever is told another key.
    const auto told = [this](std::string_view reply) {
        return std::ranges::any_of(in_force_, [&](const Trouble& each) { return each.reply == reply; });
    };
    const bool denied = told("gone");
    std::set<std::string> seen;
    for (const RowAudit& row : report.rows) {
        Require(seen.insert(row.txid).second, "the audit sees a record twice: " + row.txid);
        const Payment* record = books_.Find(row.txid);
        if (record == nullptr) continue;  // a listing in reversed byte order
        const Payment* entry = books_.Find(record->entry);
        const bool is_entered = entry != nullptr && entry->kind == PaymentKind::kEntry;
        const bool is_repeated = records_of_run[record->run] > 1;
        for (const Finding& finding : row.findings) {
            const bool expected =
                (finding.verdict == Verdict::kEntryUnpaid && (!is_entered || denied)) ||
                (finding.verdict == Verdict::kKeyNotPublished && (denied || told("other_key"))) ||
                ((finding.verdict == Verdict::kEntryUsed || finding.verdict == Verdict::kEventsCopied) &&
                 (is_repeated || !is_entered));
            Require(expected, std::string("the audit blames an honest row: ") + VerdictText(finding.verdict) +
                                  ": " + finding.evidence);
        }
        const bool may_doubt = !Calm() || !is_entered || is_repeated;
        Require(may_doubt || row.not_looked.empty(), "the audit could not look at " + row.txid);
    }
}

void Stage::ActOfCabinets(const Step& step) {
    std::vector<std::size_t> cabinets;
    for (const char name : step.who) cabinets.push_back(static_cast<std::size_t>(name - 'a'));
    std::vector<Answer> answers;
    if (step.act == Act::kRestart) {
        for (const std::size_t cabinet : cabinets) answers.push_back({cabinet, world_.Restart(cabinet)});
    } else {
        const auto wallet = static_cast<std::size_t>(std::clamp<int64_t>(step.number, 0, 1));
        const json command = {
            {"do", NameOf(step.act)}, {"value", step.number}, {"wallet", Wallets()[wallet].id}};
        const std::vector<json> bodies = world_.Ask(cabinets, command);
        for (std::size_t i = 0; i < cabinets.size(); ++i) answers.push_back({cabinets[i], bodies[i]});
    }
    for (const Answer& answer : answers) {
        for (const json& text : answer.body.at("told")) {
            Require(IsToldText(text.get<std::string>()), "told: " + text.get<std::string>());
        }
        Require(!answer.body.at("busy").get<bool>(), "the cabinet stays busy");
        NoteConnection(step, answer);
    }
    CheckSubmissions(answers);
    books_.ReadChain(world_.Box());
    CheckPayments(step, answers);
    if (step.act == Act::kBoard) {
        for (const Answer& answer : answers) CheckBoard(answer);
    }
    NoteScans(step, answers);
}

void Stage::NoteConnection(const Step& step, const Answer& answer) {
    Watched& cabinet = watched_[answer.cabinet];
    const bool connected = answer.Told("Connected. Play");
    if (connected)
        cabinet.bound = Wallets()[static_cast<std::size_t>(std::clamp<int64_t>(step.number, 0, 1))].id;
    if (answer.Told("Unbound.")) cabinet.bound.clear();
    if (connected || answer.Told("Unbound.") || step.act == Act::kRestart) {
        cabinet.spent = told_spent_[cabinet.bound];
        cabinet.named.clear();
        cabinet.ordinals_failed_at = -kOrdinalsRestMs;
    }
    Require(BoundWallet(world_.Store(), world_.Installation(answer.cabinet)) == cabinet.bound,
            "the bind is another than the companion has agreed to");
}

// At most one payment for each click that has begun one, none of another kind, and each told as it is unless
// a service has failed.
void Stage::CheckPayments(const Step& step, const std::vector<Answer>& answers) {
    std::map<PaymentKind, int64_t> made;
    std::set<std::string> fresh;
    for (const Payment& payment : books_.Payments()) {
        if (payments_before_.contains(payment.txid)) continue;
        fresh.insert(payment.txid);
        ++made[payment.kind];
        Require(payment.kind != PaymentKind::kRecord || !recorded_runs_.contains(payment.run),
                "a score is recorded twice: " + payment.txid);
    }
    for (const Click& click : kClicks) {
        int64_t begun = 0, done = 0;
        for (const Answer& answer : answers) {
            if (step.act != click.act) continue;
            begun += answer.Told(click.begins) ? 1 : 0;
            if (!answer.Told(click.done)) continue;
            ++done;
            CheckSuccess(click, answer, fresh);
        }
        Require(made[click.kind] <= begun,
                std::to_string(made[click.kind]) + " payments for " + std::to_string(begun) + " clicks");
        Require(!Calm() || made[click.kind] == done,
                "a payment is told otherwise than it is, and nobody fails");
    }
    for (const sandbox::Report& report : world_.Box().Reports()) {
        Require(report.refusal.empty() && report.text.starts_with("Soak report "), "a report cannot be read");
    }
}

void Stage::CheckSuccess(const Click& click, const Answer& answer, const std::set<std::string>& fresh) {
    const std::string txid = [&] {
        if (click.kind == PaymentKind::kEntry) return answer.body.at("entry").get<std::string>();
        if (click.kind == PaymentKind::kRecord) return answer.body.at("record").get<std::string>();
        const auto& told = answer.body.at("told");
        return told.back().get<std::string>().substr(std::string_view(click.done).size());
    }();
    if (click.kind == PaymentKind::kEntry) ++paid_runs;
    if (click.kind == PaymentKind::kRecord) ++recorded;
    const Payment* payment = books_.Find(txid);
    Require(payment != nullptr || !Calm(), "a success is told of what is not on the chain: " + txid);
    if (payment != nullptr) {
        Require(payment->kind == click.kind && fresh.contains(txid),
                "the success is another payment's: " + txid);
        Require(Wallets()[payment->wallet].id == watched_[answer.cabinet].bound, "another wallet has paid");
        if (click.kind == PaymentKind::kRecord) recorded_runs_.insert(payment->run);
    }
    const auto submission = submissions_.find(txid);
    if (submission == submissions_.end()) return;
    Watched& cabinet = watched_[answer.cabinet];
    cabinet.spent.insert(submission->second.spends.begin(), submission->second.spends.end());
    told_spent_[cabinet.bound].insert(submission->second.spends.begin(), submission->second.spends.end());
}

// What the cabinets have handed to any service, taken or not.
void Stage::CheckSubmissions(const std::vector<Answer>& answers) {
    submissions_.clear();
    for (const std::string& raw : world_.Box().Submissions()) {
        Submission submission = books_.ReadSubmission(raw);
        Require(!submission.spends_ordinals_address, "a coin of the ordinals address is spent");
        for (const std::size_t payer : submission.payers) {
            const bool is_bound = std::ranges::any_of(answers, [&](const Answer& answer) {
                return watched_[answer.cabinet].bound == Wallets()[payer].id;
            });
            Require(is_bound, "coins of a wallet are spent that no cabinet is bound to");
        }
        const bool again = std::ranges::all_of(answers, [&](const Answer& answer) {
            return std::ranges::any_of(submission.spends, [&](const std::string& coin) {
                return watched_[answer.cabinet].spent.contains(coin);
            });
        });
        Require(!again, "a coin is handed in that an earlier payment has spent: " + submission.txid);
        CheckProtected(submission, answers);
        submissions_.emplace(submission.txid, std::move(submission));
    }
}

void Stage::CheckProtected(const Submission& submission, const std::vector<Answer>& answers) {
    for (const auto& [wallet, coins] : promised_) {
        for (const std::string& coin : coins) {
            Require(!submission.spends.contains(coin),
                    "a coin is spent that is promised to somebody: " + coin);
        }
    }
    for (const Mark& mark : marks_) {
        if (!submission.spends.contains(mark.coin.outpoint)) continue;
        // What is spent already is spent for nobody once more, and the service names it no longer.
        const bool gone = std::ranges::any_of(books_.Payments(), [&](const Payment& payment) {
            return payment.spends.contains(mark.coin.outpoint);
        });
        if (gone) continue;
        // An inscription on one satoshi is suspect while nobody can tell. Of others, and of tokens, a cabinet
        // that was told keeps the knowledge, and one that was not asks, unless the service has failed. Of two
        // at once it is not known which has handed it in.
        const bool suspect = mark.coin.value == 1 && !mark.token;
        const bool one_may = std::ranges::any_of(answers, [&](const Answer& answer) {
            const Watched& cabinet = watched_[answer.cabinet];
            const bool blind =
                AnyOn(Service::kOrdinals) || began_ms_ - cabinet.ordinals_failed_at < kOrdinalsRestMs;
            return blind && !cabinet.named.contains(mark.coin.outpoint);
        });
        Require(one_may && !suspect,
                std::string(mark.token ? "a token" : "an inscription") + " is spent: " + mark.coin.outpoint);
    }
}

void Stage::NoteScans(const Step& step, const std::vector<Answer>& answers) {
    if (AnyOn(Service::kOrdinals)) {
        for (const Answer& answer : answers) {
            watched_[answer.cabinet].ordinals_failed_at = world_.PassedMs();
        }
        return;
    }
    if (step.act != Act::kRefresh || answers.size() != 1) return;
    const std::vector<std::string> asked = world_.Box().Requests(Service::kOrdinals);
    for (const Mark& mark : marks_) {
        const std::string target =
            std::string(mark.token ? "/bsv20/" : "/txos/address/") + mark.coin.address + "/unspent";
        if (std::ranges::any_of(asked, [&](const std::string& line) { return line.ends_with(target); })) {
            watched_[answers.front().cabinet].named.insert(mark.coin.outpoint);
        }
    }
}

void Stage::CheckBoard(const Answer& answer) {
    std::set<std::string> shown;
    for (const json& row : answer.body.at("board")) {
        const auto txid = row.at("txid").get<std::string>();
        if (txid.empty()) continue;
        Require(shown.insert(txid).second, "a score stands twice on the board: " + txid);
        const Payment* payment = books_.Find(txid);
        Require(!row.at("chain").get<bool>() || (payment != nullptr && payment->kind == PaymentKind::kRecord),
                "a score on the board is not on the chain: " + txid);
    }
}

void Stage::CheckStore() {
    const std::string store = world_.Store();
    CheckStoreFiles(store);
    CheckLocalScores(store);
    for (std::size_t i = 0; i < Wallets().size(); ++i) {
        CheckWalletFile(store, Wallets()[i], world_.LastReceive(i));
        const std::set<std::string> kept = SpentFile(store, Wallets()[i].id);
        for (const std::string& coin : told_spent_[Wallets()[i].id]) {
            Require(kept.contains(coin), "the spent file has forgotten " + coin);
        }
    }
}

}  // namespace

Outcome PlayCourse(const std::string& program, const Course& course) {
    Outcome outcome;
    std::size_t at = 0;
    Stage stage(program);
    try {
        for (; at < course.size(); ++at) stage.Play(course[at]);
    } catch (const std::exception& failure) {
        outcome.failure = {at, failure.what()};
    }
    outcome.paid_runs = stage.paid_runs;
    outcome.recorded = stage.recorded;
    outcome.faults = stage.Faults();
    return outcome;
}

}  // namespace brickfall::soak
