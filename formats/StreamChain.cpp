// Network streams: the chain from the stream source ("_DShowShoutCast") to the sound card, the
// player's side of the stream client's callbacks (buffering, metadata, on-demand segments)
// and the stream properties.
//
// The stream chain plays without the sample grabber in the audio path: the grabber is taken
// out, the decoder (or the stream source itself, for "icystream://" addresses, which deliver
// audio that needs no decoder) feeds the sound card, and a new grabber is left unconnected in
// the graph so that the rest of the player still finds one.

#include "formats/FormatChains.h"
#include "devices/FilterNames.h"
#include "formats/ChainSupport.h"
#include "platform/ItemName.h"
#include <corvid/AutomationError.h>
#include "support/TimerClass1.h"

#include <limits>

namespace corvid {

bool FormatChains::ConnectStreamFilters(ChainPins& pins, bool& /*usingWM*/, const item::Name& item) {
    using namespace formats;
    auto& [sourcePin, splitterIn, decoderIn, decoderOut, waveParserIn, sgIn, sgOut, renderIn, sampleGrabber] = pins;

    // Whatever went wrong, the player keeps a sample grabber in the graph.
    auto fail = [&]() -> bool {
        g_.fSampleGrabber = CreateSampleGrabberTrapped();
        sampleGrabber = g_.fSampleGrabber;
        if (!g_.fSampleGrabber)
            events_.RaisePlayerLogInfo("CRITICAL: ConnectStreamFilters: cannot create Sample Grabber");
        else
            GetPins(sgIn, sgOut, g_.fSampleGrabber);
        return false;
    };

    if (!TakeSourcePin(sourcePin, item, false,
                       {"ConnectStreamFilters: cannot add source filter",
                        "ConnectStreamFilters, for: ",
                        "ConnectStreamFilters: no source pin, cannot continue"}))
        return false;

    RemoveFilterTrapped(sampleGrabber);
    sampleGrabber.reset();
    g_.fSampleGrabber.reset();
    sgIn.reset();
    sgOut.reset();
    if (g_.errPending()) return fail();

    if (item.isIcyStream())
        decoderOut = sourcePin;
    else
        g_.trap(connect(sourcePin, decoderIn));

    // The given decoder will not take the stream: try a Windows Media decoder of its own.
    if (g_.errPending()) {
        g_.clearErr();
        if (isConnected(sourcePin) && !g_.errPending()) g_.trap(disconnect(sourcePin));
        g_.clearErr();

        const auto dmoEntry = TakeCatalogueEntry(filters::kWmaDecoder);
        if (!dmoEntry) return fail();
        const auto dmo = AddCatalogueInstance(dmoEntry);
        if (g_.errPending() || !dmo) return fail();

        platform::PinPtr dmoIn, dmoOut;
        GetPins(dmoIn, dmoOut, dmo);
        if (!dmoIn || !dmoOut) return fail();
        g_.trap(connect(sourcePin, dmoIn));
        if (g_.errPending()) return fail();
        decoderOut = dmoOut;
    }

    sampleGrabber = CreateSampleGrabberTrapped();
    g_.fSampleGrabber = sampleGrabber;
    GetPins(sgIn, sgOut, sampleGrabber);
    if (!sgIn || !sgOut || g_.errPending()) return fail();

    g_.trap(connectDirect(decoderOut, renderIn));
    if (g_.errPending()) {
        g_.clearErr();
        g_.trap(connect(decoderOut, renderIn));
    }
    return !g_.errPending();
}

// ---- The stream client's callbacks --------------------------------------------------------

// Buffering phases: idle (-1) until a positive report, buffering until 100 or -1. The
// play-time stopwatch runs only while the stream is not buffering. Every test below looks at
// the percentage as it was when the report came in.
void FormatChains::IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull) {
    const int32_t was = g_.bufferingPercent_;
    const int32_t now = BufferPercentFull;
    auto playTime = [&]() -> TimerClass1& {
        if (!g_.playTimeStopwatch_) g_.playTimeStopwatch_ = std::make_unique<TimerClass1>(platform_.ticks());
        return *g_.playTimeStopwatch_;
    };

    if (was == -1 && now > 0) {
        playTime().StopTiming();
        events_.raiseEvent([](PlayerEvents& e) { e.StreamBufferingStarted(); });
    }
    if (was != -1 && now == -1) playTime().StartTiming();
    if (was != -1 && now == -1) {
        if (g_.bufferingRestarts_ == std::numeric_limits<int16_t>::max()) throw overflowError();
        ++g_.bufferingRestarts_;
    }

    if (now < std::numeric_limits<int16_t>::min() || now > std::numeric_limits<int16_t>::max())
        throw overflowError();
    g_.bufferingPercent_ = static_cast<int16_t>(now);
    int16_t percent = g_.bufferingPercent_;
    events_.raiseEvent([&](PlayerEvents& e) { e.StreamBuffering(percent); });
    if (now == 100) g_.bufferingPercent_ = -1;
}

void FormatChains::IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle,
                                                   const std::string& sURL,
                                                   const std::string& sFullMeta) {
    std::string artistTitle = sArtistTitle;
    std::string url = sURL;
    std::string fullMeta = sFullMeta;
    events_.raiseEvent([&](PlayerEvents& e) { e.ShoutCastMeta(artistTitle, url, fullMeta); });
}

void FormatChains::IShoutcastCallback_OdStreamSeg(double Seg) {
    events_.raiseEvent([&](PlayerEvents& e) { e.StreamOnDemandSegFound(Seg); });
}

// The stream client calls these. An error of ours goes back to the client, which does not
// look at it, as it would from any callback; the host sees it only when it calls the public
// member itself. They come from the event loop, in a context of their own like a host's.
void FormatChains::StreamBuffering(int32_t bufferPercentFull) {
    Reentrance::InEvent fromPlatform(g_.reentrance_);
    try {
        IShoutcastCallback_StreamBuffering(bufferPercentFull);
    } catch (const AutomationError&) {
    }
}

void FormatChains::MetaChangeCallback(const std::string& artistTitle, const std::string& url,
                                const std::string& fullMeta) {
    Reentrance::InEvent fromPlatform(g_.reentrance_);
    IShoutcastCallback_MetaChangeCallback(artistTitle, url, fullMeta);
}

void FormatChains::OdStreamSeg(double seg) {
    Reentrance::InEvent fromPlatform(g_.reentrance_);
    IShoutcastCallback_OdStreamSeg(seg);
}

// ---- Stream properties ----------------------------------------------------------------------

bool FormatChains::get_isStreaming() { return g_.currentItem_.isAddress(); }

int16_t FormatChains::get_StreamBufferingPercent() { return g_.bufferingPercent_; }

bool FormatChains::get_TryingToPlay() { return g_.TryingToPlay_; }

bool FormatChains::get_StreamingCanCancelPlay() { return g_.streamControl_ && g_.streamControl_->canCancel(); }

void FormatChains::StreamingCancelPlay() {
    if (get_StreamingCanCancelPlay()) g_.streamControl_->cancel();
}

// A live stream reports a duration of exactly 525600 seconds (a year in minutes, the stream
// client's marker); an on-demand file reports its real length.
bool FormatChains::get_StreamingIsOnDemandFile() {
    constexpr double kLiveStreamDuration = 525600.0;
    if (!get_isStreaming() || !g_.MainGraphMan) return false;
    double seconds = 0;
    if (!g_.MainGraphMan->duration(seconds).ok() || !(seconds > 0)) return false;
    if (!g_.MainGraphMan->duration(seconds).ok()) return false;
    return seconds != kLiveStreamDuration;
}

} // namespace corvid
