// From where runs come, what is said of sources that are none, and the command line.
#include "viewer/run_source.h"

#include <gtest/gtest.h>

#include "audit/evidence_file.h"
#include "audit/report.h"
#include "base/files.h"
#include "messages/row.h"
#include "tests/support/child_process.h"
#include "tests/support/recorded_run.h"
#include "tests/support/temp_folder.h"
#include "tests/support/wallet_fixture.h"
#include "viewer/options.h"

namespace brickfall {
namespace {

using nlohmann::json;

LoadedRuns LoadText(const TempFolder& folder, std::string_view text) {
    const std::string path = folder.Path() + "/file";
    EXPECT_TRUE(WriteFile(path, text));
    return LoadRuns(SourceOf(path), [](const char*, std::size_t, std::size_t) {});
}

TEST(RunSource, ReadsRowsAndTransactionsAndJudgesThem) {
    const TempFolder folder;
    RecordedRun good("ada"), cheat("eve", 2), bent("bob", 3);
    cheat.row["score"] = 64'000;
    cheat.Sign();
    bent.SetTapeHex(bent.row["tape"].get<std::string>().substr(0, 20 + 4 * 10) + "ff");
    bent.Sign();

    const LoadedRuns row = LoadText(folder, DumpRow(good.row));
    ASSERT_EQ(row.runs.size(), 1u) << row.error;
    EXPECT_EQ(RunName(row.runs[0].audit), "ada");
    EXPECT_TRUE(row.runs[0].tape.has_value());
    EXPECT_EQ(VerdictLine(row.runs[0].audit), "could not look: published key");

    SavedEvidence saved;
    saved.evidence = {cheat.Make(), bent.Make(), good.Make()};
    saved.judged = 3;
    const LoadedRuns board = LoadText(folder, WriteEvidence(saved));
    ASSERT_EQ(board.runs.size(), 3u) << board.error;
    EXPECT_EQ(RunName(board.runs[0].audit), "ada") << "a sound run comes before a higher score that is none";
    EXPECT_EQ(VerdictLine(board.runs[0].audit), "sound");
    EXPECT_EQ(VerdictLine(board.runs[1].audit), "unsound: replayed score differs");
    EXPECT_EQ(RunName(board.runs[2].audit), "bob");
    EXPECT_NE(board.runs[2].fault, TapeFault::kNone);

    const json raw = {HexEncode(good.Make().transaction.raw)};
    EXPECT_EQ(LoadText(folder, raw.dump()).runs.size(), 1u);
}

TEST(RunSource, SaysInOneLineWhatIsNoRun) {
    const TempFolder folder;
    const std::string deep(100'000, '[');
    for (const std::string_view text :
         {std::string_view(), std::string_view("{"), std::string_view("7"), std::string_view(deep),
          std::string_view("\xFF\x00", 2), std::string_view(R"({"type":"else"})"), std::string_view("[]"),
          std::string_view(R"(["00"])")}) {
        const LoadedRuns loaded = LoadText(folder, text);
        EXPECT_FALSE(loaded.error.empty()) << text.substr(0, 20);
        EXPECT_EQ(loaded.error.find('\n'), std::string::npos);
        EXPECT_TRUE(loaded.runs.empty());
    }
    // A row is shown as far as it goes.
    const LoadedRuns bare = LoadText(folder, R"({"type":"arcade_score","tape":"zz"})");
    ASSERT_EQ(bare.runs.size(), 1u);
    EXPECT_FALSE(bare.runs[0].tape.has_value());
    EXPECT_EQ(RunName(bare.runs[0].audit), "nobody");

    const std::string program = BRICKFALL_BINARY_DIR "/cabinet/brickfall-view";
    for (const std::string& file : {folder.Path() + "/not there", folder.Path()}) {
        ChildProcess child(program, {file, "--poster", folder.Path() + "/poster.png"});
        EXPECT_EQ(child.Wait(), 1) << file;
        EXPECT_FALSE(FileExists(folder.Path() + "/poster.png"));
    }
    // Nothing in the program could open a wallet, or ask for the lock of the store.
    const std::string bytes = ReadFile(program).value_or("");
    EXPECT_GT(bytes.size(), 100'000u);
    for (const char* const text : {"wallets.lock", "wallet.json", "wallets.json"})
        EXPECT_EQ(bytes.find(text), std::string::npos) << text;
}

TEST(RunSource, AsksTheServicesAndKeepsTheBoard) {
    const ManualClock clock;
    const TempFolder folder;
    const std::string kept = folder.Path() + "/board.json";
    const auto load = [&](const RunSource& source) {
        return LoadRuns(source, [](const char*, std::size_t, std::size_t) {});
    };
    std::size_t rows = 0;
    {
        const SandboxFixture services;
        ASSERT_TRUE(services.box.SeedBoard(kTestWeek + 4 * 86'400));
        const LoadedRuns board = load({.kept_file = kept});
        ASSERT_EQ(board.error, "");
        rows = board.runs.size();
        ASSERT_GT(rows, 10u);
        EXPECT_EQ(VerdictLine(board.runs.front().audit), "sound");
        EXPECT_EQ(VerdictLine(board.runs.back().audit).find("unsound: "), 0u);
        const LoadedRuns one = load(SourceOf(board.runs.front().audit.txid));
        ASSERT_EQ(one.runs.size(), 1u) << one.error;
        EXPECT_EQ(one.runs[0].tape->events.size(), board.runs.front().tape->events.size());
        EXPECT_NE(load(SourceOf(std::string(64, 'a'))).error.find("no service knows"), std::string::npos);
    }
    SandboxFixture services;
    for (const auto service : {sandbox::Service::kIndexer, sandbox::Service::kChain})
        services.box.AddFault(service, ReplyTo("", "no", 503));
    const LoadedRuns again = load({.kept_file = kept});
    EXPECT_EQ(again.runs.size(), rows) << again.error;
    EXPECT_NE(again.note.find("do not answer"), std::string::npos);
    EXPECT_NE(load({}).error.find("do not answer"), std::string::npos);
}

TEST(ViewOptions, TakesWhatMakesSenseAndNamesWhatDoesNot) {
    const auto parse = [](std::vector<std::string> words, ViewOptions& options) {
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        std::string error;
        ParseViewOptions(arguments, options, error);
        return error;
    };
    ViewOptions options;
    EXPECT_EQ(parse({"a", "b", "--export", "c.mkv", "--size", "320x2160", "--from", "1.5", "--for", "10",
                     "--inputs"},
                    options),
              "");
    EXPECT_EQ(options.second, "b");
    EXPECT_EQ(options.size, (Size{320, 2'160}));
    EXPECT_EQ(options.from_ms, 1'500u);
    EXPECT_EQ(options.for_ms, 10'000u);
    EXPECT_TRUE(options.inputs);
    EXPECT_EQ(parse({}, options), "");
    const std::vector<std::string> wrong[] = {{"a", "b", "c"},
                                              {""},
                                              {"--what"},
                                              {"--size"},
                                              {"a", "--size", "319x400"},
                                              {"a", "--size", "3841x400"},
                                              {"a", "--size", "400"},
                                              {"a", "--size", "400x400x"},
                                              {"a", "--from", "-1"},
                                              {"a", "--from", "nan"},
                                              {"a", "--for", "0"},
                                              {"a", "--for", "1e99"},
                                              {"a", "--export", "a.avi"},
                                              {"a", "--poster", "a.jpg"},
                                              {"--export", "a.mkv"},
                                              {"a", "--export", ""}};
    for (const auto& words : wrong) EXPECT_NE(parse(words, options), "") << words.back();
}

}  // namespace
}  // namespace brickfall
