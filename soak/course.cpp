#include "soak/course.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "base/text.h"
#include "sandbox/server/faults.h"

namespace brickfall::soak {
namespace {

using sandbox::FaultKind;
using sandbox::Service;

constexpr std::pair<Act, std::string_view> kActs[] = {
    {Act::kConnect, "connect"},      {Act::kDenied, "denied"},   {Act::kUnheard, "unheard"},
    {Act::kUnbind, "unbind"},        {Act::kRefresh, "refresh"}, {Act::kEnter, "enter"},
    {Act::kDecline, "decline"},      {Act::kPlay, "play"},       {Act::kRecord, "record"},
    {Act::kReport, "report"},        {Act::kBoard, "board"},     {Act::kUpdate, "update"},
    {Act::kRestart, "restart"},      {Act::kFund, "fund"},       {Act::kFundOther, "fund_other"},
    {Act::kFundFirst, "fund_first"}, {Act::kDust, "dust"},       {Act::kInscribe, "inscribe"},
    {Act::kToken, "token"},          {Act::kOrdinal, "ordinal"}, {Act::kPromise, "promise"},
    {Act::kWithdraw, "withdraw"},    {Act::kAddress, "address"}, {Act::kName, "name"},
    {Act::kAvatar, "avatar"},        {Act::kMine, "mine"},       {Act::kPass, "pass"},
    {Act::kClock, "clock"},          {Act::kAudit, "audit"},
};

struct Reply {
    std::string_view name;
    int status;
    std::string_view body;
};

constexpr Reply kReplies[] = {
    {"failed", 500, "try later"},
    {"away", 503, ""},
    {"limit", 429, "Too Many Requests"},
    {"page", 502, "<html>Bad gateway</html>"},
    {"gone", 404, ""},
    {"moved", 302, ""},
    {"empty", 200, ""},
    {"babble", 200, "]moo["},
    {"no", 200, R"({"ok":false})"},
    {"known", 400, "unexpected response code 500: 257: txn-already-known"},
    {"stranger", 200, "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"},
    {"rejected", 200, R"({"txStatus":"REJECTED"})"},
    {"taken", 409, R"({"error":"that name is taken"})"},
    {"frozen", 200, R"({"frozen":true,"frozenNote":"ask the house"})"},
    {"other_key", 200, R"({"pubkey":"0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798"})"},
    // Untrue words: of these coins the service says that they are gone.
    {"missing", 400, "unexpected response code 500: Missing inputs"},
    {"conflict", 400, "unexpected response code 500: 258: txn-mempool-conflict"},
};

constexpr std::string_view kAnywhere[] = {"failed", "away",  "limit", "page",
                                          "gone",   "moved", "empty", "babble"};

constexpr int64_t kSlowMs = 30;  // later than the relay is waited for, where time-outs are divided

// SplitMix64: the same on every machine, which the library's distributions are not.
class Lot {
  public:
    explicit Lot(uint64_t seed) : state_(seed) {}
    uint64_t Next() {
        uint64_t z = (state_ += 0x9e3779b97f4a7c15);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }
    int64_t Below(int64_t end) { return static_cast<int64_t>(Next() % static_cast<uint64_t>(end)); }
    bool Percent(int64_t percent) { return Below(100) < percent; }
    template <typename List>
    auto Of(const List& list) {
        return list[static_cast<std::size_t>(Below(static_cast<int64_t>(std::size(list))))];
    }

  private:
    uint64_t state_;
};

// Where a fault may stand, and what a service may well say there besides kAnywhere. None says of a score, a
// key or a coin what only a liar would.
struct Place {
    Service service;
    std::string_view path;
    std::vector<std::string_view> replies;
};

const std::vector<Place>& PlacesOf(Act act) {
    using enum Service;
    static const std::vector<Place> refresh = {
        {kChain, "", {}},           {kChain, "/unspent", {}}, {kChain, "/history", {}},
        {kChain, "/tx/", {}},       {kOrdinals, "", {}},      {kOrdinals, "/txos/", {}},
        {kOrdinals, "/bsv20/", {}}, {kPaymail, "", {}},       {kPaymail, "/claim", {"taken"}}};
    static const std::vector<Place> pay = {{kRelay, "", {"no", "failed"}},
                                           {kRelay, "", {"no", "failed"}},
                                           {kRelay, "", {"no", "failed"}},
                                           {kChain, "", {}},
                                           {kChain, "/tx/", {}},
                                           {kChain, "/tx/raw", {"known", "limit", "stranger", "babble"}},
                                           {kChain, "/tx/raw", {"known", "limit", "stranger", "babble"}},
                                           {kChain, "/unspent", {}},
                                           {kArc, "", {"rejected", "no"}},
                                           {kOrdinals, "", {}},
                                           {kPaymail, "/identity/", {"frozen"}},
                                           {kPaymail, "/id/", {"other_key"}}};
    static const std::vector<Place> read = {{kIndexer, "", {}},
                                            {kIndexer, "/txids", {}},
                                            {kIndexer, "/oi/tx/", {}},
                                            {kChain, "", {}},
                                            {kChain, "/tx/", {}},
                                            {kPaymail, "/id/", {}},
                                            {kPaymail, "/public-profile/", {}},
                                            {kContent, "", {}}};
    static const std::vector<Place> download = {{kDownload, "", {}}};
    static const std::vector<Place> none;
    switch (act) {
        case Act::kRefresh:
            return refresh;
        case Act::kEnter:
        case Act::kRecord:
        case Act::kReport:
            return pay;
        case Act::kBoard:
        case Act::kAudit:
            return read;
        case Act::kUpdate:
            return download;
        default:
            return none;
    }
}

FaultKind DrawKind(Lot& lot, Service service) {
    using enum FaultKind;
    const bool lists =
        service == Service::kChain || service == Service::kOrdinals || service == Service::kIndexer;
    const bool takes = service == Service::kChain || service == Service::kRelay || service == Service::kArc;
    const int64_t roll = lot.Below(100);
    if (roll < 2) return kNoAnswer;
    if (roll < 4) return kDelay;
    if (roll < 24) return kDrop;
    if (roll < 40) return kCutBody;
    if (roll < 52 && lists) return lot.Percent(60) ? kStaleListing : kFlipTxids;
    if (roll < 62 && takes) return kLoseAccepted;
    return roll < 78 ? kActAndReply : kReply;
}

Trouble DrawTrouble(Lot& lot, Act act) {
    const Place place = lot.Of(PlacesOf(act));
    Trouble trouble;
    trouble.service = place.service;
    trouble.kind = DrawKind(lot, place.service);
    const bool answers = trouble.kind == FaultKind::kReply || trouble.kind == FaultKind::kActAndReply;
    const bool whole = trouble.kind == FaultKind::kLoseAccepted || trouble.kind == FaultKind::kStaleListing ||
                       trouble.kind == FaultKind::kFlipTxids;
    if (!whole) trouble.path = place.path;
    if (answers) {
        const bool own = !place.replies.empty() && lot.Percent(60);
        trouble.reply = own ? lot.Of(place.replies) : lot.Of(kAnywhere);
    }
    trouble.times = lot.Percent(45) ? -1 : static_cast<int>(1 + lot.Below(3));
    if (IsSlow(trouble)) trouble.times = 1;
    return trouble;
}

// Whether a transaction may have been taken though whoever sent it is told otherwise.
bool MayHide(const Trouble& trouble) {
    return trouble.kind == FaultKind::kActAndReply || trouble.kind == FaultKind::kCutBody || IsSlow(trouble);
}

void DrawTroubles(Lot& lot, Step& step) {
    if (PlacesOf(step.act).empty() || lot.Percent(15)) return;
    for (int64_t left = 1 + lot.Below(6); left > 0; --left)
        step.troubles.push_back(DrawTrouble(lot, step.act));
    const bool pays = step.act == Act::kEnter || step.act == Act::kRecord;
    if (!pays || !lot.Percent(12)) {
        step.keeps = lot.Percent(15);
        return;
    }
    // A service that calls coins gone which are not costs the wallet these coins, and one attempt more. Where
    // another has taken that attempt's payment and hides it, no wallet could tell, so they do not meet.
    std::erase_if(step.troubles, MayHide);
    Trouble liar{Service::kChain, FaultKind::kReply, lot.Percent(50) ? "missing" : "conflict", "/tx/raw", -1};
    liar.times = static_cast<int>(1 + lot.Below(3));
    step.troubles.insert(step.troubles.begin(), {{Service::kRelay, FaultKind::kDrop, "", "", -1}, liar});
}

class Drawing {
  public:
    explicit Drawing(uint64_t seed) : lot_(seed) {}

    Course Draw(int runs) {
        const int64_t first_run = lot_.Below(100'000);
        for (int run = 0; run < runs; ++run) DrawRun(first_run + run);
        World(Act::kMine);
        Add({Act::kAudit, "", 0, false, {}});
        return std::move(course_);
    }

  private:
    void Add(Step step) {
        const bool last_lied =
            !course_.empty() && std::ranges::any_of(course_.back().troubles, [](const auto& each) {
                return each.reply == "missing" || each.reply == "conflict";
            });
        step.keeps = step.keeps && !last_lied;
        course_.push_back(std::move(step));
    }
    void World(Act act, int64_t number = 0) { Add({act, "", number, false, {}}); }
    void Click(Act act, const std::string& who, int64_t number = 0) {
        Step step{act, who, number, false, {}};
        DrawTroubles(lot_, step);
        Add(std::move(step));
    }
    void Beside();
    void DrawRun(int64_t number);

    Lot lot_;
    Course course_;
};

// What goes on in the world between two runs.
void Drawing::Beside() {
    const int64_t small[] = {1, 1, 40, 546, 6'000, 25'000};
    const int64_t seconds[] = {1, 9, 15, 21, 600, 86'400, 700'000};
    const int64_t wrong[] = {0, 0, -40'000, -3'600, 3, 1'800, 40'000};
    const Act funds = lot_.Percent(80) ? Act::kFund : Act::kFundFirst;
    World(funds, 7'000 + lot_.Below(20'000));
    if (lot_.Percent(20)) World(Act::kFundOther, 7'000 + lot_.Below(20'000));
    if (lot_.Percent(15)) World(Act::kDust);
    if (lot_.Percent(20)) World(Act::kInscribe, lot_.Of(small));
    if (lot_.Percent(12)) World(Act::kToken, lot_.Of(small));
    if (lot_.Percent(5)) World(Act::kOrdinal, lot_.Of(small));
    if (lot_.Percent(12)) World(Act::kPromise);
    if (lot_.Percent(12)) World(Act::kWithdraw);
    if (lot_.Percent(12)) World(Act::kAddress, lot_.Below(2));
    if (lot_.Percent(6)) World(Act::kName, lot_.Below(2));
    if (lot_.Percent(6)) World(Act::kAvatar, lot_.Below(2));
    if (lot_.Percent(60)) World(Act::kMine);
    if (lot_.Percent(30)) World(Act::kPass, lot_.Of(seconds));
    if (lot_.Percent(15)) World(Act::kClock, lot_.Of(wrong));
}

void Drawing::DrawRun(int64_t number) {
    const int64_t roll = lot_.Below(100);
    const std::string who = roll < 60 ? "a" : roll < 88 ? "b" : "ab";
    Beside();
    if (lot_.Percent(5)) Click(Act::kUnbind, who);
    if (lot_.Percent(5)) Click(lot_.Percent(50) ? Act::kDenied : Act::kUnheard, who);
    Click(Act::kConnect, who, lot_.Percent(85) ? 0 : 1);
    if (lot_.Percent(85)) Click(Act::kRefresh, who);
    if (lot_.Percent(4)) Click(Act::kDecline, who);
    Click(Act::kEnter, who);
    if (lot_.Percent(70)) Click(Act::kEnter, who);
    if (lot_.Percent(12)) Click(Act::kRefresh, who);
    if (lot_.Percent(6)) Click(Act::kRestart, who);
    Click(Act::kPlay, who, number);
    if (lot_.Percent(4)) Click(Act::kRestart, who);
    Click(Act::kRecord, who);
    if (lot_.Percent(60)) Click(Act::kRecord, who);
    if (lot_.Percent(12)) Click(Act::kReport, who, number);
    if (lot_.Percent(20)) Click(Act::kBoard, who);
    if (lot_.Percent(8)) Click(Act::kUpdate, who);
    if (lot_.Percent(5)) Click(Act::kAudit, "");
    if (lot_.Percent(6)) Click(Act::kRestart, who);
}

// Takes what stands behind the mark, to the end, off the text.
std::string CutBehind(std::string& text, char mark) {
    const std::size_t at = text.rfind(mark);
    if (at == text.npos) return {};
    std::string tail = text.substr(at + 1);
    text.erase(at);
    return tail;
}

const Reply* FindReply(std::string_view name) {
    const auto found = std::ranges::find(kReplies, name, &Reply::name);
    return found != std::end(kReplies) ? found : nullptr;
}

bool ReadTrouble(std::string text, Trouble& trouble) {
    if (const std::string times = CutBehind(text, '*'); !times.empty() && !ReadNumber(times, trouble.times))
        return false;
    trouble.path = CutBehind(text, '@');
    trouble.reply = CutBehind(text, ':');
    const auto kind = sandbox::FaultKindByName(CutBehind(text, '.'));
    const auto service = sandbox::ServiceByName(text);
    if (!kind || !service || (!trouble.reply.empty() && FindReply(trouble.reply) == nullptr)) return false;
    trouble.kind = *kind;
    trouble.service = *service;
    return true;
}

bool ReadStep(std::string text, Step& step) {
    step.keeps = text.starts_with('&');
    if (step.keeps) text.erase(0, 1);
    std::string head = text.substr(0, text.find('+'));
    text.erase(0, head.size());
    while (!text.empty()) {
        if (!ReadTrouble(CutBehind(text, '+'), step.troubles.emplace_back())) return false;
    }
    std::ranges::reverse(step.troubles);
    if (const std::string number = CutBehind(head, '='); !number.empty() && !ReadNumber(number, step.number))
        return false;
    const std::string act = head.substr(head.rfind('.') + 1);
    const auto found = std::ranges::find(kActs, act, &std::pair<Act, std::string_view>::second);
    if (found == std::end(kActs)) return false;
    step.act = found->first;
    step.who = head.size() > act.size() ? head.substr(0, head.size() - act.size() - 1) : "";
    return IsOfCabinet(step.act) ? step.who == "a" || step.who == "b" || step.who == "ab" : step.who.empty();
}

// What a course can do without, as one list: its faults and its steps.
struct Part {
    std::size_t step;
    std::size_t trouble;  // kWhole: the step itself
};
constexpr std::size_t kWhole = SIZE_MAX;

std::vector<Part> PartsOf(const Course& course) {
    std::vector<Part> parts;
    for (std::size_t step = 0; step < course.size(); ++step) parts.push_back({step, kWhole});
    for (std::size_t step = 0; step < course.size(); ++step) {
        for (std::size_t i = 0; i < course[step].troubles.size(); ++i) parts.push_back({step, i});
    }
    return parts;
}

Course Without(Course course, const std::vector<Part>& parts, std::size_t from, std::size_t end) {
    for (std::size_t i = std::min(end, parts.size()); i-- > from;) {
        const auto at = [](auto& list, std::size_t place) {
            return list.begin() + static_cast<std::ptrdiff_t>(place);
        };
        if (parts[i].trouble != kWhole) {
            auto& troubles = course[parts[i].step].troubles;
            troubles.erase(at(troubles, parts[i].trouble));
        } else {
            course.erase(at(course, parts[i].step));
        }
    }
    return course;
}

}  // namespace

std::string_view NameOf(Act act) {
    return std::ranges::find(kActs, act, &std::pair<Act, std::string_view>::first)->second;
}

bool IsOfCabinet(Act act) { return act <= Act::kRestart; }

bool IsSlow(const Trouble& trouble) {
    return trouble.kind == FaultKind::kNoAnswer || trouble.kind == FaultKind::kDelay;
}

sandbox::Fault FaultOf(const Trouble& trouble) {
    sandbox::Fault fault;
    fault.kind = trouble.kind;
    if (const Reply* reply = FindReply(trouble.reply)) {
        fault.status = reply->status;
        fault.body = reply->body;
    }
    fault.delay_ms = trouble.kind == FaultKind::kDelay ? kSlowMs : 0;
    fault.times = trouble.times;
    fault.path_contains = trouble.path;
    return fault;
}

Course DrawCourse(uint64_t seed, int runs) { return Drawing(seed).Draw(runs); }

std::string StepText(const Step& step) {
    std::string text = step.keeps ? "&" : "";
    if (!step.who.empty()) text += step.who + ".";
    text += NameOf(step.act);
    if (step.number != 0) text += "=" + std::to_string(step.number);
    for (const Trouble& trouble : step.troubles) {
        text += "+" + std::string(NameOf(trouble.service)) + "." + std::string(NameOf(trouble.kind));
        if (!trouble.reply.empty()) text += ":" + trouble.reply;
        if (!trouble.path.empty()) text += "@" + trouble.path;
        if (trouble.times >= 0) text += "*" + std::to_string(trouble.times);
    }
    return text;
}

std::string CourseText(const Course& course) {
    std::string text;
    for (const Step& step : course) text += (text.empty() ? "" : " ") + StepText(step);
    return text;
}

std::optional<Course> ParseCourse(std::string_view text, std::string& error) {
    std::istringstream words{std::string(text)};
    Course course;
    for (std::string word; words >> word;) {
        if (!ReadStep(word, course.emplace_back())) {
            error = "no step: " + word;
            return std::nullopt;
        }
    }
    return course;
}

Course Shrink(Course course, const std::function<bool(const Course&)>& fails) {
    for (std::size_t chunk = std::max<std::size_t>(PartsOf(course).size() / 2, 1);;
         chunk = std::max<std::size_t>(chunk / 2, 1)) {
        bool smaller = false;
        // From the end on: what comes after the failure goes first.
        for (std::size_t end = PartsOf(course).size(); end > 0;) {
            const std::vector<Part> parts = PartsOf(course);
            end = std::min(end, parts.size());
            if (end == 0) break;
            const std::size_t from = end > chunk ? end - chunk : 0;
            Course shorter = Without(course, parts, from, end);
            if (fails(shorter)) {
                course = std::move(shorter);
                smaller = true;
            }
            end = from;
        }
        if (chunk == 1 && !smaller) return course;
    }
}

}  // namespace brickfall::soak
