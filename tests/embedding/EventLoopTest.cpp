// What a host that waits on the event loop's descriptor in its own loop relies on, on both
// platforms' loops: readable exactly while tasks wait, drained by the pumps.

#include "platform/native/EventLoop.h"
#include "platform/sim/SimServices.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>
#include <thread>

namespace corvid::platform {
namespace {

bool readable(const EventLoop& loop, int waitMs) {
    pollfd p{loop.wakeupFd(), POLLIN, 0};
    return ::poll(&p, 1, waitMs) == 1 && (p.revents & POLLIN);
}

struct LoopCase {
    const char* name;
    std::unique_ptr<QueuedEventLoop> (*make)();
};

// ctest names the cases by what gtest prints of them: the name, never the bytes.
void PrintTo(const LoopCase& c, std::ostream* os) { *os << c.name; }

class EventLoopTest : public ::testing::TestWithParam<LoopCase> {};

TEST_P(EventLoopTest, DescriptorIsReadableWhileTasksWaitAndThePumpsDrainIt) {
    auto loop = GetParam().make();
    EXPECT_FALSE(readable(*loop, 0));

    int ran = 0;
    std::thread poster([&] { loop->post([&] { ++ran; }); });
    EXPECT_TRUE(readable(*loop, 5000)) << "a post from another thread wakes the host";
    poster.join();
    EXPECT_EQ(loop->processPending(), 1);
    EXPECT_EQ(ran, 1);
    EXPECT_FALSE(readable(*loop, 0));

    // A task posted by a task waits for the next pump, and the descriptor says so.
    loop->post([&] { loop->post([&] { ++ran; }); });
    EXPECT_EQ(loop->processPending(), 1);
    EXPECT_TRUE(readable(*loop, 0));
    EXPECT_TRUE(loop->runUntil([&] { return ran == 2; }, 5000));
    EXPECT_FALSE(readable(*loop, 0));

    loop->post([&] { ++ran; });
    loop->post([&] { loop->quit(); });
    loop->run();
    EXPECT_EQ(ran, 3);
    EXPECT_FALSE(readable(*loop, 0));
}

INSTANTIATE_TEST_SUITE_P(
    Loops, EventLoopTest,
    ::testing::Values(
        LoopCase{"native", [] { return std::unique_ptr<QueuedEventLoop>(new native::NativeEventLoop); }},
        LoopCase{"sim", [] { return std::unique_ptr<QueuedEventLoop>(new sim::SimEventLoop); }}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
} // namespace corvid::platform
