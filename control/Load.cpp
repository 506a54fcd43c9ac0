// Loading an item: the FileName write.
//
// The write runs the whole load synchronously on the control thread: it releases the previous
// item, builds a graph for the new one (with one retry through the other source filter),
// reads the duration, starts the automatic cue search, sets up the pitch filter, hands the new
// graph to the helper, and ends either at "done" or at "Fail:", where the graph is destroyed.
// An empty name unloads. Nothing fails towards the host: the outcome is LastError, the log and
// the state the other members report.
//
// Every log line is an event the host handles synchronously and may re-enter the player from,
// writing FileName or calling Play. Until the write owns the load, the load-busy flag is the
// guard: it is cleared just before the write announces itself and checked right after, so only
// a re-entrant write that was left busy (one that failed) makes the outer write quit. Once the
// write owns the load, a write from inside its events supersedes it (support/Reentrance.h).

#include "control/PlayerCore.h"

#include "platform/ItemName.h"
#include "support/MediaTags.h"
#include "support/Text.h"

#include <string>

namespace corvid {

using item::isAddress;

void PlayerCore::put_FileName(std::string& value) {
    try {
        LoadItem(value);
    } catch (const Superseded&) {
        throw; // an operation of the player's own that wrote this stops with it
    } catch (...) {
        // The write never fails towards the host; LoadItem has logged what it could.
    }
}

void PlayerCore::LogCheckpoint(int n) {
    if (!events.logging()) return;
    const int64_t ms = int64_t{platform_.ticks().nowMs()} - loadStart_;
    // No blank between the count and its marker: operators' log filters expect it so.
    events.Log("Filename Let In Player: took: " + std::to_string(ms) + "(" + std::to_string(n) +
               ") so far...");
}

void PlayerCore::LoadItem(const std::string& newNameArg) {
    // The host may change its own variable from inside an event; the load goes on with the
    // name it was given.
    const std::string newName = newNameArg;
    // A write from inside an event is the host's newer wish: a load that already owns the
    // graph, and a graph replacement, under way outside it give way to it. A write while a
    // load waits for its stream to open only gives up on that stream: the waiting load sees
    // the cancel and ends with it as its reason.
    const bool cancelsStreamWait = g.AddingSourceFilter && g.streamControl_ && g.streamControl_->canCancel();
    if (!cancelsStreamWait) g.reentrance_.supersedeOuter();
    {
        Reentrance::Operation load(g.reentrance_, false);
        try {
            LoadItemSteps(newName, load);
            return;
        } catch (const Superseded&) {
        }
    }
    events.Log("Filename: BUSY - quitting!");
    g.reentrance_.stopIfSuperseded();
}

void PlayerCore::LoadItemSteps(const std::string& newName, Reentrance::Operation& load) {
    auto& ticks = platform_.ticks();
    auto elapsedSince = [&](int32_t start) {
        return std::to_string(int64_t{ticks.nowMs()} - start);
    };

    // A fresh LastError; the catalogue must exist before anything is routed.
    g.LastError_.clear();
    if (!g.process->cards) Init();

    // Load start, for the checkpoint lines.
    loadStart_ = ticks.nowMs();

    // A stream source of an earlier stream item that is still starting is cancelled
    // instead of loading; one that can no longer be cancelled is let go.
    if (g.streamControl_) {
        if (g.streamControl_->canCancel()) {
            // A write while the load waits for that stream is the host giving up on it.
            if (!g.streamControl_->canCancel() || g.AddingSourceFilter) {
                g.streamControl_->cancel();
                return;
            }
        } else {
            g.streamControl_->registerCallback(nullptr);
            g.streamControl_ = nullptr;
            g.streamSource_.reset();
        }
    }

    try {
        // Take out the previous item's source and its per-item inserts.
        session.RemoveSourceFilter();
        for (platform::FilterPtr* insert : {&g.fPitchShifter, &g.fPipeSender}) {
            if (*insert && g.MainGraphMan) g.MainGraphMan->removeFilter(*insert);
            insert->reset();
        }
        cueSegue.forgetSearches();

        // Loading over a loaded item: unload the old one first (the unload runs as a write
        // of its own).
        if (!newName.empty() && !g.currentItem_.empty()) {
            try {
                std::string empty;
                put_FileName(empty);
            } catch (const Superseded&) {
                throw;
            } catch (...) {
            }
            g.currentItem_.clear();
        }

        // Announce the write.
        transport.loadBusy = false;
        usedOtherSource_ = false;
        if (events.logging()) events.Log("Setting filename = " + newName);

        // A write the host made from inside that announcement and left busy (it failed):
        // this one gives way.
        if (transport.loadBusy) {
            events.Log("Filename: BUSY - quitting!");
            return;
        }

        // From here this write owns the load.
        cueSegue.forgetCuePoint();
        transport.loadBusy = true;
        load.claim();

        // A new graph for every item, when the user asks for it.
        if (options.get_NewGraphEveryTime()) {
            events.Log(std::string("Player Setting: NewGraphEveryTime = ") + text::boolWord(true));
            events.Log("NewGraphEveryTime means we destroy the graph...");
            session.DestroyGraph();
            events.Log("Graph Destroyed.");
        }

        // An empty name unloads.
        if (newName.empty()) {
            UnloadItem();
            return;
        }
        if (events.logging()) events.Log("Attempting to actually load file: " + newName);
        if (!g.currentItem_.empty()) {
            if (events.logging())
                events.Log("Calling RemoveSourceFilter for existing filename " + g.currentItem_.text() + " ...");
            session.RemoveSourceFilter();
            events.Log("RemoveSourceFilter complete.");
        }
        // Devices asked for while the last item played take effect with this one.
        routing.ApplyPendingSoundCards();

        // Build, and once more through the other source filter.
        const item::Name item(newName);
        const int32_t buildStart = ticks.nowMs();
        g.streamAnswerFinal_ = false;
        bool built = session.BuildGraph(item, false, false);
        if (events.logging()) events.Log("BuildGraph took " + elapsedSince(buildStart) + " ms.");
        if (!built) {
            if (!RetryThroughOtherSource()) {
                FailLoad(newName);
                return;
            }
            events.Log("BuildGraph DIDNT succeed - lets try again with a different source filter...");
            if (session.BuildGraph(item, true, true)) {
                usedOtherSource_ = true;
            } else {
                events.Log("BuildGraph DIDNT succeed - even with a different source filter failing "
                    "this file...");
                FailLoad(newName);
                return;
            }
        }

        // Success.
        LoadSucceeded(item);
    } catch (const AutomationError& e) {
        g.LastError_ = e.description();
        FailLoad(newName);
    } catch (const std::exception& e) {
        g.LastError_ = e.what();
        FailLoad(newName);
    }
}

void PlayerCore::LoadSucceeded(const item::Name& item) {
    const std::string& name = item.text();
    auto& ticks = platform_.ticks();

    if (events.logging()) events.Log(name + "Succeeded to build the graph.  ");
    LogCheckpoint(2);

    // Tags of a Windows Media item; the duration (one fixed value for every stream).
    if (item.extensionIs("wma")) {
        try {
            (void)Tags().Open(name);
        } catch (...) {
            // Unreadable tags read as empty; the item still plays.
        }
    }
    if (isAddress(name)) {
        transport.setDuration(StreamDurationSeconds);
    } else {
        double seconds = 0;
        if (g.MainGraphMan && g.trap(g.MainGraphMan->duration(seconds))) transport.setDuration(seconds);
    }

    if (events.logging()) events.Log("Setting Volume --  " + name);
    transport.ApplyStoredVolume();
    LogCheckpoint(3);

    // The automatic cue search (files only). The item is not yet the current one, so
    // it is named.
    if (!name.empty() && options.UseAutoCue && options.CanCueIn && !isAddress(name)) {
        if (events.logging()) events.Log("Performing AutoCueSearch --  " + name);
        cueSegue.AutoCueSearch(name);
        if (events.logging()) events.Log("After Performing AutoCueSearch --  " + name);
    }
    LogCheckpoint(4);

    // A loaded item stands stopped.
    if (events.logging())
        events.Log("Err here (may well be none!) is: " + std::to_string(g.Err.number) + " " +
                   g.Err.description);
    if (transport.storedPlaystate() != mpstopped) {
        events.Log("Setting playstate to stopped... ");
        transport.SetPlaystate(mpstopped);
        events.Log("Set playstate to stopped... ");
    }
    LogCheckpoint(5);

    // Pitch options: the pitch filter carries rate and pitch, except for Windows Media
    // streams, which it passes through.
    if (!text::containsNoCase(name, "icyx://") && g.UsePitchAdjuster_) {
        events.Log("Setting pitch adjust options(1)... ");
        transport.ApplyPitchOptions(name);
        events.Log("Set pitch adjust options. ");
    } else {
        events.Log("Set pitch adjust options(2)... ");
        transport.ApplyPitchOptions(name);
        events.Log("Set pitch adjust options.(2) ");
    }

    // The helper follows the new graph; the pitch and pipe inserts go in.
    events.Log("Setting Helper's currentgraph... ");
    LogCheckpoint(6);
    if (g.Helper) {
        LogCheckpoint(7);
        events.Log("Setting CurrentGraph on MainGraphMan...");
        g.Helper->setCurrentGraph(g.MainGraphMan);
        events.Log("Have Set CurrentGraph on MainGraphMan.");
        LogCheckpoint(8);
        if (events.logging()) events.Log(events.PrintFilters(g.MainGraphMan));
        session.SetupPitchAndPipeSender();
        // The inserts are new: give them the pitch options set above.
        transport.ApplyPitchOptions(name);
    }
    LogCheckpoint(9);
    events.Log("Set Helper's currentgraph... ");

    // The pitch value, for files.
    if (!isAddress(name) && g.UsePitchAdjuster_) {
        // Files play at their own pitch.
        events.Log("Setting Pitch...to 0 ");
        if (g.fPitchShifter)
            if (auto* pitch = g.fPitchShifter->pitchShifter()) g.trap(pitch->setPitchSemitones(0));
        events.Log("Set Pitch... ");
    }
    LogCheckpoint(8);

    // The graphs as they now stand.
    transport.loadBusy = false;
    if (events.logging()) {
        events.Log("Apparently succeeded to load: " + name);
        events.Log("\r\nFilters in MainGraphMan: " + events.PrintFilters(g.MainGraphMan));
        if (g.Helper && g.CueHelper) {
            events.Log("\r\nFilters in Helper Graph: " + events.PrintFilters(g.Helper->currentGraph()));
            events.Log("\r\nFilters in CueHelper Graph: " + events.PrintFilters(g.CueHelper->currentGraph()));
        }
    }

    // Done.
    if (events.logging()) events.Log("Here we are, at 'done' - this is a successful load...: " + name);
    if (item::isIcyStream(name) && g.fSourceFilter) {
        // Kept so that the next write can cancel a start that is still under way.
        g.streamSource_ = g.fSourceFilter;
        g.streamControl_ = g.fSourceFilter->streamSource();
    }
    transport.loaded();
    transport.loadBusy = false;
    g.currentItem_ = item;
    if (events.logging())
        events.Log("Filename (Let) in Player succeeded: in " +
                   std::to_string(int64_t{ticks.nowMs()} - loadStart_) + " ms.");
}

// The unload of an empty write.
void PlayerCore::UnloadItem() {
    g.UsingASFReader_ = false;
    events.Log("NewFileName is NULL, so removesourcefilter et al...");
    g.m_Endraised = false;
    transport.unloaded();
    g.currentItem_.clear();
    if (tags_) tags_->Clear();
    int32_t left = 0, right = 0;
    events.raise([&](PlayerEvents& e) { e.VUPeak(left, right); });
    transport.loadBusy = false;
}

// The failure path: the graph goes, the item is left empty and stopped. The load-busy
// flag stays set until the next write clears it.
void PlayerCore::FailLoad(const std::string& name) {
    // A pending error explains the failure best; without one, what the build left in
    // LastError stands.
    if (g.errPending()) g.LastError_ = g.Err.description;
    if (events.logging()) {
        events.Log("Last Error: " + g.LastError_ + "  ");
        events.Log("Here we are, at 'Fail:' - this is a *NOT* successful load...: " + std::string(" ") +
                   name);
        events.Log(name + " - this is a *NOT* successful load...: ");
    }
    events.Log("What happens here, is we destroy the graph...");
    try {
        session.DestroyGraph();
    } catch (const AutomationError& e) {
        if (events.logging()) events.Log(e.description());
    }
    events.Log("Ok, back at the end of filename property let now...");
    g.clearErr();
    events.Log("Done with filename let now");
    g.currentItem_.clear();
    transport.unloaded();
}

// Whether a build that failed is tried once more through the other source filter. Without a
// graph manager there is nothing to retry in. The one place where a failure rules the retry out.
bool PlayerCore::RetryThroughOtherSource() {
    if (!g.MainGraphMan) return false;
    // A stream whose open was cancelled or answered for good would only reach the same server
    // again through the other source filter.
    if (g.streamAnswerFinal_) {
        events.Log("BuildGraph DIDNT succeed - the stream's answer is final, not trying another source filter.");
        return false;
    }
    return true;
}

} // namespace corvid
