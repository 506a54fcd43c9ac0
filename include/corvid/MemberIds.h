#pragma once
// The automation surface of Player as one table: each member's name, id, kind and type,
// and each event's id. A scripting bridge dispatches on these ids; the events' ids are also
// the numbers by which the player raises them.

#include <array>
#include <cstdint>
#include <string_view>

namespace corvid::ids {

// Kind: F = public field, R = read, W = write, S = object write, M = method.
struct Member {
    std::string_view name;
    uint32_t id;
    std::string_view kind;
    std::string_view type;
};

struct Event {
    int32_t id;
    std::string_view name;
    std::string_view parameters;
};

inline constexpr std::array<Member, 86> members{{
    {"CanCueIn", 0x4003002b, "F", "boolean"},
    {"UsesVu", 0x4003002c, "F", "boolean"},
    {"UseAutoCue", 0x4003002f, "F", "boolean"},
    {"ForCart", 0x40030033, "F", "string"},
    {"m_Endraised", 0x4003005b, "F", "boolean"},
    {"StateChangeVerify", 0x4003005e, "F", "boolean"},
    {"PipeSenderDownstreamMute", 0x68030082, "W,R", "boolean"},
    {"AutoRenderAllowed", 0x68030081, "W,R", "boolean"},
    {"IsMp4Capable", 0x60030085, "M", "ForceRefresh boolean optional (false) → boolean"},
    {"IsOggCapable", 0x60030086, "M", "ForceRefresh boolean optional (false) → boolean"},
    {"LoggingEnabled", 0x6803002f, "W,R", "boolean"},
    {"SilenceDetEnabled", 0x6803002e, "R,W", "boolean"},
    {"SilenceDet", 0x6803002d, "R", "clsSilenceDet"},
    {"LastError", 0x6803002c, "R", "string"},
    {"UsingASFReaderAsFallback", 0x6803002b, "R", "boolean"},
    {"AutoSeg", 0x6803002a, "R,W", "boolean"},
    {"FilterNamesWeNeed", 0x68030029, "R,S", "NameCollection"},
    {"QuerySoundCards", 0x60030035, "M", "ForceEnum boolean optional (false) → NameCollection"},
    {"StopPlaying", 0x60030036, "M", "none"},
    {"Play", 0x60030037, "M", "none"},
    {"Pause", 0x60030038, "M", "none"},
    {"Elapsed", 0x68030028, "R", "32-bit float, seconds"},
    {"ElapsedForcedChange", 0x68030027, "W", "32-bit float, seconds"},
    {"FileName", 0x68030026, "W,R", "string"},
    {"Duration", 0x68030025, "R", "64-bit float, seconds"},
    {"mute", 0x68030024, "R,W", "boolean"},
    {"Rate", 0x68030023, "W,R", "64-bit float"},
    {"Volume", 0x68030022, "R,W", "signed 32-bit, hundredths of a decibel"},
    {"CurrentPosition", 0x68030021, "W,R", "64-bit float, seconds"},
    {"ThisCartName", 0x68030020, "W,R", "string"},
    {"Playstate", 0x6803001f, "R", "PlayCondition"},
    {"GraphPosition", 0x6803001e, "R", "64-bit float, seconds"},
    {"GraphDuration", 0x6803001d, "R", "64-bit float, seconds"},
    {"SetSoundCardCollection", 0x6803001c, "S", "NameCollection"},
    {"SetSoundcard", 0x60030046, "M", "NewSoundCardName string → boolean"},
    {"GetMainSoundcard", 0x60030047, "M", "→ string"},
    {"GetPFLSoundcard", 0x60030048, "M", "→ string"},
    {"SetPFLSoundcard", 0x60030049, "M", "NewPFLCard string → boolean"},
    {"DefaultSoundDeviceExists", 0x6003004d, "M", "→ boolean"},
    {"SoundCardRouterSet", 0x6003004e, "M", "none"},
    {"SoundCardNullSet", 0x6003004f, "M", "none"},
    {"CreateNewGraph", 0x60030050, "M", "MakinPFLGraph boolean"},
    {"Init", 0x6003005a, "M", "none"},
    {"Plugins", 0x6803001b, "R", "collection"},
    {"AddPlugin", 0x6003005c, "M", "FilterName string"},
    {"ShowPropPage", 0x6003005d, "M", "filter string, hwnd signed 32-bit optional"},
    {"RaiseEndOfStream", 0x6003005e, "M", "none"},
    {"GetCurrentMainFilterGraph", 0x6003005f, "M", "CurrentFilterGraph collection (filled)"},
    {"TestOpen", 0x60030062, "M", "FileToTest string"},
    {"ShowMainCardPage", 0x60030064, "M", "hwnd signed 32-bit optional"},
    {"PrintFilters", 0x6003006d, "M", "GraphMan graph → string"},
    {"UseACM", 0x68030019, "W,R", "boolean"},
    {"AutoSegThresh", 0x68030018, "W,R", "signed 32-bit"},
    {"autoCueThresh", 0x68030017, "R,W", "signed 32-bit"},
    {"AutoSegSearch", 0x6003006f, "M", "none"},
    {"AutoCueSearch", 0x60030070, "M", "sFile string optional"},
    {"FindConnectedFilter", 0x60030071, "M", "FilterName string, GraphMan graph, ParserFilter filter (out), Inpin pin (out), OutPin pin (out) → boolean"},
    {"UsePitchAdjuster", 0x68030016, "W,R", "boolean"},
    {"WMAArtist", 0x68030015, "R", "string"},
    {"WMATitle", 0x68030014, "R", "string"},
    {"WMAYear", 0x68030013, "R", "string"},
    {"WMAGenre", 0x68030012, "R", "string"},
    {"NewGraphEveryTime", 0x68030011, "R,W", "boolean"},
    {"EnumRenders", 0x60030074, "M", "ForceRefresh boolean → NameCollection"},
    {"SurroundRenderName", 0x68030010, "R", "string"},
    {"IShoutcastCallback_StreamBuffering", 0x60030077, "M", "stream callback"},
    {"IShoutcastCallback_MetaChangeCallback", 0x60030078, "M", "stream callback"},
    {"IShoutcastCallback_OdStreamSeg", 0x60030079, "M", "stream callback"},
    {"isStreaming", 0x6803000f, "R", "variant holding a boolean"},
    {"StreamBufferingPercent", 0x6803000e, "R", "signed 16-bit"},
    {"TryingToPlay", 0x6803000d, "R", "boolean"},
    {"StreamingCanCancelPlay", 0x6803000b, "R", "boolean"},
    {"StreamingCancelPlay", 0x6003007c, "M", "none"},
    {"LeftVUPeak", 0x6803000a, "R", "signed 32-bit"},
    {"RightVuPeak", 0x68030009, "R", "signed 32-bit"},
    {"ID", 0x68030008, "W,R", "string"},
    {"StreamingIsOnDemandFile", 0x68030007, "R", "boolean"},
    {"SilenceDetShowUI", 0x6003007d, "M", "Ownerform object optional, Notes string optional"},
    {"UsingHaldenSource", 0x68030006, "R", "boolean"},
    {"UsingASFReader", 0x68030005, "R", "boolean"},
    {"HaldenSourcePrefer", 0x68030004, "R,W", "boolean"},
    {"AutoCuePos", 0x68030003, "R", "64-bit float, seconds"},
    {"AutoSegPos", 0x68030002, "R,W", "64-bit float, seconds (write passes the value, not a reference)"},
    {"AutoCueBusy", 0x68030001, "R", "boolean"},
    {"Pipe2020", 0x68030000, "R,W", "boolean"},
    {"ASFReaderBanned", 0x6803007e, "W,R", "boolean"},
}};

inline constexpr std::array<Event, 21> events{{
    {1, "PlayerLogInfo", "Info string"},
    {2, "StreamBufferingStarted", "none"},
    {3, "StreamBufferingFinished", "none"},
    {4, "RenderedAutomatically", "FilePath string"},
    {5, "PlayAboutToHappen", "none"},
    {6, "StreamBuffering", "Percent signed 16-bit"},
    {7, "ShoutCastMeta", "ArtistTitle, URL, FullMeta strings"},
    {8, "SegueFound", "SegFromStart 64-bit float"},
    {9, "WriteLog", "sInfo string"},
    {10, "CueInFound", "CueInCurPos 64-bit float"},
    {11, "GotTheFiltersWeNeed", "FiltersWeNeed NameCollection"},
    {12, "VUPeak", "Left, Right signed 32-bit"},
    {13, "StartedCountingFilters", "Maxindex signed 32-bit"},
    {14, "CountingFilters", "CurrentIndex signed 32-bit"},
    {15, "IsPFLButtonRequired", "ButtonRequired boolean"},
    {16, "FinishedCountingFilters", "none"},
    {17, "Timing", "AudioPeakLevel signed 32-bit"},
    {18, "EndOfStream", "Result signed 32-bit (by value)"},
    {19, "PlayStateChange", "OldState, NewState signed 32-bit (by value)"},
    {20, "StreamOnDemandSegFound", "Seg 64-bit float"},
    {21, "SilenceDetected", "HowManySecsOfSilence signed 32-bit (by value)"},
}};

constexpr const Member* findMember(std::string_view name) {
    for (const auto& m : members)
        if (m.name == name) return &m;
    return nullptr;
}

} // namespace corvid::ids
