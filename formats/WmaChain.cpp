// The WMA chain: source -> "WMAudio Decoder DMO" (fWMADecoder, stocked with every graph) ->
// sample grabber -> sound card. Every join is direct but the last, which may go through a
// converter. Each failure writes the whole of LastError to the log, so the line that reaches
// the operator carries what the earlier chains tried too.

#include "formats/FormatChains.h"
#include "formats/ChainSupport.h"

namespace corvid {

bool FormatChains::ConnectWMAFilters(ChainPins& pins, bool& /*usingWM*/, const item::Name& item) {
    using namespace formats;
    auto& [sourcePin, splitterIn, decoderIn, decoderOut, waveParserIn, sgIn, sgOut, renderIn, sampleGrabber] = pins;

    auto failWith = [&](const std::string& line) {
        g_.LastError_ += "\r\n" + line;
        events_.Log(g_.LastError_);
    };
    // The sample grabber stays: only the source goes.
    auto cleanUp = [&]() -> bool {
        RemoveSourceFilterKeepingError();
        sourcePin.reset();
        return false;
    };

    if (!TakeSourcePin(sourcePin, item, true,
                       {"ConnectWMAFilters: cannot add source filter",
                        "ConnectWMAFilters, for: ",
                        "ConnectWMAFilters: no source pin, cannot continue"}))
        return false;

    platform::PinPtr dmoIn, dmoOut;
    GetPins(dmoIn, dmoOut, g_.fWMADecoder);
    if (!dmoIn || !dmoOut) {
        events_.RaisePlayerLogInfo("Failed to get DMO Pins");
        return false;
    }

    g_.trap(connectDirect(sourcePin, dmoIn));
    if (g_.errPending()) {
        failWith("ConnectWMAFilters: Cannot connect Source Pin directly to DMOInPin");
        return cleanUp();
    }
    g_.trap(connectDirect(dmoOut, sgIn));
    if (g_.errPending()) return cleanUp();

    g_.trap(connectDirect(sgOut, renderIn));
    if (!g_.errPending()) return true;

    failWith("ConnectWMAFilters: Cannot connect Grabber out Pin directly to RenderInPin: " + g_.ErrText());
    g_.clearErr();
    g_.trap(connect(sgOut, renderIn));
    if (!g_.errPending()) return true;

    failWith("ConnectWMAFilters: Cannot connect Grabber out pin intelligently to RenderInPin: " + g_.ErrText());
    return cleanUp();
}

} // namespace corvid
