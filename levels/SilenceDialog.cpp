#include "levels/SilenceDialog.h"

#include "support/CheckedInt.h"
#include "support/PlayerSettings.h"

#include <cmath>
#include <cstdlib>

namespace corvid {

void dlgSilence::Show(clsSilenceDet& detector, const std::string& notes) {
    detector_ = &detector;
    closed_ = false;
    notes_ = notes;
    Fill();
}

void dlgSilence::Fill() {
    if (!detector_) return;
    filling_ = true;
    try {
        txtdB_ = std::to_string(std::llabs(detector_->get_SilenceDetdBDownIsSilence()));
        txtSecs_ = std::to_string(std::llabs(detector_->get_SilenceDetSecs()));
        const bool enabled = detector_->get_SilenceDetectorEnabled();
        txtdBEnabled_ = enabled;
        txtSecsEnabled_ = enabled;
        put_chkEnable(enabled ? 1 : 0);
    } catch (...) {
        filling_ = false;
        throw;
    }
    filling_ = false;
}

void dlgSilence::put_chkEnable(int value) {
    if (value == chkEnable_) return;
    chkEnable_ = value;
    chkEnable_Click();
}

void dlgSilence::chkEnable_Click() {
    // Fill sets the box itself: that is not the user's click.
    if (filling_ || !detector_) return;
    detector_->put_SilenceDetectorEnabled(chkEnable_ == 1);
    Fill();
}

void dlgSilence::OKButton_Click() {
    if (!detector_) return;
    double dB = 0, seconds = 0;
    // 25 rather than the stored default of 40: what the dialog has always offered.
    if (!settings::parseNumber(txtdB_, dB)) {
        txtdB_ = "25";
        dB = 25;
    }
    if (!settings::parseNumber(txtSecs_, seconds)) {
        txtSecs_ = "30";
        seconds = 30;
    }
    dB = std::fabs(dB);
    seconds = std::fabs(seconds);
    txtdB_ = settings::formatNumber(dB);
    txtSecs_ = settings::formatNumber(seconds);

    // No handler here on purpose: 0 dB raises "Overflow" to the view, and the dialog stays
    // open with nothing saved.
    int32_t level = checked::toInt32(-dB);
    detector_->put_SilenceDetdBDownIsSilence(level);
    detector_->put_SilenceDetectorEnabled(chkEnable_ == 1);
    int32_t secs = checked::toInt32(seconds);
    detector_->put_SilenceDetSecs(secs);

    detector_->Save();
    closed_ = true;
}

} // namespace corvid
