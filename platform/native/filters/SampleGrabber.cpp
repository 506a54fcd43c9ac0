// "Halden Sample Grabber": passes audio untouched and keeps the peak of each channel since
// the helper last asked, for the meters.

#include "platform/native/filters/Filters.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace corvid::native {

namespace {
void raiseTo(std::atomic<int32_t>& slot, int32_t value) {
    int32_t seen = slot.load(std::memory_order_relaxed);
    while (value > seen && !slot.compare_exchange_weak(seen, value, std::memory_order_relaxed)) {
    }
}

} // namespace

void raisePeaks(const float* samples, int frames, int ch, float peak[2]) {
    // Eight running maxima over eight consecutive samples, so that the compiler keeps them in
    // vector registers: this runs on every sample the streaming thread moves.
    float acc[8];
    int f = 0;
    if (ch <= 2) {
        const float first = peak[0];
        const float second = ch == 1 ? first : peak[1];
        for (int k = 0; k < 8; ++k) acc[k] = k % 2 == 0 ? first : second;
        const int perBlock = 8 / ch;
        for (; f + perBlock <= frames; f += perBlock) {
            const float* block = samples + size_t(f) * size_t(ch);
            for (int k = 0; k < 8; ++k) {
                const float v = std::fabs(block[k]);
                acc[k] = acc[k] > v ? acc[k] : v;
            }
        }
    } else {
        for (int k = 0; k < 8; ++k) acc[k] = peak[k % 2];
    }
    // The rest, and every frame of a layout with more than two channels.
    for (; f < frames; ++f) {
        const float* frame = samples + size_t(f) * size_t(ch);
        acc[0] = std::max(acc[0], std::fabs(frame[0]));
        acc[1] = std::max(acc[1], std::fabs(frame[ch > 1 ? 1 : 0]));
    }
    const float even = std::max({acc[0], acc[2], acc[4], acc[6]});
    const float odd = std::max({acc[1], acc[3], acc[5], acc[7]});
    if (ch == 1) {
        peak[0] = peak[1] = std::max(even, odd);
    } else {
        peak[0] = even;
        peak[1] = odd;
    }
}

int32_t peakToScale(float peak) { return int32_t(std::lrint(std::min(peak, 1.0f) * 32768.0f)); }

void measurePeaks(const PcmFormat& format, const uint8_t* data, int frames, int32_t& left,
                  int32_t& right) {
    left = right = 0;
    const int ch = format.channels;
    if (ch <= 0 || frames <= 0) return;
    // Block by block through a small float buffer on the stack: the streaming thread calls
    // this for every buffer and must not allocate for it.
    constexpr int kBlockSamples = 2048;
    float block[kBlockSamples];
    const int perBlock = std::max(1, kBlockSamples / ch);
    const size_t bytesPerFrame = size_t(format.frameBytes());
    float peak[2] = {0, 0};
    for (int done = 0; done < frames; done += perBlock) {
        const int n = std::min(perBlock, frames - done);
        toFloat(format, data + size_t(done) * bytesPerFrame, n, block);
        raisePeaks(block, n, ch, peak);
    }
    left = peakToScale(peak[0]);
    right = peakToScale(peak[1]);
}

SampleGrabberFilter::SampleGrabberFilter(const std::string& name) : NativeFilter(name) {
    addPin("Input", platform::PinDirection::Input);
    addPin("Output", platform::PinDirection::Output);
}

Status SampleGrabberFilter::acceptInput(NativePin&, const MediaType& type) {
    if (type.kind != MediaType::Kind::Pcm || type.pcm.channels < 1 || type.pcm.channels > 8)
        return Status::failure(hr::TypeNotAccepted, name() + " takes PCM only.");
    return Status::success();
}

std::vector<MediaType> SampleGrabberFilter::outputTypes(NativePin&, NativePin*) {
    auto in = firstInput();
    if (!in || !in->peer()) return {};
    return {in->mediaType()};
}

void SampleGrabberFilter::receive(NativePin&, Buffer& buffer) {
    if (metering_.load(std::memory_order_relaxed)) peaks_.see(buffer);
    deliverAll(buffer);
}

void SampleGrabberFilter::flush(NativePin& in, double newPosition) {
    peaks_.clear();
    NativeFilter::flush(in, newPosition);
}

bool SampleGrabberFilter::fed() {
    auto in = firstInput();
    return in && in->peer();
}

void PeakKeeper::see(const Buffer& buffer) {
    int32_t l = 0, r = 0;
    measurePeaks(buffer.format, buffer.bytes.data(), buffer.frames(), l, r);
    raiseTo(left_, l);
    raiseTo(right_, r);
}

void PeakKeeper::take(int32_t& left, int32_t& right) {
    left = left_.exchange(0);
    right = right_.exchange(0);
}

void PeakKeeper::clear() {
    left_.store(0);
    right_.store(0);
}

} // namespace corvid::native
