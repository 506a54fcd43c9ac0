#include "levels/SilenceDet.h"

#include "support/CheckedInt.h"
#include "support/PlayerSettings.h"
#include "support/Text.h"

#include <cmath>
#include <string>
#include <vector>

namespace corvid {

namespace {

std::vector<std::string> splitAtCommas(const std::string& text) {
    std::vector<std::string> fields;
    std::string::size_type from = 0;
    for (;;) {
        const auto comma = text.find(',', from);
        fields.push_back(text.substr(from, comma - from));
        if (comma == std::string::npos) return fields;
        from = comma + 1;
    }
}

} // namespace

clsSilenceDet::clsSilenceDet(platform::SettingsStore& store) : store_(store) { Load(); }

clsSilenceDet::~clsSilenceDet() { Save(); }

int32_t clsSilenceDet::dBToAmplitude(double dB) {
    return checked::toInt32(std::pow(10.0, dB / 20.0) * 32768.0);
}

void clsSilenceDet::put_SilenceDetdBDownIsSilence(int32_t& dB) {
    if (dB > 0) dB = -dB;
    if (checked::abs(dB) > 50) dB = -50;
    // The amplitude is checked before anything is stored: 0 dB leaves the record as it was.
    det_.intValueSilence = checked::toInt16(dBToAmplitude(dB));
    det_.dBDownSilence = dB;
}

int32_t clsSilenceDet::get_SilenceDetSecs() const { return checked::toInt32(det_.HowLongFor); }

void clsSilenceDet::put_SilenceDetSecs(int32_t& seconds) {
    if (seconds < 1) seconds = 30;
    det_.HowLongFor = std::fabs(static_cast<double>(seconds));
}

void clsSilenceDet::Load() {
    // An unreadable field ends the parse; whatever was read so far stays.
    try {
        PlayerSettings settings(store_);
        const std::string data = settings.readSilenceData();
        if (data.find(',') == std::string::npos) {
            (void)settings.writeSilenceData("");
            det_.dBDownSilence = 40;
            det_.Enabled = true;
            det_.HowLongFor = 30;
            det_.intValueSilence = checked::toInt16(dBToAmplitude(-40));
            return;
        }
        const std::vector<std::string> fields = splitAtCommas(data);

        double number = 0;
        if (!settings::parseNumber(fields[0], number)) return;
        det_.dBDownSilence = checked::toInt32(number);
        // A stored level at or above full scale means the stored default "40": 40 dB down.
        if (det_.dBDownSilence >= 0) det_.dBDownSilence = -40;
        det_.intValueSilence = checked::toInt16(dBToAmplitude(det_.dBDownSilence));

        if (fields.size() < 2 || !settings::parseNumber(fields[1], number)) return;
        det_.HowLongFor = number;

        bool enabled = false;
        if (fields.size() < 3 || !settings::parseBoolean(fields[2], enabled)) return;
        det_.Enabled = enabled;
    } catch (...) {
    }
}

void clsSilenceDet::Save() {
    try {
        const std::string text = std::to_string(det_.dBDownSilence) + "," +
                                 settings::formatNumber(det_.HowLongFor) + "," +
                                 text::boolWord(det_.Enabled);
        (void)PlayerSettings(store_).writeSilenceData(text);
    } catch (...) {
    }
}

SilenceDecision silenceCheck(int32_t threshold, int32_t left, int32_t right,
                             double silenceStart, double now, int32_t silenceDetSecs) {
    // The two comparisons are deliberately asymmetric: sound on either channel restarts the
    // count, a peak exactly at the threshold neither restarts nor counts.
    if (left > threshold || right > threshold) return {SilenceAction::Restart, 0};
    if (left == threshold || right == threshold) return {SilenceAction::Nothing, 0};
    if (silenceStart == 0) return {SilenceAction::Start, 0};
    // Whole seconds as a one-second clock shows them: the second boundaries crossed.
    const int32_t seconds =
        checked::toInt32(std::fabs(std::floor(now) - std::floor(silenceStart)));
    if (seconds >= silenceDetSecs) return {SilenceAction::Raise, seconds};
    return {SilenceAction::Continue, 0};
}

} // namespace corvid
