#include "platform/native/PlatformClock.h"

#include <algorithm>
#include <pthread.h>

namespace corvid::native {

PlatformClock::PlatformClock(std::chrono::microseconds period) : period_(period) {}

PlatformClock::~PlatformClock() {
    {
        std::lock_guard lock(mutex_);
        subscribers_ = std::make_shared<Subscribers>();
        stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

int PlatformClock::subscribe(std::function<void()> tick) {
    std::unique_lock lock(mutex_);
    auto changed = std::make_shared<Subscribers>(*subscribers_);
    changed->emplace_back(nextId_, std::move(tick));
    subscribers_ = std::move(changed);
    if (!thread_.joinable()) {
        stop_ = false;
        thread_ = std::thread([this] { run(); });
    }
    return nextId_++;
}

void PlatformClock::unsubscribe(int id) {
    std::thread ending;
    {
        std::lock_guard lock(mutex_);
        auto changed = std::make_shared<Subscribers>(*subscribers_);
        changed->erase(std::remove_if(changed->begin(), changed->end(),
                                      [&](auto& s) { return s.first == id; }),
                       changed->end());
        subscribers_ = std::move(changed);
        if (!subscribers_->empty() || !thread_.joinable()) return;
        stop_ = true;
        ending = std::move(thread_);
    }
    wake_.notify_all();
    ending.join();
}

uint64_t PlatformClock::missedTicks() const {
    std::lock_guard lock(mutex_);
    return missed_;
}

void PlatformClock::run() {
    pthread_setname_np(pthread_self(), "corvid-clock");
    auto next = std::chrono::steady_clock::now() + period_;
    std::unique_lock lock(mutex_);
    std::shared_ptr<const Subscribers> ticking;
    while (!wake_.wait_until(lock, next, [&] { return stop_; })) {
        // Ticks run outside the lock: one that waits (on a full queue, say) must not hold up
        // a control thread that subscribes or unsubscribes meanwhile.
        ticking = subscribers_;
        lock.unlock();
        for (auto& [id, tick] : *ticking) tick();
        lock.lock();
        next += period_;
        const auto now = std::chrono::steady_clock::now();
        if (next <= now) {
            // Asleep for a period or more: those ticks are lost, never caught up in a burst.
            const auto behind = (now - next) / period_ + 1;
            missed_ += uint64_t(behind);
            next += behind * period_;
        }
    }
}

} // namespace corvid::native
