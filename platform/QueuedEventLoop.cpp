#include "platform/QueuedEventLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

namespace corvid::platform {
namespace {

int makeWakeupFd() {
    const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0)
        throw std::runtime_error(std::string("Corvid: the event loop cannot make its wakeup descriptor: ") +
                                 std::strerror(errno));
    return fd;
}

} // namespace

QueuedEventLoop::QueuedEventLoop(std::size_t maxPending)
    : maxPending_(maxPending), wakeupFd_(makeWakeupFd()) {}

QueuedEventLoop::~QueuedEventLoop() { ::close(wakeupFd_); }

void QueuedEventLoop::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        if (tasks_.size() >= maxPending_) {
            if (dropped_++ == 0)
                std::fprintf(stderr, "Corvid: the host does not pump its event loop; events are being dropped.\n");
            return;
        }
        // Written under the lock, so that the descriptor is never readable with an empty queue
        // nor quiet with a full one.
        if (tasks_.empty()) {
            const uint64_t one = 1;
            [[maybe_unused]] const auto written = ::write(wakeupFd_, &one, sizeof one);
        }
        tasks_.push_back(std::move(task));
    }
    wake_.notify_all();
}

std::function<void()> QueuedEventLoop::takeFirstLocked() {
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    if (tasks_.empty()) {
        uint64_t count;
        [[maybe_unused]] const auto read = ::read(wakeupFd_, &count, sizeof count);
    }
    return task;
}

int QueuedEventLoop::processPending() {
    checkControlThread("EventLoop::processPending");
    std::size_t due;
    {
        std::lock_guard lock(mutex_);
        due = tasks_.size();
    }
    int ran = 0;
    for (; due > 0; --due) {
        std::function<void()> task;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty()) break; // a task pumped the loop itself and ran the rest
            task = takeFirstLocked();
        }
        task();
        ++ran;
    }
    return ran;
}

void QueuedEventLoop::run() {
    checkControlThread("EventLoop::run");
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return quit_ || !tasks_.empty(); });
            if (quit_) {
                quit_ = false;
                return;
            }
            task = takeFirstLocked();
        }
        task();
    }
}

bool QueuedEventLoop::runUntil(const std::function<bool()>& done, int timeoutMs) {
    checkControlThread("EventLoop::runUntil");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        processPending();
        if (done()) return true;
        std::unique_lock lock(mutex_);
        if (!wake_.wait_until(lock, deadline, [this] { return !tasks_.empty(); })) {
            lock.unlock();
            processPending();
            return done();
        }
    }
}

void QueuedEventLoop::quit() {
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
}

std::size_t QueuedEventLoop::pendingCount() const {
    std::lock_guard lock(mutex_);
    return tasks_.size();
}

uint64_t QueuedEventLoop::dropped() const {
    std::lock_guard lock(mutex_);
    return dropped_;
}

} // namespace corvid::platform
