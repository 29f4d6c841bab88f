#include "page/page.h"

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <map>
#include <new>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "cabinet/theme.h"
#include "game/input_tape.h"
#include "page/embedded.h"
#include "page/tape_columns.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {
namespace {

using nlohmann::json;

#ifdef BRICKFALL_PAGES
std::string_view Module() { return PageModule(); }
#else
std::string_view Module() { return {}; }
#endif

// Lighter than the window's, since text on a page may be as small as its reader likes.
constexpr Color kMutedText = BlendColor(kMutedColor, kTextColor, 110);
constexpr Color kWarnText = BlendColor(kWarnColor, kTextColor, 90);

std::string ColorRules() {
    std::string rules = ":root{";
    for (const auto& [name, color] :
         {std::pair{"ground", kBgColor}, std::pair{"panel", kPanelColor}, std::pair{"header", kHeaderColor},
          std::pair{"text", kTextColor}, std::pair{"accent", kAccentColor},
          std::pair{"muted-text", kMutedText}, std::pair{"border", kBorderColor},
          std::pair{"warn-text", kWarnText}, std::pair{"gold", kGoldColor}, std::pair{"disc", kFaceDiscColor},
          std::pair{"initial", kFaceInitialColor}, std::pair{"ring", kFaceRingColor}}) {
        std::array<char, 48> rule{};
        std::snprintf(rule.data(), rule.size(), "--%s:#%02x%02x%02x;", name, color.r, color.g, color.b);
        rules += rule.data();
    }
    return rules + "}";
}

// As a browser unpacks it by itself, in characters of a page.
std::string Packed(std::span<const uint8_t> bytes) {
    uLongf size = ::compressBound(static_cast<uLong>(bytes.size()));
    std::vector<uint8_t> packed(size);
    if (::compress2(packed.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()),
                    Z_BEST_COMPRESSION) != Z_OK)
        throw std::bad_alloc();  // it has no other reason, with that much room
    packed.resize(size);
    return Base64Encode(packed);
}

// Runs of one player share a face.
using FaceNumbers = std::map<std::string_view, std::size_t>;

json RunJson(const PageRun& run, FaceNumbers& numbers, json& faces) {
    std::vector<uint8_t> tape;
    const bool decodes = !run.tape.empty() && HexToBytes(NormalizeHex(run.tape), tape);
    json told = {{"name", run.name},         {"txid", run.txid},   {"verdict", run.verdict},
                 {"recorded", run.recorded}, {"score", run.score}, {"tape", Packed(TapeToColumns(tape))},
                 {"bytes", tape.size()},     {"decodes", decodes}, {"seal", Lower(run.seal)}};
    if (!run.face.empty()) {
        const auto [number, is_new] = numbers.emplace(run.face, faces.size());
        if (is_new) faces.push_back(Base64Encode(AsBytes(run.face)));
        told["face"] = number->second;
    }
    return told;
}

// JSON that can stand in a script element: in it no "<" opens anything.
std::string ScriptSafe(const json& document) {
    std::string safe;
    for (const char c : document.dump(-1, ' ', /*ensure_ascii=*/true, json::error_handler_t::replace)) {
        if (c == '<') {
            safe += "\\u003c";
        } else {
            safe += c;
        }
    }
    return safe;
}

std::string HashSource(std::string_view text) {
    return "'sha256-" + Base64Encode(Sha256Once(AsBytes(text))) + "'";
}

// Each place of the template, in its order, so that nothing is looked for in what was filled in.
std::string FillIn(std::string_view form, std::span<const std::pair<std::string_view, std::string>> parts) {
    std::string filled;
    for (const auto& [place, text] : parts) {
        const std::size_t at = form.find(place);
        filled.append(form.substr(0, at)).append(text);
        form.remove_prefix(at + place.size());
    }
    return filled.append(form);
}

}  // namespace

std::string WhyNoPages() {
    return Module().empty() ? "this build makes no pages: it was made without a Clang for wasm32-wasi" : "";
}

std::string MakePage(const std::string& title, std::span<const PageRun> runs, const std::string& report) {
    if (runs.empty() || Module().empty()) return {};
    json data = {
        {"title", title}, {"report", report}, {"module_bytes", Module().size()}, {"runs", json::array()}};
    FaceNumbers numbers;
    json faces = json::array();
    for (const PageRun& run : runs) data["runs"].push_back(RunJson(run, numbers, faces));
    const bool has_faces = !faces.empty();
    data["faces"] = std::move(faces);
    const std::string style = ColorRules() + std::string(PageStyle());
    const std::string script(PageScript());
    const std::string policy = "default-src 'none'; script-src " + HashSource(script) +
                               " 'wasm-unsafe-eval'; style-src " + HashSource(style) +
                               (has_faces ? "; img-src data:" : "") + "; base-uri 'none'; form-action 'none'";
    const std::pair<std::string_view, std::string> parts[] = {{"@POLICY@", policy},
                                                              {"@STYLE@", style},
                                                              {"@DATA@", ScriptSafe(data)},
                                                              {"@MODULE@", Packed(AsBytes(Module()))},
                                                              {"@SCRIPT@", script}};
    return FillIn(PageTemplate(), parts);
}

}  // namespace brickfall
