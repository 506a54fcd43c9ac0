#pragma once
// TimerClass1: the millisecond stopwatch around long operations (graph builds, loads, filter
// connections) and behind the player's elapsed time. It counts from the platform's 32-bit
// tick counter, accumulates across start/stop pairs and can be preset.
//
// All arithmetic is signed 32-bit and checked: a result that does not fit raises
// corvid::overflowError() ("Overflow"). The tick counter's wrap after about 24.8 days is not
// handled, so an interval across it can raise "Overflow"; callers treat that as a lost
// timing.
//
// Threads: control thread only; a timer belongs to the object that made it.

#include "platform/Services.h"

#include <cstdint>

namespace corvid {

class TimerClass1 {
public:
    // The timer starts stopped, all counters 0.
    explicit TimerClass1(platform::TickCounter& ticks);
    // Stops timing; never throws.
    ~TimerClass1();

    TimerClass1(const TimerClass1&) = delete;
    TimerClass1& operator=(const TimerClass1&) = delete;

    // Milliseconds timed so far, including the interval under way. Reads the tick counter
    // even while stopped. Throws "Overflow".
    int32_t get_ElapsedTime();
    // Resets (the timer is left stopped), then presets the reading to `value`.
    void put_ElapsedTime(int32_t value);

    // Clears every counter; a running timer stops.
    void Reset();
    // Starts timing unless already running (a running interval is not restarted).
    void StartTiming();
    // Stops timing and adds the interval, unless already stopped. Throws "Overflow"; the
    // timer is then stopped with the interval lost.
    void StopTiming();

    bool running() const { return running_ != 0; }

private:
    platform::TickCounter& ticks_;

    int32_t offset_ = 0;      // the reading starts from here; set by put_ElapsedTime
    int32_t startTick_ = 0;   // tick reading at the last StartTiming; 0 while stopped
    int32_t accumulated_ = 0; // sum of the completed intervals
    int32_t running_ = 0;     // 1 while timing: a multiplier in get_ElapsedTime
    // The timer resolution requested from the system, to be released on destruction. No
    // member ever requests one: the tick counter runs at whatever resolution it has.
    uint32_t periodBegun_ = 0;
    // Minimum and maximum timer period the tick source offers, in ms.
    struct DevCaps {
        uint32_t periodMin = 0;
        uint32_t periodMax = 0;
    } caps_;
};

} // namespace corvid
