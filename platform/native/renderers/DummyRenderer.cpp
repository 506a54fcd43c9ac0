// The silent device: takes samples at the stream's rate, paced by the steady clock, so that
// a graph without a sound card still plays, reports its position and ends.
//
// Nobody hears it, so it needs no low latency: it takes up to a long period's samples at a
// time and sleeps until they would have played out, which keeps its wake-ups (and the
// streaming thread's refills) few. What the host does still acts at once: a pause, a resume,
// a rate change, a stop and a seek wake it, and it settles what it played up to that moment.

#include "platform/native/renderers/AudioRenderer.h"
#include "platform/native/renderers/Renderers.h"
#include "platform/native/renderers/Wakeup.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <pthread.h>
#include <thread>
#include <type_traits>

namespace corvid::native {

namespace {

// The most the silent device holds ahead of its clock: a second, so that it wakes once a
// second while it plays, and its ring holds as much, so that the streaming thread refills it
// once a second too. On a virtual machine each wake-up of a thread costs tens of
// microseconds, more than decoding a second of most files.
constexpr double kPeriodSeconds = 1.0;

class DummyRenderer final : public AudioRenderer {
public:
    DummyRenderer(const std::string& name, int channels, int pair)
        : AudioRenderer(name, channels, pair) {}
    ~DummyRenderer() override { closeDevice(); }

protected:
    Status openDevice(int, int) override {
        held_ = 0;
        hungry_.store(false);
        if (!paused()) startPacing();
        return Status::success();
    }

    void closeDevice() override {
        stop_.store(true);
        joinPacing();
    }

    double ringSeconds() const override { return kPeriodSeconds; }
    // Paused, the device has no thread: woken, the pacing thread settles what it played, keeps
    // what it holds for the resume, and ends.
    void applyPaused(bool paused) override {
        if (paused) joinPacing();
        else startPacing();
    }
    void applyRate(double) override { wake_.notify(); }

    // Stream thread: a device that ran dry, or a flush, must not wait for its next period.
    void dataQueued() override {
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (hungry_.load(std::memory_order_relaxed) || flushWaiting()) wake_.notify();
    }

    // The device says itself when the last sample has played out (a pause while it still
    // holds them holds the end too), so a dry device must see the end queued.
    void endQueued() override { wake_.notify(); }

private:
    void startPacing() {
        if (device_.joinable()) return;
        stop_.store(false);
        device_ = std::thread([this] { pace(streamRate()); });
    }

    void joinPacing() {
        wake_.notify();
        if (device_.joinable()) device_.join();
    }

    // The device holds frames it took from the ring and plays them at the stream's rate; it
    // wakes when they have played out (an absolute deadline: a late wake-up is made up by
    // taking more, at most a period's worth), or when the host or the stream needs it.
    void pace(int rate) {
        pthread_setname_np(pthread_self(), "corvid-silent");
        using namespace std::chrono;
        static_assert(std::is_same_v<steady_clock::duration, nanoseconds>);
        double& held = held_;
        double speed = 0; // frames a second they played at since `since` (0: paused)
        auto since = steady_clock::now();
        for (;;) {
            const uint32_t seen = wake_.prepare();
            if (stop_.load()) break;
            const auto now = steady_clock::now();
            const double fps = paused() ? 0.0 : double(rate) * rateFactor();
            const double period = kPeriodSeconds * double(rate) * rateFactor();
            held = std::max(held - duration<double>(now - since).count() * speed, -period);
            since = now;
            speed = fps;
            bool flushed = false;
            discard(0, flushed);
            if (flushed) held = 0;
            if (fps > 0 && held < period) {
                held += double(discard(size_t(period - held), flushed));
                if (flushed) held = 0;
                held = std::max(held, 0.0); // what it owed and could not take played as silence
            }
            if (fps > 0 && held <= 0 && endIsQueued() && ringEmpty()) playedOut();
            const double left = held / (double(rate) * rateFactor());
            const auto until = now + duration_cast<nanoseconds>(duration<double>(left));
            setDeviceLatency(left);
            if (fps > 0 && held > 0) {
                wake_.waitUntil(seen, until);
            } else if (fps > 0) {
                // Dry: the next write wakes it. Announced before the last look at the ring, so
                // that a write in between is not missed.
                hungry_.store(true, std::memory_order_relaxed);
                std::atomic_thread_fence(std::memory_order_seq_cst);
                if (ringEmpty()) wake_.wait(seen);
                hungry_.store(false, std::memory_order_relaxed);
            } else {
                break; // paused: the resume starts a new thread
            }
            wake_.done();
        }
        wake_.done();
    }

    Wakeup wake_;
    // Frames taken and not yet played (below zero: owed after a late wake), kept across a
    // pause; only the pacing thread touches it while it runs.
    double held_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<bool> hungry_{false};
    std::thread device_;
};

} // namespace

NativeFilterPtr makeDummyRenderer(const std::string& displayName, int channels, int pair) {
    return std::make_shared<DummyRenderer>(displayName, channels, pair);
}

} // namespace corvid::native
