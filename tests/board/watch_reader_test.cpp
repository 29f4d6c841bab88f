#include "board/watch_reader.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "wallet/encodings.h"
#include "wallet/transaction.h"

namespace brickfall {
namespace {

using nlohmann::json;

std::string Repeat(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

// 6A is OP_RETURN; 4C, 4D and 4E are OP_PUSHDATA1, 2 and 4; 61 is "a".
TEST(WatchReader, ExtractsTheFirstPush) {
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"006a0161", "a"},
        {"6a0161", "a"},
        {"006A024a4B", "JK"},
        {"6a0161ff", "a"},  // whatever stands behind the push
        {"6a4b" + Repeat("61", 75), std::string(75, 'a')},
        {"6a4c0161", "a"},
        {"6a4cff" + Repeat("61", 255), std::string(255, 'a')},
        {"6a4d010061", "a"},
        {"6a4d0102" + Repeat("61", 513), std::string(513, 'a')},
        {"6a4dffff" + Repeat("61", 65'535), std::string(65'535, 'a')},
        {"6a0100", std::string(1, '\0')},
        {"", std::nullopt},
        {"6a", std::nullopt},
        {"006a", std::nullopt},
        {"00006a0161", std::nullopt},  // one OP_FALSE at most
        {"6a00", std::nullopt},        // an empty push
        {"6a4c00", std::nullopt},
        {"6a4d0000", std::nullopt},
        {"6a0261", std::nullopt},  // cut short
        {"6a4c", std::nullopt},
        {"6a4c0261", std::nullopt},
        {"6a4d01", std::nullopt},
        {"6a4d020061", std::nullopt},
        {"6a4e0100000061", std::nullopt},  // not read
        {"6a5161", std::nullopt},          // OP_1 pushes no bytes
        {"6a016", std::nullopt},           // half a byte
        {"6a016g", std::nullopt},
        {"6a0161zz", std::nullopt},  // a fault behind the push counts too
        {"0x6a0161", std::nullopt},
        {"76a90161", std::nullopt},  // another script
    };
    for (const auto& [script, expected] : rows) {
        std::string payload = "former";
        EXPECT_EQ(ExtractPushPayload(script, payload), expected.has_value()) << script.substr(0, 40);
        EXPECT_EQ(payload, expected.value_or("")) << script.substr(0, 40);
    }
}

std::string Carrier(std::string_view payload) { return HexEncode(DataCarrierScript(payload)); }

TEST(WatchReader, ReadsWhatTheProgramWritesUpToItsLimit) {
    for (const std::size_t size : {1u, 75u, 76u, 255u, 256u, 65'535u, 65'536u}) {
        std::string payload;
        EXPECT_EQ(ExtractPushPayload(Carrier(std::string(size, 'a')), payload), size <= 65'535) << size;
        EXPECT_EQ(payload, std::string(size <= 65'535 ? size : 0, 'a'));
    }
}

TEST(WatchReader, FindsTheFirstRowInEitherServicesForm) {
    const std::string score = Carrier(R"({"type":"arcade_score","score":1})");
    const std::string second = Carrier(R"({"type":"arcade_score","score":2})");
    const std::string report = Carrier(R"({"type":"report","score":3})");
    const json found[] = {
        {{"vout", {{{"scriptPubKey", {{"hex", score}}}}}}},
        {{"vout", {{{"scriptPubKey", score}}}}},
        {{"vout", {{{"hex", score}}}}},
        {{"vout", {{{"scriptPubKey", {{"hex", ""}}}, {"hex", score}}}}},
        {{"vout", {{{"scriptPubKey", {{"hex", 7}}}, {"hex", score}}}}},
        {{"vout", {{{"scriptPubKey", {{"hex", score}}}, {"hex", second}}}}},
        {{"vout", {7, nullptr, {{"hex", "76a9"}}, {{"hex", report}}, {{"hex", score}}, {{"hex", second}}}}},
        {{"vout",
          {{{"hex", Carrier("no json")}},
           {{"hex", Carrier("[1]")}},
           {{"hex", Carrier("{\"type\":\"arcade_score\xFF\"}")}},
           {{"hex", Carrier("{\"type\":7}")}},
           {{"hex", score}}}}},
    };
    for (const json& transaction : found) {
        json row;
        EXPECT_TRUE(FindScorePayload(transaction, row)) << transaction;
        EXPECT_EQ(row, json::parse(R"({"type":"arcade_score","score":1})")) << transaction;
    }
    const json none[] = {
        nullptr,
        json::array({{{"hex", score}}}),
        {{"vout", {{"hex", score}}}},
        {{"vout", json::array()}},
        {{"vout", {{{"hex", report}}}}},
        {{"vout", {{{"hex", Carrier(R"({"type":" arcade_score"})")}}}}},
    };
    for (const json& transaction : none) {
        json row = "former";
        EXPECT_FALSE(FindScorePayload(transaction, row)) << transaction;
        EXPECT_EQ(row, "former");
    }
}

}  // namespace
}  // namespace brickfall
