// brickfall-soak - paid runs through everything below the windows, against the sandbox, while services fail.
//
//   brickfall-soak SEED RUNS       courses drawn from the seed until so many runs were paid for
//   brickfall-soak --course TEXT   one course, as a failure has printed it
//
// Exit 0 when all held; 1 with seed, step and the shortest course that still fails; 2 for a wrong command
// line.
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/http_client.h"
#include "sandbox/server/faults.h"
#include "soak/cabinet.h"
#include "soak/course.h"
#include "soak/stage.h"
#include "tests/support/manual_clock.h"

namespace brickfall::soak {
namespace {

constexpr int kClicksACourse = 16;
// Which of two processes or requests at once comes first is not drawn: what fails may do so only now and
// then.
constexpr int kTries = 3;

struct Totals {
    int64_t runs = 0;
    int64_t recorded = 0;
    int64_t courses = 0;
    sandbox::FaultCounts faults;
};

void Say(const std::string& line) { std::fprintf(stdout, "%s\n", line.c_str()); }

void SayTotals(const Totals& totals, double seconds) {
    std::map<std::string, int64_t> by_service, by_kind;
    int64_t met = 0;
    for (const auto& [fault, count] : totals.faults) {
        by_service[std::string(NameOf(fault.first))] += count;
        by_kind[std::string(NameOf(fault.second))] += count;
        met += count;
    }
    const auto list = [](const std::map<std::string, int64_t>& counts) {
        std::string text;
        for (const auto& [name, count] : counts) {
            text += (text.empty() ? "" : ", ") + name + " " + std::to_string(count);
        }
        return text;
    };
    Say("  " + std::to_string(totals.runs) + " runs paid for, " + std::to_string(totals.recorded) +
        " recorded, in " + std::to_string(totals.courses) + " courses; " + std::to_string(met) +
        " faults met; " + std::to_string(static_cast<int64_t>(seconds)) + " s");
    Say("  by service: " + list(by_service));
    Say("  by kind: " + list(by_kind));
}

bool Fails(const std::string& program, const Course& course, int tries, std::string& what) {
    for (int i = 0; i < tries; ++i) {
        const Outcome outcome = PlayCourse(program, course);
        if (!outcome.failure) continue;
        what = outcome.failure->what;
        return true;
    }
    return false;
}

int TellFailure(const std::string& program, Course course, const Outcome::Failure& failure) {
    Say("  step " + std::to_string(failure.step + 1) + ", " + StepText(course[failure.step]) + ": " +
        failure.what);
    Say("  looking for the shortest course that still fails...");
    std::fflush(stdout);
    course.resize(failure.step + 1);
    std::string what = failure.what;
    const int tries = Fails(program, course, 1, what) && Fails(program, course, 1, what) ? 1 : kTries;
    course = Shrink(std::move(course),
                    [&](const Course& shorter) { return Fails(program, shorter, tries, what); });
    Say("  " + what);
    Say("  scripts/soak.sh --course '" + CourseText(course) + "'");
    return 1;
}

int SoakSeed(const std::string& program, uint64_t seed, int64_t runs) {
    Say("soak: seed " + std::to_string(seed) + ", " + std::to_string(runs) + " runs");
    std::fflush(stdout);
    const auto began = std::chrono::steady_clock::now();
    Totals totals;
    while (totals.runs < runs) {
        // Another seed for each course, far from those of the next seeds.
        const Course course =
            DrawCourse(seed * 1'000'003 + static_cast<uint64_t>(totals.courses), kClicksACourse);
        const Outcome outcome = PlayCourse(program, course);
        ++totals.courses;
        totals.runs += outcome.paid_runs;
        totals.recorded += outcome.recorded;
        for (const auto& [fault, count] : outcome.faults) totals.faults[fault] += count;
        if (!outcome.failure) continue;
        Say("  seed " + std::to_string(seed) + ", course " + std::to_string(totals.courses) + " fails");
        return TellFailure(program, course, *outcome.failure);
    }
    SayTotals(totals, std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
    return 0;
}

int PlayText(const std::string& program, std::string_view text) {
    std::string error;
    const std::optional<Course> course = ParseCourse(text, error);
    if (!course) {
        std::fprintf(stderr, "brickfall-soak: %s\n", error.c_str());
        return 2;
    }
    const Outcome outcome = PlayCourse(program, *course);
    if (outcome.failure) {
        const std::size_t at = outcome.failure->step;
        Say("step " + std::to_string(at + 1) + ", " + StepText((*course)[at]) + ": " + outcome.failure->what);
        return 1;
    }
    Say("all of it held; " + std::to_string(outcome.paid_runs) + " runs paid for");
    return 0;
}

int Main(const std::vector<std::string_view>& words) {
    if (words.size() == 4 && words[0] == "--cabinet") {
        return RunCabinet({std::string(words[1]), std::string(words[2]), std::string(words[3])});
    }
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    const ManualClock clock;  // the auditor's pauses take no time
    StartNetwork();
    uint64_t seed = 0;
    int64_t runs = 0;
    if (words.size() == 2 && words[0] == "--course") return PlayText(program, words[1]);
    if (words.size() == 2 && ReadNumber(words[0], seed) && ReadNumber(words[1], runs) && runs > 0) {
        return SoakSeed(program, seed, runs);
    }
    std::fprintf(stderr, "usage: brickfall-soak SEED RUNS | --course TEXT\n");
    return 2;
}

}  // namespace
}  // namespace brickfall::soak

int main(int count, char** arguments) {
    try {
        return brickfall::soak::Main({arguments + 1, arguments + count});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "brickfall-soak: %s\n", failure.what());
        return 1;
    }
}
