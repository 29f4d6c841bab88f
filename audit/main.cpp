// main.cpp - brickfall-audit: judges recorded scores, from the services or from a file. It opens no wallet
// and writes nothing but the files of --save and --page.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "audit/display_text.h"
#include "audit/options.h"
#include "audit/page_content.h"
#include "audit/report.h"
#include "audit/service_check.h"
#include "audit/settlement_input.h"
#include "audit/settlement_report.h"
#include "base/build_number.h"
#include "base/clock.h"
#include "base/files.h"
#include "net/http_client.h"
#ifdef BRICKFALL_FACES
#include "page/page_face.h"
#endif

namespace brickfall {
namespace {

constexpr int kCouldNotLook = 2;
constexpr int kInterrupted = 130;
constexpr std::size_t kErrorColumns = 200;

int Fail(const std::string& why) {
    std::fprintf(stderr, "brickfall-audit: %s\n", why.c_str());
    return kCouldNotLook;
}

// Nothing is half done at any moment: the line of progress ends, and that is all.
void EndOnInterrupt(int) {
    static_cast<void>(!::write(STDERR_FILENO, "\n", 1));
    ::_exit(kInterrupted);
}

void ShowProgress(const char* what, std::size_t done, std::size_t of) {
    static std::mutex lock;
    static std::size_t shown = 0;  // guarded by lock
    const std::lock_guard guard(lock);
    if (done != 0 && done <= shown) return;
    shown = done;
    std::fprintf(stderr, "\r\x1b[K%s: %zu of %zu", what, done, of);
    if (done == of) std::fprintf(stderr, "\r\x1b[K");
}

// `scope` becomes the file's own where a file that was saved for a settlement is read without a week for one.
bool ReadFrom(const AuditOptions& options, std::size_t threads, AuditScope& scope, Collected& collected,
              std::string& error) {
    std::string text;
    if (ReadFile(options.file, text, kMaxEvidenceBytes) != FileState::kRead) {
        error = "cannot read " + options.file;
        return false;
    }
    if (!ReadEvidence(text, threads, collected, error)) {
        error = options.file + ": " + error;
        return false;
    }
    const bool for_settlement = collected.pot.week_start != 0;
    if (options.payout && scope.kind == ScopeKind::kAsSaved && !for_settlement) {
        error = options.file + " was saved for no settlement; name a --week";
        return false;
    }
    if ((options.payout || !options.page.empty()) && scope.kind == ScopeKind::kAsSaved && for_settlement) {
        scope = {.kind = ScopeKind::kWeek,
                 .week = collected.pot.week_start,
                 .txid = {},
                 .every_page = true,
                 .with_pot = true};
    }
    collected.listed = true;
    Select(scope, collected);
    return true;
}

bool Save(const std::string& path, const Collected& collected, std::string& error) {
    const std::string text = WriteEvidence(collected);
    if (text.size() > kMaxEvidenceBytes) {
        error = "more evidence than a file holds; choose fewer records";
        return false;
    }
    error = "cannot write " + path;
    return ReplaceFile(path, text);
}

void FetchFaces(const AuditProgress& progress, std::vector<PageRun>& runs) {
#ifdef BRICKFALL_FACES
    AddFaces(ReadPageFace, PageFaceFile, progress, runs);
#else
    static_cast<void>(progress);
    static_cast<void>(runs);
    Fail("the page shows no faces: this build was made without windows, and reads no pictures");
#endif
}

bool SavePage(const std::string& path, const AuditScope& scope, const Collected& collected,
              const AuditReport& report, bool one_each, std::span<const PageRun> runs, std::string& error) {
    const std::string page = MakePage("Audit of " + SafeText(collected.scope, kErrorColumns), runs,
                                      PageReport(scope, collected, report, one_each));
    error = page.empty() ? "no recorded score to make a page of" : "cannot write " + path;
    return !page.empty() && ReplaceFile(path, page);
}

struct NetworkScope {
    NetworkScope() { StartNetwork(); }
    ~NetworkScope() { StopNetwork(); }
    NetworkScope(const NetworkScope&) = delete;
    NetworkScope& operator=(const NetworkScope&) = delete;
};

struct Told {
    std::string text;
    int exit_code = 0;
};

Told TellAudit(const AuditReport& report, bool json) {
    return {json ? JsonText(ReportJson(report)) : ReportText(report, ::isatty(STDOUT_FILENO) == 1),
            ExitCode(report)};
}

Told TellSettlement(const AuditReport& report, const Collected& collected, int64_t week,
                    const AuditOptions& options) {
    for (const auto& [what, why] : {std::pair{"list of records", collected.list_error},
                                    std::pair{"history of the pot", collected.pot.error}}) {
        if (!why.empty()) Fail(std::string(what) + ": " + SafeText(why, kErrorColumns));
    }
    const Settlement settlement =
        SettleWeek(MakeSettlementInput(week, collected, report.rows, options.one_each));
    return {options.json ? JsonText(SettlementJson(settlement)) : SettlementText(settlement),
            settlement.doubts.empty() ? 0 : kCouldNotLook};
}

// A line for each service while the next one is asked.
int Check() {
    std::printf("Brickfall services\n\n%s\n", DeploymentText().c_str());
    const NetworkScope network;
    const bool all = CheckServices([](const ServiceAnswer& answer) {
        std::printf("%s  %s%s\n            %s\n", answer.good ? "answers  " : "NO ANSWER",
                    PadRight(answer.service, 17).c_str(), answer.url.c_str(),
                    SafeText(answer.said, kErrorColumns).c_str());
        std::fflush(stdout);
    });
    std::printf("\n%s\n", all ? "Every service answers." : "Not every service answers as it should.");
    return std::fflush(stdout) != 0 ? Fail("cannot write the report") : all ? 0 : kCouldNotLook;
}

int Main(const AuditOptions& options) {
    if (const std::string why = WhyNoPages(); !options.page.empty() && !why.empty()) return Fail(why);
    const std::size_t threads = std::max(std::thread::hardware_concurrency(), 1u);
    std::string error;
    AuditScope scope = options.scope;
    const AuditProgress progress =
        ::isatty(STDERR_FILENO) == 1 ? ShowProgress : [](const char*, std::size_t, std::size_t) {};
    Collected collected;
    std::optional<NetworkScope> network;
    if (!options.file.empty()) {
        if (!ReadFrom(options, threads, scope, collected, error)) return Fail(error);
    } else {
        network.emplace();
        collected = Collect(scope, progress);
    }
    const AuditReport report = MakeReport(collected, threads);
    const Told told = options.payout ? TellSettlement(report, collected, scope.week, options)
                                     : TellAudit(report, options.json);
    std::fwrite(told.text.data(), 1, told.text.size(), stdout);
    if (std::fflush(stdout) != 0) return Fail("cannot write the report");
    if (!options.save.empty() && !Save(options.save, collected, error)) return Fail(error);
    if (options.page.empty()) return told.exit_code;
    std::vector<PageRun> runs = PageRuns(collected, report);
    if (network) FetchFaces(progress, runs);
    return SavePage(options.page, scope, collected, report, options.one_each, runs, error) ? told.exit_code
                                                                                           : Fail(error);
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    using namespace brickfall;
    std::signal(SIGINT, EndOnInterrupt);
    AuditOptions options;
    try {
        std::string error;
        const std::span<char* const> given(arguments, static_cast<std::size_t>(count));
        if (!ParseAuditOptions(given.subspan(1), UnixSeconds(), options, error))
            return Fail(error + "\n" + kAuditHelp);
        if (options.help) return std::fputs(kAuditHelp, stdout) < 0 ? kCouldNotLook : 0;
        if (options.version) {
            std::printf("brickfall-audit %s\n", FormatBuild(kBuildNumber).c_str());
            return 0;
        }
        return options.check ? Check() : Main(options);
    } catch (const std::exception& failure) {
        return Fail(failure.what());
    }
}
