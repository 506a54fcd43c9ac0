// Cue-in and segue points, and the wiring of the two helper graphs.
//
// The player does not scan audio itself: the CueHelper decodes the item in the background and
// reports the cue-in point (where the audio really starts) and the segue point (where its end
// is quiet enough for the next item). A segue search asked for while a cue search runs waits
// for the cue result, or, when none comes, for the first cue helper tick 5001 ms or more after
// the cue search began.
//
// Both helpers deliver their events on the control thread; the bookkeeping needs no lock.

#include "control/PlayerCore.h"

#include "platform/ItemName.h"
#include "support/Text.h"

#include <cstdint>
#include <functional>
#include <string>

namespace corvid {

namespace {

using item::isAddress;

// How long a pending segue search waits for a cue result.
constexpr int64_t CueGiveUpMs = 5001;

} // namespace

// Routes one helper's events to the player. No exception goes back into the helper: its
// events come from the platform's side of the event loop. The host may replace the helpers
// (and so this sink) from inside an event, so nothing of the sink is read once the player
// has been called.
class PlayerCore::HelperSink : public platform::GraphHelperEvents {
public:
    HelperSink(PlayerCore& player, bool cue) : player_(player), cue_(cue) {}

    void threadEvent(int32_t left, int32_t right) override {
        PlayerCore& player = player_;
        if (cue_)
            deliver(player, [&] { player.cueHelperTick(left, right); });
        else
            deliver(player, [&] { player.helperTick(left, right); });
    }
    void endOfStream() override {
        PlayerCore& player = player_;
        if (cue_)
            deliver(player, [&] { player.cueHelperEnd(); });
        else
            deliver(player, [&] { player.helperEnd(); });
    }
    void cueInFound(int32_t positionMs) override {
        if (cue_) deliver(player_, [&, &player = player_] { player.cueResult(positionMs); });
    }
    void segueFound(int32_t positionMs) override {
        if (cue_) deliver(player_, [&, &player = player_] { player.segueResult(positionMs); });
    }

private:
    template <class F> static void deliver(PlayerCore& player, F&& body) {
        try {
            Reentrance::InEvent fromPlatform(player.g_.reentrance_);
            body();
        } catch (...) {
        }
    }
    PlayerCore& player_;
    bool cue_;
};

void PlayerCore::CreateHelpers() {
    // A replaced helper may live on a little (the platform may still hold it); it must not
    // call into this player any more.
    if (g_.Helper) g_.Helper->setEvents(nullptr);
    if (g_.CueHelper) g_.CueHelper->setEvents(nullptr);
    g_.Helper.reset();
    g_.CueHelper.reset();

    helperSink_ = std::make_unique<HelperSink>(*this, false);
    cueHelperSink_ = std::make_unique<HelperSink>(*this, true);

    if (g_.trap(platform_.createGraphHelper(platform::GraphHelperKind::Helper, g_.Helper)) && g_.Helper)
        g_.Helper->setEvents(helperSink_.get());
    if (g_.trap(platform_.createGraphHelper(platform::GraphHelperKind::CueHelper, g_.CueHelper)) &&
        g_.CueHelper)
        g_.CueHelper->setEvents(cueHelperSink_.get());
}

// ---- Searches ----

void PlayerCore::AutoCueSearch(const std::string& sFile) {
    auto& ticks = platform_.ticks();
    const int32_t started = ticks.nowMs();
    const std::string file = sFile.empty() ? g_.currentItem_.text() : sFile;

    // The player's own source filter when it uses one, else the source it loaded with.
    if (g_.CueHelper) {
        cueSearchStart_ = ticks.nowMs();
        AutoCueBusy_ = true;
        const bool useAsfReader = g_.UsingHaldenSource_ ? false : g_.UsingASFReader_;
        const platform::Status status = g_.CueHelper->startCueSearch(
            file, cueFilterNames_->names(), useAsfReader, get_autoCueThresh());
        if (!status.ok()) AutoCueBusy_ = false;
    }

    if (logging())
        Log("AutoCueSearch(setup) Took: " + std::to_string(int64_t{ticks.nowMs()} - started) +
            " ms.");
}

platform::Status PlayerCore::StartSegueSearch(bool retryWithAsfReader) {
    // Each segue search gets a list of its own.
    const NameCollection filterNames;
    if (!retryWithAsfReader && g_.UsingHaldenSource_)
        return g_.CueHelper->startSegueSearchOwnSource(g_.currentItem_, filterNames.names(),
                                                    AutoSegThresh_);
    return g_.CueHelper->startSegueSearch(g_.currentItem_, filterNames.names(),
                                       retryWithAsfReader || g_.UsingASFReader_, AutoSegThresh_);
}

void PlayerCore::AutoSegSearch() {
    // It runs after the cue result (or the give-up).
    if (AutoCueBusy_) {
        seguePending_ = true;
        return;
    }
    // Streams have no end to scan. One retry, through the Windows Media reader.
    if (isAddress(g_.currentItem_) || !g_.CueHelper) return;
    if (!StartSegueSearch(false).ok()) (void)StartSegueSearch(true);
}

// ---- The CueHelper's events ----

void PlayerCore::cueResult(int32_t positionMs) {
    if (logging()) {
        const std::string dashes(58, '-');
        const int64_t took = int64_t{platform_.ticks().nowMs()} - cueSearchStart_;
        Log("\r\n" + dashes + "\r\n" + "AutoCue Took: " + std::to_string(took) + " ms." +
            "\r\n" + "Using ASF Reader = " + text::boolWord(g_.UsingASFReader_) +
            ". Using Halden Source = " + text::boolWord(g_.UsingHaldenSource_) + "\r\n" + dashes +
            "\r\n");
    }
    AutoCueBusy_ = false;

    // A negative point means "not found".
    AutoCuePos_ = positionMs / 1000.0;
    if (AutoCuePos_ >= 0) {
        double seconds = AutoCuePos_;
        raiseEvent([&](PlayerEvents& e) { e.CueInFound(seconds); });
    } else {
        AutoCuePos_ = 0;
    }

    // The segue search that waited for this result.
    if (seguePending_) {
        seguePending_ = false;
        AutoSegSearch();
    }
}

void PlayerCore::segueResult(int32_t positionMs) {
    double seconds = positionMs / 1000.0;
    AutoSegPos_ = seconds;
    raiseEvent([&](PlayerEvents& e) { e.SegueFound(seconds); });
}

void PlayerCore::cueHelperEnd() { AutoCueBusy_ = false; }

void PlayerCore::cueHelperTick(int32_t /*left*/, int32_t /*right*/) {
    // The give-up: a pending segue search does not wait for ever for a cue result.
    if (cueSearchStart_ < 1 || !seguePending_) return;
    const int64_t waited = int64_t{platform_.ticks().nowMs()} - cueSearchStart_;
    const bool overflowed = waited > INT32_MAX || waited < INT32_MIN;
    if (!overflowed && waited < CueGiveUpMs) return;

    AutoCueBusy_ = false;
    Log("Waited TOO LONG for the autocue to happen, and an autoseg command is pending. Giving "
        "up lookin' for AutoCue, and lookng for seg instead");
    seguePending_ = false;
    AutoSegSearch();
}

} // namespace corvid
