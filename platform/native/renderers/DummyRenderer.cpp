// The silent device: takes samples at the stream's rate, paced by the steady clock, so that
// a graph without a sound card still plays, reports its position and ends.

#include "platform/native/renderers/AudioRenderer.h"
#include "platform/native/renderers/Renderers.h"

#include <chrono>
#include <thread>

namespace corvid::native {

namespace {

class DummyRenderer final : public AudioRenderer {
public:
    DummyRenderer(const std::string& name, int channels, int pair)
        : AudioRenderer(name, channels, pair) {}
    ~DummyRenderer() override { closeDevice(); }

protected:
    Status openDevice(int rate, int) override {
        running_.store(true);
        clock_ = std::thread([this, rate] { pace(rate); });
        return Status::success();
    }

    void closeDevice() override {
        running_.store(false);
        if (clock_.joinable()) clock_.join();
    }

private:
    void pace(int rate) {
        using namespace std::chrono;
        auto last = steady_clock::now();
        double owed = 0;
        while (running_.load()) {
            std::this_thread::sleep_for(milliseconds(10));
            const auto now = steady_clock::now();
            owed += duration<double>(now - last).count() * rate * rateFactor();
            last = now;
            const auto frames = size_t(owed);
            owed -= double(frames);
            discard(frames);
        }
    }

    std::atomic<bool> running_{false};
    std::thread clock_;
};

} // namespace

NativeFilterPtr makeDummyRenderer(const std::string& displayName, int channels, int pair) {
    return std::make_shared<DummyRenderer>(displayName, channels, pair);
}

} // namespace corvid::native
