// The MP4 chain, for names ending in "m4a": source -> "GDCL Mpeg-4 Demultiplexor2" ->
// "Microsoft DTV-DVD Audio Decoder" -> sample grabber -> sound card. It reports every step to
// the host and, on failure, replaces LastError with the reason, leaving the graph as it stands
// for the dispatcher. "ConnectMp4Filters", "Connectmp4Filters" and "Connectmp4filters" are
// the texts operators know; they stay mixed.

#include "formats/FormatChains.h"
#include "devices/FilterNames.h"
#include "formats/ChainSupport.h"

namespace corvid {

using namespace filters;

namespace {
constexpr const char* kParserWouldNotConnect =
    "Connectmp4Filters: parser out pin would not connect directly to decoder, trying intelligent connect...";
} // namespace

void FormatChains::RemoveMp4Filters() {
    const GraphModel::PendingError kept = g_.Err;
    RemoveFilterTrapped(g_.fMp4Parser);
    RemoveFilterTrapped(g_.fMp4Decoder);
    g_.Err = kept;
}

// A failure of either addition ends it with ok false and that failure pending; an error that
// was pending before is not taken for one of ours.
void FormatChains::AddMp4Filters(bool& force, bool& ok) {
    ok = false;
    const GraphModel::PendingError before = g_.Err;
    g_.clearErr();
    if (force) RemoveMp4Filters();
    g_.fMp4Parser = graph_.AddFilterByNameUnlessPresent(kMp4Parser);
    if (g_.errPending()) return;
    if (g_.fMp4Parser) {
        g_.fMp4Decoder = graph_.AddFilterByNameUnlessPresent(kMp4Decoder);
        if (g_.errPending()) return;
    }
    g_.Err = before;
    ok = g_.fMp4Parser && g_.fMp4Decoder;
}

bool FormatChains::ConnectMp4Filters(ChainPins& pins, bool& /*usingWM*/, const item::Name& item) {
    using namespace formats;
    platform::PinPtr& sourcePin = pins.source;
    platform::PinPtr& sgIn = pins.sgIn;
    platform::PinPtr& sgOut = pins.sgOut;
    platform::PinPtr& renderIn = pins.renderIn;
    platform::FilterPtr& sampleGrabber = pins.grabber;

    auto failWith = [&](const std::string& reason) -> bool {
        g_.LastError_ = reason;
        events_.RaisePlayerLogInfo(reason);
        return false;
    };

    // Other MPEG-4 endings are left to the other routes, silently.
    if (!item.extensionIs("m4a")) return false;

    if (!TakeSourcePin(sourcePin, item, false,
                       {"ConnectMp4Filters: cannot add source filter",
                        "Connectmp4Filters, for: ",
                        "Connectmp4Filters: no source pin, cannot continue"}))
        return false;

    events_.RaisePlayerLogInfo("ConnectMp4Filters: Started. Adding new mp4 filters...");
    bool force = true;
    bool ok = false;
    AddMp4Filters(force, ok);

    if (!ok) return failWith("Unable to add mp4 filters.");
    if (!sampleGrabber) return failWith("Connectmp4filters: no SampleGrabber Filter");
    if (!g_.fMp4Parser) return failWith("Connectmp4Filters: no mp4 parser.");
    if (!g_.fMp4Decoder) return failWith("Connectmp4filters: no mp4 decoder Filter");
    if (!sourcePin) return failWith("Connectmp4filters: no source pin");
    if (!sgIn) return failWith("Connectmp4filters: no sample grabber in pin");
    if (!sgOut) return failWith("Connectmp4filters: no sample grabber out pin");
    if (!renderIn) return failWith("Connectmp4filters: no render in pin");

    platform::PinPtr decoderIn, decoderOut, parserIn, parserOut;
    GetPins(decoderIn, decoderOut, g_.fMp4Decoder);
    if (!decoderIn || !decoderOut) {
        g_.LastError_ = "Connectmp4filters: no decoder in or out pin.";
        return false;
    }
    GetPins(parserIn, parserOut, g_.fMp4Parser);
    if (!parserIn) return failWith("Connectmp4Filters: no parser in pin.");

    events_.RaisePlayerLogInfo("Connectmp4Filters: connecting source to parser...");
    g_.trap(connectDirect(sourcePin, parserIn));
    if (g_.errPending()) return failWith("Connectmp4Filters: cannot connect SourcePin to ParserInpin");

    // The demultiplexer shows its output once it has read the file's header.
    GetPins(parserIn, parserOut, g_.fMp4Parser);
    if (!parserOut) return failWith("Connectmp4Filters: no parser out pin.");

    events_.RaisePlayerLogInfo("Connectmp4Filters: connecting decoder input...");
    g_.trap(connectDirect(parserOut, decoderIn));
    if (g_.errPending()) {
        events_.RaisePlayerLogInfo(kParserWouldNotConnect);
        g_.clearErr();
        g_.trap(connect(parserOut, decoderIn));
        if (g_.errPending())
            return failWith("Connectmp4Filters: Could not connect source pin to decoder in pin.");
    }

    events_.RaisePlayerLogInfo("Connectmp4Filters: connecting decoder output...");
    g_.trap(connectDirect(decoderOut, sgIn));
    if (g_.errPending()) {
        events_.RaisePlayerLogInfo("Connectmp4Filters: Could not connect dec out pin to samplegrabber in pin.");
        g_.clearErr();
        events_.RaisePlayerLogInfo(kParserWouldNotConnect);
        g_.trap(connect(decoderOut, sgIn));
        if (g_.errPending())
            return failWith("Connectmp4Filters: Could not connect dec out pin to samplegrabber in pin.");
    }

    events_.RaisePlayerLogInfo("Connectmp4Filters: connecting Sample Grabber out pin to Render in pin...");
    g_.trap(connectDirect(sgOut, renderIn));
    if (g_.errPending()) {
        events_.RaisePlayerLogInfo("Connectmp4Filters: Cannot connect SG to render in pin directly, trying intelligent connect...");
        g_.clearErr();
        g_.trap(connect(sgOut, renderIn));
        if (g_.errPending()) return failWith("ConnectMp4Filters: could not connect SG out pin to render pin.");
    }

    events_.RaisePlayerLogInfo("Connectmp4filters: Success!");
    return true;
}

bool FormatChains::IsMp4Capable(bool ForceRefresh) {
    if (ForceRefresh) routing_.QuerySoundCards(true);
    return routing_.colDShowFilters().Contains(kMp4Parser) && routing_.colDShowFilters().Contains(kMp4Decoder);
}

} // namespace corvid
