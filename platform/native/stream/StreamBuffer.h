#pragma once
// The bytes of one network stream between the socket and the demuxer: the network thread
// appends, the demuxer reads by offset. Bounded: past its capacity the oldest bytes go, and a
// reader that fell behind skips forward (MPEG audio, ADTS and Ogg find their sync again).
//
// Once live (the stream is open), a reader that finds nothing waits for a refill instead of a
// byte at a time: the buffer is "starving" until the network thread, which watches the fill,
// ends it. MT safe: every member may be called from any thread.

#include "platform/native/graph/MediaType.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace corvid::native {

class StreamBuffer {
public:
    // `capacity`: bytes held at most (read and unread); `keepBehind`: bytes kept behind the
    // furthest read, for the type probe's second look at the start.
    StreamBuffer(size_t capacity, size_t keepBehind)
        : capacity_(capacity), keepBehind_(keepBehind), highWater_(capacity - keepBehind) {}

    // --- network thread ---
    void append(const uint8_t* data, size_t size);
    // No more bytes will come (the server closed, or failed). Returns whether a starvation
    // was under way: the reader goes on with what is left.
    bool finish();
    // Bytes appended and not yet read.
    size_t unread() const;
    bool starving() const;
    // Ends a starvation: waiting readers go on. True when one was under way.
    bool endStarving();
    // Whether the unread bytes reached the high-water mark: the network thread stops reading
    // (the server meets TCP back-pressure) until `onRoom` (see goLive) says there is room again.
    bool needsRoom();

    // --- control thread ---
    // Permanent: every wait ends and reads fail.
    void cancel();
    // A stop: reads of a live stream fail until resumed. Returns whether a starvation was
    // under way (it ends with the stop).
    bool interrupt();
    void resume();
    // From now on an empty buffer means a starvation; `onStarve` is told when one begins,
    // and `onRoom` when a full buffer was read down to half (both on the reading thread).
    void goLive(std::function<void()> onStarve, std::function<void()> onRoom);
    // Drops unread bytes but the newest `keep`: a restarted stream plays what is live now.
    void skipToLive(size_t keep);

    // --- readers ---
    // Waits until `count` bytes have arrived in all, no more can come, or `deadline`.
    // False if cancelled.
    bool waitForBytes(size_t count, std::chrono::steady_clock::time_point deadline =
                                        std::chrono::steady_clock::time_point::max());
    // Reads at `offset` (moved forward when those bytes were dropped): up to `count` bytes,
    // waiting for at least one. 0 at the end, -1 when cancelled or interrupted.
    int read(int64_t& offset, uint8_t* destination, int count);
    int64_t written() const;
    // The stream's first bytes, up to `count`, while they are still held (else empty).
    std::string copyStart(size_t count) const;
    // Where a new reader starts: the first byte not read yet.
    int64_t readPosition() const;
    // Whether a read failed because of interrupt() since the last call.
    bool takeReadCut();

private:
    void trimLocked();
    size_t unreadLocked() const;
    // Tells the network thread about room once a full buffer was read down to half.
    void roomLocked(std::unique_lock<std::mutex>& lock);

    const size_t capacity_;
    const size_t keepBehind_;
    const size_t highWater_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<uint8_t> data_;
    int64_t base_ = 0;    // stream offset of data_.front()
    int64_t readTo_ = 0;  // furthest offset read
    bool finished_ = false, cancelled_ = false, interrupted_ = false;
    bool live_ = false, starving_ = false;
    bool readCut_ = false;
    bool wantsRoom_ = false;
    std::function<void()> onStarve_, onRoom_;
};

// A demuxer's view of the buffer: offsets from where it started reading, as a ByteReader,
// after `prefix` (the codec headers of a stream that is opened again mid-way). Used by one
// thread at a time (the probe, then the streaming thread).
class StreamView final : public ByteReader {
public:
    StreamView(std::shared_ptr<StreamBuffer> buffer, int64_t origin, std::string address,
               std::string prefix = {})
        : buffer_(std::move(buffer)), origin_(origin), address_(std::move(address)),
          prefix_(std::move(prefix)) {}
    int64_t size() const override { return -1; }
    bool seekable() const override { return false; }
    std::string path() const override { return address_; }
    int read(int64_t offset, uint8_t* destination, int count) override;

private:
    std::shared_ptr<StreamBuffer> buffer_;
    int64_t origin_;
    int64_t skipped_ = 0; // bytes the buffer dropped under this reader
    std::string address_;
    std::string prefix_;
};

// The length of the Ogg pages at the start of `data` that carry codec headers (granule
// position 0, or -1 for a page that ends no packet), or 0 when `data` is not Ogg.
size_t oggHeaderLength(const uint8_t* data, size_t size);

} // namespace corvid::native
