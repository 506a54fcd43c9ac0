#pragma once
// The meters' view of what is heard: peaks of the audio a renderer queues, in slices of about
// 10 ms stamped with their place in the ring, read by where the device has played up to. The
// decoder runs up to a ring and a device buffer ahead of the speakers, in bursts; a meter fed
// as the audio is queued shows those bursts (full peaks, then nothing), not the music.
//
// Single producer (the streaming thread) and single consumer (the control thread), lock-free.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace corvid::native {

class HeardPeaks {
public:
    // Before streaming: slices of `sliceSamples` ring samples; forgets every slice.
    void reset(size_t sliceSamples);
    // Stream thread: `frames` frames of interleaved float `samples` (`channels` each) that
    // take the ring's samples from `start`, at `ringPerFrame` ring samples a frame.
    void see(const float* samples, int frames, int channels, uint64_t start, size_t ringPerFrame);
    // Stream thread: what was queued up to ring sample `end` went stale (a seek), the slice
    // being filled included: what follows starts a slice of its own.
    void flushed(uint64_t end) {
        stale_.store(end, std::memory_order_release);
        open_[0] = open_[1] = 0;
        openSamples_ = 0;
    }
    // Control thread: the highest peaks (16-bit scale) of the slices heard since the last
    // call, that is those that end at or before ring sample `heard`.
    void take(uint64_t heard, int32_t& left, int32_t& right);

private:
    struct Slice {
        uint64_t end = 0;
        float left = 0, right = 0;
    };
    static constexpr size_t kSlices = 512; // 5 s of 10 ms slices: more than ring and device hold

    std::array<Slice, kSlices> slices_{};
    std::atomic<uint64_t> head_{0}; // slices published (producer)
    std::atomic<uint64_t> tail_{0}; // slices taken (consumer)
    std::atomic<uint64_t> stale_{0};
    size_t sliceSamples_ = 0;
    // Producer: the slice being filled.
    float open_[2] = {0, 0};
    size_t openSamples_ = 0;
};

} // namespace corvid::native
