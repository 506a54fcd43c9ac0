#pragma once
// The silence settings shared by every player of a process: how far below full scale counts
// as silence, for how long, and whether detection is on; and the decision each peak report
// makes with them. One clsSilenceDet serves the process (it lives in the platform's
// process-wide state); it loads when it is made and saves when it is released.
//
// Persisted form ("Corvid" / "Fenwick1" / "SilenceData"): dB, seconds and enabled,
// comma-separated, e.g. "-40,30,True". Nothing stored reads as "40,30,-1".
//
// Threads: control thread only (the peak report runs there).

#include "platform/Services.h"

#include <cstdint>

namespace corvid {

// The settings record, fields in this order.
struct SilenceDet {
    int32_t dBDownSilence = 0;   // dB relative to full scale, normally negative
    int16_t intValueSilence = 0; // the same level as a peak on the 16-bit sample scale
    double HowLongFor = 0;       // seconds both channels must stay below the level
    bool Enabled = false;
};

class clsSilenceDet {
public:
    // Loads the settings from the store.
    explicit clsSilenceDet(platform::SettingsStore& store);
    // Saves the settings; a failed save is ignored.
    ~clsSilenceDet();

    clsSilenceDet(const clsSilenceDet&) = delete;
    clsSilenceDet& operator=(const clsSilenceDet&) = delete;

    // Sets the silence level in dB. A positive value is negated and anything further down
    // than 50 dB becomes -50; the corrected value is written back into `dB`. 0 dB has an
    // amplitude of 32768, which does not fit the 16-bit threshold: it throws "Overflow" and
    // the record is left unchanged.
    void put_SilenceDetdBDownIsSilence(int32_t& dB);
    int32_t get_SilenceDetdBDownIsSilence() const { return det_.dBDownSilence; }

    bool get_SilenceDetectorEnabled() const { return det_.Enabled; }
    void put_SilenceDetectorEnabled(bool enabled) { det_.Enabled = enabled; }

    // HowLongFor rounded to whole seconds, ties to even. Throws "Overflow" when a stored
    // value is out of the 32-bit range.
    int32_t get_SilenceDetSecs() const;
    // Below 1 becomes 30, in the caller's variable too.
    void put_SilenceDetSecs(int32_t& seconds);

    const SilenceDet& Record() const { return det_; }
    // The threshold the peaks are compared with.
    int16_t intValueSilence() const { return det_.intValueSilence; }

    // 10^(dB/20) * 32768, rounded half to even: -40 -> 328, -20 -> 3277, -50 -> 104.
    // Throws "Overflow" beyond the 32-bit range.
    static int32_t dBToAmplitude(double dB);

    // Reads "SilenceData". With a comma: dB (0 or above reads as -40), seconds, enabled;
    // the first field that cannot be read ends the parse and the rest keep their values.
    // Without a comma (an empty value): stores an empty value and takes 40 (deliberately
    // positive; the next load reads it as -40), 328, 30 s, enabled.
    void Load();
    // Writes "SilenceData" as dB, seconds in shortest form and "True"/"False"; failures are
    // ignored.
    void Save();

private:
    platform::SettingsStore& store_;
    SilenceDet det_;
};

// What one peak report does to the silence count.
enum class SilenceAction {
    Restart,    // sound on a channel: the silence start time becomes now
    Nothing,    // a peak exactly at the threshold: neither restart nor count
    Start,      // silence begins: the unset start time becomes now
    Raise,      // silence long enough: the start time becomes now, raise SilenceDetected
    Continue,   // silence, not yet long enough
};

struct SilenceDecision {
    SilenceAction action = SilenceAction::Nothing;
    int32_t seconds = 0; // for Raise: the whole seconds of silence to report
};

// The decision for one peak report, made while playing with both switches on. Times are in
// seconds (start 0 = unset); whole seconds are counted as a clock with one-second
// resolution shows them. A peak above the threshold on either channel restarts; a peak
// equal to it on either channel does nothing; only both strictly below count.
SilenceDecision silenceCheck(int32_t threshold, int32_t left, int32_t right,
                             double silenceStart, double now, int32_t silenceDetSecs);

} // namespace corvid
