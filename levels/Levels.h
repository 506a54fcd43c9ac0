#pragma once
// The levels of one player: the peaks of the helper's last report, and the dead-air check that
// every report runs while the player plays, with the settings dialog the host opens for all
// players of the process.

#include "levels/SilenceDet.h"
#include "platform/Platform.h"
#include "support/EventChannel.h"
#include "support/ProcessState.h"

#include <cstdint>
#include <functional>
#include <string>

namespace corvid {

class dlgSilence;

class Levels {
public:
    // The first player of a process makes the shared silence detector, and turns its own
    // detection on at that moment.
    Levels(EventChannel& events, PlayerProcessState& process, platform::Platform& platform);

    int32_t get_LeftVUPeak() const;
    int32_t get_RightVuPeak() const;
    bool get_SilenceDetEnabled() const { return enabled_; }
    void put_SilenceDetEnabled(bool& value) { enabled_ = value; }
    clsSilenceDet& get_SilenceDet() { return *process_.silenceDet; }

    // The peaks of the helper's latest report.
    void setPeaks(int32_t left, int32_t right) {
        left_ = left;
        right_ = right;
    }
    // The dead-air check of one report made while playing; raises SilenceDetected.
    void checkSilence(int32_t left, int32_t right);
    // The silence count starts again (with every play).
    void restartSilenceCount();

    // Presents the silence settings dialog modally (a toolkit view over the dialog model,
    // shown over `owner`); without one, SilenceDetShowUI logs that no dialog can be shown.
    void setSilenceDialogPresenter(std::function<void(dlgSilence&, void* owner)> presenter) {
        presenter_ = std::move(presenter);
    }
    void SilenceDetShowUI(void* Ownerform = nullptr, const std::string& Notes = std::string());

private:
    EventChannel& events_;
    PlayerProcessState& process_;
    platform::TickCounter& ticks_;
    bool enabled_ = false;
    int32_t left_ = 0;
    int32_t right_ = 0;
    double silenceStart_ = 0; // seconds since midnight; 0 = not yet set
    std::function<void(dlgSilence&, void*)> presenter_;
};

} // namespace corvid
