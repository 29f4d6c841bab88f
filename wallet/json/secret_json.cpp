#include "wallet/json/secret_json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "base/text.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kBlank = 'x';

// The short escapes and what they mean; the last is read, and never written.
constexpr std::string_view kEscapeNames = "\"\\bfnrt/";
constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t/";

bool IsLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Walks the string literals of a JSON text. It judges nothing: a text that is no JSON is for the parser.
class LiteralWalk {
  public:
    // The parser takes a zero byte for the end of the text, so that nothing behind one counts.
    explicit LiteralWalk(std::string_view text) : text_(text.substr(0, text.find('\0'))) {}

    // Moves to the next literal; false at the end of the text.
    bool Next() {
        lowest_depth_ = depth_;
        for (; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (c == '"') {
                begin_ = ++at_;
                SkipLiteral();
                return true;
            }
            if (c == '{' || c == '[') ++depth_;
            if (c == '}' || c == ']') lowest_depth_ = std::min(lowest_depth_, --depth_);
        }
        return false;
    }

    std::size_t Begin() const { return begin_; }
    std::size_t Length() const { return length_; }
    int Depth() const { return depth_; }
    int LowestDepth() const { return lowest_depth_; }  // since the literal before

    bool IsKey() const {
        const std::size_t next = text_.find_first_not_of(" \t\r\n", at_);
        return next != std::string_view::npos && text_[next] == ':';
    }

  private:
    // A literal that does not end reaches to the end of the text.
    void SkipLiteral() {
        while (at_ < text_.size() && text_[at_] != '"') at_ += text_[at_] == '\\' ? 2 : 1;
        at_ = std::min(at_, text_.size());
        length_ = at_ - begin_;
        if (at_ < text_.size()) ++at_;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t begin_ = 0;
    std::size_t length_ = 0;
    int depth_ = 0;
    int lowest_depth_ = 0;
};

// Replaces each letter and digit, the ones written as \uXXXX too. What else makes the literal well-formed, or
// not, stays for the parser to see.
void BlankLiteral(std::span<char> literal) {
    for (std::size_t at = 0; at < literal.size(); ++at) {
        if (literal[at] != '\\') {
            if (IsLetterOrDigit(literal[at])) literal[at] = kBlank;
            continue;
        }
        const bool is_code = at + 5 < literal.size() && literal[at + 1] == 'u';
        const bool is_ascii = is_code && literal[at + 2] == '0' && literal[at + 3] == '0' &&
                              literal[at + 4] >= '0' && literal[at + 4] <= '7' &&
                              HexDigitValue(literal[at + 5]) >= 0;
        if (is_ascii) {
            literal[at + 4] = '7';
            literal[at + 5] = '8';
        }
        at += is_code ? 5 : 1;
    }
}

void AppendEscaped(SecretString& out, char c) {
    const auto byte = static_cast<uint8_t>(c);
    if (const std::size_t place = kEscaped.find(c); place < kEscaped.size() - 1) {
        out.push_back('\\');
        out.push_back(kEscapeNames[place]);
    } else if (byte < 0x20) {
        out.append("\\u00");
        AppendHex(out, std::span(&byte, 1));
    } else {
        out.push_back(c);
    }
}

uint32_t CodeUnit(std::string_view digits) {
    uint32_t unit = 0;
    for (const char digit : digits) unit = unit << 4 | static_cast<uint32_t>(HexDigitValue(digit) & 15);
    return unit;
}

void AppendUtf8(SecretString& out, uint32_t code) {
    const auto tail = [&out, code](uint32_t shift) {
        out.push_back(static_cast<char>(0x80 | (code >> shift & 0x3F)));
    };
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | code >> 6));
        tail(0);
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | code >> 12));
        tail(6);
        tail(0);
    } else {
        out.push_back(static_cast<char>(0xF0 | code >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

// The text of a literal that the parser has found well-formed.
SecretString Unescape(std::string_view literal) {
    SecretString text;
    text.reserve(literal.size());
    for (std::size_t at = 0; at < literal.size(); ++at) {
        if (literal[at] != '\\') {
            text.push_back(literal[at]);
            continue;
        }
        const char name = literal[++at];
        if (name != 'u') {
            text.push_back(kEscaped[kEscapeNames.find(name)]);
            continue;
        }
        uint32_t code = CodeUnit(literal.substr(at + 1, 4));
        at += 4;
        if (code >= 0xD800 && code < 0xDC00) {  // the first half of a pair
            code = 0x10000 + ((code - 0xD800) << 10) + (CodeUnit(literal.substr(at + 3, 4)) - 0xDC00);
            at += 6;
        }
        AppendUtf8(text, code);
    }
    return text;
}

// Which of the secrets a key literal names, or nullptr. A key is no secret and may be read by the library.
SecretMember* FindMember(std::span<SecretMember> secrets, std::string_view literal) {
    std::string key(literal);
    if (key.find('\\') != std::string::npos) {
        const json decoded = ParseForeignJson('"' + key + '"', kStoreLimits);
        if (decoded.is_string()) key = decoded.get<std::string>();
    }
    const auto found = std::find_if(secrets.begin(), secrets.end(),
                                    [&key](const SecretMember& member) { return member.key == key; });
    return found == secrets.end() ? nullptr : &*found;
}

}  // namespace

json ParseWithSecrets(SecretString& text, std::span<SecretMember> secrets) {
    std::vector<SecretString> literals(secrets.size());  // the last of each key, as written
    SecretMember* member = nullptr;                      // whose value the walk is in
    int member_depth = 0;
    LiteralWalk walk(text);
    while (walk.Next()) {
        const std::string_view literal = std::string_view(text).substr(walk.Begin(), walk.Length());
        if (walk.LowestDepth() < member_depth) member = nullptr;
        const bool below_member = member != nullptr && walk.Depth() > member_depth;
        if (walk.IsKey() && !below_member) {
            member = FindMember(secrets, literal);
            member_depth = walk.Depth();
            continue;
        }
        if (member == nullptr) continue;
        if (walk.Depth() == 1) literals[static_cast<std::size_t>(member - secrets.data())] = literal;
        BlankLiteral(std::span(text).subspan(walk.Begin(), walk.Length()));
    }

    json document = ParseForeignJson(text, kStoreLimits);
    for (std::size_t i = 0; i < secrets.size(); ++i) {
        WipeString(secrets[i].value);
        const json* value = FindJsonKey(document, std::string(secrets[i].key).c_str());
        if (value != nullptr && value->is_string()) secrets[i].value = Unescape(literals[i]);
    }
    return document;
}

SecretString InsertSecret(std::string_view text, std::string_view key, std::string_view secret) {
    const std::string member = '"' + std::string(key) + "\": \"";
    const std::size_t place = text.find(member + '"');
    SecretString out;
    out.reserve(text.size() + 6 * secret.size());
    out.append(text.substr(0, place == std::string_view::npos ? place : place + member.size()));
    if (place == std::string_view::npos) return out;
    for (const char c : secret) AppendEscaped(out, c);
    out.append(text.substr(place + member.size()));
    return out;
}

}  // namespace brickfall
