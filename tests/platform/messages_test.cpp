// Posted messages: from any thread, in order, and nothing of them left behind on any path.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

TEST(Messages, FreeTheirPayloadOnEveryPath) {
    std::atomic<int> alive = 0;
    NotedWindow window;
    const auto post = [&](int number, int64_t value = 0) {
        return PostWindowMessage(window.id, number, value, std::make_unique<Counted>(alive));
    };
    EXPECT_TRUE(post(1, 10));
    EXPECT_EQ(alive, 1);
    PumpMessages();
    EXPECT_EQ(alive, 0) << "nobody took it";

    std::unique_ptr<Payload> kept;
    window.handle = [&](Message& message) {
        if (message.type == MessageType::kPosted) kept = std::move(message.payload);
        return false;
    };
    EXPECT_TRUE(post(2, -20));
    EXPECT_EQ(window.TakePumped(), (Notes{"create", "posted 1 10", "posted 2 -20"}));
    EXPECT_EQ(alive, 1);
    kept.reset();

    // A message to a window that its own predecessor destroys.
    window.handle = [&](Message& message) {
        if (message.type == MessageType::kPosted) DestroyWindow(window.id);
        return true;
    };
    EXPECT_TRUE(post(3) && post(4));
    PumpMessages();
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(post(5));
    EXPECT_FALSE(PostWindowMessage(0, 6, 0, std::make_unique<Counted>(alive)));
    EXPECT_EQ(alive, 0);

    const std::unique_ptr<Payload> text = MakePayload(std::string("text"));
    EXPECT_EQ(TakePayload<int>(text), 0) << "of another type";
    EXPECT_EQ(TakePayload<std::string>(text), "text");
    EXPECT_EQ(TakePayload<std::string>(nullptr), "");
}

TEST(Messages, ArriveFromManyThreadsInTheOrderOfEachUntilTheWindowGoes) {
    constexpr int kThreads = 3, kMessages = 2'000;
    std::atomic<int> alive = 0, running = kThreads;
    int last[kThreads] = {-1, -1, -1}, arrived = 0;
    NotedWindow window;
    window.handle = [&](Message& message) {
        if (message.type != MessageType::kPosted) return false;
        EXPECT_LT(last[message.id], message.value);
        last[message.id] = static_cast<int>(message.value);
        if (++arrived == kMessages) DestroyWindow(window.id);  // in the middle of it
        return true;
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < kMessages; ++i) {
                PostWindowMessage(window.id, thread, i, std::make_unique<Counted>(alive));
            }
            --running;
        });
    }
    while (running > 0) PumpMessages();
    for (std::thread& thread : threads) thread.join();
    PumpMessages();
    EXPECT_EQ(arrived, kMessages);
    EXPECT_EQ(alive, 0);
}

TEST(Messages, EndTheLoopWithTheCodeEvenBeforeItBegins) {
    NotedWindow window;
    window.handle = [&](Message& message) {
        if (message.type == MessageType::kPosted) QuitMessageLoop(message.id);
        return true;
    };
    PostWindowMessage(window.id, 7);
    EXPECT_EQ(RunMessageLoop(), 7);
    QuitMessageLoop(4);
    EXPECT_EQ(RunMessageLoop(), 4);
}

}  // namespace
}  // namespace brickfall
