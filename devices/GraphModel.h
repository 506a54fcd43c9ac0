#pragma once
// The graph object model of one player, and what the graph work asks of the player above it.
//
// The routing (devices/), the format chains (formats/) and the graph session (graph/) work on
// one graph: the filters and pins the player holds in it, its helpers, the source being added,
// the pending error of the operation under way. That state lives here, in the lowest layer that
// works on it, and each part is handed a reference to it; an empty reference means the thing is
// absent. The events go out through the EventChannel; what the parts need from above (the
// playstate, a new graph, the helpers) they ask through the narrow views below: nothing below
// control/ knows the player.

#include <corvid/AutomationError.h>
#include <corvid/PlayCondition.h>
#include "support/EventChannel.h"

#include "platform/GraphHelper.h"
#include "platform/ItemName.h"
#include "platform/MediaGraph.h"
#include "platform/Status.h"
#include "support/ProcessState.h"
#include "support/Reentrance.h"
#include "support/TimerClass1.h"

#include <cstdint>
#include <memory>
#include <string>

namespace corvid {



// Throws the numbered error to the caller's handler.
[[noreturn]] inline void raise(int32_t number, std::string description) {
    throw AutomationError(number, std::move(description));
}

struct GraphModel {
    // ---- Pending error: graph work traps failures per operation ----
    struct PendingError {
        int32_t number = 0;
        std::string description;
    };
    // Keeps a failed status as the pending error; returns whether it succeeded.
    bool trap(const platform::Status& status) {
        if (status.ok()) return true;
        Err = PendingError{status.number, status.description};
        return false;
    }
    void trapError(int32_t number, std::string description) { Err = PendingError{number, std::move(description)}; }
    void clearErr() { Err = PendingError{}; }
    bool errPending() const { return Err.number != 0; }
    // The pending error as the chains write it into their messages: number, blank, text.
    std::string ErrText() const { return std::to_string(Err.number) + " " + Err.description; }

    PendingError Err;
    std::string LastError_;
    // What all players of the process share.
    std::shared_ptr<PlayerProcessState> process;
    // The item FileName names: what the graph holds, parsed when the host named it.
    item::Name currentItem_;
    // Loads and graph replacements register here, so that one made from inside an event
    // supersedes the one that raised it.
    Reentrance reentrance_;

    // Settings the graph work reads.
    bool UseACM_ = false;
    bool Pipe2020_ = false;
    bool UsePitchAdjuster_ = true;
    std::string ThisCartName_;
    std::string SurroundRenderName_;
    bool m_Endraised = false;

    // The graphs and what this player holds in them.
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
    bool AddingSourceFilter = false;
    std::string addingItemName_;
    bool UsingASFReader_ = false;
    bool UsingHaldenSource_ = false;

    // The stream source of the current or last stream item, and its buffering.
    platform::FilterPtr streamSource_;
    platform::StreamSourceControl* streamControl_ = nullptr;
    // The stream open of this load ended with an answer that another source would only
    // repeat (the host cancelled, the server refused or did not answer): no second build.
    bool streamAnswerFinal_ = false;
    bool TryingToPlay_ = false;
    int16_t bufferingPercent_ = -1;
    int16_t bufferingRestarts_ = 0;
    std::unique_ptr<TimerClass1> playTimeStopwatch_;
};

// What the layers below control/ ask of the parts above them, one narrow view each. Every call
// may reach the host, which may call back into the player: after it returns, re-check what the
// graph holds.

// The transport, as the graph work sees it.
class TransportHost {
public:
    virtual PlayCondition get_Playstate() = 0;
    // The graph went away under the transport: playstate and positions start over.
    virtual void ResetPlaystateBookkeeping() = 0;
    virtual void StopPlaying() = 0;

protected:
    ~TransportHost() = default;
};

// The graph's life, as the routing sees it: a new device may need a new graph.
class RoutingHost {
public:
    virtual void CreateNewGraph(bool MakinPFLGraph) = 0;
    virtual void DestroyGraph(bool keepPlaystate) = 0;

protected:
    ~RoutingHost() = default;
};

// What a new graph asks of the player: its helpers and the pipe sender's mute setting.
class GraphHost {
public:
    // A new graph needs its Helper and CueHelper, wired to the player's events.
    virtual void CreateHelpers() = 0;
    // The player's mute state of the pipe sender, kept per player ID; a new sender takes it.
    virtual bool get_PipeSenderDownstreamMute() = 0;
    virtual void put_PipeSenderDownstreamMute(bool& value) = 0;

protected:
    ~GraphHost() = default;
};

} // namespace corvid
