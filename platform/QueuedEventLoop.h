#pragma once
// The one event loop both platforms use: a queue of tasks guarded by a mutex, and an eventfd
// that is readable exactly while the queue holds tasks, so that a host can wait for work in
// its own loop (poll, GLib, a QSocketNotifier, asyncio's add_reader) instead of polling.

#include "platform/Services.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <mutex>

namespace corvid::platform {

class QueuedEventLoop : public EventLoop {
public:
    // Past `maxPending` waiting tasks, further posts are dropped (and counted) until the
    // control thread pumps again.
    explicit QueuedEventLoop(std::size_t maxPending = std::numeric_limits<std::size_t>::max());
    ~QueuedEventLoop() override;

    // Thread-safe.
    void post(std::function<void()> task) override;
    // Control thread only. Runs the tasks that were pending when it was called, one at a time,
    // so that a task that pumps the loop again (the stream wait) runs the next ones in order;
    // tasks posted meanwhile wait for the next call.
    int processPending() override;
    // Control thread only. A quit() that came before run() makes it return at once.
    void run() override;
    bool runUntil(const std::function<bool()>& done, int timeoutMs) override;
    // Thread-safe.
    void quit() override;
    int wakeupFd() const override { return wakeupFd_; }

    // Thread-safe.
    std::size_t pendingCount() const;
    // Thread-safe: tasks dropped because the queue was full.
    uint64_t dropped() const;

private:
    // Takes the first task, clearing the descriptor when the queue becomes empty. The lock is
    // held by the caller.
    std::function<void()> takeFirstLocked();

    const std::size_t maxPending_;
    const int wakeupFd_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    uint64_t dropped_ = 0;
    bool quit_ = false;
};

} // namespace corvid::platform
