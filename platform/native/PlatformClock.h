#pragma once
// The platform's one clock for periodic work (the helpers' ticks). Its thread runs only while
// someone is subscribed, and ticks everyone on the same absolute deadlines; with nobody
// subscribed there is no thread and no wake-up.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace corvid::native {

class PlatformClock {
public:
    explicit PlatformClock(std::chrono::microseconds period);
    ~PlatformClock();
    PlatformClock(const PlatformClock&) = delete;
    PlatformClock& operator=(const PlatformClock&) = delete;

    // Control thread. `tick` runs on the clock's thread once per period until unsubscribed;
    // it must only hand work on (post it), and own what it uses. Returns an id.
    int subscribe(std::function<void()> tick);
    // Control thread. `id`'s tick runs at most once more (if a period was under way); the
    // thread goes with the last subscriber.
    void unsubscribe(int id);

    std::chrono::microseconds period() const { return period_; }
    // Periods the clock could not keep (its thread woke a whole period late or more).
    uint64_t missedTicks() const;

private:
    void run();

    const std::chrono::microseconds period_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    using Subscribers = std::vector<std::pair<int, std::function<void()>>>;
    // Replaced whole on every change, so that a period takes it without copying the ticks.
    std::shared_ptr<const Subscribers> subscribers_ = std::make_shared<Subscribers>();
    int nextId_ = 1;
    bool stop_ = false;
    uint64_t missed_ = 0;
    std::thread thread_;
};

} // namespace corvid::native
