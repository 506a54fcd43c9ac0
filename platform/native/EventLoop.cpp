#include "platform/native/EventLoop.h"

#include <chrono>
#include <cstdio>

namespace corvid::native {

void NativeEventLoop::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        if (tasks_.size() >= kMaxPending) {
            if (dropped_++ == 0)
                std::fprintf(stderr, "Corvid: the host does not pump its event loop; events are being dropped.\n");
            return;
        }
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

uint64_t NativeEventLoop::dropped() const {
    std::lock_guard lock(mutex_);
    return dropped_;
}

int NativeEventLoop::processPending() {
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard lock(mutex_);
        batch.swap(tasks_);
    }
    int ran = 0;
    for (auto& task : batch) {
        task();
        ++ran;
    }
    return ran;
}

void NativeEventLoop::run() {
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [&] { return quit_ || !tasks_.empty(); });
            if (quit_) {
                quit_ = false;
                return;
            }
        }
        processPending();
    }
}

void NativeEventLoop::quit() {
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
}

bool NativeEventLoop::runUntil(const std::function<bool()>& done, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        processPending();
        if (done()) return true;
        std::unique_lock lock(mutex_);
        if (!wake_.wait_until(lock, deadline, [&] { return !tasks_.empty(); })) {
            lock.unlock();
            processPending();
            return done();
        }
    }
}

} // namespace corvid::native
