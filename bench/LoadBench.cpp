// Side-by-side timings on the simulation, in one run, printed as ratios:
//  - a full load and play of an item with logging off against logging on: the switch is
//    checked before any text is built, so logging off should cost a fraction;
//  - PrintFilters with logging off (no graph walk) against on.
// Rounds alternate between the variants so that a noisy machine hurts both alike.

#include "SideBySide.h"
#include <corvid/Player.h>
#include "platform/sim/SimPlatform.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct CountingHost : corvid::PlayerEvents {
    size_t lines = 0;
    void PlayerLogInfo(std::string& info) override { lines += info.size() > 0; }
};

// The two variants of a pair, side by side: the median microseconds of each.
std::pair<double, double> sideBySide(int rounds, const std::function<void()>& a,
                                     const std::function<void()>& b) {
    const auto ms = corvid::bench::sideBySide(rounds, {a, b});
    return {ms[0] * 1000, ms[1] * 1000};
}

void loadAndPlay(bool logging) {
    auto sim = corvid::sim::SimPlatform::standardMachine();
    corvid::sim::SimFile file;
    file.mediaType = "stream/mpeg-audio";
    file.durationSeconds = 180;
    sim->addFile("/music/item.mp3", file);
    corvid::Player player(*sim);
    CountingHost host;
    player.setEvents(&host);
    player.put_LoggingEnabled(logging);
    std::string item = "/music/item.mp3";
    player.put_FileName(item);
    player.Play();
    sim->runFor(1000, 50);
    player.StopPlaying();
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(3, std::atoi(argv[1])) : 41;

    auto [loadOff, loadOn] = sideBySide(rounds, [] { loadAndPlay(false); }, [] { loadAndPlay(true); });
    std::printf("load+play 1 s, logging off: %9.1f us   on: %9.1f us   off/on = %.2f\n", loadOff,
                loadOn, loadOff / loadOn);

    auto sim = corvid::sim::SimPlatform::standardMachine();
    corvid::sim::SimFile file;
    file.mediaType = "stream/mpeg-audio";
    file.durationSeconds = 180;
    sim->addFile("/music/item.mp3", file);
    corvid::Player player(*sim);
    std::string item = "/music/item.mp3";
    player.put_FileName(item);
    corvid::platform::GraphPtr graph = player.mainGraph();
    size_t sink = 0;
    auto [printOff, printOn] = sideBySide(
        rounds * 10,
        [&] {
            bool off = false;
            player.put_LoggingEnabled(off);
            for (int i = 0; i < 100; ++i) sink += player.PrintFilters(graph).size();
        },
        [&] {
            bool on = true;
            player.put_LoggingEnabled(on);
            for (int i = 0; i < 100; ++i) sink += player.PrintFilters(graph).size();
        });
    std::printf("PrintFilters x100, logging off: %9.1f us   on: %9.1f us   off/on = %.3f\n",
                printOff, printOn, printOff / printOn);
    return sink == 0; // keeps the listing from being optimised away
}
