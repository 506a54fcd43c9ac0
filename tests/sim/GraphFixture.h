#pragma once
// A player on the standard simulated machine, with logging on and a recording host, for the
// graph, chain and device tests: loads items through FileName, as a host does, and reads back
// which filters stand in the graph and which is connected to which.

#include <corvid/Player.h>
#include "platform/sim/SimPlatform.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace corvid::testing {

inline sim::SimFile simFile(const std::string& mediaType, double seconds = 120.0,
                            std::map<std::string, std::string> tags = {}) {
    sim::SimFile file;
    file.mediaType = mediaType;
    file.durationSeconds = seconds;
    file.tags = std::move(tags);
    return file;
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

class GraphFixture : public ::testing::Test {
public: // open to the tables' own checks
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

    sim::SimOperatorServices& ops() { return sim->operatorServices(); }
    void set(void (Player::*setter)(bool&), bool value) { (player.get()->*setter)(value); }

    // Loads as a host does; true when FileName names the item afterwards.
    bool load(std::string name) {
        player->put_FileName(name);
        return player->get_FileName() == name && !name.empty();
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
    platform::FilterPtr filter(const std::string& name) {
        if (auto graph = player->mainGraph())
            for (const auto& f : graph->filters())
                if (f->name() == name) return f;
        return nullptr;
    }

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

} // namespace corvid::testing
