// The WAVE chain: source -> "Wave Parser" -> sample grabber -> sound card. A sample format
// the card will not take goes through whatever the graph places between parser and card
// (normally the "Brindle Format Converter"), with a new grabber slipped in before the card.
//
// Messages say "ConnectWavFilters", "ConnectWaveFilters" and, once, "ConnectWMAFilters", with
// their double blanks: operators know them by these texts.

#include "formats/FormatChains.h"
#include "devices/FilterNames.h"
#include "formats/ChainSupport.h"

namespace corvid {

bool FormatChains::ConnectWaveFilters(ChainPins& pins, bool& /*usingWM*/, const item::Name& item) {
    using namespace formats;
    auto& [sourcePin, splitterIn, decoderIn, decoderOut, waveParserIn, sgIn, sgOut, renderIn, sampleGrabber] = pins;
    const platform::FilterPtr& waveParser = g_.fWaveParser;

    // Unlike the other failures, this one does not put a sample grabber back that the
    // conversion route removed: the dispatcher re-creates it before the next chain.
    auto fail = [&]() -> bool {
        events_.RaisePlayerLogInfo("ConnectWaveFilters Failed, with " + g_.ErrText());
        RemoveSourceFilterKeepingError();
        sourcePin.reset();
        events_.RaisePlayerLogInfo(events_.PrintFilters(g_.MainGraphMan));
        return false;
    };
    auto renderName = [&] { return ownerName(renderIn); };

    if (!TakeSourcePin(sourcePin, item, true,
                       {"ConnectWavFilters: cannot add source filter",
                        "ConnectWavFilters, for: ",
                        "ConnectWMAFilters: no source pin, cannot continue"}))
        return false;

    events_.Log("ConnectWaveFilters: ConnectDirect SourcePin -> Wave Splitter In Pin");
    g_.trap(connectDirect(sourcePin, waveParserIn));
    if (g_.errPending()) {
        events_.Log("ConnectWaveFilters:  Could not connect SourcePin  to WaveSplitterPin. Not a recognised wav file.");
        return fail();
    }

    platform::PinPtr parserOut;
    GetPins(waveParserIn, parserOut, waveParser);
    if (!parserOut) {
        events_.RaisePlayerLogInfo("ConnectWaveFilters:  No Wave Splitter Out Pin");
        return fail();
    }

    // The card takes the parser's format as it is: the grabber goes between them.
    if (g_.trap(connectDirect(parserOut, renderIn))) {
        g_.trap(disconnect(renderIn));
        if (!g_.trap(connectDirect(parserOut, sgIn))) {
            events_.RaisePlayerLogInfo("ConnectWaveFilters: WaveSplitterPin would not connect to SG");
            return fail();
        }
        if (!g_.trap(connectDirect(sgOut, renderIn))) {
            events_.RaisePlayerLogInfo("ConnectWaveFilters: SGOut pin would not connect to pRenderInPin " +
                               renderName());
            return fail();
        }
        return true;
    }

    // Conversion route: without the grabber in the way, the graph may place the format
    // converter between parser and card; the grabber then goes in just before the card.
    events_.RaisePlayerLogInfo("ConnectWaveFilters:  Could not connect direct to pRenderPin: " + renderName());
    g_.clearErr();
    events_.RaisePlayerLogInfo("ConnectWaveFilters:  Removing SG");
    RemoveFilterTrapped(sampleGrabber);
    sampleGrabber.reset();
    g_.fSampleGrabber.reset();
    sgIn.reset();
    sgOut.reset();
    if (g_.errPending()) {
        events_.RaisePlayerLogInfo("ConnectWaveFilters:  Failed to remove SG");
        return fail();
    }

    graph_.AddFilterByNameUnlessPresent(filters::kFormatConverter);

    g_.trap(connect(parserOut, renderIn));
    if (g_.errPending()) {
        events_.RaisePlayerLogInfo("ConnectWaveFilters:  Could not Connect WaveSplitter Out Pin, even indirectly, to pRenderInPin " +
                           renderName() + g_.ErrText());
        return fail();
    }

    const platform::PinPtr renderWasConnectedTo = connectedTo(renderIn);
    g_.trap(disconnect(renderIn));

    sampleGrabber = CreateSampleGrabberTrapped();
    g_.fSampleGrabber = sampleGrabber;
    GetPins(sgIn, sgOut, sampleGrabber);
    if (!sgIn || !sgOut) {
        events_.RaisePlayerLogInfo("ConnectWaveFilters:  Unexpected: SG Not present ");
        return fail();
    }
    if (!g_.trap(connectDirect(renderWasConnectedTo, sgIn))) {
        events_.RaisePlayerLogInfo("ConnectWaveFilters:  Failed to Connect pRenderWasConnectedTo Directly to pSampleGrabberInPin\r\n" +
                           ownerName(renderWasConnectedTo));
        return fail();
    }
    if (!g_.trap(connectDirect(sgOut, renderIn))) {
        events_.RaisePlayerLogInfo("ConnectWaveFilters:  Failed to Connect SampleGrabberOutpin to render pin\r\n" +
                           renderName());
        return fail();
    }
    return true;
}

} // namespace corvid
