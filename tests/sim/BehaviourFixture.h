#pragma once
// A player on the standard simulated machine with a recording host, for the load, transport,
// cue/segue and level tests.

#include <corvid/Player.h>
#include "platform/sim/SimPlatform.h"
#include "tests/sim/PlayerInternals.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace corvid::testing {

using States = std::vector<std::pair<int32_t, int32_t>>;

// Whether `expected` appear in `lines` in this order (other lines may come between).
inline ::testing::AssertionResult inOrder(const std::vector<std::string>& lines,
                                          const std::vector<std::string>& expected) {
    auto it = lines.begin();
    for (const auto& want : expected) {
        it = std::find(it, lines.end(), want);
        if (it == lines.end()) return ::testing::AssertionFailure() << "missing or out of order: " << want;
        ++it;
    }
    return ::testing::AssertionSuccess();
}

inline sim::SimFile audioFile(std::string type, double seconds, std::map<std::string, std::string> tags = {}) {
    sim::SimFile file;
    file.mediaType = std::move(type);
    file.durationSeconds = seconds;
    file.tags = std::move(tags);
    return file;
}

class BehaviourTest : public ::testing::Test {
protected:
    using PI = PlayerInternals;
    static constexpr const char* Mp3 = "/music/a.mp3";
    static constexpr const char* Mp3B = "/music/b.mp3";
    static constexpr const char* Live = "http://127.0.0.1:8000/live";

    BehaviourTest() : sim(sim::SimPlatform::standardMachine()) {
        sim->setTickCount(100000); // a machine up for a while: no tick reading is 0
        sim->addFile(Mp3, audioFile("stream/mpeg-audio", 180.0));
        sim->addFile(Mp3B, audioFile("stream/mpeg-audio", 240.0));
        sim->addStream(Live, {});
        player = std::make_unique<Player>(*sim);
        player->setEvents(&host);
        // Windows Media items and plain stream addresses need the reader the first player bans.
        bool banned = false;
        player->put_ASFReaderBanned(banned);
    }
    ~BehaviourTest() override { player.reset(); }

    void logging(bool on) { player->put_LoggingEnabled(on); }
    void load(std::string name) { player->put_FileName(name); }
    void loadAndPlay(const std::string& name = Mp3) {
        load(name);
        ASSERT_EQ(player->get_FileName(), name) << player->get_LastError();
        player->Play();
        ASSERT_EQ(player->get_Playstate(), MpPlaying);
        host.clear();
    }
    sim::SimGraphHelper& helper() { return *sim->lastHelper(platform::GraphHelperKind::Helper); }
    sim::SimGraphHelper& cueHelper() { return *sim->lastHelper(platform::GraphHelperKind::CueHelper); }
    int32_t graphVolume() {
        int32_t level = 0;
        player->mainGraph()->volume(level);
        return level;
    }
    void noPitchAdjuster() {
        bool off = false;
        player->put_UsePitchAdjuster(off);
    }

    std::unique_ptr<sim::SimPlatform> sim;
    RecordingEvents host;
    std::unique_ptr<Player> player;
};

} // namespace corvid::testing
