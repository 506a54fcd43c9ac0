#pragma once
// A player on the standard simulated machine with a recording host, in two setups: GraphFixture
// (logging on, the reader banned as a first player has it) for the graph, chain and device tests,
// which read back which filters stand in the graph and which is connected to which; BehaviourTest
// (a machine up for a while, the reader allowed) for the load, transport, cue/segue and level tests.

#include <corvid/Player.h>
#include "platform/sim/SimPlatform.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace corvid::testing {

inline sim::SimFile simFile(const std::string& mediaType, double seconds = 120.0,
                            std::map<std::string, std::string> tags = {}) {
    return sim::SimFile(mediaType, seconds, {}, std::move(tags));
}

// The filters upstream of the renderer the graph plays to (a name starting with `device`),
// from the source down, as "A > B > C".
inline std::string chainToDevice(const platform::GraphPtr& graph, const std::string& device) {
    auto input = [](const platform::FilterPtr& f) -> platform::PinPtr {
        for (const auto& pin : f->pins())
            if (pin->direction() == platform::PinDirection::Input) return pin;
        return nullptr;
    };
    platform::PinPtr pin;
    if (graph)
        for (const auto& f : graph->filters())
            if (f->name().rfind(device, 0) == 0) pin = input(f);
    std::string chain;
    for (int step = 0; step < 16 && pin && pin->connectedTo(); ++step) {
        const auto up = pin->connectedTo()->filter();
        chain = chain.empty() ? up->name() : up->name() + " > " + chain;
        pin = input(up);
    }
    return chain;
}

// Whether `expected` appear in `lines` in this order (other lines may come between); "~x"
// stands for a line containing x.
inline ::testing::AssertionResult inOrder(const std::vector<std::string>& lines,
                                          const std::vector<std::string>& expected) {
    auto it = lines.begin();
    for (const auto& want : expected) {
        it = std::find_if(it, lines.end(), [&](const std::string& l) {
            return want.rfind('~', 0) == 0 ? l.find(want.substr(1)) != std::string::npos : l == want;
        });
        if (it == lines.end())
            return ::testing::AssertionFailure() << "missing or out of order: " << want << "\nin:\n"
                                                 << ::testing::PrintToString(lines);
        ++it;
    }
    return ::testing::AssertionSuccess();
}

using States = std::vector<std::pair<int32_t, int32_t>>;

class PlayerFixture : public ::testing::Test {
public: // open to the tables' own checks
    std::unique_ptr<Player> makePlayer() {
        auto p = std::make_unique<Player>(*sim);
        p->setEvents(&host);
        return p;
    }
    sim::SimOperatorServices& ops() { return sim->operatorServices(); }
    // Writes through a setter as a host does; the value the setter left in the host's variable.
    template <class T> T put(void (Player::*setter)(T&), T value) { return (player.get()->*setter)(value), value; }
    bool set(void (Player::*setter)(bool&), bool value) { return put(setter, value); }
    int32_t set(void (Player::*setter)(int32_t&), int32_t value) { return put(setter, value); }
    float set(void (Player::*setter)(float&), float value) { return put(setter, value); }
    double set(void (Player::*setter)(double&), double value) { return put(setter, value); }
    std::string set(void (Player::*setter)(std::string&), std::string value) { return put(setter, value); }

    // Loads as a host does; true when FileName names the item afterwards.
    bool load(std::string name) {
        player->put_FileName(name);
        return player->get_FileName() == name && !name.empty();
    }
    // What a call raised towards the host, or nothing.
    template <class F> static std::optional<AutomationError> raised(F&& call) {
        try {
            call();
        } catch (const AutomationError& e) {
            return e;
        }
        return std::nullopt;
    }
    std::string chain(const std::string& device = "Default DirectSound Device") {
        return chainToDevice(player->mainGraph(), device);
    }

    // Names of the filters in the main graph, in the graph's order.
    std::vector<std::string> filters() {
        std::vector<std::string> names;
        if (auto graph = player->mainGraph())
            for (const auto& f : graph->filters()) names.push_back(f->name());
        return names;
    }
    int countFilters(const std::string& name) {
        const auto names = filters();
        return static_cast<int>(std::count(names.begin(), names.end(), name));
    }
    bool hasFilter(const std::string& name) { return countFilters(name) > 0; }

    // Every connection of the main graph as "upstream -> downstream" filter names.
    std::set<std::string> links() {
        std::set<std::string> result;
        if (auto graph = player->mainGraph())
            for (const auto& f : graph->filters())
                for (const auto& pin : f->pins())
                    if (pin->direction() == platform::PinDirection::Output)
                        if (auto other = pin->connectedTo())
                            result.insert(f->name() + " -> " + other->filter()->name());
        return result;
    }

    bool logged(const std::string& line) const { return host.logged(line); }
    bool boxShown(const std::string& text, const std::string& title = {}) {
        for (const auto& box : ops().messageBoxes())
            if (box.text == text && (title.empty() || box.title == title)) return true;
        return false;
    }
    bool started(const std::string& commandLine) {
        for (const auto& p : ops().processes())
            if (p.commandLine == commandLine) return true;
        return false;
    }

    std::unique_ptr<sim::SimPlatform> sim = sim::SimPlatform::standardMachine();
    RecordingEvents host;
    std::unique_ptr<Player> player;
};

class GraphFixture : public PlayerFixture {
public:
    static constexpr const char* Mp3 = "/music/one.mp3";
    static constexpr const char* Wav = "/music/two.wav";
    static constexpr const char* Wma = "/music/three.WMA";
    static constexpr const char* Ogg = "/music/four.ogg";
    static constexpr const char* Flac = "/music/five.flac";
    static constexpr const char* M4a = "/music/six.m4a";
    static constexpr const char* Stream = "icystream://127.0.0.1:8000/live";

    void SetUp() override {
        sim->addFile(Mp3, simFile("stream/mpeg-audio"));
        sim->addFile(Wav, simFile("stream/wave;pcm16"));
        sim->addFile(Wma, simFile("stream/asf;wma"));
        sim->addFile(Ogg, simFile("stream/ogg;vorbis"));
        sim->addFile(Flac, simFile("stream/flac"));
        sim->addFile(M4a, simFile("stream/mp4;aac"));
        player = makePlayer();
        set(&Player::put_LoggingEnabled, true);
    }
};

class BehaviourTest : public PlayerFixture {
protected:
    static constexpr const char* Mp3 = "/music/a.mp3";
    static constexpr const char* Mp3B = "/music/b.mp3";
    static constexpr const char* Live = "http://127.0.0.1:8000/live";

    BehaviourTest() {
        sim->setTickCount(100000); // a machine up for a while: no tick reading is 0
        sim->addFile(Mp3, simFile("stream/mpeg-audio", 180.0));
        sim->addFile(Mp3B, simFile("stream/mpeg-audio", 240.0));
        sim->addStream(Live, {});
        player = makePlayer();
        // Windows Media items and plain stream addresses need the reader the first player bans.
        set(&Player::put_ASFReaderBanned, false);
    }

    void logging(bool on) { set(&Player::put_LoggingEnabled, on); }
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
    void noPitchAdjuster() { set(&Player::put_UsePitchAdjuster, false); }
};

} // namespace corvid::testing
