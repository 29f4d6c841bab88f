#include "tests/platform/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "base/files.h"

namespace brickfall {
namespace {

// The platform is there once a process, for all tests.
class PlatformOffScreen : public ::testing::Environment {
  public:
    void SetUp() override {
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
        ::unsetenv("QT_SCALE_FACTOR");
        platform_.emplace(count_, arguments_);
    }

    // What is under way when the program ends is freed, and what comes later is refused.
    void TearDown() override {
        std::atomic<int> alive = 0;
        const WindowId window = OpenWindow({.title = "Last", .size = {100, 100}}, nullptr);
        EXPECT_TRUE(PostWindowMessage(window, 1, 0, std::make_unique<Counted>(alive)));
        EXPECT_EQ(alive, 1);
        const std::string picture = ReadFile(BRICKFALL_SOURCE_DIR "/fuzz/corpus/image/quad.png").value_or("");
        EXPECT_TRUE(DecodeImage(picture, 2));
        platform_.reset();
        EXPECT_FALSE(DecodeImage(picture, 2)) << "the toolkit's decoders are gone";
        EXPECT_EQ(alive, 0);
        EXPECT_FALSE(WindowExists(window));
        EXPECT_FALSE(PostWindowMessage(window, 1, 0, std::make_unique<Counted>(alive)));
        EXPECT_EQ(alive, 0);
    }

  private:
    int count_ = 1;
    char name_[15] = "platform_tests";
    char* arguments_[2] = {name_, nullptr};
    std::optional<Platform> platform_;
};

[[maybe_unused]] const auto* const environment = ::testing::AddGlobalTestEnvironment(new PlatformOffScreen);

}  // namespace

std::string Describe(const Message& message) {
    static const char* const keys[] = {"left", "right", "space", "p", "escape", "other"};
    const std::string key = keys[static_cast<int>(message.key)];
    const std::string id = std::to_string(message.id);
    switch (message.type) {
        case MessageType::kCreate:
            return "create";
        case MessageType::kDestroy:
            return "destroy";
        case MessageType::kClose:
            return "close";
        case MessageType::kSize:
            return "size " + std::to_string(message.size.w) + " " + std::to_string(message.size.h);
        case MessageType::kMoveEnd:
            return "move end";
        case MessageType::kPaint:
            return "paint";
        case MessageType::kKeyDown:
            return "down " + key + (message.is_repeat ? " again" : "");
        case MessageType::kKeyUp:
            return "up " + key;
        case MessageType::kTimer:
            return "timer " + id;
        case MessageType::kCommand:
            return "command " + id;
        case MessageType::kScroll:
            return "scroll " + id + " " + std::to_string(message.value);
        case MessageType::kPosted:
            return "posted " + id + " " + std::to_string(message.value);
        case MessageType::kTextStyle:
            return "style " + id;
        case MessageType::kPaintButton:
            return "button " + id;
    }
    return "?";
}

NotedWindow::NotedWindow(WindowOptions options, bool show) {
    id = OpenWindow(options, [this](WindowId, Message& message) { return OnMessage(message); });
    if (show) ShowWindow(id);
    PumpMessages();
}

NotedWindow::~NotedWindow() {
    handle = nullptr;
    DestroyWindow(id);
    PumpMessages();
}

bool NotedWindow::OnMessage(Message& message) {
    if (handle && handle(message)) return true;
    switch (message.type) {
        case MessageType::kPaint:
            message.canvas->Fill({0, 0, message.size.w, message.size.h}, Rgb(0x060C0A));
            return true;
        case MessageType::kTextStyle:
            message.style = style;
            return true;
        case MessageType::kPaintButton:
            button = message.button;
            painted_disabled = button.disabled ? message.id : painted_disabled;
            message.canvas->Fill({0, 0, message.size.w, message.size.h}, Rgb(0x146448));
            return true;
        default:
            notes.push_back(Describe(message));
            return false;
    }
}

Color PixelOf(const Image& image, int x, int y) {
    const auto at =
        static_cast<std::size_t>(y) * static_cast<std::size_t>(image.w) + static_cast<std::size_t>(x);
    return at < image.pixels.size() ? Rgb(image.pixels[at] & 0xFFFFFF) : Color{};
}

int Inked(const Image& image, const Rect& rect, Color background) {
    int inked = 0;
    for (int y = rect.y; y < rect.Bottom(); ++y) {
        for (int x = rect.x; x < rect.Right(); ++x) inked += !(PixelOf(image, x, y) == background);
    }
    return inked;
}

void PrintTo(const Color& color, std::ostream* out) {
    *out << int{color.r} << "," << int{color.g} << "," << int{color.b};
}

void PrintTo(const Size& size, std::ostream* out) { *out << size.w << "x" << size.h; }

void PrintTo(const Rect& rect, std::ostream* out) {
    *out << rect.x << "," << rect.y << " " << rect.w << "x" << rect.h;
}

}  // namespace brickfall
