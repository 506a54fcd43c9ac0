// The silent device: takes samples at the stream's rate, paced by the steady clock, so that
// a graph without a sound card still plays, reports its position and ends.

#include "platform/native/renderers/AudioRenderer.h"
#include "platform/native/renderers/Renderers.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <type_traits>

namespace corvid::native {

namespace {

// How often the silent device wakes: it takes a whole period's samples at the start of each,
// and its position moves smoothly in between (what it took counts as held until the period's
// end), so it can wake seldom.
constexpr auto kPeriod = std::chrono::milliseconds(50);

class DummyRenderer final : public AudioRenderer {
public:
    DummyRenderer(const std::string& name, int channels, int pair)
        : AudioRenderer(name, channels, pair) {}
    ~DummyRenderer() override { closeDevice(); }

protected:
    Status openDevice(int rate, int) override {
        stop_ = false;
        clock_ = std::thread([this, rate] { pace(rate); });
        return Status::success();
    }

    void closeDevice() override {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        if (clock_.joinable()) clock_.join();
    }

    // Control thread: the rest of the current period, which the samples taken for it still
    // stand for.
    double deviceLatencyNow() const override {
        const auto end = periodEnd_.load(std::memory_order_acquire);
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        return end > now ? double(end - now) / 1e9 : 0.0;
    }

private:
    // Each period starts at an absolute deadline, so a late wake-up is made up at the next one
    // and the device keeps the stream's rate however the thread is scheduled.
    void pace(int rate) {
        pthread_setname_np(pthread_self(), "corvid-silent");
        using namespace std::chrono;
        static_assert(std::is_same_v<steady_clock::duration, nanoseconds>);
        auto next = steady_clock::now();
        double owed = 0;
        std::unique_lock lock(mutex_);
        do {
            const auto now = steady_clock::now();
            if (next + kPeriod < now) next = now; // asleep for long: no burst of catching up
            const auto end = next + kPeriod;
            owed += duration<double>(end - next).count() * rate * rateFactor();
            const auto frames = size_t(owed);
            owed -= double(frames);
            periodEnd_.store(end.time_since_epoch().count(), std::memory_order_release);
            setDeviceLatency(duration<double>(end - now).count());
            lock.unlock();
            discard(frames);
            lock.lock();
            next = end;
        } while (!wake_.wait_until(lock, next, [&] { return stop_; }));
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::atomic<std::chrono::steady_clock::rep> periodEnd_{0};
    std::thread clock_;
};

} // namespace

NativeFilterPtr makeDummyRenderer(const std::string& displayName, int channels, int pair) {
    return std::make_shared<DummyRenderer>(displayName, channels, pair);
}

} // namespace corvid::native
