#include "platform/native/PlatformClock.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace corvid::native {

namespace {

int makeTimer() {
    const int fd = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error(std::string("Corvid: the platform clock cannot make its timer: ") +
                                 std::strerror(errno));
    return fd;
}

} // namespace

PlatformClock::PlatformClock(std::chrono::microseconds period) : period_(period), fd_(makeTimer()) {}

PlatformClock::~PlatformClock() { ::close(fd_); }

void PlatformClock::arm(bool on) {
    itimerspec timer{};
    if (on) {
        const auto us = period_.count();
        timer.it_interval = timespec{time_t(us / 1000000), long(us % 1000000) * 1000};
        timer.it_value = timer.it_interval;
    }
    // Setting the timer also forgets a period that passed and was not read yet.
    ::timerfd_settime(fd_, 0, &timer, nullptr);
}

int PlatformClock::subscribe(std::function<void()> tick) {
    subscribers_.push_back(std::make_shared<Subscriber>(Subscriber{nextId_, std::move(tick)}));
    if (subscribers_.size() == 1) arm(true);
    return nextId_++;
}

void PlatformClock::unsubscribe(int id) {
    auto it = std::find_if(subscribers_.begin(), subscribers_.end(),
                           [&](const auto& s) { return s->id == id; });
    if (it == subscribers_.end()) return;
    (*it)->live = false;
    subscribers_.erase(it);
    if (subscribers_.empty()) arm(false);
}

int PlatformClock::expire() {
    uint64_t periods = 0;
    if (::read(fd_, &periods, sizeof periods) != sizeof periods || periods == 0) return 0;
    // Periods slept through are lost, never caught up in a burst.
    missed_ += periods - 1;
    // A tick may subscribe, unsubscribe or pump the loop again: it runs over a copy, and a
    // subscriber that went meanwhile is skipped. The outermost expiry reuses one copy's
    // storage, so a steady tick allocates nothing.
    std::vector<std::shared_ptr<Subscriber>> nested;
    auto& ticking = expiring_ ? nested : spare_;
    ticking.assign(subscribers_.begin(), subscribers_.end());
    // Ends the expiry however it ends: the copy must not keep a gone subscriber (and what its
    // tick holds) alive.
    struct Expiring {
        bool& flag;
        const bool outermost;
        std::vector<std::shared_ptr<Subscriber>>& copy;
        ~Expiring() {
            copy.clear();
            if (outermost) flag = false;
        }
    } expiring{expiring_, !expiring_, ticking};
    expiring_ = true;
    int ran = 0;
    for (const auto& s : ticking) {
        if (!s->live) continue;
        s->tick();
        ++ran;
    }
    return ran;
}

} // namespace corvid::native
