// Whole audits: from the services with each of them failing, from files, as a table, as JSON and as a
// program.
#include <gtest/gtest.h>

#include <functional>

#include "audit/display_text.h"
#include "audit/page_content.h"
#include "audit/report.h"
#include "audit/service_check.h"
#include "base/files.h"
#include "tests/support/child_process.h"
#include "tests/support/recorded_run.h"
#include "tests/support/temp_folder.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::FaultKind;
using sandbox::Service;

json DecodedBody(const AuditTransaction& transaction) {
    json body = DecodedForm(transaction);
    if (!transaction.block.IsMined()) return body;
    body["blockheight"] = transaction.block.height;
    body["blocktime"] = transaction.block.time;
    return body;
}

AuditReport AuditWeek() {
    const AuditScope scope{.kind = ScopeKind::kWeek, .week = kTestWeek, .txid = {}, .every_page = true};
    return MakeReport(Collect(scope, [](const char*, std::size_t, std::size_t) {}), 2);
}

// "sound", a verdict's name, or what could not be looked at; "" for no row.
std::string Outcome(const AuditReport& report) {
    if (report.rows.empty()) return "";
    const RowAudit& row = report.rows[0];
    if (!row.findings.empty()) return VerdictName(row.findings[0].verdict);
    return row.not_looked.empty() ? "sound" : row.not_looked[0].what;
}

TEST(Audit, SaysWhichServiceCouldNotBeAsked) {
    const ManualClock clock;
    const SandboxFixture services;
    const RecordedRun run;
    const Evidence honest = run.Make();
    const std::string record = honest.txid, entry = honest.entry_transaction.txid;
    json other = DecodedBody(honest.transaction);
    other["txid"] = entry;
    json cut = DecodedBody(honest.transaction);
    cut["vout"][1]["scriptPubKey"]["isTruncated"] = true;
    const std::string other_text = other.dump(), cut_text = cut.dump();
    struct Row {
        const char* why;
        std::function<void()> trouble;
        std::string outcome;
        int exit_code;
    };
    const auto silent = [&services](Service service, std::string path) {
        return [&services, service, path] { services.box.AddFault(service, ReplyTo(path, "no", 503)); };
    };
    const auto both = [](std::function<void()> a, std::function<void()> b) { return [a, b] { a(), b(); }; };
    const Row rows[] = {
        {"all well", [] {}, "sound", 0},
        {"no indexer", silent(Service::kIndexer, ""), "sound", 0},
        {"no list", both(silent(Service::kIndexer, "/oracle/"), silent(Service::kChain, "/address/")), "", 2},
        {"no record", both(silent(Service::kIndexer, record), silent(Service::kChain, record)), "transaction",
         2},
        {"no record that is told whole",
         both([&] { services.box.AddFault(Service::kIndexer, ReplyTo(record, other_text)); },
              [&] { services.box.AddFault(Service::kChain, ReplyTo(record, cut_text)); }),
         "transaction", 2},
        {"no key", silent(Service::kPaymail, "/id/"), "published key", 2},
        {"no key known", [&] { services.box.AddFault(Service::kPaymail, ReplyTo("/id/", "{}", 404)); },
         "key-not-published", 1},
        {"the key of somebody else",
         [&] {
             services.box.AddFault(Service::kPaymail, ReplyTo("/id/", R"({"handle":"bob@orvane.test"})"));
         },
         "published key", 2},
        {"no entry", both(silent(Service::kIndexer, entry), silent(Service::kChain, entry)), "entry", 2},
    };
    for (const Row& row : rows) {
        services.box.ClearFaults();
        row.trouble();  // of two answers to one request the one set first counts
        const json ids = json::array({record});
        services.box.AddFault(Service::kIndexer, ReplyTo("/oi/oracle/", json{{"txids", ids}}.dump()));
        services.box.AddFault(Service::kChain, ReplyTo("/unspent", ids.dump()));
        for (const Service service : {Service::kIndexer, Service::kChain}) {
            for (const AuditTransaction& told : {honest.transaction, honest.entry_transaction})
                services.box.AddFault(service, ReplyTo("/tx/" + told.txid, DecodedBody(told).dump()));
        }
        services.box.AddFault(Service::kPaymail,
                              ReplyTo("/id/ada@", json{{"pubkey", run.player.public_hex}}.dump()));
        const AuditReport report = AuditWeek();
        EXPECT_EQ(Outcome(report), row.outcome) << row.why << ReportText(report, false);
        EXPECT_EQ(ExitCode(report), row.exit_code) << row.why;
    }
}

// Sound, unsound with a name that would turn the line around, and not looked at.
Collected SmallBoard() {
    RecordedRun best("ada", 1, 1'000), forged("eve", 2, 900), unknown("bob", 3, 800);
    forged.row["handle"] = "\xE2\x80\xAE\x1b[2J\n\xE7\x9F\xB3\xE3\x81\xAE wall of a very long name";
    forged.row["score"] = 64'000;
    forged.Sign();
    Collected saved;
    saved.listed = true;
    saved.evidence = {best.Make(), forged.Make(), unknown.Make()};
    saved.evidence[2].key = LookUp::kFailed;
    saved.judged = 3;
    saved.scope = "a board";
    return saved;
}

TEST(Audit, TellsTheSameFromItsFile) {
    const Collected board = SmallBoard();
    const json report = ReportJson(MakeReport(board, 2));
    EXPECT_EQ(report.at("totals"), json({{"rows", 3}, {"sound", 1}, {"unsound", 1}, {"could_not_look", 1}}));
    EXPECT_EQ(report.at("rows")[0].at("row").at("score"), 64'000);
    std::string error;
    Collected collected;
    ASSERT_TRUE(ReadEvidence(WriteEvidence(board), 2, collected, error)) << error;
    const json again = ReportJson(MakeReport(collected, 2));
    for (std::size_t i = 0; i < 3; ++i) {
        json told = again.at("rows")[i], before = report.at("rows")[i];
        if (told.at("status") == "could-not-look") {  // each of the two says where it looked
            EXPECT_EQ(told["could_not_look"][0]["why"], "not in the file");
            told.erase("could_not_look");
            before.erase("could_not_look");
        }
        EXPECT_EQ(told, before);
    }

    // A bare chain says nothing of keys and of times, and holds transactions that record nothing.
    const Evidence& best = board.evidence[0];
    const json chain = {HexEncode(best.entry_transaction.raw), HexEncode(best.transaction.raw)};
    ASSERT_TRUE(ReadEvidence(chain.dump(), 2, collected, error)) << error;
    const AuditReport bare = MakeReport(collected, 2);
    ASSERT_EQ(bare.rows.size(), 1u);
    EXPECT_EQ(Outcome(bare), "published key");
    EXPECT_EQ(bare.rows[0].not_judged.size(), 2u);
    for (const char* const bad : {"", "{", "7", "{}", R"({"version":2,"transactions":[]})", R"(["00"])",
                                  R"([7])", R"({"version":1,"transactions":[{"tx":{"txid":"00"}}]})"}) {
        EXPECT_FALSE(ReadEvidence(bad, 1, collected, error)) << bad;
        EXPECT_FALSE(error.empty());
    }
}

TEST(Audit, PrintsATable) {
    const std::string table = ReportText(MakeReport(SmallBoard(), 1), false);
    std::size_t status_column = 0;
    int rows = 0;
    for (std::size_t at = 0, end; (end = table.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string line = table.substr(at, end - at);
        EXPECT_EQ(line, SafeText(line, 1'000));  // nothing in it moves the cursor
        for (const char* const status : {"  status", "  sound", "  unsound", "  could not look"}) {
            if (!line.ends_with(status)) continue;
            const std::size_t column = DisplayColumns(line) - std::string(status).size();
            if (rows++ == 0) status_column = column;
            EXPECT_EQ(column, status_column) << line;
        }
    }
    EXPECT_EQ(rows, 4);
    EXPECT_NE(table.find("3 rows: 1 sound, 1 unsound, 1 could not be looked at."), std::string::npos);
    EXPECT_EQ(SafeText("ab\xE7\x9F\xB3", 4), "ab\xE7\x9F\xB3");
    EXPECT_EQ(SafeText("ab\xE7\x9F\xB3"
                       "c",
                       4),
              "ab\xE2\x80\xA6");
}

TEST(Audit, EndsWithWhatItHasFound) {
    const TempFolder folder;
    const auto file = [&folder](std::vector<Evidence> evidence) {
        SavedEvidence saved;
        saved.judged = evidence.size();
        saved.evidence = std::move(evidence);
        EXPECT_TRUE(WriteFile(folder.Path() + "/evidence", WriteEvidence(saved)));
        return std::vector<std::string>{"--file", folder.Path() + "/evidence"};
    };
    const Collected board = SmallBoard();
    const auto run = [](const std::vector<std::string>& arguments) {
        return ChildProcess(BRICKFALL_BINARY_DIR "/cabinet/brickfall-audit", arguments).Wait();
    };
    EXPECT_EQ(run(file({board.evidence[0]})), 0);
    EXPECT_EQ(run(file({board.evidence[2]})), 2);
    EXPECT_EQ(run(file(board.evidence)), 1);
    EXPECT_EQ(run({"--file", folder.Path() + "/evidence", "--week", "2026-W40"}), 0);  // no rows
    EXPECT_EQ(run({"--file", folder.Path() + "/evidence", board.evidence[0].txid, "--json", "--save",
                   folder.Path() + "/one"}),
              0);
    EXPECT_EQ(run({"--file", folder.Path() + "/one"}), 0);
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_EQ(run({"--file", folder.Path() + "/nothing"}), 2);
    EXPECT_EQ(run({"--week", "2026-W54"}), 2);
    EXPECT_EQ(run({"--all", "--week", "2026-W40"}), 2);
    EXPECT_EQ(run({"--wek"}), 2);
    EXPECT_EQ(run({"--check", "--json"}), 2);
    EXPECT_EQ(run({"--page"}), 2);
    EXPECT_EQ(run({"--check", "--page", folder.Path() + "/page"}), 2);
}

TEST(Audit, AsksOnceForTheFaceOfEachPlayerOfAPage) {
    SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    const std::string content = "https://ordinals.gorillapool.test/content/";
    for (const char* const alias : {"ada", "bob", "zed"})
        box.Publish(IdentityOf(MakePlayer(alias), content + alias));
    for (const char* const picture : {"ada", "zed"})
        box.AddFault(Service::kContent, ReplyTo(picture, std::string(40, *picture)));
    box.AddFault(Service::kContent, ReplyTo("bob", std::string(50, 'b')));
    const auto of = [](const std::string& key) {
        PageRun run;
        run.face_key = key;
        return run;
    };
    std::vector<PageRun> runs = {of("ada"), of("bob"), of("ada"), of("")};
    while (runs.size() <= kMostPageFaces) runs.push_back(of("1" + std::to_string(runs.size())));  // no names
    runs.push_back(of("zed"));  // one more than are shown
    const auto decode = [](const std::string& file, int) {
        return file[0] == 'b' ? std::nullopt : std::optional(Image{1, 1, {static_cast<uint32_t>(file[0])}});
    };
    const auto encode = [](const Image& face) { return "made of " + std::to_string(face.pixels[0]); };
    AddFaces(
        decode, encode, [](const char*, std::size_t, std::size_t) {}, runs);
    EXPECT_EQ(runs[0].face, "made of 97");
    EXPECT_EQ(runs[2].face, runs[0].face);
    EXPECT_EQ(runs[1].face + runs[3].face + runs.back().face, "");
    EXPECT_EQ(box.Requests(Service::kContent).size(), 2u);
}

TEST(Audit, AsksEachServiceWhetherItIsThere) {
    SandboxFixture services;
    const auto check = [](std::string* which) {
        int asked = 0;
        const bool all = CheckServices([&](const ServiceAnswer& answer) {
            ++asked;
            if (!answer.good) *which += answer.service + ": " + answer.said + "\n";
        });
        EXPECT_EQ(asked, 9);
        return all;
    };
    std::string silent;
    EXPECT_TRUE(check(&silent)) << silent;

    // One that is down, one that is another program's, one whose page has moved, one that knows no names.
    services.Reply(Service::kArc, "", 404, "{}");
    services.Reply(Service::kPaymail, "/id/", 200, "{}");
    services.Reply(Service::kIndexer, "/oi/oracle", 200, R"({"hello":"world"})");
    services.Reply(Service::kDownload, "", 503, "");
    EXPECT_FALSE(check(&silent));
    EXPECT_EQ(silent,
              "indexer: an answer that is no list of recorded scores\n"
              "paymail host: an answer without a key of this name\n"
              "ARC: HTTP 404 \xE2\x80\x93 {}\n"
              "download page: HTTP 503\n");
}

}  // namespace
}  // namespace brickfall
