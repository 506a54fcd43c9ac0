#pragma once
// The transport: Play, Pause and StopPlaying, the one place the playstate changes, the helper's
// tick and end, and position, duration, elapsed time, volume, mute and rate.
//
// There is no timer in the player: all periodic work runs in the helper tick, at the helper's
// rate. Events are raised synchronously and hosts call back into the player from inside them,
// so the transport guards itself with flags (stop-busy, seek, reload), never with locks.

#include <corvid/PlayCondition.h>

#include "devices/GraphModel.h"
#include "formats/FormatChains.h"
#include "graph/GraphSession.h"
#include "levels/Levels.h"
#include "platform/Platform.h"
#include "support/TimerClass1.h"

#include <cstdint>
#include <functional>
#include <string>

namespace corvid {

class Transport : public TransportHost {
public:
    // `reload` loads an item again as a FileName write does (Play reloads a stream).
    Transport(GraphModel& g, EventChannel& events, GraphSession& session, FormatChains& chains,
              Levels& levels, platform::Platform& platform, std::function<void(std::string&)> reload);

    void Play();
    void Pause();
    void StopPlaying() override;
    void RaiseEndOfStream();
    PlayCondition get_Playstate() override { return playingOverride_ ? MpPlaying : playstate_; }
    void SetPlaystate(PlayCondition newState);
    void ResetPlaystateBookkeeping() override;

    float get_Elapsed();
    void put_ElapsedForcedChange(float& value);
    double get_Duration();
    double get_CurrentPosition() { return position_; }
    void put_CurrentPosition(double& value);
    double get_GraphPosition();
    double get_GraphDuration();
    int32_t get_Volume();
    void put_Volume(int32_t& value);
    bool get_mute();
    void put_mute(bool& value);
    double get_Rate();
    void put_Rate(double& value);

    // The helper's events.
    void helperTick(int32_t left, int32_t right);
    void helperEnd();

    // What a load tells the transport. While it runs the load owns the graph, and the ticks
    // leave the position alone.
    bool loadBusy = false;
    PlayCondition storedPlaystate() const { return playstate_; }
    void setDuration(double seconds) { duration_ = seconds; }
    void loaded() { graphLoaded_ = true; }
    // Nothing is loaded; stored without an event.
    void unloaded() {
        playstate_ = mpstopped;
        graphLoaded_ = false;
    }
    void ApplyStoredVolume();
    // Rate and pitch go to the pitch filter, or it passes the audio through.
    void ApplyPitchOptions(const std::string& name);

private:
    bool SourceFeedsGraph() const;
    // The pitch filter's control in the current graph, or null.
    platform::PitchShifterControl* PitchControl();

    GraphModel& g_;
    EventChannel& events_;
    GraphSession& session_;
    FormatChains& chains_;
    Levels& levels_;
    platform::Platform& platform_;
    std::function<void(std::string&)> reload_;
    TimerClass1 stopwatch_;

    PlayCondition playstate_ = mpstopped;
    bool graphLoaded_ = false;
    bool playingOverride_ = false; // Play reloads a stream: it reads as playing meanwhile
    bool reloading_ = false;
    bool stopBusy_ = false;
    bool seeking_ = false;
    int32_t storedVolume_ = 0;
    double position_ = 0;
    double duration_ = 0;
    double rate_ = 1.0;
    bool pitchCarriesRate_ = false; // a Rate write went to the pitch filter
    double pitchRate_ = 1.0;        // the rate the pitch filter is to play at
};

} // namespace corvid
