#pragma once
// The player's core: the state behind the host's surface (<corvid/Player.h>) and the long
// operations over it. Player hands every public member to it; the members keep the names and
// the declarations of the surface.

#include <corvid/AutomationError.h>
#include <corvid/NameCollection.h>
#include <corvid/PlayCondition.h>
#include <corvid/PlayerEvents.h>
#include <corvid/SoundCards.h>

#include "devices/GraphModel.h"
#include "devices/Routing.h"
#include "devices/clsCards.h"
#include "formats/FormatChains.h"
#include "graph/GraphSession.h"
#include "platform/Platform.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <optional>
#include <vector>

namespace corvid {

class clsSilenceDet;
class MediaTags;
class dlgSilence;
class TimerClass1;
struct PlayerProcessState;

class PlayerCore : private GraphHost {
public:
    // Reports a call made on another thread than the platform's control thread; the host
    // entry points that change the player begin with it.
    void controlThreadOnly(const char* member) const {
        platform_.eventLoop().checkControlThread(member);
    }

    explicit PlayerCore(platform::Platform& platform);
    ~PlayerCore();
    PlayerCore(const PlayerCore&) = delete;
    PlayerCore& operator=(const PlayerCore&) = delete;

    // The receiver of this player's events (not owned; may be null).
    void setEvents(PlayerEvents* events) { events_ = events; }
    // Whether the host is in run mode; Init acts only then. Default true.
    void setRunMode(bool running) { runMode_ = running; }
    // Presents the silence settings dialog modally (a toolkit view over the dialog model,
    // shown over `owner`); without one, SilenceDetShowUI logs that no dialog can be shown.
    void setSilenceDialogPresenter(std::function<void(dlgSilence&, void* owner)> presenter);

    // ---- Public fields: plain stored values, no side effects ----
    bool CanCueIn = false;
    bool UsesVu = false;
    bool UseAutoCue = false;
    std::string ForCart;
    bool StateChangeVerify = false;

    bool& endRaised() { return g_.m_Endraised; } // the public field m_Endraised

    // The parts that carry the members the surface hands straight to them.
    DeviceRouting& routing() { return routing_; }
    FormatChains& chains() { return chains_; }

    // ---- Properties and methods, in the interface's order ----
    bool get_PipeSenderDownstreamMute();
    void put_PipeSenderDownstreamMute(bool& value); // throws AutomationError while !Pipe2020
    bool get_AutoRenderAllowed();
    void put_AutoRenderAllowed(bool& value);
    bool get_LoggingEnabled();
    void put_LoggingEnabled(bool& value);
    bool get_SilenceDetEnabled();
    void put_SilenceDetEnabled(bool& value);
    clsSilenceDet& get_SilenceDet();
    std::string get_LastError();
    bool get_UsingASFReaderAsFallback();
    bool get_AutoSeg();
    void put_AutoSeg(bool& value);
    NameCollection& get_FilterNamesWeNeed();
    void putref_FilterNamesWeNeed(const NameCollection& value);
    void StopPlaying();
    void Play();
    void Pause();
    float get_Elapsed();
    void put_ElapsedForcedChange(float& value);
    std::string get_FileName();
    void put_FileName(std::string& value);
    double get_Duration();
    bool get_mute();
    void put_mute(bool& value);
    double get_Rate();
    void put_Rate(double& value);
    int32_t get_Volume();
    void put_Volume(int32_t& value);
    double get_CurrentPosition();
    void put_CurrentPosition(double& value);
    std::string get_ThisCartName();
    void put_ThisCartName(std::string& value);
    PlayCondition get_Playstate();
    double get_GraphPosition();
    double get_GraphDuration();
    void CreateNewGraph(bool MakinPFLGraph) override { session_.CreateNewGraph(MakinPFLGraph); }
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
    int32_t get_AutoSegThresh();
    void put_AutoSegThresh(int32_t& value);
    int32_t get_autoCueThresh();
    void put_autoCueThresh(int32_t& value);
    void AutoSegSearch();
    void AutoCueSearch(const std::string& sFile = std::string());
    bool FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan,
                             platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin,
                             platform::PinPtr& OutPin);
    bool get_UsePitchAdjuster();
    void put_UsePitchAdjuster(bool& value);
    std::string get_WMAArtist();
    std::string get_WMATitle();
    std::string get_WMAYear();
    std::string get_WMAGenre();
    bool get_NewGraphEveryTime();
    void put_NewGraphEveryTime(bool& value);
    std::string get_SurroundRenderName();
    int32_t get_LeftVUPeak();
    int32_t get_RightVuPeak();
    std::string get_ID();
    void put_ID(std::string& value);
    void SilenceDetShowUI(void* Ownerform = nullptr, const std::string& Notes = std::string());
    bool get_HaldenSourcePrefer();
    void put_HaldenSourcePrefer(bool& value);
    double get_AutoCuePos();
    double get_AutoSegPos();
    void put_AutoSegPos(double value);
    bool get_AutoCueBusy();
    bool get_Pipe2020();
    void put_Pipe2020(bool& value);
    bool get_ASFReaderBanned();
    void put_ASFReaderBanned(bool& value);

    // The graph this player plays through (empty when none); for hosts and tests that look.
    platform::GraphPtr mainGraph() const { return g_.MainGraphMan; }

private:
    friend struct PlayerInternals; // white-box access for the player's own tests

    // The Helper's and the CueHelper's events, each routed here by its own sink.
    void helperTick(int32_t left, int32_t right);
    void helperEnd();
    void cueHelperTick(int32_t left, int32_t right);
    void cueHelperEnd();
    void cueResult(int32_t positionMs);
    void segueResult(int32_t positionMs);
    // Makes the Helper and CueHelper of a new graph and wires their events to this player.
    void CreateHelpers();
    class HelperSink;

    // ---- Events ----
    // Raises one event: the receiver is read once (the host may unregister or go from inside),
    // the host runs at an event depth of its own, and an operation that the host superseded
    // from inside stops as soon as the event returns.
    template <class F> void raiseEvent(F&& call) {
        controlThreadOnly("a Player event");
        PlayerEvents* events = events_;
        if (!events) return;
        {
            Reentrance::InEvent inEvent(g_.reentrance_);
            call(*events);
        }
        g_.reentrance_.stopIfSuperseded();
    }
    void raiseEvent(const std::function<void(PlayerEvents&)>& call) override {
        raiseEvent<const std::function<void(PlayerEvents&)>&>(call);
    }

    // ---- Log (control/Log.cpp) ----
    bool logging() const override { return m_bLoggingEnabled; }
    void Log(const std::string& text);          // PlayerLogInfo, only while logging
    void RaisePlayerLogInfo(std::string text);  // PlayerLogInfo regardless of the switch
    void RaiseWriteLog(std::string text);

    // ---- Playstate and transport (control/Transport.cpp) ----
    void SetPlaystate(PlayCondition newState);
    void ResetPlaystateBookkeeping();
    void ApplyStoredVolume();
    bool SourceFeedsGraph() const;
    // The elapsed-time stopwatch, made on first use.
    TimerClass1& Stopwatch();
    // The pitch filter's control in the current graph, or null.
    platform::PitchShifterControl* PitchControl();
    // Whether a Play error leaves the graph standing.
    static bool IsExpectedPlayError(int32_t number);

    // ---- Levels: peaks, silence, the silence dialog (control/Silence.cpp) ----
    void SilenceCheck(int32_t left, int32_t right);

    // ---- Load (control/Load.cpp) ----
    // Every stream address loads with this duration, whatever the stream reports.
    static constexpr double StreamDurationSeconds = 216000.0;
    void LoadItem(const std::string& newName);
    void LoadItemSteps(const std::string& newName, Reentrance::Operation& load);
    void LoadSucceeded(const item::Name& item);
    void UnloadItem();
    void FailLoad(const std::string& name);
    bool RetryThroughOtherSource();
    void LogCheckpoint(int n);
    void ApplyPitchOptions(const std::string& name);

    // ---- Cue and segue (control/CueSegue.cpp) ----
    platform::Status StartSegueSearch(bool retryWithAsfReader);

    // ---- Tags ----
    MediaTags& Tags();

    // ---- Process-wide state ----
    PlayerProcessState& Process() override;

    // The graph session's operations, for the routing.
    void DestroyGraph(bool keepPlaystate) override { session_.DestroyGraph(keepPlaystate); }

    // =======================================================================================
    platform::Platform& platform_;
    PlayerEvents* events_ = nullptr;
    bool runMode_ = true;
    std::function<void(dlgSilence&, void*)> silenceDialogPresenter_;
    std::shared_ptr<PlayerProcessState> process_;

    // Settings and stored values.
    bool m_bLoggingEnabled = false;
    bool AutoSeg_ = false;
    bool SilenceDetEnabled_ = false;
    int32_t AutoSegThresh_ = 0;
    std::string ID_;
    std::string pluginName_;
    std::unique_ptr<NameCollection> cueFilterNames_; // handed to the cue helper's searches

    // Playstate and transport.
    PlayCondition playstate_ = mpstopped;
    int32_t storedVolume_ = 0;
    bool graphLoaded_ = false;
    bool pflGraph_ = false;       // the volume is the pre-fade-listen graph's
    bool playingOverride_ = false;
    bool reloading_ = false;
    bool stateChanging_ = false;
    bool stopBusy_ = false;
    bool seeking_ = false;
    double cachedPosition_ = 0;
    double cachedDuration_ = 0;
    double cachedRate_ = 1.0;
    bool pitchCarriesRate_ = false; // a Rate write went to the pitch filter
    double pitchRate_ = 1.0;        // the rate the pitch filter is to play at
    double pitchValue_ = 0;         // semitones
    int32_t leftPeak_ = 0;
    int32_t rightPeak_ = 0;
    double silenceStart_ = 0; // seconds since midnight; 0 = not yet set
    std::unique_ptr<TimerClass1> stopwatch_;

    // Load.
    bool loadBusy_ = false;
    bool loading_ = false;
    bool UsingASFReaderAsFallback_ = false;
    int32_t loadStart_ = 0;
    bool streamStartCancelled_ = false;

    // Cue and segue.
    bool AutoCueBusy_ = false;
    bool seguePending_ = false;
    int32_t cueSearchStart_ = 0;
    double AutoCuePos_ = 0;
    double AutoSegPos_ = 0;

    // ---- The graph work and its parts, bottom up ----
    GraphModel g_;
    DeviceRouting routing_;
    FormatChains chains_;
    GraphSession session_;

    // The Helper's and the CueHelper's event sinks.
    std::unique_ptr<platform::GraphHelperEvents> helperSink_;
    std::unique_ptr<platform::GraphHelperEvents> cueHelperSink_;

    std::unique_ptr<platform::TagReader> tagReader_; // outlives tags_, which reads through it
    std::unique_ptr<MediaTags> tags_;

};

} // namespace corvid
