// Network streams: the chain from the stream source ("_DShowShoutCast") to the sound card, the
// player's side of the stream client's callbacks (buffering, metadata, on-demand segments)
// and the stream properties.
//
// The stream chain plays without the sample grabber in the audio path: the grabber is taken
// out, the decoder (or the stream source itself, for "icystream://" addresses, which deliver
// audio that needs no decoder) feeds the sound card, and a new grabber is left unconnected in
// the graph so that the rest of the player still finds one.

#include "control/PlayerCore.h"
#include "platform/ItemName.h"
#include "devices/FilterNames.h"
#include "formats/ChainSupport.h"
#include "platform/ItemName.h"
#include <corvid/AutomationError.h>
#include "support/Text.h"
#include "support/TimerClass1.h"

#include <limits>

namespace corvid {

bool PlayerCore::ConnectStreamFilters(platform::PinPtr& sourcePin, platform::PinPtr& decoderIn,
                                  platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                                  platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                                  platform::FilterPtr& sampleGrabber, const std::string& fileName) {
    using namespace formats;

    // Whatever went wrong, the player keeps a sample grabber in the graph.
    auto fail = [&]() -> bool {
        fSampleGrabber = CreateSampleGrabberTrapped();
        sampleGrabber = fSampleGrabber;
        if (!fSampleGrabber)
            RaisePlayerLogInfo("CRITICAL: ConnectStreamFilters: cannot create Sample Grabber");
        else
            GetPins(sgIn, sgOut, fSampleGrabber);
        return false;
    };

    if (!TakeSourcePin(sourcePin, fileName, false,
                       {"ConnectStreamFilters: cannot add source filter",
                        "ConnectStreamFilters, for: ",
                        "ConnectStreamFilters: no source pin, cannot continue"}))
        return false;

    RemoveFilterTrapped(sampleGrabber);
    sampleGrabber.reset();
    fSampleGrabber.reset();
    sgIn.reset();
    sgOut.reset();
    if (errPending()) return fail();

    if (item::isIcyStream(fileName))
        decoderOut = sourcePin;
    else
        trap(connect(sourcePin, decoderIn));

    // The given decoder will not take the stream: try a Windows Media decoder of its own.
    if (errPending()) {
        clearErr();
        if (isConnected(sourcePin) && !errPending()) trap(disconnect(sourcePin));
        clearErr();

        const auto dmoEntry = TakeCatalogueEntry(filters::kWmaDecoder);
        if (!dmoEntry) return fail();
        const auto dmo = AddCatalogueInstance(dmoEntry);
        if (errPending() || !dmo) return fail();

        platform::PinPtr dmoIn, dmoOut;
        GetPins(dmoIn, dmoOut, dmo);
        if (!dmoIn || !dmoOut) return fail();
        trap(connect(sourcePin, dmoIn));
        if (errPending()) return fail();
        decoderOut = dmoOut;
    }

    sampleGrabber = CreateSampleGrabberTrapped();
    fSampleGrabber = sampleGrabber;
    GetPins(sgIn, sgOut, sampleGrabber);
    if (!sgIn || !sgOut || errPending()) return fail();

    trap(connectDirect(decoderOut, renderIn));
    if (errPending()) {
        clearErr();
        trap(connect(decoderOut, renderIn));
    }
    return !errPending();
}

// ---- The stream client's callbacks --------------------------------------------------------

// Buffering phases: idle (-1) until a positive report, buffering until 100 or -1. The
// play-time stopwatch runs only while the stream is not buffering. Every test below looks at
// the percentage as it was when the report came in.
void PlayerCore::IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull) {
    const int32_t was = bufferingPercent_;
    const int32_t now = BufferPercentFull;
    auto playTime = [&]() -> TimerClass1& {
        if (!playTimeStopwatch_) playTimeStopwatch_ = std::make_unique<TimerClass1>(platform_.ticks());
        return *playTimeStopwatch_;
    };

    if (was == -1 && now > 0) {
        playTime().StopTiming();
        raiseEvent([](PlayerEvents& e) { e.StreamBufferingStarted(); });
    }
    if (was != -1 && now == -1) playTime().StartTiming();
    // A report of 0 while idle starts the clock of a phase without announcing it.
    if (now != -1 && was == -1) bufferingStart_ = platform_.ticks().secondsSinceMidnight();
    if (was != -1 && now == -1) {
        if (bufferingRestarts_ == std::numeric_limits<int16_t>::max()) throw overflowError();
        ++bufferingRestarts_;
    }

    if (now < std::numeric_limits<int16_t>::min() || now > std::numeric_limits<int16_t>::max())
        throw overflowError();
    bufferingPercent_ = static_cast<int16_t>(now);
    int16_t percent = bufferingPercent_;
    raiseEvent([&](PlayerEvents& e) { e.StreamBuffering(percent); });
    if (now == 100) bufferingPercent_ = -1;
}

void PlayerCore::IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle,
                                                   const std::string& sURL,
                                                   const std::string& sFullMeta) {
    std::string artistTitle = sArtistTitle;
    std::string url = sURL;
    std::string fullMeta = sFullMeta;
    raiseEvent([&](PlayerEvents& e) { e.ShoutCastMeta(artistTitle, url, fullMeta); });
}

void PlayerCore::IShoutcastCallback_OdStreamSeg(double Seg) {
    raiseEvent([&](PlayerEvents& e) { e.StreamOnDemandSegFound(Seg); });
}

// The stream client calls these. An error of ours goes back to the client, which does not
// look at it, as it would from any callback; the host sees it only when it calls the public
// member itself. They come from the event loop, in a context of their own like a host's.
void PlayerCore::StreamBuffering(int32_t bufferPercentFull) {
    Reentrance::InEvent fromPlatform(reentrance_);
    try {
        IShoutcastCallback_StreamBuffering(bufferPercentFull);
    } catch (const AutomationError&) {
    }
}

void PlayerCore::MetaChangeCallback(const std::string& artistTitle, const std::string& url,
                                const std::string& fullMeta) {
    Reentrance::InEvent fromPlatform(reentrance_);
    IShoutcastCallback_MetaChangeCallback(artistTitle, url, fullMeta);
}

void PlayerCore::OdStreamSeg(double seg) {
    Reentrance::InEvent fromPlatform(reentrance_);
    IShoutcastCallback_OdStreamSeg(seg);
}

// ---- Stream properties ----------------------------------------------------------------------

bool PlayerCore::get_isStreaming() { return item::isAddress(get_FileName()); }

int16_t PlayerCore::get_StreamBufferingPercent() { return bufferingPercent_; }

bool PlayerCore::get_TryingToPlay() { return TryingToPlay_; }

bool PlayerCore::get_StreamingCanCancelPlay() { return streamControl_ && streamControl_->canCancel(); }

void PlayerCore::StreamingCancelPlay() {
    if (get_StreamingCanCancelPlay()) streamControl_->cancel();
}

// A live stream reports a duration of exactly 525600 seconds (a year in minutes, the stream
// client's marker); an on-demand file reports its real length.
bool PlayerCore::get_StreamingIsOnDemandFile() {
    constexpr double kLiveStreamDuration = 525600.0;
    if (!get_isStreaming() || !MainGraphMan) return false;
    double seconds = 0;
    if (!MainGraphMan->duration(seconds).ok() || !(seconds > 0)) return false;
    if (!MainGraphMan->duration(seconds).ok()) return false;
    return seconds != kLiveStreamDuration;
}

} // namespace corvid
