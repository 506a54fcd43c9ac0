#include "platform/native/renderers/HeardPeaks.h"

#include "platform/native/filters/Filters.h"

#include <algorithm>

namespace corvid::native {

void HeardPeaks::reset(size_t sliceSamples) {
    sliceSamples_ = std::max<size_t>(sliceSamples, 1);
    head_.store(0);
    tail_.store(0);
    stale_.store(0);
    open_[0] = open_[1] = 0;
    openSamples_ = 0;
}

void HeardPeaks::see(const float* samples, int frames, int channels, uint64_t start,
                     size_t ringPerFrame) {
    if (channels <= 0 || ringPerFrame == 0) return;
    int done = 0;
    while (done < frames) {
        const size_t wanted = (sliceSamples_ - std::min(openSamples_, sliceSamples_) + ringPerFrame - 1) / ringPerFrame;
        const int n = std::min(frames - done, int(std::max<size_t>(wanted, 1)));
        raisePeaks(samples + size_t(done) * size_t(channels), n, channels, open_);
        done += n;
        openSamples_ += size_t(n) * ringPerFrame;
        if (openSamples_ < sliceSamples_) continue;
        const uint64_t head = head_.load(std::memory_order_relaxed);
        // A consumer that stopped reading leaves no room: the open slice grows until it reads.
        if (head - tail_.load(std::memory_order_acquire) >= kSlices) continue;
        slices_[head % kSlices] = Slice{start + uint64_t(done) * ringPerFrame, open_[0], open_[1]};
        head_.store(head + 1, std::memory_order_release);
        open_[0] = open_[1] = 0;
        openSamples_ = 0;
    }
}

void HeardPeaks::take(uint64_t heard, int32_t& left, int32_t& right) {
    float l = 0, r = 0;
    const uint64_t head = head_.load(std::memory_order_acquire);
    const uint64_t stale = stale_.load(std::memory_order_acquire);
    uint64_t tail = tail_.load(std::memory_order_relaxed);
    for (; tail < head; ++tail) {
        const Slice& s = slices_[tail % kSlices];
        if (s.end > heard) break;
        if (s.end <= stale) continue; // queued before a seek: never heard
        l = std::max(l, s.left);
        r = std::max(r, s.right);
    }
    tail_.store(tail, std::memory_order_release);
    left = peakToScale(l);
    right = peakToScale(r);
}

} // namespace corvid::native
