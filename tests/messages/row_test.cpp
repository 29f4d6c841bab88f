#include "messages/row.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kEntry[] = "ABCDEF0123456789abcdef0123456789abcdef0123456789abcdef0123456789";
constexpr char kEntryLower[] = "abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789";
constexpr char kSeal[] = "FFEEDDCCBBAA99887766554433221100ffeeddccbbaa99887766554433221100";
constexpr char kSealLower[] = "ffeeddccbbaa99887766554433221100ffeeddccbbaa99887766554433221100";
// SHA-256 of "abc" (FIPS 180-4 example) and of nothing.
constexpr char kHashOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kHashOfNothing[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

json ScoreRow() {
    return {{"type", "arcade_score"},
            {"location", "arcade"},
            {"handle", "Ada"},
            {"actor", "Ada"},
            {"ts", 1790000000},
            {"game", "Brickfall"},
            {"score", 4200},
            {"week", 1789948800},
            {"entry", kEntry},
            {"pay_addr", "1BoatSLRHtKNngkdXEeobR76b53LETtpyT"},
            {"tape_hash", kSeal},
            {"protocol", "Cairn-Wire"},
            {"tape", "01"}};
}

TEST(Row, TheScoreRowsString) {
    const std::string head =
        std::string("OV1|arcade_score|arcade|ada|ada|1790000000|brickfall|4200|1789948800|") + kEntryLower +
        "|1BoatSLRHtKNngkdXEeobR76b53LETtpyT";
    const std::string whole = head + "|" + kSealLower;
    const auto text_with = [](const std::string& key, const json& value) {
        json row = ScoreRow();
        row[key] = value;
        return CanonicalMessage(row);
    };
    EXPECT_EQ(CanonicalMessage(ScoreRow()), whole);
    for (const json& no_seal : {json(""), json(nullptr), json(7)}) {
        EXPECT_EQ(text_with("tape_hash", no_seal), head) << "no separator behind the pay address";
    }
    for (const json& change : json::parse(R"([
            ["tape", "02"], ["paymail", "x@y"], ["protocol", "other"], ["sig", "s"], ["pubkey", "k"],
            ["channel", ""], ["channel", " ARCADE\n"], ["handle", " \t@ada "], ["actor", "$ADA"],
            ["score", "4200"], ["score", " +0004200 points"], ["score", 4200.9],
            ["week", "1789948800.7"]])")) {
        EXPECT_EQ(text_with(change[0].get<std::string>(), change[1]), whole) << change;
    }
    // The blank channel is trimmed only after it was found not empty.
    for (const json& change : json::parse(R"([
            ["type", " arcade_score"], ["location", "hall"], ["channel", "lobby"], ["channel", " "],
            ["handle", "@@ada"], ["actor", "bob"], ["ts", 1790000001], ["game", "other"], ["score", 4201],
            ["score", -4200], ["week", 0], ["entry", ""], ["pay_addr", "1boatSLRHtKNngkdXEeobR76b53LETtpyT"],
            ["tape_hash", "00"]])")) {
        EXPECT_NE(text_with(change[0].get<std::string>(), change[1]), whole) << change;
    }
}

// One row that holds every field of the vocabulary; each type picks its own.
TEST(Row, EachTypeHasItsBody) {
    json row = {{"channel", " Lobby "}, {"handle", "@Bob"}, {"actor", " Ada "}, {"ts", 5}};
    for (const char* const key :
         {"token",     "pic",      "cert",      "sha256",   "owner",     "prev",  "spot",
          "price",     "pic_utxo", "cert_utxo", "pay_addr", "buyer_ord", "buyer", "title_sha",
          "offer_sha", "enc_pub",  "origin",    "path",     "message",   "nonce"}) {
        row[key] = std::string("X_") + key;
    }
    row["exp"] = "-3";
    row["price_sats"] = 1e6;
    const std::pair<std::string, std::string> rows[] = {
        {"channel_lock", "x_token"},
        {"art_pair", "x_pic|x_cert|x_sha256|x_owner|5"},
        {"art_owner", "x_pic|x_cert|x_owner|x_prev|5"},
        {"art_show", "x_spot|x_pic|x_cert|x_sha256|X_price|-3|x_pic_utxo|x_cert_utxo|X_pay_addr|5"},
        {"art_hide", "x_spot|x_pic|x_cert|5"},
        {"art_gentry", "visit|5"},
        {"art_gask", "x_spot|x_pic|x_cert|1000000|X_buyer_ord|x_buyer|5"},
        {"art_gaccept", "x_spot|x_pic|x_cert|x_buyer|x_prev|1000000|x_title_sha|5"},
        {"art_gfunded", "x_spot|x_offer_sha|5"},
        {"report", "x_enc_pub"},
        {"whisper", "x_enc_pub"},
        {"Art_pair", "x_enc_pub"},
    };
    for (const auto& [type, body] : rows) {
        row["type"] = type;
        EXPECT_EQ(CanonicalMessage(row), "OV1|" + type + "|lobby|bob|ada|5|" + body);
    }
    for (const char* const web : {"web_gate", "n_button"}) {
        row["type"] = web;
        EXPECT_EQ(CanonicalMessage(row),
                  std::string("OV1|") + web + "|bob|X_origin|X_path|X_message|X_nonce");
    }
    row["handle"] = " @Bob";
    EXPECT_EQ(CanonicalMessage(row), "OV1|n_button| @bob|X_origin|X_path|X_message|X_nonce") << "no trimming";
    EXPECT_EQ(CanonicalMessage({{"type", " web_gate "}, {"origin", "x"}}), "OV1|web_gate||||0|");
    EXPECT_EQ(CanonicalMessage({{"type", "art_owner"}}), "OV1|art_owner||||0|||||0");
}

TEST(Row, MessagesAreSignedByTheirHash) {
    const std::pair<json, const char*> rows[] = {
        {{{"pmessage1", "ab"}, {"pmessage2", "c"}}, kHashOfAbc},
        {{{"pmessage8", "c"}, {"pmessage3", "ab"}, {"pmessage", "other"}}, kHashOfAbc},
        {{{"pmessage1", ""}, {"pmessage2", 7}, {"pmessage", "abc"}}, kHashOfAbc},
        {{{"pmessage9", "abc"}, {"pmessage0", "abc"}, {"pmessage", 1}}, kHashOfNothing},
        {json::object(), kHashOfNothing},
    };
    for (const char* const type : {"message", "thread_reply"}) {
        for (auto [row, hash] : rows) {
            row["type"] = type;
            EXPECT_EQ(CanonicalMessage(row), std::string("OV1|") + type + "||||0|" + hash) << row;
        }
    }
}

TEST(Row, JoinFeeHasEightDigits) {
    const std::string head = "OV1|admin_claim||||0|";
    const auto text_of = [](const json& fee) {
        return CanonicalMessage({{"type", "admin_claim"}, {"join_fee", fee}});
    };
    const std::pair<json, const char*> rows[] = {
        {5, "1.00000000"},           {0, "0.00001000"},        {-1, "0.00001000"},
        {0.123456789, "0.12345679"}, {1e300, "1.00000000"},    {" \n+.25 coins", "0.25000000"},
        {"25e-2", "0.25000000"},     {"0x1p-2", "0.25000000"}, {"-7", "0.00001000"},
    };
    for (const auto& [fee, body] : rows) EXPECT_EQ(text_of(fee), head + body) << fee;
    json none =
        json::parse(R"(["1e999", "1e-999", "0x1p9999", "", "free", "- 1", "nan", true, null, [0.5]])");
    none.push_back("1e-310");  // below the smallest normal number
    none.push_back(std::numeric_limits<double>::quiet_NaN());
    for (const json& fee : none) EXPECT_EQ(text_of(fee), head) << fee;
    EXPECT_EQ(CanonicalMessage({{"type", "admin_claim"}}), head);
}

TEST(Row, NumbersOfAnyKind) {
    const std::pair<const char*, int64_t> rows[] = {
        {"-7.9", -7},
        {"1e3", 1000},
        {"\" \\t-0012x\"", -12},
        {"\"+12\"", 12},
        {"9223372036854775807", INT64_MAX},
        {"-9223372036854775808", INT64_MIN},
        {"\"9223372036854775807\"", INT64_MAX},
        {"\"-9223372036854775808\"", INT64_MIN},
        {"9223372036854774784.0", 9223372036854774784},  // the largest double below 2^63
        {"-9223372036854775808.0", INT64_MIN},
    };
    for (const auto& [text, number] : rows) {
        EXPECT_EQ(JsonInt({{"n", json::parse(text)}}, "n"), number) << text;
    }
    json none = json::parse(R"([
            "+-12", "- 12", "0x10", "x1", "", "9223372036854775808", "-9223372036854775809",
            9223372036854775808, 18446744073709551616, 9223372036854775808.0, 1e300, -1e300,
            true, null, [1]])");
    none.push_back(std::numeric_limits<double>::quiet_NaN());
    for (const json& value : none) EXPECT_EQ(JsonInt({{"n", value}}, "n"), 0) << value;
    EXPECT_EQ(JsonInt({{"n", 1}}, "m"), 0);
}

TEST(Row, AccessorsNeverFail) {
    const json row = {{"a", "A"}, {"n", 1}, {"empty", ""}};
    EXPECT_EQ(JsonString(row, "n"), "");
    EXPECT_EQ(JsonString(row, "n", "a"), "A");
    EXPECT_EQ(JsonString(row, "empty", "a"), "") << "empty text is a value";
    for (const json& other : json::parse(R"([null, ["a"], "a", 7])")) {
        EXPECT_EQ(JsonString(other, "a", "b"), "") << other;
        EXPECT_EQ(JsonInt(other, "a"), 0) << other;
        EXPECT_EQ(CanonicalMessage(other), "OV1|||||0|") << other;
    }
    const std::pair<const char*, const char*> handles[] = {
        {" \t@ada\r\n", "ada"}, {"@@ada", "@ada"}, {"$ ada", "ada"}, {"@", ""}, {"ada@x", "ada@x"}};
    for (const auto& [text, handle] : handles) EXPECT_EQ(NormalizeHandle(text), handle) << text;
}

TEST(Row, TheTextOnChain) {
    const json row = {
        {"paymail", "\xC3\xA9@x"}, {"pay_addr", "a\"b\x01"}, {"Z", 1}, {"\xC3\xA9", json::array({1, 2})}};
    EXPECT_EQ(DumpRow(row),
              "{\"Z\":1,\"pay_addr\":\"a\\\"b\\u0001\",\"paymail\":\"\xC3\xA9@x\",\"\xC3\xA9\":[1,2]}");
    EXPECT_EQ(DumpRow({{"handle", "a\xFF"}}), "{\"handle\":\"a\xEF\xBF\xBD\"}");
}

}  // namespace
}  // namespace brickfall
