#include "support/PlayerSettings.h"

#include "support/Text.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace corvid {

namespace settings {

namespace {

std::string_view trimBlanks(std::string_view s) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!s.empty() && blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && blank(s.back())) s.remove_suffix(1);
    return s;
}

} // namespace

bool parseNumber(std::string_view text, double& value) {
    std::string_view s = trimBlanks(text);
    bool negative = false;
    if (!s.empty() && (s.front() == '+' || s.front() == '-')) {
        negative = s.front() == '-';
        s.remove_prefix(1);
    }
    // from_chars would also take "inf", "nan" and hexadecimal forms: only plain decimals
    // are numbers here.
    if (s.empty() || !(std::isdigit(static_cast<unsigned char>(s.front())) || s.front() == '.'))
        return false;
    double parsed = 0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), parsed,
                                           std::chars_format::general);
    if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(parsed)) return false;
    value = negative ? -parsed : parsed;
    return true;
}

bool parseBoolean(std::string_view text, bool& value) {
    const std::string_view s = trimBlanks(text);
    if (text::equalsNoCase(s, "true")) {
        value = true;
        return true;
    }
    if (text::equalsNoCase(s, "false")) {
        value = false;
        return true;
    }
    double number = 0;
    if (!parseNumber(s, number)) return false;
    value = number != 0;
    return true;
}

std::string formatNumber(double value) {
    char buffer[64];
    const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (ec != std::errc()) return "0";
    return std::string(buffer, end);
}

} // namespace settings

bool PlayerSettings::readBoolean(const char* app, const char* section, const std::string& key) {
    bool value = false;
    if (!settings::parseBoolean(store_.read(app, section, key, "False"), value)) value = false;
    return value;
}

bool PlayerSettings::get_NewGraphEveryTime() {
    return readBoolean(settings::NewGraphApp, settings::NewGraphSection, settings::NewGraphKey);
}

platform::Status PlayerSettings::put_NewGraphEveryTime(bool value) {
    return store_.write(settings::NewGraphApp, settings::NewGraphSection, settings::NewGraphKey,
                        text::boolWord(value));
}

std::string PlayerSettings::pipeMuteKey(const std::string& playerId) {
    return playerId + settings::PipeMuteKeySuffix;
}

bool PlayerSettings::get_PipeSenderDownstreamMute(const std::string& playerId) {
    return readBoolean(settings::PipeMuteApp, settings::PipeMuteSection, pipeMuteKey(playerId));
}

platform::Status PlayerSettings::put_PipeSenderDownstreamMute(const std::string& playerId,
                                                              bool value) {
    return store_.write(settings::PipeMuteApp, settings::PipeMuteSection, pipeMuteKey(playerId),
                        text::boolWord(value));
}

std::string PlayerSettings::readSilenceData() {
    return store_.read(settings::ComponentApp, settings::SilenceSection, settings::SilenceKey,
                       settings::SilenceDefault);
}

platform::Status PlayerSettings::writeSilenceData(const std::string& text) {
    return store_.write(settings::ComponentApp, settings::SilenceSection, settings::SilenceKey,
                        text);
}

} // namespace corvid
