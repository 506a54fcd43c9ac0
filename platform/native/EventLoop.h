#pragma once
// The control thread's queue. Streaming threads, device callbacks and helper tickers post
// their results here; the host pumps it with run(), runUntil(), or processPending() when its
// wakeup descriptor becomes readable.
//
// Bounded: every source of the runtime posts at a bounded rate (ticks are not doubled,
// stream reports and titles are spaced), so the queue stays short while the host pumps. A
// host that stops pumping must not make the process grow without end all the same: past
// kMaxPending waiting tasks, further posts are dropped (and counted) until it pumps again.

#include "platform/QueuedEventLoop.h"

namespace corvid::native {

class NativeEventLoop final : public platform::QueuedEventLoop {
public:
    static constexpr size_t kMaxPending = 65536;

    NativeEventLoop() : QueuedEventLoop(kMaxPending) {}
};

} // namespace corvid::native
