#pragma once
// The platform's one clock for periodic work (the helpers' ticks): a timerfd that the native
// event loop waits on beside its queue, so that a tick wakes the control thread directly and
// no thread of its own exists. It is armed only while someone is subscribed, and ticks
// everyone on the same absolute deadlines; with nobody subscribed nothing wakes up.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace corvid::native {

class PlatformClock {
public:
    explicit PlatformClock(std::chrono::microseconds period);
    ~PlatformClock();
    PlatformClock(const PlatformClock&) = delete;
    PlatformClock& operator=(const PlatformClock&) = delete;

    // Control thread. `tick` runs on the control thread (from the event loop's pumps) once per
    // period until unsubscribed. Returns an id.
    int subscribe(std::function<void()> tick);
    // Control thread. `id`'s tick does not run again, even when unsubscribed from inside a
    // tick of the same period.
    void unsubscribe(int id);

    // Readable when a period has passed; the event loop waits on it.
    int fd() const { return fd_; }
    // Control thread (the event loop's pumps): runs every subscriber's tick when a period has
    // passed since the last call; returns how many ran.
    int expire();

    std::chrono::microseconds period() const { return period_; }
    // Periods the clock could not keep (the control thread came a whole period late or more).
    uint64_t missedTicks() const { return missed_; }

private:
    struct Subscriber {
        int id;
        std::function<void()> tick;
        bool live = true;
    };
    void arm(bool on);

    const std::chrono::microseconds period_;
    const int fd_;
    std::vector<std::shared_ptr<Subscriber>> subscribers_;
    int nextId_ = 1;
    uint64_t missed_ = 0;
    std::vector<std::shared_ptr<Subscriber>> spare_; // the outermost expiry's copy
    bool expiring_ = false;
};

} // namespace corvid::native
