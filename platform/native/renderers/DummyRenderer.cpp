// The silent device: takes samples at the stream's rate, paced by the steady clock, so that
// a graph without a sound card still plays, reports its position and ends.

#include "platform/native/renderers/AudioRenderer.h"
#include "platform/native/renderers/Renderers.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace corvid::native {

namespace {

// How often the silent device takes its share: the granularity of its position.
constexpr auto kPeriod = std::chrono::milliseconds(10);

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

private:
    // Each period ends at an absolute deadline, so a late wake-up is made up at the next one
    // and the device keeps the stream's rate however the thread is scheduled.
    void pace(int rate) {
        pthread_setname_np(pthread_self(), "corvid-silent");
        using namespace std::chrono;
        auto last = steady_clock::now();
        auto next = last + kPeriod;
        double owed = 0;
        std::unique_lock lock(mutex_);
        while (!wake_.wait_until(lock, next, [&] { return stop_; })) {
            const auto now = steady_clock::now();
            next += kPeriod;
            if (next < now) next = now + kPeriod; // asleep for long: no burst of catching up
            owed += duration<double>(now - last).count() * rate * rateFactor();
            last = now;
            const auto frames = size_t(owed);
            owed -= double(frames);
            lock.unlock();
            discard(frames);
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::thread clock_;
};

} // namespace

NativeFilterPtr makeDummyRenderer(const std::string& displayName, int channels, int pair) {
    return std::make_shared<DummyRenderer>(displayName, channels, pair);
}

} // namespace corvid::native
