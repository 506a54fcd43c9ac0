#pragma once
// corvid::Player: one audio player per deck or cart of a playout host.
//
// The host creates a Player over a platform (the simulation in tests, the native runtime in
// hosts), names its output device, writes FileName to load an item and drives Play, Pause and
// StopPlaying; the player answers through PlayerEvents. Every member is called on the control
// thread (the host's), and every event is raised there, synchronously.
//
// Public members keep the names the hosts' scripts know (see <corvid/MemberIds.h> for their
// ids). A property X is get_X() / put_X(T&); a write that the player adjusts writes the
// adjusted value back into the caller's variable. Each such write, and each member that takes a
// name, also takes a value or a temporary (put_FileName("a.mp3"), put_AutoSeg(true)), which
// gets the same treatment without the write-back. Failures do not reach the host except where a
// member says so: they go to LastError, the log events and the playstate.

#include <corvid/AutomationError.h>
#include <corvid/NameCollection.h>
#include <corvid/PlayCondition.h>
#include <corvid/PlayerEvents.h>
#include <corvid/SoundCards.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid {

namespace platform {
class Platform;
class Graph;
class Filter;
class Pin;
using GraphPtr = std::shared_ptr<Graph>;
using FilterPtr = std::shared_ptr<Filter>;
using PinPtr = std::shared_ptr<Pin>;
} // namespace platform

class clsSilenceDet;
class dlgSilence;
class PlayerCore;

// A member that takes a variable (and writes an adjusted value back into it), and its form for a
// value or a temporary, which acts the same on a copy.
#define CORVID_BY_REF(Result, name, T)                                                            \
    Result name(T& value);                                                                        \
    Result name(const T& value) {                                                                 \
        T copy = value;                                                                           \
        return name(copy);                                                                        \
    }

class Player {
public:
    explicit Player(platform::Platform& platform);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // The receiver of this player's events (not owned; may be null).
    void setEvents(PlayerEvents* events);
    // Whether the host is in run mode; Init acts only then. Default true.
    void setRunMode(bool running);
    // Presents the silence settings dialog modally (a toolkit view over the dialog model,
    // shown over `owner`); without one, SilenceDetShowUI logs that no dialog can be shown.
    void setSilenceDialogPresenter(std::function<void(dlgSilence&, void* owner)> presenter);

private:
    std::unique_ptr<PlayerCore> core_; // first: the public fields below refer into it

public:
    // ---- Public fields: plain stored values, no side effects ----
    bool& CanCueIn;
    bool& UsesVu;
    bool& UseAutoCue;
    std::string& ForCart;
    bool& m_Endraised;
    bool& StateChangeVerify;

    // ---- Properties and methods, in the interface's order ----
    bool get_PipeSenderDownstreamMute();
    CORVID_BY_REF(void, put_PipeSenderDownstreamMute, bool); // throws AutomationError while !Pipe2020
    bool get_AutoRenderAllowed();
    CORVID_BY_REF(void, put_AutoRenderAllowed, bool);
    bool IsMp4Capable(bool ForceRefresh = false);
    bool IsOggCapable(bool ForceRefresh = false);
    bool get_LoggingEnabled();
    CORVID_BY_REF(void, put_LoggingEnabled, bool);
    bool get_SilenceDetEnabled();
    CORVID_BY_REF(void, put_SilenceDetEnabled, bool);
    clsSilenceDet& get_SilenceDet();
    std::string get_LastError();
    bool get_UsingASFReaderAsFallback();
    bool get_AutoSeg();
    CORVID_BY_REF(void, put_AutoSeg, bool);
    NameCollection& get_FilterNamesWeNeed();
    void putref_FilterNamesWeNeed(const NameCollection& value);
    SoundCardCollection QuerySoundCards(bool ForceEnum = false);
    void StopPlaying();
    void Play();
    void Pause();
    float get_Elapsed();
    CORVID_BY_REF(void, put_ElapsedForcedChange, float);
    std::string get_FileName();
    CORVID_BY_REF(void, put_FileName, std::string);
    double get_Duration();
    bool get_mute();
    CORVID_BY_REF(void, put_mute, bool);
    double get_Rate();
    CORVID_BY_REF(void, put_Rate, double);
    int32_t get_Volume();
    CORVID_BY_REF(void, put_Volume, int32_t);
    double get_CurrentPosition();
    CORVID_BY_REF(void, put_CurrentPosition, double);
    std::string get_ThisCartName();
    CORVID_BY_REF(void, put_ThisCartName, std::string);
    PlayCondition get_Playstate();
    double get_GraphPosition();
    double get_GraphDuration();
    void putref_SetSoundCardCollection(const SoundCardCollection& value);
    CORVID_BY_REF(bool, SetSoundcard, std::string);
    std::string GetMainSoundcard();
    std::string GetPFLSoundcard();
    CORVID_BY_REF(bool, SetPFLSoundcard, std::string);
    bool DefaultSoundDeviceExists();
    void SoundCardRouterSet();
    void SoundCardNullSet(); // throws AutomationError 963 when even the dummy device fails
    void CreateNewGraph(bool MakinPFLGraph);
    void Init();
    NameCollection get_Plugins();
    void AddPlugin(const std::string& FilterName);
    void ShowPropPage(const std::string& filter, int32_t hwnd = 0);
    void RaiseEndOfStream();
    void GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph);
    void TestOpen(const std::string& FileToTest);
    void ShowMainCardPage(int32_t hwnd = 0);
    std::string PrintFilters(const platform::GraphPtr& GraphMan);
    bool get_UseACM();
    CORVID_BY_REF(void, put_UseACM, bool);
    int32_t get_AutoSegThresh();
    CORVID_BY_REF(void, put_AutoSegThresh, int32_t);
    int32_t get_autoCueThresh();
    CORVID_BY_REF(void, put_autoCueThresh, int32_t);
    void AutoSegSearch();
    void AutoCueSearch(const std::string& sFile = std::string());
    bool FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan, platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin, platform::PinPtr& OutPin);
    bool get_UsePitchAdjuster();
    CORVID_BY_REF(void, put_UsePitchAdjuster, bool);
    std::string get_WMAArtist();
    std::string get_WMATitle();
    std::string get_WMAYear();
    std::string get_WMAGenre();
    bool get_NewGraphEveryTime();
    CORVID_BY_REF(void, put_NewGraphEveryTime, bool);
    SoundCardCollection EnumRenders(bool ForceRefresh);
    std::string get_SurroundRenderName();
    void IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull);
    void IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle, const std::string& sURL, const std::string& sFullMeta);
    void IShoutcastCallback_OdStreamSeg(double Seg);
    bool get_isStreaming();
    int16_t get_StreamBufferingPercent();
    bool get_TryingToPlay();
    bool get_StreamingCanCancelPlay();
    void StreamingCancelPlay();
    int32_t get_LeftVUPeak();
    int32_t get_RightVuPeak();
    std::string get_ID();
    CORVID_BY_REF(void, put_ID, std::string);
    bool get_StreamingIsOnDemandFile();
    void SilenceDetShowUI(void* Ownerform = nullptr, const std::string& Notes = std::string());
    bool get_UsingHaldenSource();
    bool get_UsingASFReader();
    bool get_HaldenSourcePrefer();
    CORVID_BY_REF(void, put_HaldenSourcePrefer, bool);
    double get_AutoCuePos();
    double get_AutoSegPos();
    void put_AutoSegPos(double value);
    bool get_AutoCueBusy();
    bool get_Pipe2020();
    CORVID_BY_REF(void, put_Pipe2020, bool);
    bool get_ASFReaderBanned();
    CORVID_BY_REF(void, put_ASFReaderBanned, bool);

    // The graph this player plays through (empty when none); for hosts and tests that look.
    platform::GraphPtr mainGraph() const;
};

#undef CORVID_BY_REF

} // namespace corvid
