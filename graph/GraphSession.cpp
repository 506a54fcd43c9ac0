// The life of the player's graph: creating it, building it for one item, disconnecting it,
// taking the source out and destroying it with its helper graphs.
//
// AddSourceFilter yields to the host's event loop while a stream opens, and the host may call
// back into the player meanwhile. The busy guard keeps those calls from creating, emptying or
// destroying the graph under the waiting source: they fail with error 558 instead.

#include "control/PlayerCore.h"
#include "control/ProcessState.h"

#include "devices/clsCards.h"
#include "devices/Routing.h"
#include "support/Text.h"

#include <unordered_set>

namespace corvid {

namespace {

constexpr int32_t kBusy = 558;
constexpr const char* kBusyCreate =
    "Never never createnewgraph whilst its trying to add - wait for the timeout, or the success";
constexpr const char* kBusyDisconnect =
    "Never never disconnect whilst its trying to add - wait for the timeout, or the success. "
    "Currently waiting for: ";
constexpr const char* kBusyDestroy =
    "Never never destroy graph whilst its trying to add - wait for the timeout, or the success. "
    "Currently waiting for: ";

// Milliseconds between two readings of the wrapping 32-bit tick counter.
int32_t elapsedMs(int32_t start, int32_t now) {
    return static_cast<int32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(start));
}

} // namespace

// ---- Busy guard ------------------------------------------------------------------------------

void PlayerCore::BusyGuard(const char* refusal, bool quoteItem) {
    if (!AddingSourceFilter) return;
    raise(kBusy, quoteItem ? refusal + addingItemName_ : std::string(refusal));
}

// ---- CreateNewGraph --------------------------------------------------------------------------

void PlayerCore::CreateNewGraph(bool MakinPFLGraph) {
    {
        Reentrance::Operation replace(reentrance_);
        try {
            ReplaceGraph(MakinPFLGraph);
            return;
        } catch (const AutomationError& e) {
            // Refused or failed: the caller reads the pending error.
            trapError(e.number(), e.description());
            Log("CreateNewGraph: " + e.description());
            return;
        } catch (const Superseded&) {
            // The host loaded or replaced the graph from inside the old graph's last events:
            // what it made stands.
        }
    }
    reentrance_.stopIfSuperseded();
}

void PlayerCore::ReplaceGraph(bool MakinPFLGraph) {
    BusyGuard(kBusyCreate, false);

    // The pre-fade-listen graph is replaced on its own; the main graph stays.
    if (MakinPFLGraph) {
        if (PFLGraphMan) {
            trap(PFLGraphMan->stop());
            raiseEvent([](PlayerEvents& e) { e.EndOfStream(0); });
            PFLGraphMan.reset();
            fPFLSoundCard.reset();
        }
        trap(platform_.createGraph(PFLGraphMan));
        return;
    }

    // The old main graph goes, with everything it played, and the item with it: FileName
    // names what the graph holds.
    reentrance_.supersedeOuter();
    if (MainGraphMan) {
        currentItem_.clear();
        trap(MainGraphMan->stop());
        if (Helper) trap(Helper->stop());
        graphBuilt_ = false;
        ResetPlaystateBookkeeping();
        DestroyGraph();
        if (!m_Endraised) raiseEvent([](PlayerEvents& e) { e.EndOfStream(0); });
        MainGraphMan.reset();
    }

    // A new graph with new helpers.
    if (!trap(platform_.createGraph(MainGraphMan)) || !MainGraphMan)
        raise(Err.number ? Err.number : platform::hr::Fail, "CreateNewGraph: no filter graph: " + Err.description);
    CreateHelpers();

    // No renderer yet; the standard filters go in.
    SoundCardInPin.reset();
    AddGraphFilters();
}

// ---- BuildGraph ------------------------------------------------------------------------------

bool PlayerCore::BuildGraph(const std::string& FileName, bool bMustUseASFReader, bool CanUseAutoRender) {
    auto& ticks = platform_.ticks();
    int32_t started = ticks.nowMs();
    // The text that the failure path logs: the last timing line or the step under way.
    std::string pending;
    const auto timing = [&](int n) {
        return "BuildGraph (" + std::to_string(n) + ") took: " +
               std::to_string(elapsedMs(started, ticks.nowMs())) + " ms.";
    };
    const auto failed = [&] { return BuildGraphFailed(pending); };

    try {
        // A machine without MP3 decoder decodes through the ACM wrapper.
        if (Cards().MustUseACM()) UseACM_ = true;

        const std::string extension = text::toUpper(text::lastChars(FileName, 3));

        // The previous item's source goes.
        started = ticks.nowMs();
        if (MainSourcePin) RemoveSourceFilter();
        if (SecondSourcePin) RemoveSourceFilter();
        pending = timing(1);

        // A graph to build in.
        if (!MainGraphMan) {
            if (logging()) {
                Log("Attempting Create New Graph");
                pending = "BuildGraph: Creating New Graph";
            }
            CreateNewGraph(false);
            if (logging() || errPending()) Log("Created New Graph. Err = " + std::to_string(Err.number));
        }

        // The output device; without it there is nothing to build towards.
        if (!fSoundCard && !AddSoundCard(GetMainSoundcard(), false)) {
            pending = "BuildGraph: Failed to AddSoundCard";
            Log(pending);
            LastError_ = pending;
            trapError(platform::hr::NoAudioHardware, pending);
            return false;
        }

        // The source.
        pending = timing(2);
        bool sourceAdded = AddSourceFilter(FileName, bMustUseASFReader);

        // Once more without the Windows Media reader, where automatic rendering may follow.
        if (!sourceAdded) {
            Log(std::string("BuildGraph: Failed to add Source Filter, where bMustUseASFReader = ") +
                text::boolWord(bMustUseASFReader));
            if (!CanUseAutoRender) return failed();
            pending = "CanUseAutoRender: true: for " + FileName;
            bMustUseASFReader = false;
            if (!AddSourceFilter(FileName, bMustUseASFReader)) return failed();
        }

        // From here failures are the chain's to judge.
        pending = timing(3);
        Log(pending);
        if (!SoundCardInPin) AddSoundCard(GetMainSoundcard(), false);

        // The decoder chain.
        if (ConnectGraphFilters(FileName, CanUseAutoRender, bMustUseASFReader)) {
            graphBuilt_ = true;
            Log("BuildGraph: ConnectGraphFilters Successful.");
            pending = timing(4);
        } else {
            // Ogg alone gets a second try from a fresh source.
            Log("BuildGraph: Failed: ConnectGraphFilters *NOT* Successful.");
            if (!text::equalsNoCase(extension, "OGG")) return failed();
            RemoveSourceFilter();
            bool noReader = false;
            if (!AddSourceFilter(FileName, noReader) || !ConnectGraphFilters(FileName, true, false)) {
                Log("BuildGraph: was NOT able to build ogg graph");
                return failed();
            }
            Log("BuildGraph: was able to build ogg graph");
            graphBuilt_ = true;
        }

        // A playable graph stands.
        pending = timing(5);
        PruneUnconnectedFilters();
        return true;
    } catch (const AutomationError& e) {
        trapError(e.number(), e.description());
    } catch (const std::exception& e) {
        trapError(platform::hr::Fail, e.what());
    }
    return failed();
}

bool PlayerCore::BuildGraphFailed(const std::string& pendingMessage) {
    // The reason goes to LastError, the graph is left disconnected for the next item.
    if (errPending())
        LastError_ = "BuildGraph: FAIL: In error handler (err = " + Err.description + " " +
                     std::to_string(Err.number) + ")";
    Log(pendingMessage);
    try {
        DisconnectAllFilters(MainGraphMan);
        PruneUnconnectedFilters();
    } catch (const AutomationError& e) {
        Log("BuildGraph: " + e.description());
    }
    return false;
}

// Filters that no longer carry audio are taken out after a build: converters that an
// intelligent connect placed and a later attempt left behind, a reader that did not take the
// item. The player's own standing filters stay although they are idle between items, and so
// does every filter that reads a file (the item's source, whatever its state).
void PlayerCore::PruneUnconnectedFilters() {
    if (!MainGraphMan) return;
    const std::unordered_set<const platform::Filter*> standing = {
        fSourceFilter.get(), fACMWrapper.get(),   fChainACMWrapper.get(), fMpegSplitter.get(),
        fMpegDecoder.get(),  fWMADecoder.get(),   fWaveParser.get(),      fSampleGrabber.get(),
        fSoundCard.get(),    fPitchShifter.get(), fPipeSender.get(),      fSurround.get(),
        fVorbisDecoder.get(), fVorbisSplitter.get(), fMp4Parser.get(),    fMp4Decoder.get()};
    for (const auto& filter : MainGraphMan->filters()) {
        if (!filter || standing.count(filter.get()) || filter->isFileSource()) continue;
        bool connected = false;
        for (const auto& pin : filter->pins())
            if (pin && pin->isConnected()) connected = true;
        if (!connected) MainGraphMan->removeFilter(filter);
    }
}

// ---- DestroyGraph ----------------------------------------------------------------------------

void PlayerCore::DestroyGraph(bool keepPlaystate) {
    BusyGuard(kBusyDestroy, true);
    reentrance_.supersedeOuter();
    graphBuilt_ = false;

    Log("DestroyGraph: stopping the graph");
    if (MainGraphMan) trap(MainGraphMan->stop());
    if (!keepPlaystate) ResetPlaystateBookkeeping();

    Log("DestroyGraph: removin the source filter");
    RemoveSourceFilter();
    if (MainGraphMan) trap(MainGraphMan->stop());

    // Every filter out, and the graph released with the references into it.
    Log("DestroyGraph: removin all filters");
    if (MainGraphMan)
        for (const auto& filter : MainGraphMan->filters()) MainGraphMan->removeFilter(filter);
    Log("removin all filters done");
    MainGraphMan.reset();
    ForgetMainGraphFilters();

    Log("cuehelper...");
    if (CueHelper) {
        CueHelper->setEvents(nullptr);
        trap(CueHelper->stop());
        CueHelper->setCurrentGraph(nullptr);
        CueHelper.reset();
    }

    Log("helper...");
    if (Helper) {
        Log("stopping helper graph...");
        trap(Helper->stop());
        Log("setting helper graph to nada...");
        Helper->setCurrentGraph(nullptr);
    }

    RaiseIsPFLButtonRequired(PFLButtonRequired());
    Log("destroygraphcomplete");
}

// A released graph's filters mean nothing: the next graph gets its own.
void PlayerCore::ForgetMainGraphFilters() {
    for (platform::FilterPtr* filter :
         {&fSourceFilter, &fACMWrapper, &fChainACMWrapper, &fMpegSplitter, &fMpegDecoder, &fWMADecoder,
          &fWaveParser, &fSampleGrabber, &fSoundCard, &fPitchShifter, &fPipeSender, &fSurround,
          &fVorbisDecoder, &fVorbisSplitter, &fMp4Parser, &fMp4Decoder})
        filter->reset();
    for (platform::PinPtr* pin : {&MainSourcePin, &SecondSourcePin, &SampleGrabberInPin, &SampleGrabberOutPin,
                                  &SoundCardInPin, &SurroundInPin, &SurroundOutPin})
        pin->reset();
    vorbisReady_ = false;
}

// ---- DisconnectAllFilters --------------------------------------------------------------------

void PlayerCore::DisconnectAllFilters(platform::GraphPtr graph) {
    BusyGuard(kBusyDisconnect, true);
    StopPlaying();
    if (!graph) return;

    // Every pin loose, except in a "Haali" filter: that one is taken out whole, because
    // its pins do not come back clean from a disconnect.
    platform::FilterPtr haali;
    for (const auto& filter : graph->filters()) {
        if (!filter) continue;
        if (text::containsNoCase(filter->name(), "Haali")) {
            haali = filter;
            continue;
        }
        for (const auto& pin : filter->pins())
            if (pin && pin->isConnected()) trap(pin->disconnect());
    }

    if (haali) trap(graph->removeFilter(haali));

    // The pipe sender is per item.
    if (fPipeSender) {
        trap(graph->removeFilter(fPipeSender));
        fPipeSender.reset();
    }
}

// ---- RemoveSourceFilter ----------------------------------------------------------------------

void PlayerCore::RemoveSourceFilter() {
    // The source being added is not to be touched; quietly.
    if (AddingSourceFilter) return;

    if (Helper) trap(Helper->stop());
    if (CueHelper) trap(CueHelper->stop());

    if (MainGraphMan) {
        trap(MainGraphMan->stop());
        DisconnectAllFilters(MainGraphMan);
        clearErr();
        graphBuilt_ = false;
    }

    // A removal that fails keeps both references, so that the next attempt can try again.
    bool removed = true;
    if (fSourceFilter) removed = MainGraphMan && MainGraphMan->removeFilter(fSourceFilter).ok();

    // The MP3 chain's own "ACM Wrapper" goes with the item.
    if (fChainACMWrapper && MainGraphMan && MainGraphMan->removeFilter(fChainACMWrapper).ok())
        fChainACMWrapper.reset();

    if (removed) {
        fSourceFilter.reset();
        MainSourcePin.reset();
        SecondSourcePin.reset();
    }
}

} // namespace corvid
