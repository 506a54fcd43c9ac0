#pragma once
// The common part of every audio renderer: PCM input, a ring buffer between the streaming
// thread and the device, the clock (media time of the samples the device has taken), the
// volume and the speaker-pair placement. Backends (PulseAudio, the silent clock-paced device)
// open the device and call render() or discard() from their own thread.

#include "platform/native/filters/Filters.h"
#include "platform/native/graph/Graph.h"
#include "platform/native/renderers/SpscRing.h"

#include <atomic>
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

    // Control thread.
    void setStartPosition(double seconds) { basePosition_.store(seconds); }
    void markSeek(double seconds);
    double position() const;
    void setPaused(bool paused);
    void setVolume(int32_t hundredthsDb);
    void setRate(double rate);
    bool inputConnected() const;
    int deviceChannels() const { return deviceChannels_; }
    // Any thread: the peaks of what reached this renderer since the last call. The helper
    // meters here when no sample grabber carries the audio (the stream route bypasses it).
    void takePeaks(int32_t& left, int32_t& right) { peaks_.take(left, right); }

protected:
    // Control thread: open the device for float samples at `rate` with `channels`.
    virtual Status openDevice(int rate, int channels) = 0;
    virtual void closeDevice() = 0;
    virtual void applyRate(double /*rate*/) {}

    // Device thread: fills `frames` frames of streamChannels() floats; never blocks.
    void render(float* out, size_t frames);
    // Device thread: takes `frames` frames and throws them away (the silent device).
    void discard(size_t frames);
    // Device thread: how long what was handed over takes to reach the speakers.
    void setDeviceLatency(double seconds) { latency_.store(seconds, std::memory_order_release); }
    int streamChannels() const { return streamChannels_; }
    int streamRate() const { return input_.rate; }
    double rateFactor() const { return rate_.load(std::memory_order_acquire); }

private:
    void toDeviceLayout(const Buffer& buffer);

    const int deviceChannels_;
    const int pair_;
    PcmFormat input_;
    int streamChannels_ = 0;
    SpscRing ring_;
    std::vector<float> converted_; // stream thread scratch
    std::vector<float> mapped_;    // stream thread scratch
    std::atomic<bool> paused_{true};
    std::atomic<float> gain_{1.0f};
    std::atomic<double> rate_{1.0};
    std::atomic<double> speed_{1.0};
    std::atomic<double> basePosition_{0};
    std::atomic<double> mediaFrames_{0}; // consumer's count since the last flush, in media frames
    std::atomic<double> latency_{0};
    double pausedAt_ = -1; // control thread: the position a pause holds (-1: not paused)
    std::atomic<bool> seeking_{false};
    PeakKeeper peaks_;
    std::atomic<double> seekPosition_{0};
};

// 10^(hundredthsDb / 2000); -10000 and below is silence.
float gainFromHundredthsDb(int32_t hundredthsDb);

} // namespace corvid::native
