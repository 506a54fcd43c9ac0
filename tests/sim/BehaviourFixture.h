#pragma once
// A player on the standard simulated machine with a host that records every event it gets,
// for the load, transport, cue/segue and level tests. The host can be told to call back into
// the player from inside an event, as real hosts do.

#include "control/Player.h"
#include "platform/sim/SimPlatform.h"
#include "tests/sim/PlayerInternals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace corvid::testing {

struct RecordingHost : PlayerEvents {
    std::vector<std::string> log;
    std::vector<std::pair<int32_t, int32_t>> states;
    std::vector<std::pair<int32_t, int32_t>> vuPeaks;
    std::vector<int32_t> timings;
    std::vector<int32_t> ends;
    std::vector<int32_t> silences;
    std::vector<double> cueIns;
    std::vector<double> segues;
    int bufferingFinished = 0;
    int playAboutToHappen = 0;

    // Re-entrant hosts: called from inside the event, after it is recorded.
    std::function<void(const std::string&)> onLog;
    std::function<void(int32_t, int32_t)> onState;
    std::function<void(int32_t&, int32_t&)> onVuPeak;

    void PlayerLogInfo(std::string& info) override {
        log.push_back(info);
        if (onLog) onLog(info);
    }
    void PlayStateChange(int32_t oldState, int32_t newState) override {
        states.emplace_back(oldState, newState);
        if (onState) onState(oldState, newState);
    }
    void VUPeak(int32_t& left, int32_t& right) override {
        vuPeaks.emplace_back(left, right);
        if (onVuPeak) onVuPeak(left, right);
    }
    void Timing(int32_t& level) override { timings.push_back(level); }
    void EndOfStream(int32_t result) override { ends.push_back(result); }
    void SilenceDetected(int32_t seconds) override { silences.push_back(seconds); }
    void CueInFound(double& seconds) override { cueIns.push_back(seconds); }
    void SegueFound(double& seconds) override { segues.push_back(seconds); }
    void StreamBufferingFinished() override { ++bufferingFinished; }
    void PlayAboutToHappen() override { ++playAboutToHappen; }

    void clear() {
        log.clear();
        states.clear();
        vuPeaks.clear();
        timings.clear();
        ends.clear();
        silences.clear();
        cueIns.clear();
        segues.clear();
        bufferingFinished = 0;
        playAboutToHappen = 0;
    }
    bool logged(const std::string& line) const {
        return std::find(log.begin(), log.end(), line) != log.end();
    }
    bool loggedStartingWith(const std::string& prefix) const {
        return std::any_of(log.begin(), log.end(),
                           [&](const std::string& l) { return l.rfind(prefix, 0) == 0; });
    }
};

// Whether `expected` appear in `lines` in this order (other lines may come between).
inline ::testing::AssertionResult inOrder(const std::vector<std::string>& lines,
                                          const std::vector<std::string>& expected) {
    auto it = lines.begin();
    for (const auto& want : expected) {
        it = std::find(it, lines.end(), want);
        if (it == lines.end()) return ::testing::AssertionFailure() << "missing or out of order: \"" << want << "\"";
        ++it;
    }
    return ::testing::AssertionSuccess();
}

// A local file of the simulated machine.
inline sim::SimFile audioFile(std::string mediaType, double seconds,
                              std::map<std::string, std::string> tags = {}) {
    sim::SimFile file;
    file.mediaType = std::move(mediaType);
    file.durationSeconds = seconds;
    file.tags = std::move(tags);
    return file;
}

class BehaviourTest : public ::testing::Test {
protected:
    using PI = PlayerInternals;
    using Kind = platform::GraphHelperKind;

    static constexpr const char* Mp3 = "/music/a.mp3";
    static constexpr const char* Mp3B = "/music/b.mp3";

    BehaviourTest() : sim(sim::SimPlatform::standardMachine()) {
        sim->addFile(Mp3, audioFile("stream/mpeg-audio", 180.0));
        sim->addFile(Mp3B, audioFile("stream/mpeg-audio", 240.0));
        player = std::make_unique<Player>(*sim);
        player->setEvents(&host);
    }
    ~BehaviourTest() override {
        host.onLog = nullptr;
        host.onState = nullptr;
        host.onVuPeak = nullptr;
        player.reset();
    }

    void logging(bool on) { player->put_LoggingEnabled(on); }
    // Windows Media files and plain stream addresses need the ASF reader, which the first
    // player of a process bans.
    void allowAsfReader() {
        bool banned = false;
        player->put_ASFReaderBanned(banned);
    }
    void load(const std::string& name) {
        std::string n = name;
        player->put_FileName(n);
    }
    // Loads and plays a file; the recordings start empty afterwards.
    void loadAndPlay(const std::string& name = Mp3) {
        load(name);
        ASSERT_EQ(player->get_FileName(), name) << player->get_LastError();
        player->Play();
        ASSERT_EQ(player->get_Playstate(), MpPlaying);
        host.clear();
    }
    sim::SimGraphHelper& helper() {
        auto h = sim->lastHelper(Kind::Helper);
        EXPECT_TRUE(h);
        return *h;
    }
    sim::SimGraphHelper& cueHelper() {
        auto h = sim->lastHelper(Kind::CueHelper);
        EXPECT_TRUE(h);
        return *h;
    }
    int32_t graphVolume() {
        int32_t level = 0;
        player->mainGraph()->volume(level);
        return level;
    }

    std::unique_ptr<sim::SimPlatform> sim;
    RecordingHost host;
    std::unique_ptr<Player> player;
};

} // namespace corvid::testing
