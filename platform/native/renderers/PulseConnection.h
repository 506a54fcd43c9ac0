#pragma once
// One connection to the sound server for every PulseAudio renderer of the process: one
// threaded main loop (the thread that runs every renderer's device callback) and one context.
// It is made when the first renderer or enumeration needs it and goes with the last user
// (renderers keep it from their making until they go).

#include "platform/Status.h"

#include <pulse/pulseaudio.h>

#include <memory>
#include <mutex>

namespace corvid::native {

class PulseConnection {
public:
    // Any thread: the connection every user shares, connecting first when there is none (or
    // the last one failed); waits at most `timeoutMs` for the server.
    static std::shared_ptr<PulseConnection> shared(platform::Status& status, int timeoutMs);

    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    pa_threaded_mainloop* loop() const { return loop_; }
    pa_context* context() const { return context_; }
    pa_mainloop_api* api() const { return pa_threaded_mainloop_get_api(loop_); }
    bool ready() const;

    // Holds the loop's lock (no callback runs meanwhile).
    class Lock {
    public:
        explicit Lock(const PulseConnection& c) : loop_(c.loop_) { pa_threaded_mainloop_lock(loop_); }
        ~Lock() { pa_threaded_mainloop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* loop_;
    };

    // With the lock held: sleeps on the loop until `state()` says done (>0) or failed (<0), or
    // `timeoutMs` passes. Whatever the state depends on must call signal() when it changes.
    template <class F> bool waitFor(F state, int timeoutMs) {
        Deadline deadline(*this, timeoutMs);
        for (;;) {
            const int s = state();
            if (s != 0) return s > 0;
            if (deadline.passed) return false;
            pa_threaded_mainloop_wait(loop_);
        }
    }
    // From a callback on the loop: wakes waitFor().
    void signal() { pa_threaded_mainloop_signal(loop_, 0); }

private:
    PulseConnection() = default;
    // A timer on the loop that ends a waitFor().
    struct Deadline {
        Deadline(PulseConnection& c, int timeoutMs);
        ~Deadline();
        PulseConnection& connection;
        pa_time_event* event = nullptr;
        bool passed = false;
    };

    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
};

} // namespace corvid::native
