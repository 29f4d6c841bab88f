// course.h - a course: what happens in one world, step by step, with the faults that each step meets. It is
// drawn from a seed, written as text and read back, and cut down to the shortest that still fails. Pure.
//
// Text: steps apart by blanks. "&" in front of a step leaves the faults of the step before in force; then who
// acts ("a.", "b.", "ab." for both cabinets at once, nothing for the world), the act, "=" and its number, and
// each fault as "+service.kind", with ":reply", "@path" and "*times" where they differ from none, all and
// always:
//
//   a.connect=0 fund=20000 a.enter+relay.cut_body+chain.reply:known@/tx/raw*2 &a.enter
#pragma once

#include <charconv>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "sandbox/server/types.h"

namespace brickfall::soak {

enum class Act {
    // of a cabinet
    kConnect,  // the companion says yes; number: the wallet
    kDenied,   // it says no
    kUnheard,  // it says nothing
    kUnbind,
    kRefresh,  // the status refresh, with the name's claim
    kEnter,    // a click on Play, and yes
    kDecline,  // a click on Play, and no
    kPlay,     // to the end of the run; number: which run
    kRecord,
    kReport,
    kBoard,
    kUpdate,   // the look for a newer build
    kRestart,  // the process ends at once and starts anew
    // of the world; number: satoshis, or the wallet
    kFund,       // wallet 0's current address
    kFundOther,  // wallet 1's
    kFundFirst,  // wallet 0's first address
    kDust,       // one satoshi to each address of wallet 0
    kInscribe,   // wallet 0 receives so many satoshis with an inscription on them
    kToken,      // with a token
    kOrdinal,    // to wallet 0's ordinals address
    kPromise,    // wallet 0's largest coin is promised to somebody
    kWithdraw,   // and no coin is any more
    kAddress,    // the companion goes on to the wallet's next address
    kName,       // gives the wallet its other name
    kAvatar,     // gives it a picture
    kMine,
    kPass,   // seconds
    kClock,  // the time of day is wrong by so many seconds
    kAudit,
};

struct Trouble {
    sandbox::Service service = sandbox::Service::kChain;
    sandbox::FaultKind kind = sandbox::FaultKind::kDrop;
    std::string reply;  // one of Replies(), for the kinds that answer
    std::string path;
    int times = -1;
};

struct Step {
    Act act = Act::kMine;
    std::string who;  // "a", "b", "ab", or nothing
    int64_t number = 0;
    bool keeps = false;  // the faults of the step before stay in force
    std::vector<Trouble> troubles;
};

using Course = std::vector<Step>;

// The whole text as a number.
template <typename Number>
bool ReadNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

std::string_view NameOf(Act act);
bool IsOfCabinet(Act act);
sandbox::Fault FaultOf(const Trouble& trouble);
bool IsSlow(const Trouble& trouble);  // the client waits for its time-out

// The same for the same arguments everywhere. `runs` clicks on Play that may each begin a run, at least.
Course DrawCourse(uint64_t seed, int runs);

std::string StepText(const Step& step);
std::string CourseText(const Course& course);
std::optional<Course> ParseCourse(std::string_view text, std::string& error);

// The steps and faults that are still needed for `fails`, which is asked some hundred times.
Course Shrink(Course course, const std::function<bool(const Course&)>& fails);

}  // namespace brickfall::soak
