#include "base/foreign_json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace brickfall {
namespace {

using nlohmann::json;

// Hears the parser's events and builds what a ListShape asks for.
class ListReader {
  public:
    ListReader(const ListShape& shape, const std::function<bool(const json&)>& take)
        : shape_(shape), take_(take) {}

    bool Found() const { return found_; }

    // The parser's interface: false ends the parsing.
    bool null() { return Scalar(nullptr); }
    bool boolean(bool value) { return Scalar(value); }
    bool number_integer(json::number_integer_t value) { return Scalar(value); }
    bool number_unsigned(json::number_unsigned_t value) { return Scalar(value); }
    bool number_float(json::number_float_t value, const std::string&) { return Scalar(value); }
    bool string(std::string& value) { return IsPassedOver() || Scalar(std::move(value)); }
    bool binary(json::binary_t&) { return false; }
    bool start_object(std::size_t) { return Open(json::value_t::object); }
    bool start_array(std::size_t) { return Open(json::value_t::array); }
    bool end_object() { return Close(); }
    bool end_array() { return Close(); }

    bool key(std::string& name) {
        if (list_depth_ == 0) {
            names_list_ = depth_ == 1 && !shape_.key.empty() && name == shape_.key;
        } else if (passed_over_ == 0) {
            is_wanted_ =
                std::find(shape_.members.begin(), shape_.members.end(), name) != shape_.members.end();
            member_ = std::move(name);
        }
        return true;
    }

    bool parse_error(std::size_t, const std::string&, const json::exception&) { return false; }

  private:
    // Whether a value that comes now is no part of what is built.
    bool IsPassedOver() const {
        return list_depth_ == 0 || passed_over_ > 0 ||
               (!open_.empty() && open_.back()->is_object() && !is_wanted_);
    }

    // Puts the value where it belongs; nullptr when the element has become too large.
    json* Build(json value) {
        if (open_.empty()) {
            built_ = 1;
            return &(element_ = std::move(value));
        }
        if (++built_ > kMaxElementValues) return nullptr;
        json& container = *open_.back();
        if (container.is_object()) return &(container[member_] = std::move(value));
        container.push_back(std::move(value));
        return &container.back();
    }

    bool Scalar(json value) {
        if (IsPassedOver()) return true;
        if (Build(std::move(value)) == nullptr) return false;
        return !open_.empty() || take_(element_);
    }

    bool Open(json::value_t type) {
        ++depth_;
        if (list_depth_ == 0) {
            const bool is_list = depth_ == 1 ? shape_.root_is_list : depth_ == 2 && names_list_;
            if (is_list && type == json::value_t::array) {
                list_depth_ = depth_;
                found_ = true;
            }
            return true;
        }
        if (IsPassedOver()) {
            ++passed_over_;
            return true;
        }
        json* const container = open_.size() < kMaxElementDepth ? Build(type) : nullptr;
        if (container == nullptr) return false;
        open_.push_back(container);
        return true;
    }

    bool Close() {
        const bool ends_list = depth_ == list_depth_;
        --depth_;
        if (ends_list) {
            list_depth_ = 0;
            names_list_ = false;
            return true;
        }
        if (list_depth_ == 0) return true;
        if (passed_over_ > 0) {
            --passed_over_;
            return true;
        }
        open_.pop_back();
        return !open_.empty() || take_(element_);
    }

    const ListShape& shape_;
    const std::function<bool(const json&)>& take_;
    bool found_ = false;
    std::size_t depth_ = 0;        // open containers of the document
    std::size_t list_depth_ = 0;   // of them, the list itself is this one; 0: not in it
    std::size_t passed_over_ = 0;  // open containers that are not built
    bool names_list_ = false;      // the root's present member is the list's
    bool is_wanted_ = false;       // the innermost built object's present member is to be built
    std::string member_;           // and its key
    json element_;
    std::size_t built_ = 0;    // values of the element
    std::vector<json*> open_;  // its open containers, the outermost first
};

}  // namespace

bool IsWithinLimits(std::string_view text, const JsonLimits& limits) {
    if (text.size() > limits.bytes) return false;
    std::size_t depth = 0;
    std::size_t values = 0;
    std::size_t token_begin = 0;
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (in_string) {
            if (c == '\\') {
                ++at;
            } else if (c == '"') {
                in_string = false;
            }
            continue;  // a token's length is looked at where the next begins
        }
        switch (c) {
            case '"':
                in_string = true;
                break;
            case '[':
            case '{':
                if (++depth > limits.depth || ++values > limits.values) return false;
                break;
            case ']':
            case '}':
                if (depth > 0) --depth;
                break;
            case ',':  // an element or a member follows; the first of each is counted with its bracket
                if (++values > limits.values) return false;
                break;
            case ':':
            case ' ':
            case '\t':
            case '\r':
            case '\n':
                break;
            default:
                continue;  // within a number or a word
        }
        if (at - token_begin > kMaxJsonTokenBytes) return false;
        token_begin = at;
    }
    return text.size() - token_begin <= kMaxJsonTokenBytes;
}

json ParseForeignJson(std::string_view text, const JsonLimits& limits) {
    if (!IsWithinLimits(text, limits)) return json(json::value_t::discarded);
    return json::parse(text, nullptr, /*allow_exceptions=*/false);
}

bool ForEachElement(std::string_view text, const ListShape& shape, const JsonLimits& limits,
                    const std::function<bool(const json&)>& take) {
    if (!IsWithinLimits(text, limits)) return false;
    ListReader reader(shape, take);
    return json::sax_parse(text, &reader) && reader.Found();
}

}  // namespace brickfall
