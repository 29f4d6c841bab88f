#include "base/workers.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace brickfall {
namespace {

struct WorkerCount {
    std::mutex mutex;
    std::condition_variable all_ended;
    int running = 0;  // guarded by mutex
};

WorkerCount& worker_count = *new WorkerCount;
std::atomic<bool> inline_workers = false;

void CountStarted() {
    const std::lock_guard lock(worker_count.mutex);
    ++worker_count.running;
}

void CountEnded() {
    const std::lock_guard lock(worker_count.mutex);
    if (--worker_count.running == 0) worker_count.all_ended.notify_all();
}

}  // namespace

void StartWorker(std::function<void()> body) {
    if (inline_workers.load()) {
        body();
        return;
    }
    CountStarted();
    try {
        std::thread([body = std::move(body)]() mutable {
            body();
            body = nullptr;  // what the body owns is gone before the worker counts as ended
            CountEnded();
        }).detach();
    } catch (const std::system_error&) {
        CountEnded();
        throw;
    }
}

int WorkersRunning() {
    const std::lock_guard lock(worker_count.mutex);
    return worker_count.running;
}

void WaitForWorkers() {
    std::unique_lock lock(worker_count.mutex);
    worker_count.all_ended.wait(lock, [] { return worker_count.running == 0; });
}

void RunInParallel(std::size_t count, std::size_t at_most, const std::function<void(std::size_t)>& body) {
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i; (i = next.fetch_add(1)) < count;) body(i);
    };
    std::vector<std::thread> helpers;
    for (std::size_t i = 1; i < std::min(count, at_most); ++i) {
        try {
            helpers.emplace_back(work);
        } catch (const std::exception&) {  // no thread or no memory left
            break;
        }
    }
    work();
    for (std::thread& helper : helpers) helper.join();
}

void SetInlineWorkers(bool run_inline) { inline_workers.store(run_inline); }

}  // namespace brickfall
