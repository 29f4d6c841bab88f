// kills.cpp - ends or starves the program at drawn moments, and looks each time whether anything is lost.
//
//   brickfall-kills SEED COUNT            COUNT moments, every other one a SIGKILL, the rest an exhaustion
//   brickfall-kills --one SCENE KIND N once|on
//                                         the one moment: the N-th call of SCENE that the KIND is about
//
// Each moment has a store and a wallet of its own. A program under fault_shim acts the scene; whatever became
// of it, a new program then opens the store, tells what it finds and acts the scene once more. Beside that
// this program reads the files and the sandbox's chain for itself. Exit 0: nothing was lost; 1: something
// was, with the command that repeats it; 2: a wrong command line.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "base/clock.h"
#include "soak/kills_trial.h"

namespace brickfall {
namespace {

// ---- The whole.

using Counts = std::map<std::string, std::vector<uint64_t>>;  // by scene

const FaultKind* FindKind(std::string_view name) {
    for (const FaultKind& kind : kFaultKinds) {
        if (name == kind.name) return &kind;
    }
    return nullptr;
}

// A third of the kills hits the middle of something; a third of the exhaustions is memory's.
KillsMoment Draw(std::mt19937_64& random, bool kills, const Counts& counts) {
    static constexpr const char* kKills[] = {"kill", "kill", "kill-in"};
    static constexpr const char* kExhaustions[] = {"memory", "objects",   "objects",   "full",       "full",
                                                   "short",  "read-only", "no-access", "descriptors"};
    KillsMoment moment;
    uint64_t range = 0;
    while (range == 0 || (moment.scene->is_long && random() % 4 != 0)) {
        moment.scene = &KillsScenes()[random() % KillsScenes().size()];
        moment.kind = FindKind(kills ? kKills[random() % std::size(kKills)]
                                     : kExhaustions[random() % std::size(kExhaustions)]);
        range = counts.at(moment.scene->name)[static_cast<std::size_t>(moment.kind->need)];
    }
    moment.at = 1 + random() % range;
    moment.on = !kills && random() % 2 == 0;
    return moment;
}

struct Tally {
    int drawn = 0, met = 0, ended = 0;
};

std::string Shown(const std::string& met) { return met.empty() ? "none" : met; }

sandbox::Options OptionsFor(const TempFolder& folder) {
    sandbox::Options options;
    options.folder = folder.Path();
    return options;
}

class Kills {
  public:
    Kills() {
        std::string error;
        for (sandbox::Sandbox* box : {&box_, &board_box_}) {
            if (!box->Start(error)) throw std::runtime_error("no sandbox: " + error);
        }
        board_box_.SeedBoard(UnixSeconds());
    }

    // False, and it is told, when something was lost.
    bool Try(const KillsMoment& moment, KillsOutcome& outcome) {
        // A board's load would otherwise grow with each score that is recorded.
        sandbox::Sandbox& box = moment.scene->name == std::string_view("board") ? board_box_ : box_;
        ::setenv("BRICKFALL_SANDBOX_CONNECT", box.ConnectTo().c_str(), 1);
        ::setenv("BRICKFALL_SANDBOX_CA", box.CaFile().c_str(), 1);
        KillsTrial trial(box, moment, ++number_);
        try {
            outcome = trial.Run();
        } catch (const SomethingLost& lost) {
            std::printf("LOST: %s\n  seed %llu, %s, call %s\n  once more: scripts/kills.sh --one %s\n",
                        lost.what(), seed_, moment.Text().c_str(), Shown(trial.Met()).c_str(),
                        moment.Text().c_str());
            std::fflush(stdout);
            return false;
        }
        met_ = trial.Met();
        return true;
    }

    int RunOne(const KillsMoment& moment) {
        KillsOutcome outcome;
        if (!Try(moment, outcome)) return 1;
        std::printf("nothing lost at %s, call %s; exit %d, said \"%s\"\n", moment.Text().c_str(),
                    Shown(met_).c_str(), outcome.exit, outcome.said.value_or("").c_str());
        return 0;
    }

    int RunMany(unsigned long long seed, int count) {
        seed_ = seed;
        const auto began = std::chrono::steady_clock::now();
        std::printf(
            "brickfall-kills: seed %llu, %d moments\n\n%-10s %8s %8s %8s %8s %8s %8s   calls that\n"
            "%-10s %8s %8s %8s %8s %8s %8s\n",
            seed, count, "", "change", "take", "need", "need a", "need", "call", "scene", "or send", "room",
            "leave", "descr.", "memory", "new");
        Counts counts;
        for (const KillsScene& scene : KillsScenes()) {
            KillsOutcome outcome;
            if (!Try({&scene, nullptr, 0, false}, outcome)) return 1;
            counts[scene.name] = outcome.counts;
            std::printf("%-10s", scene.name);
            for (const uint64_t each : outcome.counts)
                std::printf(" %8llu", static_cast<unsigned long long>(each));
            std::printf("\n");
        }
        std::fflush(stdout);
        std::mt19937_64 random(seed);
        std::map<std::string, std::map<std::string, Tally>> tallies;
        int lost = 0;
        for (int i = 0; i < count; ++i) {
            const KillsMoment moment = Draw(random, i % 2 == 0, counts);
            Tally& tally = tallies[moment.scene->name][moment.kind->name];
            KillsOutcome outcome;
            ++tally.drawn;
            if (!Try(moment, outcome)) {
                ++lost;
                continue;
            }
            tally.met += met_.empty() ? 0 : 1;
            tally.ended += outcome.exit != 0 ? 1 : 0;
        }
        Tell(tallies);
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - began;
        std::printf("%d moments in %.0f s, something lost at %d of them\n", count, passed.count(), lost);
        return lost == 0 ? 0 : 1;
    }

  private:
    static void Tell(std::map<std::string, std::map<std::string, Tally>>& tallies) {
        std::printf("\nmoments met / the program ended by them\n%-10s", "scene");
        for (const FaultKind& kind : kFaultKinds) std::printf(" %11s", kind.name);
        std::printf("\n");
        std::map<std::string, Tally> sums;
        const auto cell = [](const Tally& tally) {
            std::printf(" %11s", (std::to_string(tally.met) + " / " + std::to_string(tally.ended)).c_str());
        };
        for (const KillsScene& scene : KillsScenes()) {
            std::printf("%-10s", scene.name);
            for (const FaultKind& kind : kFaultKinds) {
                const Tally& tally = tallies[scene.name][kind.name];
                sums[kind.name].met += tally.met;
                sums[kind.name].ended += tally.ended;
                cell(tally);
            }
            std::printf("\n");
        }
        std::printf("%-10s", "all");
        for (const FaultKind& kind : kFaultKinds) cell(sums[kind.name]);
        std::printf("\n");
    }

    const TempFolder folder_, board_folder_;
    sandbox::Sandbox box_{OptionsFor(folder_)}, board_box_{OptionsFor(board_folder_)};
    unsigned long long seed_ = 0;
    int number_ = 0;
    std::string met_;
};

int Usage() {
    std::fprintf(stderr, "usage: brickfall-kills SEED COUNT | --one SCENE KIND N once|on\n");
    return 2;
}

int Main(const std::vector<std::string>& words) {
    if (words.size() == 4 && (words[0] == "--act" || words[0] == "--judge")) {
        const KillsScene* scene = FindKillsScene(words[1]);
        return scene != nullptr ? ActKillsScene(*scene, words[2], words[3], words[0] == "--judge") : 2;
    }
    if (words.size() == 5 && words[0] == "--one") {
        const KillsMoment moment = {FindKillsScene(words[1]), FindKind(words[2]),
                                    std::strtoull(words[3].c_str(), nullptr, 10), words[4] == "on"};
        if (moment.scene == nullptr || moment.kind == nullptr || moment.at == 0) return Usage();
        return Kills().RunOne(moment);
    }
    if (words.size() != 2) return Usage();
    const int count = std::atoi(words[1].c_str());
    if (count < 1) return Usage();
    return Kills().RunMany(std::strtoull(words[0].c_str(), nullptr, 10), count);
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    try {
        return brickfall::Main({arguments + 1, arguments + count});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "brickfall-kills: %s\n", failure.what());
        return 1;
    }
}
