#pragma once
// A wake-up word between one waiting thread and the threads that change what it waits for.
// The waker never locks or allocates: it bumps a counter and, only when the other side said it
// waits, makes one futex wake call, so a device callback may use it.
//
// The waiter:  auto seen = w.prepare(); if (!ready()) w.wait(seen); w.done();
// The waker:   change the state, then w.notify().

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvid::native {

class Wakeup {
public:
    // Waiter: announces the wait; re-check the condition after this, before wait().
    uint32_t prepare() {
        waiting_.store(true, std::memory_order_seq_cst);
        return word_.load(std::memory_order_seq_cst);
    }
    // Waiter: sleeps until a notify() after prepare() (returns at once if one came already).
    void wait(uint32_t seen) { futex(seen, nullptr); }
    // Waiter: as wait(), but no later than `deadline` on the steady clock.
    void waitUntil(uint32_t seen, std::chrono::steady_clock::time_point deadline) {
        const auto left = deadline - std::chrono::steady_clock::now();
        if (left <= left.zero()) return;
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
        timespec relative{time_t(ns / 1000000000), long(ns % 1000000000)};
        futex(seen, &relative);
    }
    void done() { waiting_.store(false, std::memory_order_relaxed); }

    // Any thread, the device callback included.
    void notify() {
        word_.fetch_add(1, std::memory_order_seq_cst);
        if (waiting_.load(std::memory_order_seq_cst))
            syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word_), FUTEX_WAKE_PRIVATE, INT_MAX,
                    nullptr, nullptr, 0);
    }

private:
    void futex(uint32_t seen, const timespec* timeout) {
        syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word_), FUTEX_WAIT_PRIVATE, seen, timeout,
                nullptr, 0);
    }
    static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
    std::atomic<uint32_t> word_{0};
    std::atomic<bool> waiting_{false};
};

} // namespace corvid::native
