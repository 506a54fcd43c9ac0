// The life of the player's graph: creating it, building it for one item, disconnecting it,
// taking the source out and destroying it with its helper graphs.
//
// AddSourceFilter yields to the host's event loop while a stream opens, and the host may call
// back into the player meanwhile. The busy guard keeps those calls from creating, emptying or
// destroying the graph under the waiting source: they fail with error 558 instead.

#include "graph/GraphSession.h"
#include "support/ProcessState.h"

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

} // namespace

// ---- Busy guard ------------------------------------------------------------------------------

void GraphSession::BusyGuard(const char* refusal, bool quoteItem) {
    if (!g_.AddingSourceFilter) return;
    raise(kBusy, quoteItem ? refusal + g_.addingItemName_ : std::string(refusal));
}

// ---- CreateNewGraph --------------------------------------------------------------------------

void GraphSession::CreateNewGraph(bool MakinPFLGraph) {
    {
        Reentrance::Operation replace(g_.reentrance_);
        try {
            ReplaceGraph(MakinPFLGraph);
            return;
        } catch (const AutomationError& e) {
            // Refused or failed: the caller reads the pending error.
            g_.trapError(e.number(), e.description());
            events_.Log("CreateNewGraph: " + e.description());
            return;
        } catch (const Superseded&) {
            // The host loaded or replaced the graph from inside the old graph's last events:
            // what it made stands.
        }
    }
    g_.reentrance_.stopIfSuperseded();
}

void GraphSession::ReplaceGraph(bool MakinPFLGraph) {
    BusyGuard(kBusyCreate, false);

    // The pre-fade-listen graph is replaced on its own; the main graph stays.
    if (MakinPFLGraph) {
        if (g_.PFLGraphMan) {
            g_.trap(g_.PFLGraphMan->stop());
            events_.raiseEvent([](PlayerEvents& e) { e.EndOfStream(0); });
            g_.PFLGraphMan.reset();
            g_.fPFLSoundCard.reset();
        }
        g_.trap(platform_.createGraph(g_.PFLGraphMan));
        return;
    }

    // The old main graph goes, with everything it played, and the item with it: FileName
    // names what the graph holds.
    g_.reentrance_.supersedeOuter();
    if (g_.MainGraphMan) {
        g_.currentItem_.clear();
        g_.trap(g_.MainGraphMan->stop());
        if (g_.Helper) g_.trap(g_.Helper->stop());
        transport_.ResetPlaystateBookkeeping();
        DestroyGraph();
        if (!g_.m_Endraised) events_.raiseEvent([](PlayerEvents& e) { e.EndOfStream(0); });
        g_.MainGraphMan.reset();
    }

    // A new graph with new helpers.
    if (!g_.trap(platform_.createGraph(g_.MainGraphMan)) || !g_.MainGraphMan)
        raise(g_.Err.number ? g_.Err.number : platform::hr::Fail, "CreateNewGraph: no filter graph: " + g_.Err.description);
    host_.CreateHelpers();

    // No renderer yet; the standard filters go in.
    g_.SoundCardInPin.reset();
    AddGraphFilters();
}

// ---- BuildGraph ------------------------------------------------------------------------------

bool GraphSession::BuildGraph(const item::Name& item, bool bMustUseASFReader, bool CanUseAutoRender) {
    const std::string& FileName = item.text();
    if (RefuseUnplayableAddress(item)) return false;
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
        if (routing_.Cards().MustUseACM()) g_.UseACM_ = true;

        // The previous item's source goes.
        started = ticks.nowMs();
        if (g_.MainSourcePin) RemoveSourceFilter();
        if (g_.SecondSourcePin) RemoveSourceFilter();
        pending = timing(1);

        // A graph to build in.
        if (!g_.MainGraphMan) {
            if (events_.logging()) {
                events_.Log("Attempting Create New Graph");
                pending = "BuildGraph: Creating New Graph";
            }
            CreateNewGraph(false);
            if (events_.logging() || g_.errPending()) events_.Log("Created New Graph. Err = " + std::to_string(g_.Err.number));
        }

        // The output device; without it there is nothing to build towards.
        if (!g_.fSoundCard && !routing_.AddSoundCard(routing_.GetMainSoundcard(), false)) {
            pending = "BuildGraph: Failed to AddSoundCard";
            events_.Log(pending);
            g_.LastError_ = pending;
            g_.trapError(platform::hr::NoAudioHardware, pending);
            return false;
        }

        // The source.
        pending = timing(2);
        bool sourceAdded = AddSourceFilter(item, bMustUseASFReader);

        // Once more without the Windows Media reader, where automatic rendering may follow.
        if (!sourceAdded) {
            events_.Log(std::string("BuildGraph: Failed to add Source Filter, where bMustUseASFReader = ") +
                text::boolWord(bMustUseASFReader));
            if (!CanUseAutoRender) return failed();
            pending = "CanUseAutoRender: true: for " + FileName;
            bMustUseASFReader = false;
            if (!AddSourceFilter(item, bMustUseASFReader)) return failed();
        }

        // From here failures are the chain's to judge.
        pending = timing(3);
        events_.Log(pending);
        if (!g_.SoundCardInPin) routing_.AddSoundCard(routing_.GetMainSoundcard(), false);

        // The decoder chain.
        if (ConnectGraphFilters(item, CanUseAutoRender, bMustUseASFReader)) {
            events_.Log("BuildGraph: ConnectGraphFilters Successful.");
            pending = timing(4);
        } else {
            // Ogg alone gets a second try from a fresh source.
            events_.Log("BuildGraph: Failed: ConnectGraphFilters *NOT* Successful.");
            if (!item.extensionIs("ogg")) return failed();
            RemoveSourceFilter();
            bool noReader = false;
            if (!AddSourceFilter(item, noReader) || !ConnectGraphFilters(item, true, false)) {
                events_.Log("BuildGraph: was NOT able to build ogg graph");
                return failed();
            }
            events_.Log("BuildGraph: was able to build ogg graph");
        }

        // A playable graph stands.
        pending = timing(5);
        PruneUnconnectedFilters();
        return true;
    } catch (const AutomationError& e) {
        g_.trapError(e.number(), e.description());
    } catch (const std::exception& e) {
        g_.trapError(platform::hr::Fail, e.what());
    }
    return failed();
}

bool GraphSession::BuildGraphFailed(const std::string& pendingMessage) {
    // The reason goes to LastError, the graph is left disconnected for the next item.
    if (g_.errPending())
        g_.LastError_ = "BuildGraph: FAIL: In error handler (err = " + g_.Err.description + " " +
                     std::to_string(g_.Err.number) + ")";
    events_.Log(pendingMessage);
    try {
        DisconnectAllFilters(g_.MainGraphMan);
        PruneUnconnectedFilters();
    } catch (const AutomationError& e) {
        events_.Log("BuildGraph: " + e.description());
    }
    return false;
}

// Filters that no longer carry audio are taken out after a build: converters that an
// intelligent connect placed and a later attempt left behind, a reader that did not take the
// item. The player's own standing filters stay although they are idle between items, and so
// does every filter that reads a file (the item's source, whatever its state).
void GraphSession::PruneUnconnectedFilters() {
    if (!g_.MainGraphMan) return;
    const std::unordered_set<const platform::Filter*> standing = {
        g_.fSourceFilter.get(), g_.fACMWrapper.get(),   g_.fChainACMWrapper.get(), g_.fMpegSplitter.get(),
        g_.fMpegDecoder.get(),  g_.fWMADecoder.get(),   g_.fWaveParser.get(),      g_.fSampleGrabber.get(),
        g_.fSoundCard.get(),    g_.fPitchShifter.get(), g_.fPipeSender.get(),      g_.fSurround.get(),
        g_.fVorbisDecoder.get(), g_.fVorbisSplitter.get(), g_.fMp4Parser.get(),    g_.fMp4Decoder.get()};
    for (const auto& filter : g_.MainGraphMan->filters()) {
        if (!filter || standing.count(filter.get()) || filter->isFileSource()) continue;
        bool connected = false;
        for (const auto& pin : filter->pins())
            if (pin && pin->isConnected()) connected = true;
        if (!connected) g_.MainGraphMan->removeFilter(filter);
    }
}

// ---- DestroyGraph ----------------------------------------------------------------------------

void GraphSession::DestroyGraph(bool keepPlaystate) {
    BusyGuard(kBusyDestroy, true);
    g_.reentrance_.supersedeOuter();

    events_.Log("DestroyGraph: stopping the graph");
    if (g_.MainGraphMan) g_.trap(g_.MainGraphMan->stop());
    if (!keepPlaystate) transport_.ResetPlaystateBookkeeping();

    events_.Log("DestroyGraph: removin the source filter");
    RemoveSourceFilter();
    if (g_.MainGraphMan) g_.trap(g_.MainGraphMan->stop());

    // Every filter out, and the graph released with the references into it.
    events_.Log("DestroyGraph: removin all filters");
    if (g_.MainGraphMan)
        for (const auto& filter : g_.MainGraphMan->filters()) g_.MainGraphMan->removeFilter(filter);
    events_.Log("removin all filters done");
    g_.MainGraphMan.reset();
    ForgetMainGraphFilters();

    events_.Log("cuehelper...");
    if (g_.CueHelper) {
        g_.CueHelper->setEvents(nullptr);
        g_.trap(g_.CueHelper->stop());
        g_.CueHelper->setCurrentGraph(nullptr);
        g_.CueHelper.reset();
    }

    events_.Log("helper...");
    if (g_.Helper) {
        events_.Log("stopping helper graph...");
        g_.trap(g_.Helper->stop());
        events_.Log("setting helper graph to nada...");
        g_.Helper->setCurrentGraph(nullptr);
    }

    routing_.RaiseIsPFLButtonRequired(routing_.PFLButtonRequired());
    events_.Log("destroygraphcomplete");
}

// A released graph's filters mean nothing: the next graph gets its own.
void GraphSession::ForgetMainGraphFilters() {
    for (platform::FilterPtr* filter :
         {&g_.fSourceFilter, &g_.fACMWrapper, &g_.fChainACMWrapper, &g_.fMpegSplitter, &g_.fMpegDecoder, &g_.fWMADecoder,
          &g_.fWaveParser, &g_.fSampleGrabber, &g_.fSoundCard, &g_.fPitchShifter, &g_.fPipeSender, &g_.fSurround,
          &g_.fVorbisDecoder, &g_.fVorbisSplitter, &g_.fMp4Parser, &g_.fMp4Decoder})
        filter->reset();
    for (platform::PinPtr* pin : {&g_.MainSourcePin, &g_.SecondSourcePin, &g_.SampleGrabberInPin, &g_.SampleGrabberOutPin,
                                  &g_.SoundCardInPin, &g_.SurroundInPin, &g_.SurroundOutPin})
        pin->reset();
    g_.vorbisReady_ = false;
}

// ---- DisconnectAllFilters --------------------------------------------------------------------

void GraphSession::DisconnectAllFilters(platform::GraphPtr graph) {
    BusyGuard(kBusyDisconnect, true);
    transport_.StopPlaying();
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
            if (pin && pin->isConnected()) g_.trap(pin->disconnect());
    }

    if (haali) g_.trap(graph->removeFilter(haali));

    // The pipe sender is per item.
    if (g_.fPipeSender) {
        g_.trap(graph->removeFilter(g_.fPipeSender));
        g_.fPipeSender.reset();
    }
}

// ---- RemoveSourceFilter ----------------------------------------------------------------------

void GraphSession::RemoveSourceFilter() {
    // The source being added is not to be touched; quietly.
    if (g_.AddingSourceFilter) return;

    if (g_.Helper) g_.trap(g_.Helper->stop());
    if (g_.CueHelper) g_.trap(g_.CueHelper->stop());

    if (g_.MainGraphMan) {
        g_.trap(g_.MainGraphMan->stop());
        DisconnectAllFilters(g_.MainGraphMan);
        g_.clearErr();
    }

    // A removal that fails keeps both references, so that the next attempt can try again.
    bool removed = true;
    if (g_.fSourceFilter) removed = g_.MainGraphMan && g_.MainGraphMan->removeFilter(g_.fSourceFilter).ok();

    // The MP3 chain's own "ACM Wrapper" goes with the item.
    if (g_.fChainACMWrapper && g_.MainGraphMan && g_.MainGraphMan->removeFilter(g_.fChainACMWrapper).ok())
        g_.fChainACMWrapper.reset();

    if (removed) {
        g_.fSourceFilter.reset();
        g_.MainSourcePin.reset();
        g_.SecondSourcePin.reset();
    }
}

} // namespace corvid
