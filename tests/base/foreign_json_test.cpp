#include "base/foreign_json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace brickfall {
namespace {

using nlohmann::json;

std::string Repeat(std::string_view unit, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) text += unit;
    return text;
}

constexpr JsonLimits kLimits = {.bytes = 100, .values = 9, .depth = 4};

TEST(ForeignJson, ATextBeyondALimitIsNoDocument) {
    constexpr JsonLimits kLong = {.bytes = 64 << 20, .values = 9};
    const auto text_of = [](std::size_t length) { return "\"" + std::string(length, 'a') + "\""; };
    const struct {
        std::string text;
        bool accepted;
        JsonLimits limits = kLimits;
    } rows[] = {
        {R"({"a":[1,"2",{"b":null}],"c":-3e5})", true},
        {text_of(98), true},
        {text_of(99), false},
        {"[[[[]]]]", true},
        {"[[[[[]]]]]", false},
        {Repeat("{\"a\":", 18), false},
        {"[" + Repeat("0,", 8) + "0]", true},
        {"[" + Repeat("0,", 9) + "0]", false},
        {"[" + Repeat("[],", 4) + "0]", true},
        {"[" + Repeat("{\"a\":0},", 4) + "{}]", false},
        {R"(["[[[[[[\"[[[[{{{{,,,,,,,,,,"])", true},  // within a string they are text
        {R"(["\\",[[[[]]]]])", false},                // which ends where it ends
        {"", false},
        // The parser copies a token several times over.
        {text_of(kMaxJsonTokenBytes - 2), true, kLong},
        {text_of(kMaxJsonTokenBytes + 1), false, kLong},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(!ParseForeignJson(row.text, row.limits).is_discarded(), row.accepted)
            << row.text.substr(0, 100);
    }
    // What ends nowhere, and what the parser would refuse only at its end, is not shown to it.
    for (const char* const begin : {"[\"", "[1", "[ \"\\"}) {
        EXPECT_FALSE(IsWithinLimits(begin + std::string(kMaxJsonTokenBytes + 1, '1'), kLong)) << begin;
    }
    EXPECT_TRUE(IsWithinLimits(std::string(kMaxJsonTokenBytes + 1, ' ') + "1", kLong));
}

// The elements as one text, and "no list" behind what was handed over before the text turned out to be none.
std::string Elements(std::string_view text, bool root_is_list = true, std::string_view key = "list") {
    static constexpr std::string_view kMembers[] = {"id", "deep"};
    std::string told;
    const bool read =
        ForEachElement(text, {root_is_list, key, kMembers},
                       {.bytes = 1 << 20, .values = 100'000, .depth = 20'000}, [&told](const json& element) {
                           told += element.dump() + " ";
                           return element != json("stop");
                       });
    return told + (read ? "" : "no list");
}

TEST(ForeignJson, AListIsReadElementByElement) {
    const std::pair<std::string, std::string> rows[] = {
        {R"([7,null,"a",{"id":1},[true,[]],{}])", R"(7 null "a" {"id":1} [true,[]] {} )"},
        {R"({"list":[{"id":[{"id":2,"no":3}]}],"id":9})", R"({"id":[{"id":2}]} )"},
        {R"({"id":{"list":[1]},"other":[2],"list":[3]})", "3 "},
        {R"([{"no":{"id":1,"deep":[{"id":2}]},"id":3,"deep":{"no":[[1]],"id":{"id":4}},"last":5}])",
         R"({"deep":{"id":{"id":4}},"id":3} )"},
        {R"([{"id":1,"id":[2]}])", R"({"id":[2]} )"},  // the last one counts
        {R"({"list":{"list":[1]}})", "no list"},
        {R"([1,2)", "1 2 no list"},
        {R"([1,"stop",2])", R"(1 "stop" no list)"},
        {"[1] 2", "1 no list"},
        {R"("list")", "no list"},
        // What a stranger has put in is passed over, however it nests.
        {R"([{"no":)" + Repeat("[", 9'000) + Repeat("]", 9'000) + R"(,"id":1}])", R"({"id":1} )"},
        {R"([{"no":[)" + Repeat("[],", 9'000) + R"(0],"id":1}])", R"({"id":1} )"},
        // What is wanted is bounded.
        {"[1," + Repeat("[", kMaxElementDepth + 1) + Repeat("]", kMaxElementDepth + 1) + "]", "1 no list"},
        {R"([1,{"id":[)" + Repeat("0,", kMaxElementValues) + "0]}]", "1 no list"},
    };
    for (const auto& [text, elements] : rows) EXPECT_EQ(Elements(text), elements) << text.substr(0, 100);
    EXPECT_EQ(Elements("[1]", false), "no list");
    EXPECT_EQ(Elements(R"({"list":[1]})", false), "1 ");
    EXPECT_EQ(Elements(R"({"":[1]})", true, ""), "no list");
}

}  // namespace
}  // namespace brickfall
