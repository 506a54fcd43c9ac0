#pragma once
// corvid::Player: one audio player per deck or cart of a playout host.
//
// The host creates a Player over a platform (the simulation in tests, the native runtime in
// hosts), names its output device, writes FileName to load an item and drives Play, Pause and
// StopPlaying; the player answers through PlayerEvents. Every member is called on the control
// thread (the host's), and every event is raised there, synchronously.
//
// Public members keep the names the hosts' scripts know (see control/MemberIds.h for their ids).
// A property X is get_X() / put_X(T&); a write that the player adjusts writes the adjusted
// value back into the caller's variable. Failures do not reach the host except where a member
// says so: they go to LastError, the log events and the playstate.
//
// The implementation is spread over the layers: control/ (surface, load, transport, log,
// cue and segue), graph/ (graph session, sources, dispatch, inserts), formats/ (one file per
// chain), devices/ (catalogue and routing), levels/ (peaks and silence).

#include "control/PlayCondition.h"
#include "control/PlayerEvents.h"
#include "control/Reentrance.h"
#include "devices/DShowRender.h"
#include "platform/Platform.h"
#include "support/AutomationError.h"
#include "support/NameCollection.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <optional>
#include <vector>

namespace corvid {

class clsCards;
struct CardsEvents;
class clsSilenceDet;
class MediaTags;
class dlgSilence;
class TimerClass1;
struct PlayerProcessState;

class Player : private platform::ShoutcastCallback {
public:
    explicit Player(platform::Platform& platform);
    ~Player() override;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

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
    bool m_Endraised = false;
    bool StateChangeVerify = false;

    // ---- Properties and methods, in the interface's order ----
    bool get_PipeSenderDownstreamMute();
    void put_PipeSenderDownstreamMute(bool& value); // throws AutomationError while !Pipe2020
    bool get_AutoRenderAllowed();
    void put_AutoRenderAllowed(bool& value);
    bool IsMp4Capable(bool ForceRefresh = false);
    bool IsOggCapable(bool ForceRefresh = false);
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
    SoundCardCollection QuerySoundCards(bool ForceEnum = false);
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
    void putref_SetSoundCardCollection(const SoundCardCollection& value);
    bool SetSoundcard(std::string& NewSoundCardName);
    std::string GetMainSoundcard();
    std::string GetPFLSoundcard();
    bool SetPFLSoundcard(std::string& NewPFLCard);
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
    SoundCardCollection EnumRenders(bool ForceRefresh);
    std::string get_SurroundRenderName();
    void IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull);
    void IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle,
                                               const std::string& sURL,
                                               const std::string& sFullMeta);
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
    bool get_StreamingIsOnDemandFile();
    void SilenceDetShowUI(void* Ownerform = nullptr, const std::string& Notes = std::string());
    bool get_UsingHaldenSource();
    bool get_UsingASFReader();
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
    platform::GraphPtr mainGraph() const { return MainGraphMan; }

private:
    friend struct PlayerInternals; // white-box access for the player's own tests

    // ---- Collaborator callbacks ----
    // The stream source's callbacks (ShoutcastCallback).
    void StreamBuffering(int32_t bufferPercentFull) override;
    void MetaChangeCallback(const std::string& artistTitle, const std::string& url,
                            const std::string& fullMeta) override;
    void OdStreamSeg(double seg) override;
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
            Reentrance::InEvent inEvent(reentrance_);
            call(*events);
        }
        reentrance_.stopIfSuperseded();
    }

    // Reports a call made on another thread than the platform's control thread; the host
    // entry points that change the player begin with it.
    void controlThreadOnly(const char* member) const {
        platform_.eventLoop().checkControlThread(member);
    }

    // ---- Log (control/Log.cpp) ----
    bool logging() const { return m_bLoggingEnabled; }
    void Log(const std::string& text);          // PlayerLogInfo, only while logging
    void RaisePlayerLogInfo(std::string text);  // PlayerLogInfo regardless of the switch
    void RaiseWriteLog(std::string text);

    // ---- Pending error: graph work traps failures per operation ----
    struct PendingError {
        int32_t number = 0;
        std::string description;
    };
    // Keeps a failed status as the pending error; returns whether it succeeded.
    bool trap(const platform::Status& status);
    void trapError(int32_t number, std::string description);
    void clearErr() { Err = PendingError{}; }
    bool errPending() const { return Err.number != 0; }
    // Throws the numbered error to the caller's handler.
    [[noreturn]] void raise(int32_t number, std::string description);

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
    void LoadSucceeded(const std::string& name);
    void UnloadItem();
    void FailLoad(const std::string& name);
    bool RetryThroughOtherSource();
    void LogCheckpoint(int n);
    void ApplyPitchOptions(const std::string& name);

    // ---- Graph session (graph/GraphSession.cpp) ----
    bool BuildGraph(const std::string& FileName, bool bMustUseASFReader, bool CanUseAutoRender);
    bool BuildGraphFailed(const std::string& pendingMessage);
    void ReplaceGraph(bool MakinPFLGraph); // CreateNewGraph's work; raises 558 while busy
    void DestroyGraph(bool keepPlaystate = false);
    void ForgetMainGraphFilters();
    void DisconnectAllFilters(platform::GraphPtr graph); // held: the host may replace it meanwhile
    void RemoveSourceFilter();
    void PruneUnconnectedFilters();
    // Raises 558 with the refusal (and the waiting item) while a source is being added.
    void BusyGuard(const char* refusal, bool quoteItem);

    // ---- Source selection (graph/SourceSelection.cpp) ----
    bool AddSourceFilter(const std::string& FileName, bool& bMustUseASFReader);
    platform::FilterPtr AddFlacSource(const std::string& FileName);
    platform::FilterPtr AddFileSource(const std::string& FileName);
    platform::FilterPtr AddStreamSource(const std::string& address, PendingError& failure);
    bool WaitForStreamSource(const platform::FilterPtr& source, const std::string& address);
    platform::FilterPtr AddReaderSource(const std::string& FileName, platform::CatalogueEntryPtr reader,
                                        PendingError& failure);
    platform::FilterPtr AddOggSource(const std::string& FileName);
    void RemoveUnusableSources(const std::vector<platform::FilterPtr>& standing);

    // ---- Chain dispatch (graph/ChainDispatch.cpp) ----
    // The dispatcher's own copies of the pins it hands to the chains.
    struct ChainPins {
        platform::PinPtr source, splitterIn, decoderIn, decoderOut, waveParserIn;
        platform::PinPtr sgIn, sgOut, renderIn;
        platform::FilterPtr grabber;
    };
    bool ConnectGraphFilters(const std::string& FileName, bool CanUseAutoRender,
                             bool bMustUseASFReader);
    bool ConnectFallbackChains(ChainPins& pins, bool& usingWM, const std::string& FileName,
                               bool CanUseAutoRender);
    bool ChainDispatchFailed();
    bool GatherChainPins(ChainPins& pins);
    void RecreateGrabberIfMissing(ChainPins& pins);
    void ForgetSourceForNextChain(ChainPins& pins);
    void SyncChainPins(ChainPins& pins);
    bool TryMp3Chain(ChainPins& pins, bool& usingWM, const std::string& FileName);
    bool TryWaveChain(ChainPins& pins, const std::string& FileName);
    bool TryWmaChain(ChainPins& pins, const std::string& FileName);
    bool TryOggChain(ChainPins& pins, const std::string& FileName);
    bool RenderAutomatically(const std::string& FileName, platform::PinPtr& sgIn,
                             platform::PinPtr& sgOut);
    bool RenderAutomaticallyFailed(const PendingError& failure, bool grabberRemoved);

    // ---- Standard filters and inserts (graph/Inserts.cpp) ----
    void AddGraphFilters();
    bool StockStandardFilters();
    platform::FilterPtr CreateSampleGrabber();
    void PutSampleGrabberBeforeRender();
    bool InsertFilterAfterFilter(const platform::FilterPtr& AfterWhatFilter,
                                 const platform::FilterPtr& FilterToInsert, std::string& failure);
    void InsertPipeSender();
    void SetupPitchAndPipeSender();
    platform::PinPtr InsertPointForPitch();
    bool InsertFilterBeforePin(const platform::FilterPtr& filter, const platform::PinPtr& before);
    // Creates a registered filter in the main graph by display name (pending error on failure).
    platform::FilterPtr AddFilterByName(const std::string& displayName);
    // The same, unless a filter of that name is already in the graph.
    platform::FilterPtr AddFilterByNameUnlessPresent(const std::string& displayName);
    platform::FilterPtr FindFilterInGraph(const std::string& name);
    bool RemoveFilterFromGraph(const platform::FilterPtr& filter);
    bool IsInMainGraph(const platform::FilterPtr& filter);
    void RepairRegistration(const std::string& commandLine);
    void CriticalMessage(const std::string& text, const std::string& title);

    // ---- Format chains (formats/) ----
    // How a chain starts: it takes the source pin it was given (and says so), or adds the source
    // itself and takes its pin. The texts are the chain's own; false when no pin stands.
    struct SourcePinTexts {
        const char* cannotAdd;
        const char* givenPrefix;
        const char* noPin;
    };
    bool TakeSourcePin(platform::PinPtr& sourcePin, const std::string& fileName,
                       bool mustUseAsfReader, const SourcePinTexts& texts);
    static void GetPins(platform::PinPtr& inPin, platform::PinPtr& outPin,
                        const platform::FilterPtr& filter);
    bool ConnectMp3Filters(platform::PinPtr& sourcePin, platform::PinPtr& splitterIn,
                           platform::FilterPtr& splitter, platform::PinPtr& decoderIn,
                           platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                           platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                           platform::FilterPtr& sampleGrabber, bool& usingWM,
                           const std::string& fileName);
    bool ConnectWaveFilters(platform::PinPtr& sourcePin, platform::PinPtr& waveParserIn,
                            platform::FilterPtr& waveParser, platform::PinPtr& sgIn,
                            platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                            platform::FilterPtr& sampleGrabber, const std::string& fileName);
    bool ConnectWMAFilters(platform::PinPtr& sourcePin, platform::PinPtr& sgIn,
                           platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                           const std::string& fileName);
    bool ConnectOggFilters(platform::PinPtr& sourcePin, platform::PinPtr& sgIn,
                           platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                           const std::string& fileName);
    bool ConnectMp4Filters(platform::PinPtr& sourcePin, platform::PinPtr& sgIn,
                           platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                           platform::FilterPtr& sampleGrabber, const std::string& fileName);
    bool ConnectStreamFilters(platform::PinPtr& sourcePin, platform::PinPtr& decoderIn,
                              platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                              platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                              platform::FilterPtr& sampleGrabber, const std::string& fileName);
    void AddVorbisFilters(bool& force, bool& ok);
    void RemoveVorbisFilters();
    void AddMp4Filters(bool& force, bool& ok);
    void RemoveMp4Filters();
    void InsertSurroundFilter(platform::PinPtr& renderInPin);
    // Chain helpers (formats/ChainSupport.cpp): each keeps its failure as the pending error.
    platform::FilterPtr CreateSampleGrabberTrapped();
    void RemoveFilterTrapped(const platform::FilterPtr& filter);
    platform::CatalogueEntryPtr TakeCatalogueEntry(const std::string& displayName);
    platform::FilterPtr AddCatalogueInstance(const platform::CatalogueEntryPtr& entry);
    void RemoveSourceFilterKeepingError();
    // The pending error as the chains write it into their messages: number, blank, text.
    std::string ErrText() const;

    // ---- Devices and routing (devices/) ----
    clsCards& Cards();             // the process-wide catalogue, made and filled on first use
    const FilterCatalogue& colDShowFilters();
    CardsEvents CardsEventsForThisPlayer();
    void OnCardsGotFiltersWeNeed(FilterCatalogue& found, NameCollection& weNeed);
    std::optional<clsDShowRender> FindDevice(const std::string& name);
    bool DeviceExists(const std::string& name);
    // Adds the device's renderer to the main or the PFL graph in place of the current one; a
    // main renderer added with `remember` becomes the main card name.
    bool AddSoundCard(const std::string& name, bool forPFL, bool remember = true);
    bool RouteMainOutput(const std::string& name);
    bool RoutePflOutput(const std::string& name);
    bool PFLButtonRequired() const;
    void RaiseIsPFLButtonRequired(bool required);
    // Called by the load before it builds: applies a device asked for while playing.
    void ApplyPendingSoundCards();

    // ---- Cue and segue (control/CueSegue.cpp) ----
    platform::Status StartSegueSearch(bool retryWithAsfReader);

    // ---- Tags ----
    MediaTags& Tags();

    // ---- Process-wide state ----
    PlayerProcessState& Process();

    // =======================================================================================
    platform::Platform& platform_;
    PlayerEvents* events_ = nullptr;
    Reentrance reentrance_;
    bool runMode_ = true;
    std::function<void(dlgSilence&, void*)> silenceDialogPresenter_;
    std::shared_ptr<PlayerProcessState> process_;

    // Settings and stored values.
    bool m_bLoggingEnabled = false;
    bool UsePitchAdjuster_ = true;
    bool UseACM_ = false;
    bool Pipe2020_ = false;
    bool AutoSeg_ = false;
    bool SilenceDetEnabled_ = false;
    int32_t AutoSegThresh_ = 0;
    std::string LastError_;
    std::string ID_;
    std::string ThisCartName_;
    std::string SurroundRenderName_;
    std::string pluginName_;
    std::shared_ptr<NameCollection> FilterNamesWeNeed_;
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
    bool TryingToPlay_ = false;
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
    std::string currentItem_;
    bool loadBusy_ = false;
    bool loading_ = false;
    bool UsingASFReaderAsFallback_ = false;
    int32_t loadStart_ = 0;
    bool streamStartCancelled_ = false;
    // The stream open of this load ended with an answer that another source would only
    // repeat (the host cancelled, the server refused or did not answer): no second build.
    bool streamAnswerFinal_ = false;

    // Cue and segue.
    bool AutoCueBusy_ = false;
    bool seguePending_ = false;
    int32_t cueSearchStart_ = 0;
    double AutoCuePos_ = 0;
    double AutoSegPos_ = 0;

    // Stream.
    int16_t bufferingPercent_ = -1;
    double bufferingStart_ = 0;
    int16_t bufferingRestarts_ = 0;
    std::unique_ptr<TimerClass1> playTimeStopwatch_;
    platform::FilterPtr streamSource_;   // the stream source of the current or last stream item
    platform::StreamSourceControl* streamControl_ = nullptr;

    // Routing.
    std::unique_ptr<SoundCardCollection> soundCards_;
    std::unique_ptr<SoundCardCollection> renderEnum_;
    std::string mainCardName_;
    std::string pflCardName_;
    std::string pendingMainCard_;
    std::string pendingPflCard_;

    // ---- The graph object model ----
    PendingError Err;
    platform::GraphPtr MainGraphMan;
    platform::GraphPtr PFLGraphMan;
    platform::FilterPtr fSourceFilter;
    platform::PinPtr MainSourcePin;
    platform::PinPtr SecondSourcePin;
    platform::FilterPtr fACMWrapper;
    platform::FilterPtr fChainACMWrapper;
    platform::FilterPtr fMpegSplitter;
    platform::FilterPtr fMpegDecoder;
    platform::FilterPtr fWMADecoder;
    platform::FilterPtr fWaveParser;
    platform::FilterPtr fSampleGrabber;
    platform::PinPtr SampleGrabberInPin;
    platform::PinPtr SampleGrabberOutPin;
    platform::FilterPtr fSoundCard;
    platform::PinPtr SoundCardInPin;
    platform::FilterPtr fPFLSoundCard;
    platform::FilterPtr fPitchShifter;
    platform::FilterPtr fPipeSender;
    bool pipeSenderWanted_ = false;
    platform::FilterPtr fSurround;
    platform::PinPtr SurroundInPin;
    platform::PinPtr SurroundOutPin;
    platform::FilterPtr fVorbisDecoder;
    platform::FilterPtr fVorbisSplitter;
    bool vorbisReady_ = false;
    platform::FilterPtr fMp4Parser;
    platform::FilterPtr fMp4Decoder;
    platform::GraphHelperPtr Helper;
    platform::GraphHelperPtr CueHelper;
    std::unique_ptr<platform::GraphHelperEvents> helperSink_;
    std::unique_ptr<platform::GraphHelperEvents> cueHelperSink_;
    bool AddingSourceFilter = false;
    std::string addingItemName_;
    bool graphBuilt_ = false;
    bool UsingASFReader_ = false;
    bool UsingHaldenSource_ = false;

    std::unique_ptr<platform::TagReader> tagReader_; // outlives tags_, which reads through it
    std::unique_ptr<MediaTags> tags_;
};

} // namespace corvid
