// The MP3 and MPEG chain: source -> "MPEG-I Stream Splitter" -> "MPEG Layer-3 Decoder" ->
// sample grabber -> sound card, or, for sources that already decode (the Windows Media reader,
// our own reader, FLAC), source -> sample grabber -> sound card. When neither stands it
// rebuilds the grabber and goes through an extra "ACM Wrapper" of its own.
//
// The most defensive of the chains: every failure but the last leaves the graph without
// source and with a fresh sample grabber, ready for the dispatcher's next chain. The last one
// (grabber to renderer) leaves the graph as built, for the dispatcher to look at.
//
// Message texts mix "Connectmp3Filters" and "ConnectMp3Filters"; operators search the logs
// for them, so they stay as they are.

#include "formats/FormatChains.h"
#include "devices/FilterNames.h"
#include "formats/ChainSupport.h"

namespace corvid {

namespace {
constexpr int32_t kChainError = 319558;

// Where a step sends the chain next. The routes only ever lead further down this list, so
// the chain runs them in this order and skips those it is not sent to.
enum class Mp3Next {
    DirectToGrabber,   // sources that decode already: try the grabber straight behind them
    SplitterRoute,     // splitter output -> decoder input
    AcmRoute,          // rebuild the grabber, go through the chain's own ACM Wrapper
    DecoderToGrabber,  // decoder (or ACM) output -> grabber input
    GrabberToRenderer, // grabber output -> sound card
    CleanUp,
};
} // namespace

bool FormatChains::ConnectMp3Filters(ChainPins& pins, bool& usingWM, const item::Name& item) {
    using namespace formats;
    auto& [sourcePin, splitterIn, decoderIn, decoderOut, waveParserIn, sgIn, sgOut, renderIn, sampleGrabber] = pins;
    const platform::FilterPtr& splitter = g_.fMpegSplitter;
    const std::string& fileName = item.text();

    const bool isFlac = item.extensionIs("flac");

    // The source: the dispatcher normally hands it over; without one the chain adds it.
    if (!TakeSourcePin(sourcePin, item, false,
                       {.cannotAdd = "Connectmp3Filters: cannot add source filter",
                        .forPrefix = "Connectmp3Filters, for: ",
                        .noPin = "Connectmp3Filters: no source pin, cannot continue",
                        .namesAddedSource = true,
                        .noPinInLastError = true}))
        return false;

    const bool usingHalden = get_UsingHaldenSource();
    const bool plainRoute = !(usingWM || usingHalden || isFlac);

    // The grabber argument is the player's grabber: the two always name the same filter.
    auto removeGrabber = [&] {
        RemoveFilterTrapped(sampleGrabber);
        g_.fSampleGrabber.reset();
        sampleGrabber.reset();
    };
    auto recreateGrabber = [&] {
        g_.fSampleGrabber = CreateSampleGrabberTrapped();
        sampleGrabber = g_.fSampleGrabber;
        GetPins(sgIn, sgOut, sampleGrabber);
    };

    // A source that decodes by itself: if the sound card would take it as it is, the grabber
    // goes straight behind it; if not, let the graph find a converter to learn whether any
    // route exists, then tear the test route down and build it with our own ACM Wrapper.
    auto directToGrabber = [&]() -> Mp3Next {
        g_.clearErr();
        if (g_.trap(connectDirect(sourcePin, renderIn))) {
            if (isConnected(sourcePin)) g_.trap(disconnect(sourcePin));
            if (g_.trap(connectDirect(sourcePin, sgIn))) {
                events_.Log("ConnectMp3Filters: Source Pin Connected OK to the SGInPin");
                return Mp3Next::GrabberToRenderer;
            }
            g_.LastError_ += "ConnectMp3Filters: Source Pin did not connect directly to the SGinPin: " +
                          g_.ErrText();
            return Mp3Next::CleanUp;
        }
        if (!(usingWM || usingHalden)) return Mp3Next::SplitterRoute; // FLAC through another source

        g_.clearErr();
        events_.RaisePlayerLogInfo("For " + fileName +
                           ":UsingWM or UsingHalden. Test connecting source pin (possibly via ACM) to render");
        removeGrabber();
        if (!g_.trap(connect(sourcePin, renderIn))) {
            events_.RaisePlayerLogInfo("ConnectMp3Filters: For " + fileName +
                               ":UsingWM or UsingHalden. Failed to connect source pin (possibly via acm) to render");
            events_.RaisePlayerLogInfo(events_.PrintFilters(g_.MainGraphMan));
            return Mp3Next::CleanUp;
        }
        recreateGrabber();
        if (events_.logging()) {
            events_.RaisePlayerLogInfo("ConnectMp3Filters...");
            events_.RaisePlayerLogInfo("For " + fileName +
                               ":UsingWM or UsingHalden. OK, connected source pin (possibly via acm) to render");
            events_.RaisePlayerLogInfo(events_.PrintFilters(g_.MainGraphMan));
        }
        g_.trap(disconnect(sourcePin));
        g_.trap(connectDirect(sourcePin, sgIn));
        g_.clearErr();
        if (isConnected(renderIn) && !g_.errPending()) g_.trap(disconnect(renderIn));
        return g_.errPending() ? Mp3Next::CleanUp : Mp3Next::AcmRoute;
    };

    auto splitterRoute = [&]() -> Mp3Next {
        platform::PinPtr splitterOut;
        GetPins(splitterIn, splitterOut, splitter);
        if (!splitterOut) {
            g_.trapError(kChainError, "No Mpeg SplitterOutPIn");
            return Mp3Next::CleanUp;
        }
        events_.Log("Connecting mpeg splitter out pin to mp3decoder in pin...");
        g_.trap(connectDirect(splitterOut, decoderIn));
        return g_.errPending() ? Mp3Next::AcmRoute : Mp3Next::DecoderToGrabber;
    };

    auto acmRoute = [&]() -> Mp3Next {
        events_.Log("Connectmp3Filters: could not connect splitter out pin directly, trying all sorts of "
            "things to make it sensibly connect...");
        if (isConnected(sourcePin)) g_.trap(disconnect(sourcePin));
        g_.clearErr();

        events_.Log("Connectmp3Filters: Have to remove sampleGrabber here...");
        removeGrabber();
        sgIn.reset();
        sgOut.reset();
        if (g_.errPending()) {
            const std::string expected =
                "ConnectMp3Filters: we DO expect the SG to be there to remove right here!";
            g_.LastError_ += "\r\n" + g_.ErrText() + expected;
            events_.RaisePlayerLogInfo(expected);
            return Mp3Next::CleanUp;
        }

        events_.Log("Connectmp3Filters: Have to re-add sampleGrabber here...");
        recreateGrabber();
        if (g_.errPending()) {
            g_.LastError_ += "\r\nNo SG pins after re-add";
            return Mp3Next::CleanUp;
        }

        // The chain's own ACM Wrapper, kept for the next attempt until the source goes.
        const auto acmEntry = TakeCatalogueEntry(filters::kAcmWrapper);
        if (!acmEntry) {
            g_.LastError_ += "ConnectMp3Filters: no ACM Wrapper " + g_.ErrText();
            return Mp3Next::CleanUp;
        }
        if (!g_.fChainACMWrapper) g_.fChainACMWrapper = AddCatalogueInstance(acmEntry);
        if (g_.errPending() || !g_.fChainACMWrapper) return Mp3Next::CleanUp;

        platform::PinPtr acmIn, acmOut;
        GetPins(acmIn, acmOut, g_.fChainACMWrapper);
        if (!acmIn || !acmOut) {
            g_.LastError_ += "ConnectMp3Filters: no Extra ACM Pins " + g_.ErrText();
            events_.RaisePlayerLogInfo("ConnectMp3Filters: we DO expect the ExtraACM here to have pins!");
            return Mp3Next::CleanUp;
        }
        g_.trap(connect(sourcePin, acmIn));
        if (g_.errPending()) {
            g_.LastError_ += "ConnectMp3Filters: Source will not connect to the extra ACM " + g_.ErrText();
            return Mp3Next::CleanUp;
        }
        decoderOut = acmOut;
        if (!sgIn || !sgOut) {
            g_.LastError_ += "ConnectMp3Filters: unexpected: no samplegrabber pins  " + g_.ErrText();
            events_.RaisePlayerLogInfo("ConnectMp3Filters: unexpected: no samplegrabber pins !!");
            return Mp3Next::CleanUp;
        }
        return Mp3Next::DecoderToGrabber;
    };

    auto decoderToGrabber = [&]() -> Mp3Next {
        events_.Log("Connectmp3Filters: connecting decoder out pin to sample grabber in pin...");
        if (g_.trap(connectDirect(decoderOut, sgIn))) {
            events_.Log("Connectmp3Filters: connected decoder out pin to sample grabber in pin...OK");
            return Mp3Next::GrabberToRenderer;
        }
        g_.LastError_ += "Connectmp3Filters: cannot connect direct mp3decoutpin to sginpin " + g_.ErrText();
        return Mp3Next::CleanUp;
    };

    // The last step fails without clean-up: the graph stays as built for the dispatcher.
    auto grabberToRenderer = [&]() -> bool {
        if (!g_.trap(connectDirect(sgOut, renderIn))) {
            g_.clearErr();
            g_.trap(connect(sgOut, renderIn));
        }
        if (!g_.errPending()) return true;
        const std::string failure =
            "Connectmp3Filters: cannot connect sgoutpin to renderinpin " + g_.ErrText();
        g_.LastError_ += failure;
        g_.trapError(kChainError, "ConnectMp3Filters: cannot connect sgoutpin to renderinpin " + g_.ErrText());
        return false;
    };

    // Leaves the graph without source and with a sample grabber whose pins are fresh.
    auto cleanUp = [&]() -> bool {
        RemoveSourceFilterKeepingError();
        sourcePin.reset();
        if (!g_.fSampleGrabber) {
            g_.fSampleGrabber = CreateSampleGrabberTrapped();
            sampleGrabber = g_.fSampleGrabber;
            if (!g_.fSampleGrabber) {
                events_.RaisePlayerLogInfo("CRITICAL: ConnectMp-3Filters cannot re-create Sample Grabber!");
                return false;
            }
        }
        sampleGrabber = g_.fSampleGrabber;
        GetPins(sgIn, sgOut, g_.fSampleGrabber);
        return false;
    };

    if (!sgIn || !sgOut) {
        const std::string noPins = "ConnectMp3Filters: CRITICAL ERROR: no sample grabber pins, exiting";
        g_.LastError_ += noPins;
        events_.RaisePlayerLogInfo(noPins);
        return cleanUp();
    }

    Mp3Next next = Mp3Next::DirectToGrabber;
    if (plainRoute) {
        g_.trap(connectDirect(sourcePin, splitterIn)); // a wrong file shows when the splitter has no output
        next = Mp3Next::SplitterRoute;
    }
    if (next == Mp3Next::DirectToGrabber) next = directToGrabber();
    if (next == Mp3Next::SplitterRoute) next = splitterRoute();
    if (next == Mp3Next::AcmRoute) next = acmRoute();
    if (next == Mp3Next::DecoderToGrabber) next = decoderToGrabber();
    if (next == Mp3Next::GrabberToRenderer) return grabberToRenderer();
    return cleanUp();
}

} // namespace corvid
