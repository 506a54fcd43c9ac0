#pragma once
// The simulation, as a host's tests use it: a deterministic machine with three output devices
// ("Default DirectSound Device", "DirectSound: Brindle Dummy Output Device", "Speakers (Sim 7.1
// Surround)"), files the test adds, and a clock the test advances. A Player made over it
// behaves as over the native runtime, without sound, files or time passing:
//
//     corvid::SimPlatform sim;
//     sim.addFile("/music/a.mp3", 180, {{"Artist", "A"}, {"Title", "T"}}, 0.5, 176);
//     corvid::Player deck(sim);
//     ... deck.put_FileName(...); deck.Play();
//     sim.runFor(180'000);                                   // three minutes, in no time
//     sim.heardMs("Default DirectSound Device");

#include <corvid/EventLoop.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace corvid {

namespace platform {
class Platform;
}
namespace sim {
class SimPlatform;
}

class SimPlatform {
public:
    SimPlatform();
    ~SimPlatform();
    SimPlatform(const SimPlatform&) = delete;
    SimPlatform& operator=(const SimPlatform&) = delete;

    // What a Player is made over.
    platform::Platform& platform();
    operator platform::Platform&() { return platform(); }
    EventLoop& eventLoop();

    // A file of `durationSeconds`, of the kind its extension names (mp3, wav, ogg, flac, m4a,
    // mp4, aac, wma). It is silent before `loudFromSeconds` (where the cue-in search stops)
    // and from `quietFromSeconds` on (where a segue search finds the fade), when that is >= 0.
    // Tags by name: "Artist", "Title", and attributes such as "WM/Year".
    void addFile(const std::string& path, double durationSeconds,
                 const std::map<std::string, std::string>& tags = {}, double loudFromSeconds = 0,
                 double quietFromSeconds = -1);
    void removeFile(const std::string& path);
    void addAudioRenderer(const std::string& name, int32_t numSpeakers = 2);
    // Unplugs every device of that name; returns how many went.
    int removeAudioRenderer(const std::string& name);

    // Moves the clock on, playing what plays and posting the events that fall due; pump()
    // then delivers them. runFor() does both in steps, as a host's loop running for a while.
    void advanceMs(int64_t ms);
    int pump();
    void runFor(int64_t ms, int64_t stepMs = 10);

    // Milliseconds of audio (of `item`, or of anything) that reached the device.
    int64_t heardMs(const std::string& device, const std::string& item = {}) const;

    // The whole machine (filters, streams, faults), for tests built inside Corvid's source tree.
    sim::SimPlatform& machine() { return *machine_; }

private:
    std::unique_ptr<sim::SimPlatform> machine_;
};

} // namespace corvid
