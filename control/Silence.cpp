// Silence: the dead-air check that every helper tick runs while playing, and the settings
// dialog the host opens for all players of the process.

#include "control/PlayerCore.h"

#include "levels/SilenceDet.h"
#include "levels/SilenceDialog.h"

namespace corvid {

void PlayerCore::SilenceCheck(int32_t left, int32_t right) {
    if (get_Playstate() != MpPlaying) return;
    try {
        clsSilenceDet& detector = get_SilenceDet();
        const int32_t threshold = detector.intValueSilence();
        if (!detector.get_SilenceDetectorEnabled() || !SilenceDetEnabled_) return;

        const double now = platform_.ticks().secondsSinceMidnight();
        const SilenceDecision decision = silenceCheck(threshold, left, right, silenceStart_, now,
                                                      detector.get_SilenceDetSecs());
        switch (decision.action) {
        case SilenceAction::Restart:
        case SilenceAction::Start: silenceStart_ = now; break;
        case SilenceAction::Raise:
            // The next report counts from here: continuing silence is raised again after as
            // many seconds more.
            silenceStart_ = now;
            raiseEvent([&](PlayerEvents& e) { e.SilenceDetected(decision.seconds); });
            break;
        case SilenceAction::Nothing:
        case SilenceAction::Continue: break;
        }
    } catch (const AutomationError&) {
        // A count beyond the 32-bit range is no count; the next report starts again.
    }
}

void PlayerCore::setSilenceDialogPresenter(std::function<void(dlgSilence&, void* owner)> presenter) {
    silenceDialogPresenter_ = std::move(presenter);
}

void PlayerCore::SilenceDetShowUI(void* Ownerform, const std::string& Notes) {
    try {
        dlgSilence dialog;
        dialog.Show(get_SilenceDet(), Notes);
        if (silenceDialogPresenter_)
            silenceDialogPresenter_(dialog, Ownerform);
        else
            Log("SilenceDetShowUI: no dialog can be shown here (no presenter).");
    } catch (...) {
        // The dialog's own failures (a 0 dB entry) stay in the dialog.
    }
}

} // namespace corvid
