#pragma once
// The control thread's queue. Streaming threads, device callbacks and the sound-server loop
// post their results here; the platform's clock ticks the helpers from here. The host pumps
// it with run(), runUntil(), or processPending() when its wakeup descriptor becomes readable:
// an epoll set of the queue's eventfd and the clock's timerfd, so that one descriptor tells
// the host of both and a tick wakes no thread but the host's.
//
// Bounded: every source of the runtime posts at a bounded rate (stream reports and titles are
// spaced), so the queue stays short while the host pumps. A host that stops pumping must not
// make the process grow without end all the same: past kMaxPending waiting tasks, further
// posts are dropped (and counted) until it pumps again.

#include "platform/QueuedEventLoop.h"
#include "platform/native/PlatformClock.h"

#include <atomic>
#include <chrono>
#include <memory>

namespace corvid::native {

class NativeEventLoop final : public platform::QueuedEventLoop {
public:
    static constexpr size_t kMaxPending = 65536;

    explicit NativeEventLoop(std::chrono::microseconds tickPeriod = std::chrono::milliseconds(50));
    ~NativeEventLoop() override;

    // Control thread: the clock's ticks that are due, then the pending tasks.
    int processPending() override;
    void run() override;
    bool runUntil(const std::function<bool()>& done, int timeoutMs) override;
    // Thread-safe.
    void quit() override;
    int wakeupFd() const override { return epoll_; }

    const std::shared_ptr<PlatformClock>& clock() const { return clock_; }

private:
    // Sleeps until a task, a tick or a quit is there, or `timeoutMs` (-1: no limit) passed.
    void wait(int timeoutMs);

    std::shared_ptr<PlatformClock> clock_;
    const int epoll_;
    const int quitFd_;
    std::atomic<bool> quit_{false};
};

} // namespace corvid::native
