#pragma once
// White-box access to a Player for its own tests: the state that the public surface does not
// show, and the private operations a test drives one at a time. Shared by every test file;
// add accessors here rather than in a test.

#include "control/Player.h"

#include <string>

namespace corvid {

struct PlayerInternals {
    explicit PlayerInternals(Player& p) : p(p) {}
    Player& p;

    PlayCondition& storedPlaystate() { return p.playstate_; }
    bool& playingOverride() { return p.playingOverride_; }
    int32_t& leftPeak() { return p.leftPeak_; }
    int32_t& rightPeak() { return p.rightPeak_; }
    std::string& currentItem() { return p.currentItem_; }
    platform::GraphPtr& mainGraph() { return p.MainGraphMan; }
    std::string& lastError() { return p.LastError_; }
    bool& pipe2020() { return p.Pipe2020_; }
    platform::FilterPtr& pipeSender() { return p.fPipeSender; }
    platform::FilterPtr& pitchShifter() { return p.fPitchShifter; }

    void log(const std::string& text) { p.Log(text); }
    void writeLog(const std::string& text) { p.RaiseWriteLog(text); }

    // ---- Transport ----
    bool& seeking() { return p.seeking_; }
    bool& graphLoaded() { return p.graphLoaded_; }
    bool& loadBusy() { return p.loadBusy_; }

    // ---- Cue and segue ----
    bool& seguePending() { return p.seguePending_; }
    platform::GraphHelperPtr& cueHelper() { return p.CueHelper; }
    bool& usingAsfReader() { return p.UsingASFReader_; }
    bool& usingHaldenSource() { return p.UsingHaldenSource_; }
};

} // namespace corvid
