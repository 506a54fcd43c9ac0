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
    void put_PipeSenderDownstreamMute(bool& value); // throws AutomationError while !Pipe2020
    void put_PipeSenderDownstreamMute(const bool& value);
    bool get_AutoRenderAllowed();
    void put_AutoRenderAllowed(bool& value);
    void put_AutoRenderAllowed(const bool& value);
    bool IsMp4Capable(bool ForceRefresh = false);
    bool IsOggCapable(bool ForceRefresh = false);
    bool get_LoggingEnabled();
    void put_LoggingEnabled(bool& value);
    void put_LoggingEnabled(const bool& value);
    bool get_SilenceDetEnabled();
    void put_SilenceDetEnabled(bool& value);
    void put_SilenceDetEnabled(const bool& value);
    clsSilenceDet& get_SilenceDet();
    std::string get_LastError();
    bool get_UsingASFReaderAsFallback();
    bool get_AutoSeg();
    void put_AutoSeg(bool& value);
    void put_AutoSeg(const bool& value);
    NameCollection& get_FilterNamesWeNeed();
    void putref_FilterNamesWeNeed(const NameCollection& value);
    SoundCardCollection QuerySoundCards(bool ForceEnum = false);
    void StopPlaying();
    void Play();
    void Pause();
    float get_Elapsed();
    void put_ElapsedForcedChange(float& value);
    void put_ElapsedForcedChange(const float& value);
    std::string get_FileName();
    void put_FileName(std::string& value);
    void put_FileName(const std::string& value);
    double get_Duration();
    bool get_mute();
    void put_mute(bool& value);
    void put_mute(const bool& value);
    double get_Rate();
    void put_Rate(double& value);
    void put_Rate(const double& value);
    int32_t get_Volume();
    void put_Volume(int32_t& value);
    void put_Volume(const int32_t& value);
    double get_CurrentPosition();
    void put_CurrentPosition(double& value);
    void put_CurrentPosition(const double& value);
    std::string get_ThisCartName();
    void put_ThisCartName(std::string& value);
    void put_ThisCartName(const std::string& value);
    PlayCondition get_Playstate();
    double get_GraphPosition();
    double get_GraphDuration();
    void putref_SetSoundCardCollection(const SoundCardCollection& value);
    bool SetSoundcard(std::string& NewSoundCardName);
    bool SetSoundcard(const std::string& NewSoundCardName);
    std::string GetMainSoundcard();
    std::string GetPFLSoundcard();
    bool SetPFLSoundcard(std::string& NewPFLCard);
    bool SetPFLSoundcard(const std::string& NewPFLCard);
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
    void put_UseACM(bool& value);
    void put_UseACM(const bool& value);
    int32_t get_AutoSegThresh();
    void put_AutoSegThresh(int32_t& value);
    void put_AutoSegThresh(const int32_t& value);
    int32_t get_autoCueThresh();
    void put_autoCueThresh(int32_t& value);
    void put_autoCueThresh(const int32_t& value);
    void AutoSegSearch();
    void AutoCueSearch(const std::string& sFile = std::string());
    bool FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan, platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin, platform::PinPtr& OutPin);
    bool get_UsePitchAdjuster();
    void put_UsePitchAdjuster(bool& value);
    void put_UsePitchAdjuster(const bool& value);
    std::string get_WMAArtist();
    std::string get_WMATitle();
    std::string get_WMAYear();
    std::string get_WMAGenre();
    bool get_NewGraphEveryTime();
    void put_NewGraphEveryTime(bool& value);
    void put_NewGraphEveryTime(const bool& value);
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
    void put_ID(std::string& value);
    void put_ID(const std::string& value);
    bool get_StreamingIsOnDemandFile();
    void SilenceDetShowUI(void* Ownerform = nullptr, const std::string& Notes = std::string());
    bool get_UsingHaldenSource();
    bool get_UsingASFReader();
    bool get_HaldenSourcePrefer();
    void put_HaldenSourcePrefer(bool& value);
    void put_HaldenSourcePrefer(const bool& value);
    double get_AutoCuePos();
    double get_AutoSegPos();
    void put_AutoSegPos(double value);
    bool get_AutoCueBusy();
    bool get_Pipe2020();
    void put_Pipe2020(bool& value);
    void put_Pipe2020(const bool& value);
    bool get_ASFReaderBanned();
    void put_ASFReaderBanned(bool& value);
    void put_ASFReaderBanned(const bool& value);

    // The graph this player plays through (empty when none); for hosts and tests that look.
    platform::GraphPtr mainGraph() const;

private:
    friend struct PlayerInternals; // white-box access for the player's own tests
};

} // namespace corvid
