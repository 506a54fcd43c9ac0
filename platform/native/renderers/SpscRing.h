#pragma once
// Lock-free single-producer single-consumer ring of float samples between a streaming thread
// (producer) and a device callback (consumer). Indices grow monotonically; the consumer also
// honours flush requests: the producer names the write index up to which everything queued
// is stale, and the consumer skips to it on its next read.

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>

namespace corvid::native {

class SpscRing {
public:
    // Control thread, while neither side runs.
    void reset(size_t capacitySamples) {
        size_t cap = 1;
        while (cap < capacitySamples) cap <<= 1;
        data_ = std::make_unique<float[]>(cap);
        capacity_ = cap;
        read_.store(0);
        write_.store(0);
        flushSeq_.store(0);
        flushAck_.store(0);
        flushTarget_.store(0);
        handOver();
    }
    size_t capacity() const { return capacity_; }
    // Control thread: a side may go on on a new thread (its old thread has ended: a pause
    // ends the streaming thread and the silent device's).
    void handOver() {
#ifndef NDEBUG
        producer_.store(std::thread::id{});
        consumer_.store(std::thread::id{});
#endif
    }

    // --- producer ---
    size_t writable() const {
        checkProducer();
        if (flushSeq_.load(std::memory_order_acquire) != flushAck_.load(std::memory_order_acquire))
            return 0; // the consumer has not yet skipped the stale part
        return capacity_ - (write_.load(std::memory_order_relaxed) -
                            read_.load(std::memory_order_acquire));
    }
    void write(const float* source, size_t count) {
        checkProducer();
        const uint64_t w = write_.load(std::memory_order_relaxed);
        copyIn(source, w, count);
        write_.store(w + count, std::memory_order_release);
    }
    // Everything written so far is stale.
    void requestFlush() {
        checkProducer();
        flushTarget_.store(write_.load(std::memory_order_relaxed), std::memory_order_relaxed);
        flushSeq_.fetch_add(1, std::memory_order_release);
    }
    uint64_t written() const { return write_.load(std::memory_order_acquire); }

    // --- consumer ---
    // Applies a pending flush; returns true when one was applied.
    bool takeFlush() {
        checkConsumer();
        const uint64_t seq = flushSeq_.load(std::memory_order_acquire);
        if (seq == flushAck_.load(std::memory_order_relaxed)) return false;
        read_.store(flushTarget_.load(std::memory_order_relaxed), std::memory_order_release);
        flushAck_.store(seq, std::memory_order_release);
        return true;
    }
    size_t readable() const {
        return write_.load(std::memory_order_acquire) - read_.load(std::memory_order_relaxed);
    }
    void read(float* destination, size_t count) {
        checkConsumer();
        const uint64_t r = read_.load(std::memory_order_relaxed);
        copyOut(destination, r, count);
        read_.store(r + count, std::memory_order_release);
    }
    // Drops `count` samples unread (a device that plays nothing).
    void skip(size_t count) {
        checkConsumer();
        read_.store(read_.load(std::memory_order_relaxed) + count, std::memory_order_release);
    }
    uint64_t consumed() const { return read_.load(std::memory_order_acquire); }
    // Either side: room for the producer, ignoring a pending flush.
    size_t space() const {
        return capacity_ - (write_.load(std::memory_order_acquire) - read_.load(std::memory_order_acquire));
    }
    bool flushPending() const {
        return flushSeq_.load(std::memory_order_acquire) != flushAck_.load(std::memory_order_acquire);
    }

private:
    // `count` samples into or out of the ring at index `at`, in at most two copies (the
    // second when the run wraps round the end).
    void copyIn(const float* source, uint64_t at, size_t count) {
        const size_t offset = size_t(at & (capacity_ - 1));
        const size_t first = std::min(count, capacity_ - offset);
        std::memcpy(data_.get() + offset, source, first * sizeof(float));
        std::memcpy(data_.get(), source + first, (count - first) * sizeof(float));
    }
    void copyOut(float* destination, uint64_t at, size_t count) const {
        const size_t offset = size_t(at & (capacity_ - 1));
        const size_t first = std::min(count, capacity_ - offset);
        std::memcpy(destination, data_.get() + offset, first * sizeof(float));
        std::memcpy(destination + first, data_.get(), (count - first) * sizeof(float));
    }
#ifndef NDEBUG
    // Each side must stay on one thread for the life of a session (until reset).
    void checkProducer() const { check(producer_); }
    void checkConsumer() const { check(consumer_); }
    static void check(std::atomic<std::thread::id>& owner) {
        std::thread::id expected{};
        const auto self = std::this_thread::get_id();
        if (!owner.compare_exchange_strong(expected, self)) assert(expected == self);
    }
    mutable std::atomic<std::thread::id> producer_{}, consumer_{};
#else
    void checkProducer() const {}
    void checkConsumer() const {}
#endif
    std::unique_ptr<float[]> data_;
    size_t capacity_ = 0;
    std::atomic<uint64_t> read_{0}, write_{0};
    std::atomic<uint64_t> flushSeq_{0}, flushAck_{0}, flushTarget_{0};
};

} // namespace corvid::native
