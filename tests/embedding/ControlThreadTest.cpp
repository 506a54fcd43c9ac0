// A host that calls the player from another thread than the one that made its platform is
// stopped with a message naming the member, in a debug build. This test builds the check in
// its debug form whatever the build type, so that CI's release build runs it too.

#include <corvid/Player.h>
#include "platform/sim/SimPlatform.h"

#include <gtest/gtest.h>

#include <thread>

namespace corvid {
namespace {

TEST(ControlThreadDeathTest, AMemberCalledOnAnotherThreadAbortsNamingIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto platform = sim::SimPlatform::standardMachine();
    Player player(*platform);
    std::string item = "/music/none.mp3";
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"Player::Play", [&] { player.Play(); }},
        {"Player::put_FileName", [&] { player.put_FileName(item); }},
        {"EventLoop::processPending", [&] { platform->eventLoop().processPending(); }},
        {"Player::Player", [&] { Player other(*platform); }},
    };
    for (const auto& [member, call] : calls)
        EXPECT_DEATH(std::thread(call).join(), std::string(member) + " was called on thread")
            << member;
    player.StopPlaying(); // the control thread itself passes
}

} // namespace
} // namespace corvid
