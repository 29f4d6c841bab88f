#include "cabinet/update_check.h"

#include <locale.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

#include "base/text.h"
#include "deployment/deployment.h"
#include "net/http_client.h"

namespace brickfall {
namespace {

constexpr std::size_t kPageTail = 24'000;
constexpr int32_t kMaxBuild = std::numeric_limits<int32_t>::max();
constexpr std::string_view kVersionWord = "version";

void ReplaceAll(std::string& text, std::string_view from, std::string_view to) {
    std::string replaced;
    std::size_t at = 0;
    for (std::size_t found; (found = text.find(from, at)) != std::string::npos; at = found + from.size()) {
        replaced.append(text, at, found - at).append(to);
    }
    replaced.append(text, at);
    text = std::move(replaced);
}

std::string StripTags(std::string_view text) {
    std::string stripped;
    bool in_tag = false;
    for (const char c : text) {
        if (c == '>') {
            stripped += ' ';
            in_tag = false;
        } else if (c == '<') {
            in_tag = true;
        } else if (!in_tag) {
            stripped += c;
        }
    }
    return stripped;
}

// Where the version's word stands, or npos.
std::size_t FindMark(const std::string& lower) {
    const std::size_t current = lower.find("current build");
    if (current != std::string::npos) {
        const std::size_t mark = lower.find(kVersionWord, current);
        if (mark != std::string::npos) return mark;
    }
    return lower.rfind(kVersionWord);
}

bool IsDigitOrPoint(char c) { return (c >= '0' && c <= '9') || c == '.'; }

// Read without the user's locale, in which a comma may part the decimals.
int32_t BuildFromDecimal(const std::string& text) {
    static const locale_t c_locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    const double number = ::strtod_l(text.c_str(), &end, c_locale);
    if (end == text.c_str() || !(number >= 0)) return -1;
    const double build = std::round(number * 1000);
    return build <= kMaxBuild ? static_cast<int32_t>(build) : -1;
}

int32_t BuildFromInteger(const std::string& text) {
    char* end = nullptr;
    const long long number = std::strtoll(text.c_str(), &end, 10);  // beyond its range: its limits
    return end != text.c_str() && number >= 0 && number <= kMaxBuild ? static_cast<int32_t>(number) : -1;
}

}  // namespace

int32_t FindPageBuild(std::string_view page_text) {
    if (page_text.size() > kPageTail) page_text.remove_prefix(page_text.size() - kPageTail);
    std::string page(page_text);
    for (const char* const blank : {"&nbsp;", "&#160;", "&NBSP;"}) ReplaceAll(page, blank, " ");
    const std::string text = Lower(StripTags(page));
    std::size_t at = FindMark(text);
    if (at == std::string::npos) return -1;
    at = text.find_first_not_of(" :=\t", at + kVersionWord.size());
    if (at == std::string::npos) return -1;
    std::size_t end = at;
    while (end < text.size() && IsDigitOrPoint(text[end])) ++end;
    return end > at ? ParseBuild(std::string_view(text).substr(at, end - at)) : -1;
}

int32_t ParseBuild(std::string_view text) {
    const auto is_blank = [](char c) { return static_cast<unsigned char>(c) <= 32; };
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    const std::string number(text);
    return number.find('.') != std::string::npos ? BuildFromDecimal(number) : BuildFromInteger(number);
}

std::string VersionText(bool update_available) {
    return update_available ? std::string("Update available, ") + kDownloadPageUrl
                            : "Version " + FormatBuild(kBuildNumber);
}

std::string UpdateQuestion(int32_t latest) {
    return "A newer Brickfall is available.\n\nThis build:  " + FormatBuild(kBuildNumber) +
           "\nLatest:      " + FormatBuild(latest) + "\n\nOpen " + kDownloadPageUrl + " to download it?";
}

int32_t LatestBuild() {
    std::string page;
    return FetchText(kDownloadPageUrl, page, kMaxPageBytes) ? FindPageBuild(page) : -1;
}

}  // namespace brickfall
