// What it costs to audit 250 rows, of some two minutes of play each: beside 250 bare signature checks, from
// evidence in memory and from the text of a file, and from services that each answer late.
#include <benchmark/benchmark.h>

#include <atomic>
#include <nlohmann/json.hpp>

#include "audit/report.h"
#include "base/workers.h"
#include "bench/services_program.h"
#include "game/simulation.h"
#include "tests/support/recorded_run.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/signed_message.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int kRows = 250;
constexpr int kPlayers = 12;
constexpr uint64_t kTicks = 6'000;

const Collected& Board() {
    static const Collected board = [] {
        Collected saved;
        for (int i = 0; i < kRows; ++i) {
            RecordedRun run("player" + std::to_string(i % kPlayers), static_cast<uint64_t>(i) + 1,
                            kTicks + static_cast<uint64_t>(i));
            run.entry[2].value = 1'000 + i;
            run.NameEntry();
            run.Sign();
            saved.evidence.push_back(run.Make());
        }
        saved.judged = saved.evidence.size();
        return saved;
    }();
    return board;
}

void CountSound(benchmark::State& state, const AuditReport& report) {
    if (CountRows(report).sound != kRows) state.SkipWithError("a row is not sound");
}

// The anchor of all below, on as many threads: two that share a core's units are no twice as fast as one.
void BareSignatures(benchmark::State& state) {
    const auto threads = static_cast<std::size_t>(state.range(0));
    const EcKeyPtr key(EC_KEY_new());
    EC_KEY_set_group(key.get(), Secp256k1());
    EC_KEY_generate_key(key.get());
    const Hash256 digest = SignedMessageDigest("text");
    const EcdsaSigPtr signature(ECDSA_do_sign(digest.data(), static_cast<int>(digest.size()), key.get()));
    std::atomic<int> verified = 0;
    for (auto _ : state) {
        verified = 0;
        RunInParallel(kRows, threads, [&](std::size_t) {
            verified +=
                ECDSA_do_verify(digest.data(), static_cast<int>(digest.size()), signature.get(), key.get());
        });
        if (verified != kRows) state.SkipWithError("not verified");
    }
}
BENCHMARK(BareSignatures)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Everything judged. At most 1.3 times the above on as many threads.
void JudgeBoard(benchmark::State& state) {
    const Collected& collected = Board();
    double ticks = 0, bytes = 0;
    for (auto _ : state) {
        const AuditReport report = MakeReport(collected, static_cast<std::size_t>(state.range(0)));
        CountSound(state, report);
        ticks = static_cast<double>(report.rows[0].run->length_ms) / kTickMs;
        bytes = static_cast<double>(collected.evidence[0].row_bytes);
    }
    state.counters["ticks_a_run"] = ticks;
    state.counters["bytes_a_row"] = bytes;
}
BENCHMARK(JudgeBoard)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The file's text read, every id reckoned, and everything judged.
void AuditFile(benchmark::State& state) {
    const std::string text = WriteEvidence(Board());
    const auto threads = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        Collected collected;
        std::string error;
        if (!ReadEvidence(text, threads, collected, error)) state.SkipWithError("not read");
        CountSound(state, MakeReport(collected, threads));
    }
    state.counters["file_MB"] = static_cast<double>(text.size()) / 1e6;
}
BENCHMARK(AuditFile)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// A list, 250 records, as many entries, 12 keys, each answered 100 ms late. Less than 4 s.
void AuditLateServices(benchmark::State& state) {
    SandboxProgram services;
    StartNetwork();
    json ids = json::array();
    const auto tell = [&services](const AuditTransaction& transaction) {
        json body = DecodedForm(transaction);
        body["blockheight"] = transaction.block.height;
        body["blocktime"] = transaction.block.time;
        services.ReplyTo("indexer", "/oi/tx/" + transaction.txid, body.dump());
    };
    for (const Evidence& one : Board().evidence) {
        ids.push_back(one.txid);
        tell(one.transaction);
        tell(one.entry_transaction);
    }
    services.ReplyTo("indexer", "/oi/oracle/", json{{"txids", ids}}.dump());
    for (int i = 0; i < kPlayers; ++i) {
        const TestPlayer player = MakePlayer("player" + std::to_string(i));
        services.ReplyTo("paymail", "/id/" + player.alias + "@", json{{"pubkey", player.public_hex}}.dump());
    }
    for (const char* const service : {"indexer", "chain", "paymail"}) services.Delay(service, 100);
    const AuditScope scope{.kind = ScopeKind::kWeek, .week = kTestWeek, .txid = {}, .every_page = false};
    for (auto _ : state) {
        const Collected collected = Collect(scope, [](const char*, std::size_t, std::size_t) {});
        CountSound(state, MakeReport(collected, 2));
    }
}
BENCHMARK(AuditLateServices)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
