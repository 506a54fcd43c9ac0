#pragma once
// The common part of every audio renderer: PCM input, a ring buffer between the streaming
// thread and the device, the clock (media time of the samples the device has taken), the
// volume and the speaker-pair placement. Backends (PulseAudio, the silent clock-paced device)
// open the device and call render() or discard() from their own thread.

#include "platform/native/filters/Filters.h"
#include "platform/native/graph/Graph.h"
#include "platform/native/renderers/HeardPeaks.h"
#include "platform/native/renderers/SpscRing.h"
#include "platform/native/renderers/Wakeup.h"

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

namespace corvid::native {

class AudioRenderer : public NativeFilter {
public:
    static constexpr const char* kInputPinName = "Audio Input pin (rendered)";

    // `deviceChannels`: the device's speakers; `pair`: 0..3 to place stereo on speakers
    // 2*pair+1 and 2*pair+2 of the device, or -1 for the whole device.
    AudioRenderer(std::string name, int deviceChannels, int pair);

    AudioRenderer* asRenderer() override { return this; }
    Status acceptInput(NativePin& in, const MediaType& type) override;
    int preferredChannels() const override { return deviceChannels_; }
    Status activate() override;
    void deactivate() override;
    void receive(NativePin& in, Buffer& buffer) override;
    void endOfStream(NativePin& in, uint64_t generation) override;
    void flush(NativePin& in, double newPosition) override;
    // Control thread: a stop or seek frees a streaming thread that waits for ring space or
    // for the end to be heard.
    void unblock() override { space_.notify(); }

    // While paused the streaming thread does not wait for the device: what does not fit in the
    // ring is kept here (the stash) and written first when the play goes on, and an end of
    // stream that is not yet heard waits for the resume. Any thread: whether this renderer
    // holds such a stash or end, so that the streaming thread may end.
    bool parked() const { return stashed_.load(std::memory_order_acquire) || endParked(); }
    bool endParked() const { return parkedEnd_.load(std::memory_order_acquire) != 0; }
    // Stream thread, after a resume: carries on with a parked end of stream, once.
    void resumeEnd();
    // Control thread: the thread that fed (or drained) the ring has ended; another takes over.
    void handOver() { ring_.handOver(); }

    // Control thread.
    void setStartPosition(double seconds) {
        basePosition_.store(seconds);
        restartClock(seconds);
    }
    void markSeek(double seconds);
    double position() const;
    void setPaused(bool paused);
    void setVolume(int32_t hundredthsDb);
    float gain() const { return gain_.load(std::memory_order_acquire); }
    void setRate(double rate);
    bool inputConnected() const;
    int deviceChannels() const { return deviceChannels_; }
    // Control thread: the peaks of what the device has played since the last call (what is
    // heard, not what was queued ahead of it). The helper's meters read here.
    void takePeaks(int32_t& left, int32_t& right);

protected:
    // Control thread: open the device for float samples at `rate` with `channels`.
    virtual Status openDevice(int rate, int channels) = 0;
    virtual void closeDevice() = 0;
    virtual void applyRate(double /*rate*/) {}
    // Control thread: the device holds (true) or plays on; the volume changed (gain()).
    virtual void applyPaused(bool /*paused*/) {}
    virtual void applyVolume() {}
    // Stream thread: new samples or a flush wait in the ring for a device that is not asking.
    virtual void dataQueued() {}
    // Stream thread: the item's last sample is in the ring.
    virtual void endQueued() {}

    // How much the ring between the streaming thread and the device holds. A sound card's
    // own buffer rides out scheduling delays, so its ring stays short: what it holds is
    // already decoded at the old rate when the rate changes.
    virtual double ringSeconds() const { return 0.25; }
    // Device thread: copies up to `frames` frames of streamChannels() floats from the ring;
    // returns how many; never blocks. `flushed` tells that queued audio became stale (a seek):
    // what the device itself still holds should go too.
    size_t pull(float* out, size_t frames, bool& flushed);
    // Device thread: takes up to `frames` frames and throws them away (the silent device);
    // returns how many. `flushed` as for pull(): what the device took before is stale.
    size_t discard(size_t frames, bool& flushed);
    bool paused() const { return paused_.load(std::memory_order_acquire); }
    // Any thread: a flush waits for the device to apply it.
    bool flushWaiting() const { return ring_.flushPending(); }
    // Any thread: whether the streaming thread has put the item's last sample in the ring.
    bool endIsQueued() const { return endQueued_.load(std::memory_order_acquire); }
    // Any thread: the device has played out the item's last sample. Every device says so
    // itself: the item's end waits for it.
    void playedOut() {
        drained_.store(true, std::memory_order_release);
        space_.notify();
    }
    // Device thread: the ring holds nothing more.
    bool ringEmpty() const { return ring_.readable() == 0 && !ring_.flushPending(); }
    // Device thread: how long what was handed over takes to reach the speakers.
    void setDeviceLatency(double seconds);
    // Control thread: the same, as the device knows it now (by default: what is left of the
    // last value set, as time has passed since).
    virtual double deviceLatencyNow() const;
    int streamChannels() const { return streamChannels_; }
    int streamRate() const { return input_.rate; }
    double rateFactor() const { return rate_.load(std::memory_order_acquire); }

private:
    void toDeviceLayout(const Buffer& buffer);
    // Device thread: counts what it took and wakes the streaming thread.
    void took(size_t frames, bool flushed);
    // Stream thread: a buffer whose format is not the pin's stops the item, loudly.
    void refuse(const Buffer& buffer);
    // Stream thread: writes what fits of `count` samples, waiting for room while the device
    // plays; returns how many it wrote. It stops short when `generation` is no longer live, and
    // while paused once the ring is full.
    size_t queue(const float* samples, size_t count, uint64_t generation);
    // Stream thread: writes the stash; false when some of it is still held (paused).
    bool writeStash(uint64_t generation);
    void keep(const float* samples, size_t count, uint64_t generation);
    void dropStash();
    // Stream thread: queues the end (after the stash) and waits until it is heard, or parks it.
    void finishEnd(uint64_t generation);
    void awaitEnd(uint64_t generation);

    const int deviceChannels_;
    const int pair_;
    PcmFormat input_;
    int streamChannels_ = 0;
    SpscRing ring_;
    Wakeup space_; // bumped by the device when it took samples, and by stop and seek
    std::atomic<bool> endQueued_{false};
    std::atomic<bool> drained_{false};
    uint64_t refusedGeneration_ = 0; // stream thread
    std::vector<float> converted_; // stream thread scratch
    std::vector<float> mapped_;    // stream thread scratch
    std::vector<float> stash_;     // stream thread (whichever runs the head; they never overlap)
    uint64_t stashGeneration_ = 0;
    std::atomic<bool> stashed_{false};
    std::atomic<uint64_t> parkedEnd_{0}; // the generation whose end waits for the resume
    uint64_t lastSample_ = 0;            // stream thread: the ring index the end comes after
    std::atomic<bool> paused_{true};
    std::atomic<float> gain_{1.0f};
    std::atomic<double> rate_{1.0};
    std::atomic<double> speed_{1.0};
    std::atomic<double> basePosition_{0};
    std::atomic<double> mediaFrames_{0}; // consumer's count since the last flush, in media frames
    double pausedAt_ = -1; // control thread: the position a pause holds (-1: not paused)
    // Control thread: the reported position never goes back and never runs ahead of the time
    // that passed since the play started, resumed or sought (a device's latency estimate
    // wavers just after a start).
    void restartClock(double from);
    mutable double floor_ = 0;
    double anchorPosition_ = 0;
    std::chrono::steady_clock::time_point anchorTime_{};
    std::atomic<bool> seeking_{false};
    HeardPeaks peaks_;
    // When the last sample the device took will have been heard (steady clock, ns).
    std::atomic<std::chrono::steady_clock::rep> heardAt_{0};
    std::atomic<double> seekPosition_{0};
};

// 10^(hundredthsDb / 2000); -10000 and below is silence.
float gainFromHundredthsDb(int32_t hundredthsDb);

} // namespace corvid::native
