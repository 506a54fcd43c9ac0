#pragma once
// The player's persisted values in the per-user settings store, and the text forms they are
// stored in. Every read goes to the store at the moment of reading: a value changed by
// another player or another host process is seen at once. The last writer wins.
//
//   application      section            key                                 default
//   "Orvo2010"       "Fenwick"          "NewGraphEveryTime"                 false
//   "Orvo2020PLUS"   "Player-Settings"  ID + " : PipeSenderDownstreamMute"  false
//   "Corvid"         "Fenwick1"         "SilenceData"                       "40,30,-1"
//
// Threads: control thread only.

#include "platform/Services.h"
#include "platform/Status.h"

#include <string>
#include <string_view>

namespace corvid {

namespace settings {

inline constexpr const char* NewGraphApp = "Orvo2010";
inline constexpr const char* NewGraphSection = "Fenwick";
inline constexpr const char* NewGraphKey = "NewGraphEveryTime";

inline constexpr const char* PipeMuteApp = "Orvo2020PLUS";
inline constexpr const char* PipeMuteSection = "Player-Settings";
inline constexpr const char* PipeMuteKeySuffix = " : PipeSenderDownstreamMute";

// The component's own application name, under which the silence settings are kept.
inline constexpr const char* ComponentApp = "Corvid";
inline constexpr const char* SilenceSection = "Fenwick1";
inline constexpr const char* SilenceKey = "SilenceData";
inline constexpr const char* SilenceDefault = "40,30,-1";

// Text forms.
//
// Booleans are written as "True" / "False". A read accepts the words in any case and any
// number (0 is false, anything else true, so "-1" and "0" work); surrounding blanks are
// ignored. Returns false, leaving `value` alone, for any other text.
bool parseBoolean(std::string_view text, bool& value);
// A decimal number: optional blanks, an optional sign, digits with an optional fraction and
// exponent ("30", "-20", "2.5", "1e3"); '.' is the decimal point whatever the locale.
// Returns false, leaving `value` alone, for anything else (empty text included).
bool parseNumber(std::string_view text, double& value);
// The shortest decimal text that reads back as the same number ("30", "2.5", "-0.1").
std::string formatNumber(double value);

} // namespace settings

class PlayerSettings {
public:
    explicit PlayerSettings(platform::SettingsStore& store) : store_(store) {}

    // Whether every load builds a new graph. Stored text that is not a Boolean reads false.
    bool get_NewGraphEveryTime();
    platform::Status put_NewGraphEveryTime(bool value);

    // The pipe sender's downstream mute of the player with this ID; each ID has its own key.
    // Stored text that is not a Boolean reads false.
    bool get_PipeSenderDownstreamMute(const std::string& playerId);
    platform::Status put_PipeSenderDownstreamMute(const std::string& playerId, bool value);
    static std::string pipeMuteKey(const std::string& playerId);

    // The raw silence settings text; the silence detector parses and formats it.
    std::string readSilenceData();
    platform::Status writeSilenceData(const std::string& text);

private:
    bool readBoolean(const char* app, const char* section, const std::string& key);

    platform::SettingsStore& store_;
};

} // namespace corvid
