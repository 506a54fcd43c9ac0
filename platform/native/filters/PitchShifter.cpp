// "Brindle Pitch Shifter": SoundTouch time-stretching. The rate changes the tempo with the
// pitch kept; the pitch moves by semitones; pass-through leaves the audio untouched. The
// control thread sets the values, the stream thread applies them at the next buffer.

#include "platform/native/filters/Filters.h"
#include "platform/native/filters/PassThrough.h"

#include <soundtouch/SoundTouch.h>

#include <cmath>

namespace corvid::native {

namespace {

class PitchShifterFilter final : public PassThroughFilter, public platform::PitchShifterControl {
public:
    explicit PitchShifterFilter(const std::string& name) : PassThroughFilter(name) {}

    platform::PitchShifterControl* pitchShifter() override { return this; }

    Status setRate(double rate) override {
        if (!(rate >= 0.25 && rate <= 4.0))
            return Status::failure(hr::InvalidArg, "The rate must lie between 0.25 and 4.");
        rate_.store(rate);
        return Status::success();
    }
    double rate() const override { return rate_.load(); }
    Status setPitchSemitones(double semitones) override {
        if (!(std::fabs(semitones) <= 24))
            return Status::failure(hr::InvalidArg, "The pitch must lie within two octaves.");
        pitch_.store(semitones);
        return Status::success();
    }
    double pitchSemitones() const override { return pitch_.load(); }
    Status setPassThrough(bool passThrough) override {
        passThrough_.store(passThrough);
        return Status::success();
    }
    bool passThrough() const override { return passThrough_.load(); }

    Status activate() override {
        touch_.clear();
        const PcmFormat f = inputFormat();
        if (f.channels > 0) {
            touch_.setSampleRate(uint(f.rate));
            touch_.setChannels(uint(f.channels));
        }
        appliedRate_ = appliedPitch_ = NAN;
        return Status::success();
    }

    void receive(NativePin&, Buffer& buffer) override {
        const double rate = rate_.load(), pitch = pitch_.load();
        if (passThrough_.load() || (rate == 1.0 && pitch == 0.0)) {
            if (touch_.numSamples() > 0) touch_.clear();
            deliverAll(buffer);
            return;
        }
        if (rate != appliedRate_) touch_.setTempo(appliedRate_ = rate);
        if (pitch != appliedPitch_) touch_.setPitchSemiTones(appliedPitch_ = pitch);
        const int frames = buffer.frames();
        samples_.resize(size_t(frames) * buffer.format.channels);
        toFloat(buffer.format, buffer.bytes.data(), frames, samples_.data());
        touch_.putSamples(samples_.data(), uint(frames));
        drain(buffer.format, buffer.generation, buffer.time, rate);
    }

    void endOfStream(NativePin& in, uint64_t generation) override {
        if (touch_.numUnprocessedSamples() > 0 || touch_.numSamples() > 0) {
            touch_.flush();
            drain(inputFormat(), generation, 0, rate_.load());
        }
        NativeFilter::endOfStream(in, generation);
    }

    void flush(NativePin& in, double newPosition) override {
        touch_.clear();
        NativeFilter::flush(in, newPosition);
    }

protected:
    bool acceptsFormat(SampleFormat f) const override {
        return f == SampleFormat::S16 || f == SampleFormat::F32;
    }

private:
    void drain(const PcmFormat& format, uint64_t generation, double time, double rate) {
        const int ch = format.channels;
        for (;;) {
            const uint available = touch_.numSamples();
            if (available == 0) return;
            out_.resize(size_t(available) * ch);
            const uint got = touch_.receiveSamples(out_.data(), available);
            if (got == 0) return;
            Buffer b;
            b.generation = generation;
            b.time = time;
            b.speed = rate;
            b.format = format;
            b.bytes.resize(size_t(got) * format.frameBytes());
            fromFloat(out_.data(), int(got) * ch, format.format, b.bytes.data());
            deliverAll(b);
        }
    }

    std::atomic<double> rate_{1.0}, pitch_{0.0};
    std::atomic<bool> passThrough_{false};
    soundtouch::SoundTouch touch_;
    double appliedRate_ = NAN, appliedPitch_ = NAN;
    std::vector<float> samples_, out_;
};

} // namespace

NativeFilterPtr makePitchShifter(const std::string& name) {
    return std::make_shared<PitchShifterFilter>(name);
}

} // namespace corvid::native
