#include "messages/row.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <system_error>

#include "base/text.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::string_view kTag = "OV1|";
constexpr double kLowestJoinFee = 0.00001;
constexpr double kHighestJoinFee = 1.0;
constexpr int kJoinFeeDigits = 8;
constexpr int kMessageParts = 8;

// How a field becomes a piece of the body.
enum class Form {
    kText,     // as it stands
    kLower,    // lower-cased
    kInteger,  // in decimal
    kLiteral,  // the key itself
};

struct Piece {
    std::string_view key;
    Form form = Form::kText;
};

struct BodyRule {
    std::string_view type;
    Piece pieces[10];  // ends at the first without a key
};

constexpr auto kText = Form::kText;
constexpr auto kLower = Form::kLower;
constexpr auto kInteger = Form::kInteger;

// The types whose body is a plain list of fields. The score row has one more piece when it has a seal.
constexpr BodyRule kBodyRules[] = {
    {"arcade_score",
     {{"game", kLower}, {"score", kInteger}, {"week", kInteger}, {"entry", kLower}, {"pay_addr", kText}}},
    {"channel_lock", {{"token", kLower}}},
    {"art_pair",
     {{"pic", kLower}, {"cert", kLower}, {"sha256", kLower}, {"owner", kLower}, {"ts", kInteger}}},
    {"art_owner", {{"pic", kLower}, {"cert", kLower}, {"owner", kLower}, {"prev", kLower}, {"ts", kInteger}}},
    {"art_show",
     {{"spot", kLower},
      {"pic", kLower},
      {"cert", kLower},
      {"sha256", kLower},
      {"price", kText},
      {"exp", kInteger},
      {"pic_utxo", kLower},
      {"cert_utxo", kLower},
      {"pay_addr", kText},
      {"ts", kInteger}}},
    {"art_hide", {{"spot", kLower}, {"pic", kLower}, {"cert", kLower}, {"ts", kInteger}}},
    {"art_gentry", {{"visit", Form::kLiteral}, {"ts", kInteger}}},
    {"art_gask",
     {{"spot", kLower},
      {"pic", kLower},
      {"cert", kLower},
      {"price_sats", kInteger},
      {"buyer_ord", kText},
      {"buyer", kLower},
      {"ts", kInteger}}},
    {"art_gaccept",
     {{"spot", kLower},
      {"pic", kLower},
      {"cert", kLower},
      {"buyer", kLower},
      {"prev", kLower},
      {"price_sats", kInteger},
      {"title_sha", kLower},
      {"ts", kInteger}}},
    {"art_gfunded", {{"spot", kLower}, {"offer_sha", kLower}, {"ts", kInteger}}},
};

constexpr BodyRule kOtherTypes = {"", {{"enc_pub", kLower}}};

const std::string* FindText(const json& row, std::string_view key) {
    const json* const value = FindJsonKey(row, key);
    return value == nullptr ? nullptr : value->get_ptr<const std::string*>();
}

// As strtoll in base 10, but 0 when the number is out of range, and free of the locale.
int64_t LeadingInteger(std::string_view text) {
    text = StripFront(text, " \t\n\v\f\r");
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return 0;
    }
    int64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    return fault == std::errc() ? number : 0;
}

// As strtod, free of the locale: white space, a sign, and the longest number behind them, in decimal or in
// hexadecimal. Nothing when there is none, when it is out of range, or when it is "nan".
std::optional<double> LeadingDouble(std::string_view text) {
    text = StripFront(text, " \t\n\v\f\r");
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
    const char* const end = text.data() + text.size();
    double number = 0;
    auto read = std::from_chars(text.data(), end, number);
    if (text.starts_with("0x") || text.starts_with("0X")) {
        double hexadecimal = 0;
        const auto read_hex = std::from_chars(text.data() + 2, end, hexadecimal, std::chars_format::hex);
        // "0x" with no digit behind it is the number 0.
        if (read_hex.ec != std::errc::invalid_argument && text.substr(2).find_first_of("-iInN") != 0) {
            read = read_hex;
            number = hexadecimal;
        }
    }
    if (read.ec != std::errc() || std::isnan(number)) return std::nullopt;
    if (number != 0 && number < std::numeric_limits<double>::min()) return std::nullopt;
    return negative ? -number : number;
}

std::string JoinFeeText(const json& row) {
    const json* const value = FindJsonKey(row, "join_fee");
    if (value == nullptr) return {};
    std::optional<double> fee;
    if (value->is_number()) {
        fee = value->get<double>();
    } else if (const auto* const text = value->get_ptr<const std::string*>()) {
        fee = LeadingDouble(*text);
    }
    if (!fee || std::isnan(*fee)) return {};
    char digits[16];
    const auto end =
        std::to_chars(std::begin(digits), std::end(digits), std::clamp(*fee, kLowestJoinFee, kHighestJoinFee),
                      std::chars_format::fixed, kJoinFeeDigits);
    return {digits, end.ptr};
}

// Stands for the message in the signed text, so that the message itself stays out of it.
std::string MessageHash(const json& row) {
    std::string message;
    for (int part = 1; part <= kMessageParts; ++part) {
        if (const auto* const text = FindText(row, "pmessage" + std::to_string(part))) message += *text;
    }
    if (message.empty()) message = JsonString(row, "pmessage");
    return HexEncode(Sha256Once(AsBytes(message)));
}

std::string PieceText(const json& row, const Piece& piece) {
    switch (piece.form) {
        case Form::kText:
            return JsonString(row, piece.key);
        case Form::kLower:
            return Lower(JsonString(row, piece.key));
        case Form::kInteger:
            return std::to_string(JsonInt(row, piece.key));
        case Form::kLiteral:
            return std::string(piece.key);
    }
    return {};
}

std::string BodyOf(const json& row, std::string_view type) {
    if (type == "message" || type == "thread_reply") return MessageHash(row);
    if (type == "admin_claim") return JoinFeeText(row);
    const auto* const known = std::find_if(std::begin(kBodyRules), std::end(kBodyRules),
                                           [type](const BodyRule& rule) { return rule.type == type; });
    const BodyRule& rule = known == std::end(kBodyRules) ? kOtherTypes : *known;
    std::string body;
    for (const Piece& piece : rule.pieces) {
        if (piece.key.empty()) break;
        if (&piece != &rule.pieces[0]) body += '|';
        body += PieceText(row, piece);
    }
    if (type == "arcade_score") {
        const std::string seal = Lower(JsonString(row, "tape_hash"));
        if (!seal.empty()) body += '|' + seal;
    }
    return body;
}

std::string WebMessage(const json& row, std::string_view type) {
    std::string handle = JsonString(row, "handle");
    if (handle.starts_with('@')) handle.erase(0, 1);
    std::string message(kTag);
    message.append(type).append("|").append(Lower(handle));
    for (const std::string_view key : {"origin", "path", "message", "nonce"}) {
        message.append("|").append(JsonString(row, key));
    }
    return message;
}

}  // namespace

std::string JsonString(const json& row, std::string_view key, std::string_view alt_key) {
    const std::string* text = FindText(row, key);
    if (text == nullptr && !alt_key.empty()) text = FindText(row, alt_key);
    return text == nullptr ? std::string() : *text;
}

int64_t JsonInt(const json& row, std::string_view key) {
    const json* const value = FindJsonKey(row, key);
    if (value == nullptr) return 0;
    if (const auto* const number = value->get_ptr<const json::number_unsigned_t*>()) {
        return *number <= uint64_t{INT64_MAX} ? static_cast<int64_t>(*number) : 0;
    }
    if (const auto* const number = value->get_ptr<const json::number_integer_t*>()) return *number;
    if (const auto* const number = value->get_ptr<const json::number_float_t*>()) {
        // Both bounds are powers of two and so exact; NaN fails the comparison.
        return *number >= -0x1p63 && *number < 0x1p63 ? static_cast<int64_t>(*number) : 0;
    }
    if (const auto* const text = value->get_ptr<const std::string*>()) return LeadingInteger(*text);
    return 0;
}

std::string NormalizeHandle(std::string_view text) {
    text = Trim(text);
    if (text.starts_with('@') || text.starts_with('$')) text.remove_prefix(1);
    return std::string(Trim(text));
}

std::string CanonicalMessage(const json& row) {
    const std::string type = JsonString(row, "type");
    if (type == "web_gate" || type == "n_button") return WebMessage(row, type);

    std::string channel = JsonString(row, "channel");
    if (channel.empty()) channel = JsonString(row, "location");
    std::string message(kTag);
    message.append(Trim(type)).append("|");
    message.append(Lower(Trim(channel))).append("|");
    message.append(Lower(NormalizeHandle(JsonString(row, "handle")))).append("|");
    message.append(Lower(NormalizeHandle(JsonString(row, "actor")))).append("|");
    message.append(std::to_string(JsonInt(row, "ts"))).append("|");
    return message.append(BodyOf(row, type));
}

std::string DumpRow(const json& row) {
    return row.dump(-1, ' ', /*ensure_ascii=*/false, json::error_handler_t::replace);
}

}  // namespace brickfall
