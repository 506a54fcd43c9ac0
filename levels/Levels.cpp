// Levels: the peaks, the dead-air check and the silence settings dialog.

#include "levels/Levels.h"

#include "levels/SilenceDialog.h"

#include <corvid/AutomationError.h>

#include <climits>
#include <cstdlib>

namespace corvid {

Levels::Levels(EventChannel& events, PlayerProcessState& process, platform::Platform& platform)
    : events_(events), process_(process), ticks_(platform.ticks()) {
    if (!process_.silenceDet) {
        enabled_ = true;
        process_.silenceDet = std::make_shared<clsSilenceDet>(platform.settings());
    }
}

// The magnitude; the most negative value has none and shows as the largest.
int32_t Levels::get_LeftVUPeak() const { return left_ == INT32_MIN ? INT32_MAX : std::abs(left_); }
int32_t Levels::get_RightVuPeak() const { return right_ == INT32_MIN ? INT32_MAX : std::abs(right_); }

void Levels::restartSilenceCount() { silenceStart_ = ticks_.secondsSinceMidnight(); }

void Levels::checkSilence(int32_t left, int32_t right) {
    try {
        clsSilenceDet& detector = get_SilenceDet();
        const int32_t threshold = detector.intValueSilence();
        if (!detector.get_SilenceDetectorEnabled() || !enabled_) return;

        const double now = ticks_.secondsSinceMidnight();
        const SilenceDecision decision = silenceCheck(threshold, left, right, silenceStart_, now,
                                                      detector.get_SilenceDetSecs());
        switch (decision.action) {
        case SilenceAction::Restart:
        case SilenceAction::Start: silenceStart_ = now; break;
        case SilenceAction::Raise:
            // The next report counts from here: continuing silence is raised again after as
            // many seconds more.
            silenceStart_ = now;
            events_.raise([&](PlayerEvents& e) { e.SilenceDetected(decision.seconds); });
            break;
        case SilenceAction::Nothing:
        case SilenceAction::Continue: break;
        }
    } catch (const AutomationError&) {
        // A count beyond the 32-bit range is no count; the next report starts again.
    }
}

void Levels::SilenceDetShowUI(void* Ownerform, const std::string& Notes) {
    try {
        dlgSilence dialog;
        dialog.Show(get_SilenceDet(), Notes);
        if (presenter_)
            presenter_(dialog, Ownerform);
        else
            events_.Log("SilenceDetShowUI: no dialog can be shown here (no presenter).");
    } catch (...) {
        // The dialog's own failures (a 0 dB entry) stay in the dialog.
    }
}

} // namespace corvid
