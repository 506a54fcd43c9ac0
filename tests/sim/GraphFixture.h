#pragma once
// A player on the standard simulated machine, with logging on and a recording host, for the
// graph and device tests: builds items, and reads back which filters stand in the graph and
// which is connected to which.

#include <corvid/Player.h>
#include "platform/sim/SimPlatform.h"
#include "tests/sim/PlayerInternals.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace corvid::testing {

inline sim::SimFile simFile(const std::string& mediaType, double seconds = 120.0) {
    sim::SimFile file;
    file.mediaType = mediaType;
    file.durationSeconds = seconds;
    return file;
}

class GraphFixture : public ::testing::Test {
protected:
    static constexpr const char* Mp3 = "/music/one.mp3";
    static constexpr const char* Wav = "/music/two.wav";
    static constexpr const char* Wma = "/music/three.WMA";
    static constexpr const char* Ogg = "/music/four.ogg";
    static constexpr const char* Flac = "/music/five.flac";
    static constexpr const char* M4a = "/music/six.m4a";
    static constexpr const char* Stream = "icystream://127.0.0.1:8000/live";

    void SetUp() override {
        sim = sim::SimPlatform::standardMachine();
        sim->addFile(Mp3, simFile("stream/mpeg-audio"));
        sim->addFile(Wav, simFile("stream/wave;pcm16"));
        sim->addFile(Wma, simFile("stream/asf;wma"));
        sim->addFile(Ogg, simFile("stream/ogg;vorbis"));
        sim->addFile(Flac, simFile("stream/flac"));
        sim->addFile(M4a, simFile("stream/mp4;aac"));
        player = std::make_unique<Player>(*sim);
        player->setEvents(&host);
        bool on = true;
        player->put_LoggingEnabled(on);
    }

    PlayerInternals pi() { return PlayerInternals(*player); }
    sim::SimOperatorServices& ops() { return sim->operatorServices(); }

    bool build(const std::string& file, bool mustUseAsfReader = false, bool canUseAutoRender = false) {
        return pi().buildGraph(file, mustUseAsfReader, canUseAutoRender);
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
    bool loggedStartingWith(const std::string& prefix) const {
        return std::any_of(host.log.begin(), host.log.end(),
                           [&](const std::string& l) { return l.rfind(prefix, 0) == 0; });
    }
    bool wroteLog(const std::string& line) const {
        return std::find(host.writeLog.begin(), host.writeLog.end(), line) != host.writeLog.end();
    }
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

    std::unique_ptr<sim::SimPlatform> sim;
    std::unique_ptr<Player> player;
    RecordingEvents host;
};

// The plain MP3 route from the file source to the default device.
inline const std::set<std::string> kMp3Route = {
    "File Source (Async.) -> MPEG-I Stream Splitter", "MPEG-I Stream Splitter -> MPEG Layer-3 Decoder",
    "MPEG Layer-3 Decoder -> Halden Sample Grabber", "Halden Sample Grabber -> Default DirectSound Device"};

} // namespace corvid::testing
