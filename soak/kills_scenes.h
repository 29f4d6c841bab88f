// kills_scenes.h - what a program that is ended or starved is at: small acts of the cabinet and of the
// companion on a store of their own, each of which can be acted again. One thread, beside the product's own.
#pragma once

#include <span>
#include <string>

namespace brickfall {

inline constexpr char kKillsInstance[] = "/opt/brickfall";

struct KillsScene {
    const char* name;
    int wallets = 0;         // in the store; the last one is the player's
    bool is_bound = false;   // the cabinet to that one
    bool has_coins = false;  // the player's wallet has
    bool has_name = false;   // the paymail host has published it
    bool is_old = false;     // the wallet lies in the file of an older installation
    int pays = 0;            // payments of one act
    bool is_long = false;    // takes as long as several others
    bool starts = false;     // the program's start is a part of the act
    std::string (*act)(const std::string& alias) =
        nullptr;  // empty: it has come to its end; else what was said
};

std::span<const KillsScene> KillsScenes();
const KillsScene* FindKillsScene(std::string_view name);

// Acts in the folder, which becomes the working folder and holds the user's data, and prints a line of JSON
// for each step. `is_judged` first tells what a new program finds there; else the fault library is armed for
// the act, and what was not achieved is tried again in the same program. The exit code.
int ActKillsScene(const KillsScene& scene, const std::string& alias, const std::string& folder,
                  bool is_judged);

}  // namespace brickfall
