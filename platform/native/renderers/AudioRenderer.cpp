#include "platform/native/renderers/AudioRenderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace corvid::native {

namespace {
// A full ring wakes its producer when this share of it is free again, not at every sample:
// half, so that it refills in a few large steps.
constexpr size_t kRefillDivisor = 2;
// The meters' resolution in time.
constexpr double kPeakSliceSeconds = 0.01;
} // namespace

float gainFromHundredthsDb(int32_t hundredthsDb) {
    if (hundredthsDb <= -10000) return 0.0f;
    return float(std::pow(10.0, std::min(hundredthsDb, 0) / 2000.0));
}

AudioRenderer::AudioRenderer(std::string name, int deviceChannels, int pair)
    : NativeFilter(std::move(name)), deviceChannels_(std::max(1, deviceChannels)), pair_(pair) {
    addPin(kInputPinName, platform::PinDirection::Input);
}

Status AudioRenderer::acceptInput(NativePin&, const MediaType& type) {
    if (type.kind != MediaType::Kind::Pcm)
        return Status::failure(hr::TypeNotAccepted, "The renderer takes PCM only.");
    const auto& f = type.pcm;
    if (f.format != SampleFormat::S16 && f.format != SampleFormat::S32 &&
        f.format != SampleFormat::F32)
        return Status::failure(hr::TypeNotAccepted,
                               std::string("The renderer does not take ") +
                                   sampleFormatName(f.format) + " samples.");
    if (f.channels < 1 || f.channels > 8 || f.rate < 8000 || f.rate > 192000)
        return Status::failure(hr::TypeNotAccepted, "The renderer does not take " + type.describe());
    input_ = f;
    return Status::success();
}

bool AudioRenderer::inputConnected() const {
    auto in = firstInput();
    return in && in->peer();
}

Status AudioRenderer::activate() {
    if (!inputConnected()) return Status::success();
    if (pair_ >= 0) streamChannels_ = std::max(deviceChannels_, 2 * pair_ + 2);
    else streamChannels_ = input_.channels;
    ring_.reset(size_t(input_.rate * ringSeconds()) * size_t(streamChannels_));
    peaks_.reset(size_t(input_.rate * kPeakSliceSeconds) * size_t(streamChannels_));
    heardAt_.store(0);
    mediaFrames_.store(0);
    seeking_.store(false);
    endQueued_.store(false);
    drained_.store(false);
    dropStash();
    parkedEnd_.store(0);
    refusedGeneration_ = 0;
    Status s = openDevice(input_.rate, streamChannels_);
    if (s && rateFactor() != 1.0) applyRate(rateFactor());
    return s;
}

void AudioRenderer::deactivate() {
    if (streamChannels_ == 0) return;
    closeDevice();
    dropStash();
    parkedEnd_.store(0);
    basePosition_.store(position());
    mediaFrames_.store(0);
    streamChannels_ = 0;
}

void AudioRenderer::toDeviceLayout(const Buffer& buffer) {
    const int frames = buffer.frames();
    const int inCh = buffer.format.channels;
    converted_.resize(size_t(frames) * size_t(inCh));
    toFloat(buffer.format, buffer.bytes.data(), frames, converted_.data());
    peaks_.see(converted_.data(), frames, inCh, ring_.written(), size_t(streamChannels_));
    if (inCh == streamChannels_) {
        mapped_.swap(converted_);
        return;
    }
    // Stereo (or mono) onto one speaker pair of the device; other speakers stay silent.
    mapped_.assign(size_t(frames) * size_t(streamChannels_), 0.0f);
    const int first = (pair_ >= 0 && inCh <= 2) ? 2 * pair_ : 0;
    for (int f = 0; f < frames; ++f) {
        const float* src = &converted_[size_t(f) * inCh];
        float* dst = &mapped_[size_t(f) * streamChannels_];
        if (inCh == 1) {
            dst[first] = src[0];
            if (first + 1 < streamChannels_) dst[first + 1] = src[0];
        } else {
            for (int c = 0; c < std::min(inCh, streamChannels_ - first); ++c) dst[first + c] = src[c];
        }
    }
}

void AudioRenderer::refuse(const Buffer& buffer) {
    NativeGraph* g = graph();
    if (!g || refusedGeneration_ == buffer.generation) return;
    refusedGeneration_ = buffer.generation;
    g->postError(buffer.generation,
                 name() + " was handed " + MediaType::pcmType(buffer.format).describe() +
                     " on a connection agreed as " + MediaType::pcmType(input_).describe() +
                     "; the item stops.");
}

void AudioRenderer::receive(NativePin&, Buffer& buffer) {
    NativeGraph* g = graph();
    if (!g || streamChannels_ == 0 || buffer.generation != g->generation()) return;
    if (buffer.format != input_) return refuse(buffer);
    toDeviceLayout(buffer);
    speed_.store(buffer.speed, std::memory_order_release);
    // What a pause left over goes first; while it cannot, the new samples queue behind it.
    if (!writeStash(buffer.generation)) return keep(mapped_.data(), mapped_.size(), buffer.generation);
    const size_t written = queue(mapped_.data(), mapped_.size(), buffer.generation);
    if (written < mapped_.size() && buffer.generation == g->generation())
        keep(mapped_.data() + written, mapped_.size() - written, buffer.generation);
    dataQueued();
}

size_t AudioRenderer::queue(const float* samples, size_t count, uint64_t generation) {
    NativeGraph* g = graph();
    size_t offset = 0;
    const size_t ch = size_t(streamChannels_);
    const size_t chunk = std::max(ch, ring_.capacity() / kRefillDivisor / ch * ch);
    while (offset < count) {
        size_t room = ring_.writable() / ch * ch;
        const size_t wanted = std::min(chunk, count - offset);
        if (room < wanted && !paused()) {
            // Full: sleep until the device has taken a good part, or a pause, stop or seek.
            const uint32_t seen = space_.prepare();
            room = ring_.writable() / ch * ch;
            if (generation != g->generation()) {
                space_.done();
                return offset;
            }
            if (room < wanted && !paused()) {
                dataQueued(); // a device that waits for data must see what is there
                space_.wait(seen);
                space_.done();
                continue;
            }
            space_.done();
        }
        if (room == 0) return offset; // paused with a full ring: the rest waits for the resume
        const size_t n = std::min(room, count - offset);
        ring_.write(samples + offset, n);
        offset += n;
    }
    return offset;
}

bool AudioRenderer::writeStash(uint64_t generation) {
    if (stash_.empty()) return true;
    if (stashGeneration_ != generation) {
        dropStash();
        return true;
    }
    const size_t written = queue(stash_.data(), stash_.size(), generation);
    if (written < stash_.size() && generation == graph()->generation()) {
        stash_.erase(stash_.begin(), stash_.begin() + std::ptrdiff_t(written));
        return false;
    }
    dropStash();
    return true;
}

void AudioRenderer::keep(const float* samples, size_t count, uint64_t generation) {
    stash_.insert(stash_.end(), samples, samples + count);
    stashGeneration_ = generation;
    stashed_.store(true, std::memory_order_release);
}

void AudioRenderer::dropStash() {
    stash_.clear();
    stashed_.store(false, std::memory_order_release);
}

void AudioRenderer::endOfStream(NativePin&, uint64_t generation) {
    NativeGraph* g = graph();
    if (!g || streamChannels_ == 0 || generation != g->generation()) return;
    finishEnd(generation);
}

void AudioRenderer::resumeEnd() {
    const uint64_t generation = parkedEnd_.exchange(0, std::memory_order_acq_rel);
    NativeGraph* g = graph();
    if (generation != 0 && g && streamChannels_ != 0 && generation == g->generation()) finishEnd(generation);
}

void AudioRenderer::finishEnd(uint64_t generation) {
    if (!writeStash(generation)) {
        parkedEnd_.store(generation, std::memory_order_release);
        return;
    }
    if (!endQueued_.load(std::memory_order_acquire)) {
        dataQueued();
        lastSample_ = ring_.written();
        endQueued_.store(true, std::memory_order_release);
        endQueued();
    }
    awaitEnd(generation);
}

void AudioRenderer::awaitEnd(uint64_t generation) {
    NativeGraph* g = graph();
    // A pause does not keep the streaming thread waiting for the device: the end waits for the
    // resume instead.
    auto gone = [&] { return generation != g->generation(); };
    auto park = [&] {
        if (!paused()) return false;
        parkedEnd_.store(generation, std::memory_order_release);
        return true;
    };
    // The end is reached when the device has taken the last sample, not when it was queued.
    for (;;) {
        const uint32_t seen = space_.prepare();
        if (gone() || (!ring_.flushPending() && ring_.consumed() >= lastSample_)) break;
        if (park()) return space_.done();
        space_.wait(seen);
    }
    space_.done();
    // And then until the device says it has played out what it still held.
    for (;;) {
        const uint32_t seen = space_.prepare();
        if (gone() || drained_.load(std::memory_order_acquire)) break;
        if (park()) return space_.done();
        space_.wait(seen);
    }
    space_.done();
    if (!gone()) g->postRendererEnd(this, generation);
}

void AudioRenderer::flush(NativePin&, double newPosition) {
    if (streamChannels_ == 0) return;
    dropStash();
    parkedEnd_.store(0, std::memory_order_release);
    ring_.requestFlush();
    peaks_.flushed(ring_.written());
    endQueued_.store(false, std::memory_order_release);
    drained_.store(false, std::memory_order_release);
    basePosition_.store(newPosition, std::memory_order_release);
    seeking_.store(false, std::memory_order_release);
    dataQueued();
}

void AudioRenderer::setDeviceLatency(double seconds) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    heardAt_.store((now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(seconds)))
                       .count(),
                   std::memory_order_release);
}

double AudioRenderer::deviceLatencyNow() const {
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    return std::max<double>(0, double(heardAt_.load(std::memory_order_acquire) - now) / 1e9);
}

void AudioRenderer::takePeaks(int32_t& left, int32_t& right) {
    left = right = 0;
    if (streamChannels_ == 0 || input_.rate <= 0) return;
    // What the device took, less what it still holds at this moment.
    const double holds = AudioRenderer::deviceLatencyNow() * input_.rate * rateFactor() * streamChannels_;
    const uint64_t consumed = ring_.consumed();
    const uint64_t heard = consumed - std::min<uint64_t>(consumed, uint64_t(holds));
    peaks_.take(heard, left, right);
}

void AudioRenderer::restartClock(double from) {
    floor_ = from;
    anchorPosition_ = from;
    anchorTime_ = std::chrono::steady_clock::now();
}

void AudioRenderer::setPaused(bool paused) {
    // While paused the device holds what it has; the position stays where the pause found it,
    // and the play goes on from there.
    if (paused) {
        pausedAt_ = position();
    } else {
        const double from = pausedAt_ >= 0 ? pausedAt_ : position();
        pausedAt_ = -1;
        restartClock(from);
    }
    paused_.store(paused, std::memory_order_release);
    // A streaming thread waiting for ring space or for the end parks at once; a resumed
    // device may take the ring on a new thread.
    if (paused) space_.notify();
    else handOver();
    if (streamChannels_ != 0) applyPaused(paused);
}

void AudioRenderer::markSeek(double seconds) {
    if (pausedAt_ >= 0) pausedAt_ = seconds;
    seekPosition_.store(seconds);
    seeking_.store(true, std::memory_order_release);
    if (streamChannels_ == 0) basePosition_.store(seconds);
    restartClock(seconds);
}

double AudioRenderer::position() const {
    if (seeking_.load(std::memory_order_acquire)) return seekPosition_.load();
    if (pausedAt_ >= 0) return pausedAt_;
    const double base = basePosition_.load(std::memory_order_acquire);
    if (streamChannels_ == 0 || input_.rate <= 0 || ring_.flushPending()) return base;
    // What the device took, less what it has not yet played.
    const double taken = mediaFrames_.load(std::memory_order_acquire) / input_.rate;
    const double speed = speed_.load() * rate_.load();
    const double pending = deviceLatencyNow() * speed;
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - anchorTime_).count();
    const double played = std::min(base + std::max(0.0, taken - pending), anchorPosition_ + elapsed * speed);
    floor_ = std::max(floor_, played);
    return floor_;
}

void AudioRenderer::setVolume(int32_t hundredthsDb) {
    gain_.store(gainFromHundredthsDb(hundredthsDb), std::memory_order_release);
    if (streamChannels_ != 0) applyVolume();
}

void AudioRenderer::setRate(double rate) {
    if (pausedAt_ < 0) restartClock(position());
    rate_.store(rate, std::memory_order_release);
    if (streamChannels_ != 0) applyRate(rate);
}

void AudioRenderer::took(size_t frames, bool flushed) {
    mediaFrames_.store(mediaFrames_.load(std::memory_order_relaxed) +
                           double(frames) * speed_.load(std::memory_order_acquire),
                       std::memory_order_release);
    // The producer waits for a good part of the ring, or (at the end) for it to run empty.
    if (flushed || ring_.readable() == 0 || ring_.space() >= ring_.capacity() / kRefillDivisor)
        space_.notify();
}

size_t AudioRenderer::pull(float* out, size_t frames, bool& flushed) {
    const size_t ch = size_t(streamChannels_);
    flushed = ring_.takeFlush();
    if (flushed) mediaFrames_.store(0, std::memory_order_release);
    const size_t taken = std::min(ring_.readable() / ch, frames);
    ring_.read(out, taken * ch);
    if (taken > 0 || flushed) took(taken, flushed);
    return taken;
}

size_t AudioRenderer::discard(size_t frames, bool& flushed) {
    const size_t ch = size_t(streamChannels_);
    flushed = ring_.takeFlush();
    if (flushed) mediaFrames_.store(0, std::memory_order_release);
    const size_t taken = std::min(ring_.readable() / ch, frames);
    ring_.skip(taken * ch);
    if (taken > 0 || flushed) took(taken, flushed);
    return taken;
}

} // namespace corvid::native
