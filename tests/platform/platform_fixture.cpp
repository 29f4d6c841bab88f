#include "tests/platform/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

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
        const auto held = std::make_shared<int>();
        const WindowId window = OpenWindow({.title = "Last", .size = {100, 100}}, nullptr);
        const std::string picture = ReadFile(BRICKFALL_SOURCE_DIR "/fuzz/corpus/image/quad.png").value_or("");
        for (const bool is_there : {true, false}) {
            if (!is_there) platform_.reset();
            EXPECT_EQ(DecodeImage(picture, 2).has_value(), is_there) << "the decoders are the toolkit's";
            EXPECT_EQ(PostWindowMessage(window, 1, 0, MakePayload(held)), is_there);
            EXPECT_EQ(held.use_count(), is_there ? 2 : 1);
        }
    }

  private:
    int count_ = 1;
    char name_[15] = "platform_tests";
    char* arguments_[2] = {name_, nullptr};
    std::optional<Platform> platform_;
};

[[maybe_unused]] const auto* const environment = ::testing::AddGlobalTestEnvironment(new PlatformOffScreen);

// One word for the type, and what belongs to it.
std::string Describe(const Message& message) {
    static const char* const kTypes[] = {"create",  "destroy", "close",  "size",  "move end",
                                         "paint",   "down",    "up",     "timer", "click",
                                         "command", "wheel",   "scroll", "posted"};
    static const char* const kKeys[] = {"left",        "right",         "space",   "p",         "escape",
                                        "pointing up", "pointing down", "page up", "page down", "home",
                                        "end",         "F11",           "return",  "other"};
    const std::string type = kTypes[static_cast<int>(message.type)], id = " " + std::to_string(message.id);
    switch (message.type) {
        case MessageType::kKeyDown:
        case MessageType::kKeyUp:
            return type + " " + kKeys[static_cast<int>(message.key)] + (message.is_repeat ? " again" : "");
        case MessageType::kCommand:
            return type + id;
        case MessageType::kWheel:
            return type + " " + std::to_string(message.value);
        case MessageType::kScroll:
        case MessageType::kPosted:
            return type + id + " " + std::to_string(message.value);
        default:
            return type;
    }
}

}  // namespace

NotedWindow::NotedWindow(WindowOptions options) {
    id = OpenWindow(options, [this](WindowId, Message& message) { return OnMessage(message); });
    ShowWindow(id);
    PumpMessages();
}

NotedWindow::~NotedWindow() {
    handle = nullptr;
    DestroyWindow(id);
    PumpMessages();
}

bool NotedWindow::OnMessage(Message& message) {
    if (handle && handle(message)) return true;
    const Rect whole = {0, 0, message.size.w, message.size.h};
    switch (message.type) {
        case MessageType::kPaint:
            message.canvas->Fill(whole, Rgb(0x060C0A));
            return true;
        case MessageType::kTextStyle:
            message.style = style;
            return true;
        case MessageType::kPaintButton:
            button = message.button;
            painted_disabled = button.disabled ? message.id : painted_disabled;
            message.canvas->Fill(whole, Rgb(0x146448));
            return true;
        default:
            notes.push_back(Describe(message));
            return false;
    }
}

}  // namespace brickfall
