// The transport's work: playing, pausing, stopping, seeking, the level and the rate.

#include "control/Transport.h"

#include "levels/Peaks.h"
#include "platform/ItemName.h"
#include "support/CheckedInt.h"
#include "support/Text.h"

#include <string>

namespace corvid {

namespace {

using item::isAddress;

// Volume levels in hundredths of a decibel.
constexpr int32_t MuteLevel = -6800;
// Play re-applies a mute one unit lower, so that a mute applied by Play can be told apart.
constexpr int32_t PlayMuteLevel = -6801;
// Below this a level counts as muted and is not remembered as the player's volume.
constexpr int32_t QuietestRemembered = -6000;

constexpr int32_t StreamNotFound = 3333;
// Our own number for the state error Play raises when the host changed the item from inside
// PlayStateChange; the hosts match the description.
constexpr int32_t FileNameChangedWhilePlaying = 3334;

// The busy number of the graph session: a source filter is still being added.
constexpr int32_t GraphBusy = 558;

} // namespace

Transport::Transport(GraphModel& g, EventChannel& events, GraphSession& session, FormatChains& chains,
                     Levels& levels, platform::Platform& platform,
                     std::function<void(std::string&)> reload)
    : g_(g), events_(events), session_(session), chains_(chains), levels_(levels),
      platform_(platform), reload_(std::move(reload)), stopwatch_(platform.ticks()) {}

platform::PitchShifterControl* Transport::PitchControl() {
    return g_.fPitchShifter ? g_.fPitchShifter->pitchShifter() : nullptr;
}

// ---- Playstate ----

void Transport::SetPlaystate(PlayCondition newState) {
    g_.m_Endraised = false;
    const PlayCondition oldState = playstate_;
    playstate_ = newState;
    try {
        switch (newState) {
        case MpPlaying: stopwatch_.StartTiming(); break;
        case mpPaused: stopwatch_.StopTiming(); break;
        case mpstopped: stopwatch_.Reset(); break;
        default: break;
        }
    } catch (const AutomationError&) {
        // An overflowing stopwatch loses its timing, not the state change.
    }
    events_.raise([&](PlayerEvents& e) { e.PlayStateChange(oldState, newState); });
}

// What a graph teardown resets: nothing is playing and nothing has been timed.
void Transport::ResetPlaystateBookkeeping() {
    playstate_ = mpstopped;
    graphLoaded_ = false;
    position_ = 0;
    stopwatch_.Reset();
}

// A source whose pins all went (a stream start the host cancelled) plays nothing: running the
// graph would report "playing" over silence.
bool Transport::SourceFeedsGraph() const {
    if (!g_.fSourceFilter) return true;
    for (const auto& pin : g_.fSourceFilter->pins())
        if (pin && pin->isConnected()) return true;
    return false;
}

void Transport::ApplyStoredVolume() {
    if (g_.MainGraphMan) g_.trap(g_.MainGraphMan->setVolume(storedVolume_));
}

// ---- Play ----

// Whether a Play error leaves the graph standing.
static bool IsExpectedPlayError(int32_t number) {
    switch (number) {
    case 0:                        // nothing loaded: there is no graph worth destroying
    case platform::hr::Timeout:    // the stream server was slow; the graph is sound
    case platform::hr::Abort:      // the operator cancelled a stream start
    case GraphBusy:                // a source is still being added; a destroy is refused
        return true;
    default: return false;
    }
}

void Transport::Play() {
    if (events_.logging()) events_.Log(events_.PrintFilters(g_.MainGraphMan));

    // The volume again; a mute is re-applied with its own marker level.
    if (g_.MainGraphMan) g_.trap(g_.MainGraphMan->setVolume(get_mute() ? PlayMuteLevel : storedVolume_));

    // A stream (other than an icystream address, which keeps its open source) is reloaded
    // from scratch for every play.
    if (isAddress(g_.currentItem_) && !item::isIcyStream(g_.currentItem_)) {
        if (get_Playstate() == MpPlaying) return;
        const std::string before = g_.currentItem_;
        reloading_ = true;
        playingOverride_ = true;
        bool superseded = false;
        {
            Reentrance::Operation reload(g_.reentrance_);
            std::string again = g_.currentItem_;
            try {
                reload_(again);
            } catch (const Superseded&) {
                superseded = true;
            }
        }
        reloading_ = false;
        playingOverride_ = false;
        if (superseded) {
            // The host wrote another item from inside the reload: that item stands, unplayed.
            g_.reentrance_.stopIfSuperseded();
            return;
        }
        if (!text::equalsNoCase(g_.currentItem_, before)) {
            playstate_ = mpUnknown; // stored without an event
            g_.currentItem_ = "Stream FAIL";
            events_.raise([](PlayerEvents& e) { e.StreamBufferingFinished(); });
            throw AutomationError(StreamNotFound, "The stream cannot be found.");
        }
    }

    // Run the helper, then the graph.
    g_.TryingToPlay_ = true;
    g_.clearErr();
    if (g_.Helper && !g_.currentItem_.empty()) {
        events_.Log("Calling run on helper...");
        events_.raise([](PlayerEvents& e) { e.PlayAboutToHappen(); });
        g_.trap(g_.Helper->run());
    }
    if (!g_.currentItem_.empty() && !g_.errPending()) {
        if (!g_.MainGraphMan)
            g_.trapError(platform::hr::Pointer, "The player has no graph to run.");
        else if (!SourceFeedsGraph())
            g_.trapError(platform::hr::NotConnected, "The player's source no longer feeds its graph.");
        else
            g_.trap(g_.MainGraphMan->run());
    }
    g_.TryingToPlay_ = false;

    // The reason, in the words the operators know.
    const GraphModel::PendingError failure = g_.Err;
    g_.clearErr();
    if (failure.number != 0) {
        const std::string reason =
            failure.number == platform::hr::Timeout
                ? std::string("The data from the streaming server could not be buffered quickly "
                              "enough.")
                : failure.description;
        if (events_.logging()) events_.Log("Play: " + std::to_string(failure.number) + " " + reason);
        events_.raise([](PlayerEvents& e) { e.StreamBufferingFinished(); });
    }

    // Nothing to play, or it would not run.
    if (g_.currentItem_.empty() || failure.number != 0) {
        if (IsExpectedPlayError(failure.number)) {
            events_.Log("There was an Expected error here, so not destroying graph");
        } else {
            events_.Log("ERROR: After a catastrophic play error, the graph will be destroyed ... ");
            events_.Log("Filename is set to nothing here, here comes the destroy ...");
            try {
                session_.DestroyGraph();
            } catch (const AutomationError& e) {
                if (events_.logging()) events_.Log(e.description());
            }
            events_.Log("Graph destroyed.");
        }
        levels_.restartSilenceCount();
        return;
    }

    // Playing, unless the host changed the item from inside PlayStateChange.
    SetPlaystate(MpPlaying);
    // The silence count starts again with every play.
    levels_.restartSilenceCount();
    if (get_Playstate() != MpPlaying) {
        events_.raise([](PlayerEvents& e) { e.StreamBufferingFinished(); });
        throw AutomationError(FileNameChangedWhilePlaying,
                              "FileName got changed whilst playstate changing");
    }
}

// ---- Stop and pause ----

void Transport::RaiseEndOfStream() {
    SetPlaystate(mpstopped);
    events_.raise([](PlayerEvents& e) { e.EndOfStream(0); });
}

void Transport::StopPlaying() {
    // A stop from inside the events of a stop does nothing. The flag is held until the
    // playstate change has been raised, so that a host stopping from its PlayStateChange
    // handler does not recurse.
    if (stopBusy_) return;
    stopBusy_ = true;
    struct Clear {
        bool& flag;
        ~Clear() { flag = false; }
    } clear{stopBusy_};

    // A stop while the load waits for a stream to open: the host gave up on that stream.
    if (g_.AddingSourceFilter) chains_.StreamingCancelPlay();

    // The helper stops the graph it follows; a graph it does not follow is stopped here.
    if (g_.Helper) g_.Helper->stop();
    if (g_.MainGraphMan && g_.MainGraphMan->state() != platform::GraphState::Stopped)
        g_.MainGraphMan->stop();

    // A stream starts from its beginning next time (unless Play is reloading it).
    if (g_.MainGraphMan && graphLoaded_ && isAddress(g_.currentItem_) && !playingOverride_)
        g_.MainGraphMan->setCurrentPosition(0);

    position_ = 0;
    if (g_.MainGraphMan) {
        double position = 0;
        if (g_.MainGraphMan->currentPosition(position).ok() && position != 0)
            g_.MainGraphMan->setCurrentPosition(0);
    }

    SetPlaystate(mpstopped);
}

void Transport::Pause() {
    if (!graphLoaded_ || !g_.MainGraphMan) return;

    // A stream is never paused: pausing it stops it, unless it stands stopped at its start.
    if (isAddress(g_.currentItem_)) {
        const PlayCondition state = get_Playstate();
        double position = 0;
        g_.MainGraphMan->currentPosition(position);
        if (!(state == mpstopped && position == 0)) StopPlaying();
        return;
    }

    // A file pauses in place. The helper pauses the graph it follows; the ACM route also
    // reads where the graph stopped, since its decoder delivers no further tick to do so.
    const int32_t started = platform_.ticks().nowMs();
    if (g_.Helper) g_.trap(g_.Helper->pause());
    if (g_.MainGraphMan->state() != platform::GraphState::Paused) g_.trap(g_.MainGraphMan->pause());
    if (g_.UseACM_) {
        double position = 0;
        if (g_.MainGraphMan->currentPosition(position).ok()) position_ = position;
    }
    SetPlaystate(mpPaused);
    if (events_.logging())
        events_.Log("Pause took: " + std::to_string(int64_t{platform_.ticks().nowMs()} - started) +
                    " ms.");
}

// ---- The helper's tick and end ----

void Transport::helperTick(int32_t left, int32_t right) {
    levels_.setPeaks(left, right);

    // A seek under way owns the position; a load under way owns the graph.
    if (seeking_) return;
    if (get_Playstate() != mpstopped && g_.MainGraphMan && !loadBusy) {
        double position = 0;
        if (g_.MainGraphMan->currentPosition(position).ok()) position_ = position;
    }

    // Meters only while playing. The host may change the values; what it leaves is used.
    if (playstate_ == MpPlaying) events_.raise([&](PlayerEvents& e) { e.VUPeak(left, right); });

    // The overall level, on every tick.
    try {
        int32_t level = peaks::overallLevel(left, right);
        events_.raise([&](PlayerEvents& e) { e.Timing(level); });
    } catch (const AutomationError&) {
        // A peak without a magnitude (the most negative value) is no level at all.
    }

    if (get_Playstate() == MpPlaying) levels_.checkSilence(left, right);
}

void Transport::helperEnd() {
    // Once per play, and never for the end of a stream that Play is reloading.
    if (reloading_ || g_.m_Endraised) return;
    if (events_.hasReceiver()) {
        events_.raise([](PlayerEvents& e) { e.EndOfStream(1); });
        int32_t left = 0, right = 0;
        events_.raise([&](PlayerEvents& e) { e.VUPeak(left, right); });
    }
    g_.m_Endraised = true;
}

// ---- Position, duration, elapsed time ----

void Transport::put_CurrentPosition(double& value) {
    if (isAddress(g_.currentItem_)) return;
    struct Seeking {
        bool& flag;
        explicit Seeking(bool& f) : flag(f) { flag = true; }
        ~Seeking() { flag = false; }
    } seeking(seeking_);

    if (value < 0) value = 0;
    // Setting the elapsed time stops the stopwatch; a seek while playing goes on counting from
    // the new place, as an operator watching the elapsed time expects.
    auto rebaseElapsed = [&](double seconds) {
        stopwatch_.put_ElapsedTime(checked::toInt32(seconds * 1000));
        if (playstate_ == MpPlaying) stopwatch_.StartTiming();
    };
    try {
        if (g_.MainGraphMan) {
            if (rate_ <= 0) rate_ = 1.0;
            g_.m_Endraised = false;
            g_.trap(g_.MainGraphMan->setCurrentPosition(value));
            double position = 0;
            if (g_.trap(g_.MainGraphMan->currentPosition(position))) position_ = position;
            // Elapsed counts play time: at a faster rate a position is reached sooner.
            value = value / rate_;
            rebaseElapsed(value);
        }
    } catch (const AutomationError&) {
        // An elapsed time beyond the stopwatch's range is lost; the seek stands.
    }
}

double Transport::get_GraphPosition() {
    double seconds = 0;
    if (!g_.MainGraphMan || !g_.MainGraphMan->currentPosition(seconds).ok()) return 0;
    return seconds;
}

double Transport::get_GraphDuration() {
    double seconds = 0;
    if (!g_.MainGraphMan || !g_.MainGraphMan->duration(seconds).ok()) return 0;
    return seconds;
}

double Transport::get_Duration() {
    if (chains_.get_StreamingIsOnDemandFile()) return get_GraphDuration();
    return duration_;
}

float Transport::get_Elapsed() {
    try {
        return static_cast<float>(stopwatch_.get_ElapsedTime()) / 1000.0f;
    } catch (const AutomationError&) {
        return 0;
    }
}

void Transport::put_ElapsedForcedChange(float& value) {
    value = value * 1000;
    // Milliseconds and the seconds already elapsed are added as they are: hosts send the
    // correction they have measured against this sum.
    const float seconds = get_Elapsed();
    try {
        stopwatch_.put_ElapsedTime(checked::toInt32(static_cast<double>(value) + seconds));
    } catch (const AutomationError&) {
    }
}

// ---- Volume and mute ----

void Transport::put_Volume(int32_t& value) {
    if (value > 0) value = 0;
    if (value > QuietestRemembered) storedVolume_ = value;
    if (graphLoaded_) {
        if (g_.MainGraphMan) g_.trap(g_.MainGraphMan->setVolume(value));
        if (g_.Helper) {
            auto helperGraph = g_.Helper->currentGraph();
            if (helperGraph && helperGraph != g_.MainGraphMan) g_.trap(helperGraph->setVolume(value));
        }
    }
    g_.clearErr();
}

int32_t Transport::get_Volume() {
    if (!graphLoaded_) return storedVolume_;
    int32_t level = 0;
    if (!g_.MainGraphMan || !g_.MainGraphMan->volume(level).ok()) return 0;
    return level;
}

void Transport::put_mute(bool& value) {
    if (!graphLoaded_ || !g_.MainGraphMan) return;
    g_.MainGraphMan->setVolume(value ? MuteLevel : storedVolume_);
}

bool Transport::get_mute() {
    if (!graphLoaded_ || !g_.MainGraphMan) return false;
    int32_t level = 0;
    if (!g_.MainGraphMan->volume(level).ok()) return false;
    return level < QuietestRemembered;
}

// ---- Rate ----

void Transport::put_Rate(double& value) {
    // Fast play is allowed only where the marker file is.
    auto& services = platform_.operatorServices();
    if (value >= 1.1 && services.fileExists(services.markerFilePath())) value = 2.0;
    if (value < 0.9) value = 0.9;

    // The pitch filter keeps the pitch while it changes the rate.
    if (g_.UsePitchAdjuster_) {
        pitchRate_ = value;
        pitchCarriesRate_ = true;
        if (auto* pitch = PitchControl()) g_.trap(pitch->setRate(value));
        g_.clearErr();
        return;
    }

    // Otherwise the graph's own rate; Windows Media files play at their own speed only.
    if (!graphLoaded_ || !g_.MainGraphMan) return;
    if (g_.currentItem_.extensionIs("wma")) value = 1.0;
    g_.trap(g_.MainGraphMan->setRate(value));
    g_.clearErr();
    rate_ = value;
    pitchCarriesRate_ = false;
    // Elapsed goes on from where it was, now counting at the new rate.
    try {
        const int32_t elapsed = stopwatch_.get_ElapsedTime();
        stopwatch_.StopTiming();
        stopwatch_.put_ElapsedTime(elapsed);
        if (playstate_ == MpPlaying) stopwatch_.StartTiming();
    } catch (const AutomationError&) {
    }
}

// Windows Media streams, and a player told not to adjust pitch, pass the audio through.
void Transport::ApplyPitchOptions(const std::string& name) {
    auto* pitch = PitchControl();
    if (!pitch) return;
    if (!text::containsNoCase(name, "icyx://") && g_.UsePitchAdjuster_) {
        g_.trap(pitch->setPassThrough(false));
        g_.trap(pitch->setRate(pitchRate_));
    } else {
        g_.trap(pitch->setPassThrough(true));
    }
}

double Transport::get_Rate() {
    if (pitchCarriesRate_) return 1.0;
    double rate = 0;
    if (!g_.MainGraphMan) return rate_;
    if (!g_.MainGraphMan->rate(rate).ok()) return 0;
    return rate;
}

} // namespace corvid
