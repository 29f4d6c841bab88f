// signed_rows.h - players with keys of their own, the score rows that they sign, and the services' answers
// that carry them, for tests of the board.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "sandbox/server/sandbox.h"

namespace brickfall {

// The Monday before the manual clock's start, and its label.
inline constexpr int64_t kTestWeek = 1'789'948'800;
inline constexpr char kTestWeekLabel[] = "2026-W39";

struct TestPlayer {
    std::string alias;
    std::string private_hex;
    std::string public_hex;
    std::string pay_addr;
};

// Another `generation` is another key of the same player.
TestPlayer MakePlayer(std::string_view alias, int generation = 0);

// What the family's host says of the player.
sandbox::PublishedIdentity IdentityOf(const TestPlayer& player, std::string_view avatar = "");

// A row as the cabinet records it, signed.
nlohmann::json SignedScore(const TestPlayer& player, int64_t score, int64_t ts, int64_t week = kTestWeek);

// Signs what stands in the row now.
void SignRow(const TestPlayer& player, nlohmann::json& row);

// A decoded transaction, with a payment in front of the payload.
std::string TransactionBody(std::string_view txid, std::string_view payload);

// Answers each request whose target contains `path` so, in place of the service.
sandbox::Fault ReplyTo(std::string_view path, std::string body, int status = 200);

}  // namespace brickfall
