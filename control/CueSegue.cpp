// Cue-in and segue searches and their results. Both helpers deliver their events on the
// control thread; the bookkeeping needs no lock.

#include "control/CueSegue.h"

#include "platform/ItemName.h"
#include "support/Text.h"

#include <climits>
#include <cstdlib>
#include <string>

namespace corvid {

namespace {

// How long a pending segue search waits for a cue result.
constexpr int64_t CueGiveUpMs = 5001;
constexpr int32_t kDefaultAutoCueThresh = 500;

} // namespace

int32_t CueSegue::get_autoCueThresh() {
    PlayerProcessState& process = *g_.process;
    if (process.autoCueThresh < 1) process.autoCueThresh = kDefaultAutoCueThresh;
    return process.autoCueThresh;
}

void CueSegue::put_autoCueThresh(int32_t& value) {
    // The absolute value; the smallest 32-bit value has none and keeps the default instead.
    g_.process->autoCueThresh = value == INT32_MIN ? 0 : std::abs(value);
}

void CueSegue::AutoCueSearch(const std::string& sFile) {
    const int32_t started = ticks_.nowMs();
    const std::string file = sFile.empty() ? g_.currentItem_.text() : sFile;

    // The player's own source filter when it uses one, else the source it loaded with.
    if (g_.CueHelper) {
        cueSearchStart_ = ticks_.nowMs();
        cueBusy_ = true;
        const bool useAsfReader = g_.UsingHaldenSource_ ? false : g_.UsingASFReader_;
        const NameCollection filterNames;
        const platform::Status status = g_.CueHelper->startCueSearch(
            file, filterNames.names(), useAsfReader, get_autoCueThresh());
        if (!status.ok()) cueBusy_ = false;
    }

    if (events_.logging())
        events_.Log("AutoCueSearch(setup) Took: " +
                    std::to_string(int64_t{ticks_.nowMs()} - started) + " ms.");
}

platform::Status CueSegue::startSegueSearch(bool retryWithAsfReader) {
    // Each segue search gets a list of its own.
    const NameCollection filterNames;
    if (!retryWithAsfReader && g_.UsingHaldenSource_)
        return g_.CueHelper->startSegueSearchOwnSource(g_.currentItem_, filterNames.names(),
                                                       segueThreshold_);
    return g_.CueHelper->startSegueSearch(g_.currentItem_, filterNames.names(),
                                          retryWithAsfReader || g_.UsingASFReader_, segueThreshold_);
}

void CueSegue::AutoSegSearch() {
    // It runs after the cue result (or the give-up).
    if (cueBusy_) {
        seguePending_ = true;
        return;
    }
    // Streams have no end to scan. One retry, through the Windows Media reader.
    if (item::isAddress(g_.currentItem_) || !g_.CueHelper) return;
    if (!startSegueSearch(false).ok()) (void)startSegueSearch(true);
}

void CueSegue::cueResult(int32_t positionMs) {
    if (events_.logging()) {
        const std::string dashes(58, '-');
        const int64_t took = int64_t{ticks_.nowMs()} - cueSearchStart_;
        events_.Log("\r\n" + dashes + "\r\n" + "AutoCue Took: " + std::to_string(took) + " ms." +
                    "\r\n" + "Using ASF Reader = " + text::boolWord(g_.UsingASFReader_) +
                    ". Using Halden Source = " + text::boolWord(g_.UsingHaldenSource_) + "\r\n" +
                    dashes + "\r\n");
    }
    cueBusy_ = false;

    // A negative point means "not found".
    cuePos_ = positionMs / 1000.0;
    if (cuePos_ >= 0) {
        double seconds = cuePos_;
        events_.raise([&](PlayerEvents& e) { e.CueInFound(seconds); });
    } else {
        cuePos_ = 0;
    }

    // The segue search that waited for this result.
    if (seguePending_) {
        seguePending_ = false;
        AutoSegSearch();
    }
}

void CueSegue::segueResult(int32_t positionMs) {
    double seconds = positionMs / 1000.0;
    seguePos_ = seconds;
    events_.raise([&](PlayerEvents& e) { e.SegueFound(seconds); });
}

void CueSegue::cueHelperTick() {
    // The give-up: a pending segue search does not wait for ever for a cue result.
    if (cueSearchStart_ < 1 || !seguePending_) return;
    const int64_t waited = int64_t{ticks_.nowMs()} - cueSearchStart_;
    const bool overflowed = waited > INT32_MAX || waited < INT32_MIN;
    if (!overflowed && waited < CueGiveUpMs) return;

    cueBusy_ = false;
    events_.Log("Waited TOO LONG for the autocue to happen, and an autoseg command is pending. "
                "Giving up lookin' for AutoCue, and lookng for seg instead");
    seguePending_ = false;
    AutoSegSearch();
}

} // namespace corvid
