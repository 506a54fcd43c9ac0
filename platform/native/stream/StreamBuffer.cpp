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

size_t StreamBuffer::unread() const {
    std::lock_guard lock(mutex_);
    const int64_t end = base_ + int64_t(data_.size());
    return size_t(end - std::max(readTo_, base_));
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

void StreamBuffer::goLive(std::function<void()> onStarve) {
    std::lock_guard lock(mutex_);
    live_ = true;
    onStarve_ = std::move(onStarve);
}

void StreamBuffer::skipToLive(size_t keep) {
    std::lock_guard lock(mutex_);
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
    const int64_t wanted = origin_ + skipped_ + offset;
    int64_t at = wanted;
    const int n = buffer_->read(at, destination, count);
    skipped_ += at - wanted;
    return n;
}

} // namespace corvid::native
