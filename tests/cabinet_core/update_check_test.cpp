#include "cabinet/update_check.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

constexpr int32_t kHighest = 2'147'483'647;

std::string Repeat(std::size_t times, std::string_view piece) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) text += piece;
    return text;
}

TEST(UpdateCheck, PagesAndTheirBuild) {
    const std::string filler = Repeat(5'000, "<p>free bricks</p>\n ");  // 100,000 bytes
    const struct {
        const char* why;
        std::string page;
        int32_t build;
    } rows[] = {
        // As pages are written.
        {"a sentence", "Current build: Version 0.002", 2},
        {"a page",
         "<h1>Download</h1>\n<p><b>Current build:</b> <span "
         "class=\"v\">Version&nbsp;<em>0.012</em></span></p>"
         "<p>Older: version 0.011</p>",
         12},
        {"mixed case", "cUrRent BuILd vErSiOn:0.3", 300},
        {"whole number", "version 2", 2},
        {"tab, colon, equals sign", "version:\t= : 0.004", 4},
        {"every blank that is spelled out", "version&nbsp;&#160;&NBSP;0.005", 5},
        {"a comma ends the number", "version 1,500", 1},
        {"three numbers", "version 1.2.3", 1200},
        {"version numbers of other things", "<?xml version=\"1.0\"?><p>Version 0.007</p>", 7},

        // Several versions: the one behind "current build", else the last.
        {"behind the mark", "version 0.9 current build is version 0.2, was version 0.1", 200},
        {"nothing behind the mark", "version 0.8, then version 0.009 - the current build", 9},
        {"a line end in the mark", "current\nbuild version 1, version 2", 2},
        {"no mark, the last", "version 0.3 is out, version 0.4 is planned", 400},
        {"the last has no number", "version 0.3 and other versions", -1},

        // Tags.
        {"in the word, it splits it", "ver<b>sion 0.5", -1},
        {"in the number, it splits it", "version 0.<i>00</i>2", 0},
        {"an attribute before the number", "version <a title=\"0.5\">0.6</a>", 600},
        {"a tag that never ends", "version 0.5 <div version 0.6", 500},
        {"the number in a tag that never ends", "version <div 0.6", -1},

        // Size: the last 24,000 bytes are read.
        {"the word is cut", "version 0.5" + std::string(24'000 - 10, ' '), -1},
        {"the word just fits", "version 0.5" + std::string(24'000 - 11, ' '), 500},
        {"the tail begins in a tag", "<a title='" + filler + "version 0.5' >version 0.6", 600},
        {"all of it one tag", "version 8" + Repeat(12'000, "<<"), -1},
        {"all of it spelled-out blanks", Repeat(16'000, "&nbsp;"), -1},
        {"all of it zeros", "version " + std::string(23'000, '0') + "7", 7},

        // No number, and numbers that are none.
        {"nothing", "", -1},
        {"a line end before the number", "version\n0.5", -1},
        {"a point in front", "version .5", 500},
        {"the highest", "version 2147483647", kHighest},
        {"one more", "version 2147483648", -1},
        {"the highest, with a point", "version 2147483.647", kHighest},
        {"one more, with a point", "version 2147483.648", -1},
        {"zero", "version 0.000", 0},
        {"rounded", "version 0.0026", 3},
        {"a zero byte", std::string("version\0 5", 10), -1},
    };
    for (const auto& row : rows) EXPECT_EQ(FindPageBuild(row.page), row.build) << row.why;
}

TEST(UpdateCheck, NumbersAsTextAndBack) {
    const std::pair<std::string, int32_t> rows[] = {
        {" \t0.002\r\n", 2}, {std::string("\0\x01 7", 4), 7},
        {"7 apples", 7},     {"", -1},
        {" \x1f ", -1},      {"-1", -1},
        {"-0.5", -1},        {"1.0e999", -1},
        {"1.0e-999", 0},     {"nan.", -1},
        {"inf.", -1},        {"seven", -1},
        {".", -1},           {"1e999", 1},
        {"+2", 2},           {"+1.5", 1500},
        {"5.", 5000},        {"99999999999999999999.0", -1},
    };
    for (const auto& [text, build] : rows) EXPECT_EQ(ParseBuild(text), build) << text;
    const std::pair<int32_t, const char*> builds[] = {
        {0, "0.000"}, {999, "0.999"}, {12'034, "12.034"}, {-1, "0.001"}, {kHighest, "2147483.647"}};
    for (const auto& [build, text] : builds) EXPECT_EQ(FormatBuild(build), text);
}

TEST(UpdateCheck, ThePageIsFetched) {
    for (const auto& [status, build] : {std::pair(200, 2), {404, -1}}) {
        SandboxFixture services;
        services.Reply(sandbox::Service::kDownload, "", status, "<p>Version 0.002</p>");
        EXPECT_EQ(LatestBuild(), build) << status;
    }
}

}  // namespace
}  // namespace brickfall
