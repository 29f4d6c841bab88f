#include "cabinet/explanations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "base/files.h"

namespace brickfall {
namespace {

// What says it all.
constexpr std::string_view kSelfExplaining[] = {
    "Already working...",
    "Already connected. Unbind to pick another wallet.",
    "Connected to Pouch wallet x",
    "This app is no longer connected to a Pouch wallet.",
    "Left / Right move the paddle. Space serve. P pause.",
    "Back.",
    "Weekly board loaded.",
};

// What is dropped on its way, or stands behind "error: broadcast failed: ", whatever it is.
constexpr std::string_view kNeverAlone[] = {
    "curl init failed",
    "out of memory",
    "HTTP 429 – WhatsOnChain is rate-limiting. Wait a few seconds and try again.",
    "HTTP x",
    "an answer that is no JSON, or too much of it",
    "an answer without a key of this name",
    "bad utxo list",
    "no utxos",
    "bad arc response",
    "arc did not return a txid",
    "could not write paymail registry",
    "error: ",
    "error: x",
    "pmessage",  // a field's name
};

std::string WithoutComments(std::string text) {
    bool in_literal = false;
    for (std::size_t at = 0; at + 1 < text.size(); ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '"') {
            in_literal = !in_literal;
        } else if (!in_literal && text.compare(at, 2, "//") == 0) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            text.erase(at, end - at);
        }
    }
    return text;
}

// The texts of one statement, from `at` on. What is put in between at run time is "x"; the branches of a
// choice are texts of their own.
std::vector<std::string> TextsOfStatement(std::string_view source, std::size_t at) {
    std::vector<std::string> texts;
    std::string between = ",";
    for (; at < source.size() && source[at] != ';'; ++at) {
        if (source[at] != '"') {
            between += source[at];
            continue;
        }
        std::string literal;
        for (++at; source[at] != '"'; ++at) {
            if (source[at] == '\\') {
                ++at;
                if (source[at] == 'n') continue;
            }
            literal += source[at];
        }
        for (std::size_t scope; (scope = between.find("::")) != std::string::npos;) between.erase(scope, 2);
        const bool is_apart = between.find_first_of("?:") != std::string::npos;
        const bool is_joined = between.find('+') != std::string::npos;
        const bool is_adjacent = between.find_first_not_of(" \n") == std::string::npos;
        if (is_adjacent) {
            texts.back() += literal;
        } else if (is_joined && !is_apart && !texts.empty()) {
            texts.back() += "x" + literal;
        } else if (!is_joined || is_apart) {
            texts.push_back(literal);
        }
        between.clear();
    }
    if (!texts.empty() && between.find('+') != std::string::npos) texts.back() += "x";
    return texts;
}

std::set<std::string> StatusTexts() {
    std::set<std::string> found;
    for (const char* const folder : {"game", "wallet", "messages", "net", "board", "cabinet"}) {
        const std::string root = std::string(BRICKFALL_SOURCE_DIR "/") + folder;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
            if (entry.path().stem() == "explanations") continue;
            const std::string source = WithoutComments(ReadFile(entry.path()).value_or(""));
            for (const std::string_view opening :
                 {"SetStatus(", "set_status(", "WalletLog(", "begin_check(", "error = ", "fail(",
                  "RefuseReport(", "FailReport(", "Text[] =", " message = ", "kControlStatus, ",
                  "\"error: "}) {
                for (std::size_t at = source.find(opening); at != std::string::npos;
                     at = source.find(opening, at + 1)) {
                    const std::size_t from = opening[0] == '"' ? at : at + opening.size();
                    std::vector<std::string> texts = TextsOfStatement(source, from);
                    if (opening.starts_with("kControlStatus")) texts.resize(1);  // a table's row
                    for (std::string& text : texts) found.insert(std::move(text));
                }
            }
        }
    }
    found.erase("");
    return found;
}

bool IsListed(std::span<const std::string_view> list, std::string_view text) {
    return std::ranges::find(list, text) != list.end();
}

TEST(Explanations, HaveARowForEveryStatusTextOfTheProduct) {
    const std::set<std::string> texts = StatusTexts();
    EXPECT_GT(texts.size(), 80u) << "the texts are not found any more";
    for (const std::string& text : texts) {
        const bool explained =
            FindExplanation(text, {}) != nullptr || FindExplanation("error: " + text, {}) != nullptr;
        const bool listed = IsListed(kSelfExplaining, text) || IsListed(kNeverAlone, text);
        EXPECT_NE(explained, listed) << '"' << text << '"';
    }
}

TEST(Explanations, StandInTheManualWordForWord) {
    const std::string manual = ReadFile(BRICKFALL_SOURCE_DIR "/docs/manual.md").value_or("");
    for (const Explanation& row : Explanations()) {
        std::string status(row.status), text(row.text);
        for (std::size_t at; (at = status.find('*')) != std::string::npos;) status.replace(at, 1, "…");
        if (!row.service.empty())
            text += (text.empty() ? "" : " ") + ("Waiting for " + std::string(row.service) + ": … s");
        const std::string line = "| " + status + " | " + text + " |";
        EXPECT_NE(manual.find(line + "\n"), std::string::npos) << "missing:\n" << line;
    }
}

std::string Explained(std::string_view status, const StatusContext& context = {}) {
    const Explanation* const found = FindExplanation(status, context);
    return found != nullptr ? ExplanationText(*found, context) : std::string();
}

TEST(Explanations, SayWhatBecameOfTheMoneyAndOfTheScore) {
    const StatusContext enter = {kPayEnter, true, false}, record = {kPayRecord, true, false};
    const StatusContext offline = {kPayRecord, true, true};
    const std::string failed = "error: broadcast failed: ", empty = "error: you have 0 in your Pouch wallet.";
    const struct {
        std::string status;
        StatusContext context;
        std::vector<std::string> says;
    } kCases[] = {
        {empty, offline, {"Your score is kept.", "Nothing could be read; nothing was spent."}},
        {empty, enter, {"No run has begun.", "Send coins to the wallet"}},
        {failed + "Timeout was reached",
         enter,
         {"No run has begun.", "not known whether", "before you pay again"}},
        {failed + "Timeout was reached", record, {"Your score is kept.", "not known whether"}},
        {failed + "HTTP 502", record, {"not known whether"}},
        {failed + "Could not resolve host: a.test", record, {"most likely nothing was spent", "online"}},
        {failed + "HTTP 400 – Missing inputs", record, {"costs nothing until it goes through"}},
        {failed + "HTTP 400 – unexpected response code 500: 257: txn-already-known",
         enter,
         {"most likely it went out"}},
        {"error: broadcast did not confirm. Wait a few seconds and try again.", enter, {"not known whether"}},
        {"error: approved, but the wallet would not load. The wallet has more",
         {},
         {"Open the wallet in Pouch"}},
        {"Waiting for Pouch to approve this app...\n", {}, {"within a minute"}},
        {"Connect Pouch, then Play.", {}, {"First press Connect"}},
        {"Connect Pouch, then Play.", enter, {"Press Play"}},
        {"Score recorded. " + std::string(64, 'a'), record, {"The score stands on the chain"}},
    };
    for (const auto& a_case : kCases) {
        const std::string text = Explained(a_case.status, a_case.context);
        for (const std::string& part : a_case.says) {
            EXPECT_NE(text.find(part), std::string::npos) << a_case.status << ": " << text;
        }
    }
    EXPECT_EQ(Explained("Paused"), "") << "another text";
    EXPECT_EQ(Explained("Back."), "");
}

}  // namespace
}  // namespace brickfall
