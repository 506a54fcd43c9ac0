#include "support/TimerClass1.h"

#include "support/CheckedInt.h"

namespace corvid {

TimerClass1::TimerClass1(platform::TickCounter& ticks) : ticks_(ticks) {
    // Running is set before the Reset below clears it again: a new timer is stopped. The
    // early 1 has no lasting effect and stays as it is.
    running_ = 1;
    periodBegun_ = 0;
    // The platform's counter is a 1 ms tick; there is no resolution to query or change.
    caps_ = DevCaps{1, 1000000};
    Reset();
}

TimerClass1::~TimerClass1() {
    // periodBegun_ is never set, so there is no requested resolution to release here.
    try {
        StopTiming();
    } catch (...) {
        // A destructor must not throw; the last interval is simply lost.
    }
}

void TimerClass1::Reset() {
    offset_ = 0;
    startTick_ = 0;
    accumulated_ = 0;
    running_ = 0;
}

void TimerClass1::StartTiming() {
    if (running_ != 0) return;
    startTick_ = ticks_.nowMs();
    running_ = 1;
}

void TimerClass1::StopTiming() {
    if (running_ == 0) return;
    const int32_t now = ticks_.nowMs();
    const int32_t oldStart = startTick_;
    // Stopped before the sum is formed: an overflowing interval leaves a stopped timer.
    startTick_ = 0;
    running_ = 0;
    accumulated_ = checked::sub(checked::add(accumulated_, now), oldStart);
}

int32_t TimerClass1::get_ElapsedTime() {
    const int32_t now = ticks_.nowMs();
    // ((accumulated - start) + running * now) + offset, in this order: each step checked.
    const int32_t a = checked::sub(accumulated_, startTick_);
    const int32_t b = checked::mul(running_, now);
    return checked::add(checked::add(a, b), offset_);
}

void TimerClass1::put_ElapsedTime(int32_t value) {
    Reset();
    offset_ = value;
}

} // namespace corvid
