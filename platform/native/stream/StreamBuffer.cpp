#include "platform/native/stream/StreamBuffer.h"

#include <algorithm>
#include <utility>

namespace corvid::native {

void StreamBuffer::append(const uint8_t* data, size_t size) {
    {
        std::lock_guard lock(mutex_);
        if (cancelled_ || finished_) return;
        data_.insert(data_.end(), data, data + size);
        trimLocked();
    }
    wake_.notify_all();
}

bool StreamBuffer::finish() {
    bool was;
    {
        std::lock_guard lock(mutex_);
        finished_ = true;
        was = starving_;
        starving_ = false;
    }
    wake_.notify_all();
    return was;
}

size_t StreamBuffer::unreadLocked() const {
    const int64_t end = base_ + int64_t(data_.size());
    return size_t(end - std::max(readTo_, base_));
}

size_t StreamBuffer::unread() const {
    std::lock_guard lock(mutex_);
    return unreadLocked();
}

bool StreamBuffer::needsRoom() {
    std::lock_guard lock(mutex_);
    wantsRoom_ = live_ && unreadLocked() >= highWater_;
    return wantsRoom_;
}

void StreamBuffer::roomLocked(std::unique_lock<std::mutex>& lock) {
    if (cancelled_ || !wantsRoom_ || unreadLocked() > highWater_ / 2 || !onRoom_) return;
    wantsRoom_ = false;
    auto told = onRoom_;
    lock.unlock();
    told();
    lock.lock();
}

bool StreamBuffer::starving() const {
    std::lock_guard lock(mutex_);
    return starving_;
}

bool StreamBuffer::endStarving() {
    bool was;
    {
        std::lock_guard lock(mutex_);
        was = starving_;
        starving_ = false;
    }
    wake_.notify_all();
    return was;
}

void StreamBuffer::cancel() {
    {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
        starving_ = false;
    }
    wake_.notify_all();
}

bool StreamBuffer::interrupt() {
    bool was;
    {
        std::lock_guard lock(mutex_);
        interrupted_ = true;
        was = starving_;
        starving_ = false;
    }
    wake_.notify_all();
    return was;
}

void StreamBuffer::resume() {
    std::lock_guard lock(mutex_);
    interrupted_ = false;
}

void StreamBuffer::goLive(std::function<void()> onStarve, std::function<void()> onRoom) {
    std::lock_guard lock(mutex_);
    live_ = true;
    onStarve_ = std::move(onStarve);
    onRoom_ = std::move(onRoom);
}

void StreamBuffer::skipToLive(size_t keep) {
    std::unique_lock lock(mutex_);
    struct Room {
        StreamBuffer& b;
        std::unique_lock<std::mutex>& lock;
        ~Room() { b.roomLocked(lock); }
    } room{*this, lock};
    const int64_t end = base_ + int64_t(data_.size());
    const int64_t from = std::max(readTo_, end - int64_t(keep));
    const int64_t drop = std::min<int64_t>(from - base_, int64_t(data_.size()));
    if (drop <= 0) return;
    data_.erase(data_.begin(), data_.begin() + drop);
    base_ += drop;
}

bool StreamBuffer::waitForBytes(size_t count, std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    const auto done = [&] {
        return cancelled_ || finished_ || base_ + int64_t(data_.size()) >= int64_t(count);
    };
    if (deadline == std::chrono::steady_clock::time_point::max()) wake_.wait(lock, done);
    else wake_.wait_until(lock, deadline, done);
    return !cancelled_;
}

int StreamBuffer::read(int64_t& offset, uint8_t* destination, int count) {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (cancelled_) return -1;
        if (live_ && interrupted_) {
            readCut_ = true;
            return -1;
        }
        offset = std::max(offset, base_);
        const int64_t end = base_ + int64_t(data_.size());
        if (offset < end && !starving_) {
            const int n = int(std::min<int64_t>(end - offset, count));
            std::copy_n(data_.begin() + (offset - base_), n, destination);
            readTo_ = std::max(readTo_, offset + n);
            trimLocked();
            roomLocked(lock);
            return n;
        }
        if (finished_ && offset >= end) return 0;
        if (live_ && !starving_ && offset >= end) {
            starving_ = true;
            if (onStarve_) {
                auto told = onStarve_;
                lock.unlock();
                told();
                lock.lock();
                continue;
            }
        }
        wake_.wait(lock);
    }
}

int64_t StreamBuffer::written() const {
    std::lock_guard lock(mutex_);
    return base_ + int64_t(data_.size());
}

std::string StreamBuffer::copyStart(size_t count) const {
    std::lock_guard lock(mutex_);
    if (base_ != 0) return {};
    return std::string(data_.begin(), data_.begin() + int64_t(std::min(count, data_.size())));
}

int64_t StreamBuffer::readPosition() const {
    std::lock_guard lock(mutex_);
    return std::max(readTo_, base_);
}

bool StreamBuffer::takeReadCut() {
    std::lock_guard lock(mutex_);
    return std::exchange(readCut_, false);
}

void StreamBuffer::trimLocked() {
    // Bytes read long ago go first; past the capacity, the oldest go whether read or not.
    int64_t dropTo = std::max(base_, readTo_ - int64_t(keepBehind_));
    if (data_.size() - size_t(std::min<int64_t>(dropTo - base_, int64_t(data_.size()))) > capacity_)
        dropTo = base_ + int64_t(data_.size() - capacity_);
    const int64_t drop = std::min<int64_t>(dropTo - base_, int64_t(data_.size()));
    if (drop <= 0) return;
    data_.erase(data_.begin(), data_.begin() + drop);
    base_ += drop;
}

int StreamView::read(int64_t offset, uint8_t* destination, int count) {
    const int64_t prefix = int64_t(prefix_.size());
    if (offset < prefix) {
        const int n = int(std::min<int64_t>(prefix - offset, count));
        std::copy_n(prefix_.data() + offset, n, destination);
        return n;
    }
    offset -= prefix;
    const int64_t wanted = origin_ + skipped_ + offset;
    int64_t at = wanted;
    const int n = buffer_->read(at, destination, count);
    skipped_ += at - wanted;
    return n;
}

size_t oggHeaderLength(const uint8_t* data, size_t size) {
    constexpr size_t kPageHead = 27;
    size_t at = 0;
    while (at + kPageHead <= size && std::equal(data + at, data + at + 4, "OggS")) {
        uint64_t granule = 0;
        for (int i = 7; i >= 0; --i) granule = granule << 8 | data[at + 6 + size_t(i)];
        if (granule != 0 && granule != ~uint64_t(0)) break; // the first page of audio
        const size_t segments = data[at + 26];
        if (at + kPageHead + segments > size) break;
        size_t body = 0;
        for (size_t i = 0; i < segments; ++i) body += data[at + kPageHead + i];
        if (at + kPageHead + segments + body > size) break;
        at += kPageHead + segments + body;
    }
    return at;
}

} // namespace corvid::native
