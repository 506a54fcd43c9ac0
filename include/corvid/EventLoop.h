#pragma once
// The event loop of the control thread: the one thread a host calls the player on, and the
// one the player raises its events on. Work done on Corvid's own threads (streaming, devices,
// helper ticks, network) reaches the player only through post(); tasks run in the order
// posted, on the thread that pumps the loop.

#include <atomic>
#include <functional>
#include <thread>

namespace corvid {

// A host pumps it in one of three ways: run() blocks until quit(); runUntil() pumps for a
// while; or the host waits for wakeupFd() in its own loop and calls processPending() when it
// becomes readable.
class EventLoop {
public:
    // The thread that creates the loop is its control thread.
    EventLoop();
    virtual ~EventLoop() = default;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Reports a call of `member` made on a thread other than the control thread. In a debug
    // build it aborts with a message naming the member; in a release build it writes that
    // message to stderr once per loop and lets the call go on, unprotected.
    void checkControlThread(const char* member) const;

    // Thread-safe.
    virtual void post(std::function<void()> task) = 0;
    // Runs the tasks pending now; returns how many ran. Control thread only.
    virtual int processPending() = 0;
    // Pumps until quit() is called. Control thread only.
    virtual void run() = 0;
    // Pumps until `done` holds or `timeoutMs` has passed; whether it held. Control thread only.
    virtual bool runUntil(const std::function<bool()>& done, int timeoutMs) = 0;
    // Thread-safe.
    virtual void quit() = 0;
    // A descriptor that is readable while tasks are pending, for the host's own poll(), GLib
    // source, QSocketNotifier or asyncio reader. The pumps above drain it; the host only
    // waits on it, never reads or closes it. Owned by the loop for its whole life.
    virtual int wakeupFd() const = 0;

private:
    const std::thread::id controlThread_;
    mutable std::atomic<bool> reported_{false};
};

} // namespace corvid
