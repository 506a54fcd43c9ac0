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

#include "support/ProcessState.h"
#include "support/MediaTags.h"
#include "platform/ItemName.h"
#include "support/Text.h"

#include <charconv>
#include <cmath>
#include <string>

namespace corvid {

namespace {

using item::isAddress;

// A number as the log shows it: whole values without a decimal point, others in their
// shortest form.
std::string numberText(double value) {
    if (std::isfinite(value) && value == std::trunc(value) && std::fabs(value) < 1e15)
        return std::to_string(static_cast<long long>(value));
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, value);
    return std::string(buf, res.ptr);
}

// Keeps a flag set for the extent of a scope and restores what it was before (a write may
// run inside another write).
class FlagScope {
public:
    explicit FlagScope(bool& flag) : flag_(flag), saved_(flag) { flag_ = true; }
    ~FlagScope() { flag_ = saved_; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;

private:
    bool& flag_;
    bool saved_;
};

} // namespace

std::string PlayerCore::get_FileName() { return g_.currentItem_; }

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
    if (!logging()) return;
    const int64_t ms = int64_t{platform_.ticks().nowMs()} - loadStart_;
    // No blank between the count and its marker: operators' log filters expect it so.
    Log("Filename Let In Player: took: " + std::to_string(ms) + "(" + std::to_string(n) +
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
    const bool cancelsStreamWait = g_.AddingSourceFilter && g_.streamControl_ && g_.streamControl_->canCancel();
    if (!cancelsStreamWait) g_.reentrance_.supersedeOuter();
    {
        Reentrance::Operation load(g_.reentrance_, false);
        try {
            LoadItemSteps(newName, load);
            return;
        } catch (const Superseded&) {
        }
    }
    Log("Filename: BUSY - quitting!");
    g_.reentrance_.stopIfSuperseded();
}

void PlayerCore::LoadItemSteps(const std::string& newName, Reentrance::Operation& load) {
    FlagScope writing(loading_);
    auto& ticks = platform_.ticks();
    auto elapsedSince = [&](int32_t start) {
        return std::to_string(int64_t{ticks.nowMs()} - start);
    };

    // A fresh LastError; the catalogue must exist before anything is routed.
    g_.LastError_.clear();
    if (!Process().cards) Init();

    // Load start, for the checkpoint lines.
    loadStart_ = ticks.nowMs();

    // A stream source of an earlier stream item that is still starting is cancelled
    // instead of loading; one that can no longer be cancelled is let go.
    if (g_.streamControl_) {
        if (g_.streamControl_->canCancel()) {
            // A write while the load waits for that stream is the host giving up on it.
            if (!g_.streamControl_->canCancel() || g_.AddingSourceFilter) {
                g_.streamControl_->cancel();
                streamStartCancelled_ = true;
                return;
            }
        } else {
            g_.streamControl_->registerCallback(nullptr);
            g_.streamControl_ = nullptr;
            g_.streamSource_.reset();
        }
    }

    try {
        // Take out the previous item's source and its per-item inserts.
        session_.RemoveSourceFilter();
        for (platform::FilterPtr* insert : {&g_.fPitchShifter, &g_.fPipeSender}) {
            if (*insert && g_.MainGraphMan) g_.MainGraphMan->removeFilter(*insert);
            insert->reset();
        }
        AutoCueBusy_ = false;
        seguePending_ = false;

        // Loading over a loaded item: unload the old one first (the unload runs as a write
        // of its own).
        if (!newName.empty() && !g_.currentItem_.empty()) {
            try {
                std::string empty;
                put_FileName(empty);
            } catch (const Superseded&) {
                throw;
            } catch (...) {
            }
            g_.currentItem_.clear();
        }

        // Announce the write.
        loadBusy_ = false;
        UsingASFReaderAsFallback_ = false;
        if (logging()) Log("Setting filename = " + newName);

        // A write the host made from inside that announcement and left busy (it failed):
        // this one gives way.
        if (loadBusy_) {
            Log("Filename: BUSY - quitting!");
            return;
        }

        // From here this write owns the load.
        AutoCuePos_ = 0;
        loadBusy_ = true;
        load.claim();

        // A new graph for every item, when the user asks for it.
        if (get_NewGraphEveryTime()) {
            Log(std::string("Player Setting: NewGraphEveryTime = ") + text::boolWord(true));
            Log("NewGraphEveryTime means we destroy the graph...");
            session_.DestroyGraph();
            Log("Graph Destroyed.");
        }

        // An empty name unloads.
        if (newName.empty()) {
            UnloadItem();
            return;
        }
        if (logging()) Log("Attempting to actually load file: " + newName);
        if (!g_.currentItem_.empty()) {
            if (logging())
                Log("Calling RemoveSourceFilter for existing filename " + g_.currentItem_.text() + " ...");
            session_.RemoveSourceFilter();
            Log("RemoveSourceFilter complete.");
        }
        // Devices asked for while the last item played take effect with this one.
        routing_.ApplyPendingSoundCards();

        // Build, and once more through the other source filter.
        const item::Name item(newName);
        const int32_t buildStart = ticks.nowMs();
        g_.streamAnswerFinal_ = false;
        bool built = session_.BuildGraph(item, false, false);
        if (logging()) Log("BuildGraph took " + elapsedSince(buildStart) + " ms.");
        if (!built) {
            if (!RetryThroughOtherSource()) {
                FailLoad(newName);
                return;
            }
            Log("BuildGraph DIDNT succeed - lets try again with a different source filter...");
            if (session_.BuildGraph(item, true, true)) {
                UsingASFReaderAsFallback_ = true;
            } else {
                Log("BuildGraph DIDNT succeed - even with a different source filter failing "
                    "this file...");
                FailLoad(newName);
                return;
            }
        }

        // Success.
        LoadSucceeded(item);
    } catch (const AutomationError& e) {
        g_.LastError_ = e.description();
        FailLoad(newName);
    } catch (const std::exception& e) {
        g_.LastError_ = e.what();
        FailLoad(newName);
    }
}

void PlayerCore::LoadSucceeded(const item::Name& item) {
    const std::string& name = item.text();
    auto& ticks = platform_.ticks();

    if (logging()) Log(name + "Succeeded to build the graph.  ");
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
        cachedDuration_ = StreamDurationSeconds;
    } else {
        double seconds = 0;
        if (g_.MainGraphMan && g_.trap(g_.MainGraphMan->duration(seconds))) cachedDuration_ = seconds;
    }

    if (logging()) Log("Setting Volume --  " + name);
    ApplyStoredVolume();
    LogCheckpoint(3);

    // The automatic cue search (files only). The item is not yet the current one, so
    // it is named.
    if (!name.empty() && UseAutoCue && CanCueIn && !isAddress(name)) {
        if (logging()) Log("Performing AutoCueSearch --  " + name);
        AutoCueSearch(name);
        if (logging()) Log("After Performing AutoCueSearch --  " + name);
    }
    LogCheckpoint(4);

    // A loaded item stands stopped.
    if (logging())
        Log("Err here (may well be none!) is: " + std::to_string(g_.Err.number) + " " +
            g_.Err.description);
    if (playstate_ != mpstopped) {
        Log("Setting playstate to stopped... ");
        SetPlaystate(mpstopped);
        Log("Set playstate to stopped... ");
    }
    LogCheckpoint(5);

    // Pitch options: the pitch filter carries rate and pitch, except for Windows Media
    // streams, which it passes through.
    if (!text::containsNoCase(name, "icyx://") && g_.UsePitchAdjuster_) {
        Log("Setting pitch adjust options(1)... ");
        ApplyPitchOptions(name);
        Log("Set pitch adjust options. ");
    } else {
        Log("Set pitch adjust options(2)... ");
        ApplyPitchOptions(name);
        Log("Set pitch adjust options.(2) ");
    }

    // The helper follows the new graph; the pitch and pipe inserts go in.
    Log("Setting Helper's currentgraph... ");
    LogCheckpoint(6);
    if (g_.Helper) {
        LogCheckpoint(7);
        Log("Setting CurrentGraph on MainGraphMan...");
        g_.Helper->setCurrentGraph(g_.MainGraphMan);
        Log("Have Set CurrentGraph on MainGraphMan.");
        LogCheckpoint(8);
        if (logging()) Log(PrintFilters(g_.MainGraphMan));
        session_.SetupPitchAndPipeSender();
        // The inserts are new: give them the pitch options set above.
        ApplyPitchOptions(name);
    }
    LogCheckpoint(9);
    Log("Set Helper's currentgraph... ");

    // The pitch value, for files.
    if (!isAddress(name) && g_.UsePitchAdjuster_) {
        if (logging()) Log("Setting Pitch...to " + numberText(pitchValue_) + " ");
        if (auto* pitch = PitchControl()) g_.trap(pitch->setPitchSemitones(pitchValue_));
        Log("Set Pitch... ");
    }
    LogCheckpoint(8);

    // The graphs as they now stand.
    loadBusy_ = false;
    if (logging()) {
        Log("Apparently succeeded to load: " + name);
        Log("\r\nFilters in MainGraphMan: " + PrintFilters(g_.MainGraphMan));
        if (g_.Helper && g_.CueHelper) {
            Log("\r\nFilters in Helper Graph: " + PrintFilters(g_.Helper->currentGraph()));
            Log("\r\nFilters in CueHelper Graph: " + PrintFilters(g_.CueHelper->currentGraph()));
        }
    }

    // Done.
    if (logging()) Log("Here we are, at 'done' - this is a successful load...: " + name);
    if (item::isIcyStream(name) && g_.fSourceFilter) {
        // Kept so that the next write can cancel a start that is still under way.
        g_.streamSource_ = g_.fSourceFilter;
        g_.streamControl_ = g_.fSourceFilter->streamSource();
    }
    graphLoaded_ = true;
    loadBusy_ = false;
    g_.currentItem_ = item;
    if (logging())
        Log("Filename (Let) in Player succeeded: in " +
            std::to_string(int64_t{ticks.nowMs()} - loadStart_) + " ms.");
}

// The unload of an empty write.
void PlayerCore::UnloadItem() {
    g_.UsingASFReader_ = false;
    Log("NewFileName is NULL, so removesourcefilter et al...");
    g_.m_Endraised = false;
    playstate_ = mpstopped; // stored without an event
    graphLoaded_ = false;
    g_.currentItem_.clear();
    if (tags_) tags_->Clear();
    int32_t left = 0, right = 0;
    raiseEvent([&](PlayerEvents& e) { e.VUPeak(left, right); });
    loadBusy_ = false;
}

// The failure path: the graph goes, the item is left empty and stopped. The load-busy
// flag stays set until the next write clears it.
void PlayerCore::FailLoad(const std::string& name) {
    // A pending error explains the failure best; without one, what the build left in
    // LastError stands.
    if (g_.errPending()) g_.LastError_ = g_.Err.description;
    if (logging()) {
        Log("Last Error: " + g_.LastError_ + "  ");
        Log("Here we are, at 'Fail:' - this is a *NOT* successful load...: " + std::string(" ") +
            name);
        Log(name + " - this is a *NOT* successful load...: ");
    }
    Log("What happens here, is we destroy the graph...");
    try {
        session_.DestroyGraph();
    } catch (const AutomationError& e) {
        if (logging()) Log(e.description());
    }
    Log("Ok, back at the end of filename property let now...");
    g_.clearErr();
    Log("Done with filename let now");
    g_.currentItem_.clear();
    graphLoaded_ = false;
    playstate_ = mpstopped;
}

// Whether a build that failed is tried once more through the other source filter. Without a
// graph manager there is nothing to retry in. The one place where a failure rules the retry out.
bool PlayerCore::RetryThroughOtherSource() {
    if (!g_.MainGraphMan) return false;
    // A stream whose open was cancelled or answered for good would only reach the same server
    // again through the other source filter.
    if (g_.streamAnswerFinal_) {
        Log("BuildGraph DIDNT succeed - the stream's answer is final, not trying another source filter.");
        return false;
    }
    return true;
}

// Rate and pitch go to the pitch filter, or it passes the audio through: Windows Media streams
// and a player told not to adjust pitch.
void PlayerCore::ApplyPitchOptions(const std::string& name) {
    auto* pitch = PitchControl();
    if (!pitch) return;
    if (!text::containsNoCase(name, "icyx://") && g_.UsePitchAdjuster_) {
        g_.trap(pitch->setPassThrough(false));
        g_.trap(pitch->setRate(pitchRate_));
    } else {
        g_.trap(pitch->setPassThrough(true));
    }
}

} // namespace corvid
