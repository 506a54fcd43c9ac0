#pragma once
// White-box access to a Player for its own tests: the state the public surface does not show,
// and the private handlers that the platform's events reach. One shared header; add what a
// test needs, keep what others added.

#include "control/Player.h"

#include <string>

namespace corvid {

struct PlayerInternals {
    // ---- Playstate and transport ----
    static PlayCondition& playstate(Player& p) { return p.playstate_; }
    static bool& graphLoaded(Player& p) { return p.graphLoaded_; }
    static bool& pflGraph(Player& p) { return p.pflGraph_; }
    static bool& playingOverride(Player& p) { return p.playingOverride_; }
    static bool& seeking(Player& p) { return p.seeking_; }
    static int32_t& storedVolume(Player& p) { return p.storedVolume_; }
    static double& cachedPosition(Player& p) { return p.cachedPosition_; }
    static double& cachedDuration(Player& p) { return p.cachedDuration_; }
    static double& cachedRate(Player& p) { return p.cachedRate_; }
    static double& pitchRate(Player& p) { return p.pitchRate_; }
    static double& silenceStart(Player& p) { return p.silenceStart_; }
    static TimerClass1& stopwatch(Player& p) { return p.Stopwatch(); }
    static void setPlaystate(Player& p, PlayCondition s) { p.SetPlaystate(s); }

    // ---- Load ----
    static std::string& currentItem(Player& p) { return p.currentItem_; }
    static bool& loadBusy(Player& p) { return p.loadBusy_; }

    // ---- Cue and segue ----
    static bool& autoCueBusy(Player& p) { return p.AutoCueBusy_; }
    static bool& seguePending(Player& p) { return p.seguePending_; }
    static int32_t& cueSearchStart(Player& p) { return p.cueSearchStart_; }

    // ---- Graph object model ----
    static platform::GraphPtr& mainGraph(Player& p) { return p.MainGraphMan; }
    static platform::GraphPtr& pflGraphMan(Player& p) { return p.PFLGraphMan; }
    static platform::GraphHelperPtr& helper(Player& p) { return p.Helper; }
    static platform::GraphHelperPtr& cueHelper(Player& p) { return p.CueHelper; }
    static platform::FilterPtr& pitchShifter(Player& p) { return p.fPitchShifter; }
    static bool& usingAsfReader(Player& p) { return p.UsingASFReader_; }
    static bool& usingHaldenSource(Player& p) { return p.UsingHaldenSource_; }
    static void createHelpers(Player& p) { p.CreateHelpers(); }
};

} // namespace corvid
