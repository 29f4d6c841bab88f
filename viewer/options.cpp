#include "viewer/options.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace brickfall {

const char* const kViewHelp =
    R"(usage: brickfall-view [RUN [SECOND]] [--keep FILE]
       brickfall-view RUN [SECOND] --export FILE.mkv | --frames FOLDER | --poster FILE.png
       brickfall-view [RUN] --page FILE.html

Shows a recorded run. RUN is the id of its transaction, a file with its row, or a file of transactions; without
it the runs of this week's board are there to choose from. SECOND is shown in the first one's field in outlines.

  --keep FILE      the board is written to FILE, and read from it where the services do not answer
  --export FILE    a film, .mkv or .mp4, with sound, at 60 pictures a second; needs ffmpeg
  --frames FOLDER  the same as single pictures
  --poster FILE    one picture of the run for sharing, with a code of its transaction
  --page FILE      a page that replays the run in any browser and loads nothing; without RUN, the whole board
  --size WxH       of film and frames, from 320x320 to 3840x2160; else 1280x720
  --from SECONDS   where the film begins
  --for SECONDS    how long it is; else to the end
  --inputs         shows what is pressed, and the tick
  --help           this text
  --version        the build

In the window: Space plays and pauses, Left and Right go by a step, Page Up and Page Down by an event, Home and
End by a lost ball or a cleared level, Up and Down change the speed, F11 fills the screen.
)";

namespace {

std::optional<Size> ParseSize(std::string_view text) {
    const std::size_t by = text.find('x');
    if (by == std::string_view::npos) return std::nullopt;
    Size size;
    const auto read = [](std::string_view digits, int& side) {
        const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), side);
        return fault == std::errc() && end == digits.data() + digits.size();
    };
    if (!read(text.substr(0, by), size.w) || !read(text.substr(by + 1), size.h)) return std::nullopt;
    const bool fits = size.w >= kSmallestSide && size.h >= kSmallestSide && size.w <= kLargestPicture.w &&
                      size.h <= kLargestPicture.h;
    return fits ? std::optional(size) : std::nullopt;
}

// Whole seconds or with a fraction; a run lasts at most 49.7 days.
std::optional<uint64_t> ParseSeconds(std::string_view text) {
    double seconds = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (fault != std::errc() || end != text.data() + text.size() || !(seconds >= 0 && seconds <= 5e6))
        return std::nullopt;
    return static_cast<uint64_t>(std::llround(seconds * 1'000));
}

bool EndsIn(std::string_view path, std::string_view ending) {
    return path.size() > ending.size() && path.ends_with(ending);
}

}  // namespace

bool ParseViewOptions(std::span<char* const> arguments, ViewOptions& options, std::string& error) {
    options = {};
    error.clear();
    const auto fail = [&error](std::string why) {
        error = std::move(why);
        return false;
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string argument = arguments[i];
        if (argument == "--inputs" || argument == "--help" || argument == "--version") {
            (argument == "--inputs" ? options.inputs
             : argument == "--help" ? options.help
                                    : options.version) = true;
            continue;
        }
        if (!argument.starts_with("--")) {
            if (argument.empty() || !options.second.empty())
                return fail("too many runs: \"" + argument + "\"");
            (options.run.empty() ? options.run : options.second) = argument;
            continue;
        }
        std::string* const text = argument == "--keep"     ? &options.keep
                                  : argument == "--export" ? &options.film
                                  : argument == "--frames" ? &options.frames
                                  : argument == "--poster" ? &options.poster
                                  : argument == "--page"   ? &options.page
                                                           : nullptr;
        if (text == nullptr && argument != "--size" && argument != "--from" && argument != "--for")
            return fail("unknown argument \"" + argument + "\"");
        if (i + 1 >= arguments.size() || arguments[i + 1][0] == '\0')
            return fail(argument + " needs a value");
        const std::string value = arguments[++i];
        if (text != nullptr) {
            *text = value;
        } else if (argument == "--size") {
            const std::optional<Size> size = ParseSize(value);
            if (!size) return fail("no size from 320x320 to 3840x2160: \"" + value + "\"");
            options.size = *size;
        } else {
            const std::optional<uint64_t> milliseconds = ParseSeconds(value);
            if (!milliseconds || (argument == "--for" && *milliseconds == 0))
                return fail("no number of seconds: \"" + value + "\"");
            (argument == "--from" ? options.from_ms : options.for_ms) = *milliseconds;
        }
    }
    if (!options.film.empty() && !EndsIn(options.film, ".mkv") && !EndsIn(options.film, ".mp4"))
        return fail("a film's name ends in .mkv or .mp4: \"" + options.film + "\"");
    if (!options.poster.empty() && !EndsIn(options.poster, ".png"))
        return fail("a poster's name ends in .png: \"" + options.poster + "\"");
    if (!options.page.empty() && (options.Exports() || !options.second.empty()))
        return fail("a page is made by itself, and shows one run at a time");
    if (options.Exports() && options.run.empty()) return fail("name the run that is to be exported");
    return true;
}

}  // namespace brickfall
