#include "platform/native/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace corvid::native {

namespace {

int checked(int fd, const char* what) {
    if (fd < 0)
        throw std::runtime_error(std::string("Corvid: the event loop cannot make its ") + what +
                                 ": " + std::strerror(errno));
    return fd;
}

void watch(int epoll, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0)
        throw std::runtime_error(std::string("Corvid: the event loop cannot watch a descriptor: ") +
                                 std::strerror(errno));
}

} // namespace

NativeEventLoop::NativeEventLoop(std::chrono::microseconds tickPeriod)
    : QueuedEventLoop(kMaxPending), clock_(std::make_shared<PlatformClock>(tickPeriod)),
      epoll_(checked(::epoll_create1(EPOLL_CLOEXEC), "wakeup descriptor")),
      quitFd_(checked(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "quit descriptor")) {
    watch(epoll_, QueuedEventLoop::wakeupFd());
    watch(epoll_, clock_->fd());
    watch(epoll_, quitFd_);
}

NativeEventLoop::~NativeEventLoop() {
    ::close(quitFd_);
    ::close(epoll_);
}

int NativeEventLoop::processPending() {
    checkControlThread("EventLoop::processPending");
    const int ticked = clock_->expire();
    return ticked + QueuedEventLoop::processPending();
}

void NativeEventLoop::wait(int timeoutMs) {
    epoll_event events[3];
    [[maybe_unused]] const int n = ::epoll_wait(epoll_, events, 3, timeoutMs);
}

void NativeEventLoop::run() {
    checkControlThread("EventLoop::run");
    for (;;) {
        if (quit_.exchange(false)) {
            uint64_t count;
            [[maybe_unused]] const auto read = ::read(quitFd_, &count, sizeof count);
            return;
        }
        processPending();
        if (!quit_.load()) wait(-1);
    }
}

bool NativeEventLoop::runUntil(const std::function<bool()>& done, int timeoutMs) {
    checkControlThread("EventLoop::runUntil");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        processPending();
        if (done()) return true;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0) return false;
        wait(int(left));
    }
}

void NativeEventLoop::quit() {
    quit_.store(true);
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(quitFd_, &one, sizeof one);
}

} // namespace corvid::native
