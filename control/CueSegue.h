#pragma once
// Cue-in and segue points. The player does not scan audio itself: the CueHelper decodes the
// item in the background and reports the cue-in point (where the audio really starts) and the
// segue point (where its end is quiet enough for the next item). A segue search asked for while
// a cue search runs waits for the cue result, or, when none comes, for the first cue helper
// tick 5001 ms or more after the cue search began.

#include "devices/GraphModel.h"
#include "platform/Platform.h"

#include <cstdint>
#include <string>

namespace corvid {

class CueSegue {
public:
    CueSegue(GraphModel& g, EventChannel& events, platform::TickCounter& ticks)
        : g_(g), events_(events), ticks_(ticks) {}

    void AutoCueSearch(const std::string& sFile = std::string());
    void AutoSegSearch();
    bool get_AutoSeg() const { return autoSeg_; }
    void put_AutoSeg(bool& value) { autoSeg_ = value; }
    int32_t get_AutoSegThresh() const { return segueThreshold_; }
    void put_AutoSegThresh(int32_t& value) { segueThreshold_ = value; }
    // Shared by the process; reads as 500 while below 1.
    int32_t get_autoCueThresh();
    void put_autoCueThresh(int32_t& value);
    double get_AutoCuePos() const { return cuePos_; }
    double get_AutoSegPos() const { return seguePos_; }
    void put_AutoSegPos(double value) { seguePos_ = value; }
    bool get_AutoCueBusy() const { return cueBusy_; }

    // A new item: no search of the last one is awaited any more.
    void forgetSearches() { cueBusy_ = seguePending_ = false; }
    void forgetCuePoint() { cuePos_ = 0; }

    // The CueHelper's events.
    void cueResult(int32_t positionMs);
    void segueResult(int32_t positionMs);
    void cueHelperEnd() { cueBusy_ = false; }
    void cueHelperTick();

private:
    platform::Status startSegueSearch(bool retryWithAsfReader);

    GraphModel& g_;
    EventChannel& events_;
    platform::TickCounter& ticks_;
    bool autoSeg_ = false;
    int32_t segueThreshold_ = 0;
    bool cueBusy_ = false;
    bool seguePending_ = false;
    int32_t cueSearchStart_ = 0;
    double cuePos_ = 0;
    double seguePos_ = 0;
};

} // namespace corvid
