// What 250 recorded rows cost: beside the bare calls of the libraries without a network, and as a whole load
// from services in a process of their own. And the merging of a long local list.
#include <benchmark/benchmark.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/text.h"
#include "bench/services_program.h"
#include "board/board_load.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/signed_message.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int kRows = 250;
constexpr int64_t kNow = 1'790'000'000;  // where the manual clock begins
constexpr std::size_t kTapeHex = 6'000;  // 600 events, as a run of some minutes leaves them
constexpr std::size_t kFaceBytes = 20'000;
constexpr int kPlayers = 12;
constexpr int kLocalEntries = 10'000;

std::string RowId(int i) { return TestTxid(static_cast<uint32_t>(i)); }

struct RecordedRows {
    std::vector<TestPlayer> players;
    std::vector<std::string> payloads;  // the rows' JSON texts
    std::vector<std::string> bodies;    // the decoded transactions, by RowId

    RecordedRows() {
        for (int i = 0; i < kPlayers; ++i) players.push_back(MakePlayer("player" + std::to_string(i)));
        for (int i = 0; i < kRows; ++i) {
            json row = SignedScore(players[static_cast<std::size_t>(i % kPlayers)], 100 + i, kNow);
            row["tape"] = std::string(kTapeHex, '0');
            payloads.push_back(DumpRow(row));
            bodies.push_back(TransactionBody(RowId(i), payloads.back()));
        }
    }
};

void Publish(SandboxProgram& services, const TestPlayer& player) {
    services.ReplyTo("paymail", "/api/bsvalias/id/" + Lower(player.alias) + "@",
                     json{{"pubkey", player.public_hex}}.dump());
}

// 250 rows parsed, and 250 bare verifications.
void BareRows(benchmark::State& state) {
    const RecordedRows rows;
    const EcKeyPtr key(EC_KEY_new());
    EC_KEY_set_group(key.get(), Secp256k1());
    EC_KEY_generate_key(key.get());
    const Hash256 digest = SignedMessageDigest("text");
    const EcdsaSigPtr signature(ECDSA_do_sign(digest.data(), static_cast<int>(digest.size()), key.get()));
    for (auto _ : state) {
        for (const std::string& payload : rows.payloads) {
            const json row = json::parse(payload);
            benchmark::DoNotOptimize(row.size());
            if (ECDSA_do_verify(digest.data(), static_cast<int>(digest.size()), signature.get(), key.get()) !=
                1) {
                state.SkipWithError("not verified");
            }
        }
    }
}
BENCHMARK(BareRows)->Unit(benchmark::kMillisecond);

// The same rows read out of their transactions, which the HTTP client hands over parsed, once the signers'
// keys are known. At most 1.2 times the above.
void ReadRows(benchmark::State& state) {
    const ManualClock clock(kNow);
    const RecordedRows rows;
    SandboxProgram services;
    for (const TestPlayer& player : rows.players) Publish(services, player);
    ClearIdentityKeyCache();
    std::vector<json> transactions;
    for (const std::string& body : rows.bodies) transactions.push_back(json::parse(body));
    const auto read = [&transactions](int i) {
        ChainRow row;
        return ReadChainRow(transactions[static_cast<std::size_t>(i)], RowId(i), row);
    };
    for (int i = 0; i < kPlayers; ++i) read(i);
    for (auto _ : state) {
        for (int i = 0; i < kRows; ++i) {
            if (!read(i)) state.SkipWithError("a row is not accepted");
        }
    }
}
BENCHMARK(ReadRows)->Unit(benchmark::kMillisecond);

std::optional<Image> AnyFile(const std::string&, int) { return Image{1, 1, {0}}; }

// A whole load with nothing known before: the list, 250 transactions, 12 keys, 20 rows' faces.
void LoadBoard(benchmark::State& state) {
    const WalletFixture wallet("ada");
    SandboxProgram services;
    {
        const RecordedRows rows;
        json list = json::array();
        for (int i = 0; i < kRows; ++i) {
            list.push_back(RowId(i));
            services.ReplyTo("indexer", "/oi/tx/" + RowId(i), rows.bodies[static_cast<std::size_t>(i)]);
        }
        services.ReplyTo("indexer", "/oi/oracle/", json{{"txids", list}}.dump());
        services.ReplyTo("content", "/face", std::string(kFaceBytes, 'x'));
        for (const TestPlayer& player : rows.players) {
            Publish(services, player);
            services.ReplyTo("paymail", "/public-profile/" + player.alias + "@", R"({"ord":"face"})");
        }
    }
    ResetPeak();
    for (auto _ : state) {
        ClearIdentityKeyCache();
        std::unique_ptr<BoardResult> board;
        BoardWorker({}, AnyFile, [&board](auto result) { board = std::move(result); });
        if (board->rows.size() != kBoardRowCap || board->best.score != 100 + kRows - 1 ||
            board->faces.size() != kPlayers) {
            state.SkipWithError("not the whole board");
        }
    }
    state.counters["peak_MB"] = PeakMegabytes();
}
BENCHMARK(LoadBoard)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

// The snapshot of the document, and both merges.
void MergeLocalList(benchmark::State& state) {
    const WalletFixture wallet("ada");
    json list = json::array();
    for (int i = 0; i < kLocalEntries; ++i) {
        list.push_back({{"week", kTestWeek},
                        {"score", 1 + i * 7 % 5'000},
                        {"paymail", "a-player-of-this-cabinet@orvane.test"},
                        {"pay_addr", "1BoatSLRHtKNngkdXEeobR76b53LETtpyT"},
                        {"txid", i % 2 == 0 ? RowId(i) : ""},
                        {"game", "brickfall"},
                        {"ts", kNow}});
    }
    const json document = {{"week_scores", list}, {"best_ever", list[0]}};
    for (auto _ : state) {
        const BoardSnapshot snapshot = TakeBoardSnapshot(document, {});
        std::vector<ScoreRow> rows;
        ScoreRow best;
        bool has_best = false;
        MergeWeek(snapshot, rows);
        MergeBest(snapshot, best, has_best);
        if (rows.size() != kBoardRowCap || rows[0].score != 5'000 || best.score != 5'000) {
            state.SkipWithError("not the best");
        }
    }
}
BENCHMARK(MergeLocalList)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
