#pragma once
// The control thread's queue. Streaming threads, device callbacks and helper tickers post
// their results here; the host pumps it with run() or processPending().

#include "platform/Services.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace corvid::native {

class NativeEventLoop final : public platform::EventLoop {
public:
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

private:
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool quit_ = false;
};

} // namespace corvid::native
