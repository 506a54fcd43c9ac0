#pragma once
// The control thread's queue. Streaming threads, device callbacks and helper tickers post
// their results here; the host pumps it with run() or processPending().
//
// Bounded: every source of the runtime posts at a bounded rate (ticks are not doubled,
// stream reports and titles are spaced), so the queue stays short while the host pumps. A
// host that stops pumping must not make the process grow without end all the same: past
// kMaxPending waiting tasks, further posts are dropped (and counted) until it pumps again.

#include "platform/Services.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace corvid::native {

class NativeEventLoop final : public platform::EventLoop {
public:
    static constexpr size_t kMaxPending = 65536;

    // Thread-safe.
    void post(std::function<void()> task) override;
    // Control thread only. Tasks posted while these run wait for the next call.
    int processPending() override;
    // Control thread only. A quit() that came before run() makes it return at once.
    void run() override;
    // Thread-safe.
    void quit() override;
    // Control thread only: pumps until `done` holds or `timeoutMs` passes; whether it held.
    bool runUntil(const std::function<bool()>& done, int timeoutMs);
    // Thread-safe: tasks dropped because the queue was full.
    uint64_t dropped() const;

private:
    mutable std::mutex mutex_;
    uint64_t dropped_ = 0;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool quit_ = false;
};

} // namespace corvid::native
