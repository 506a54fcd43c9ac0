// The WMA chain: source -> "WMAudio Decoder DMO" (fWMADecoder, stocked with every graph) ->
// sample grabber -> sound card. Every join is direct but the last, which may go through a
// converter. Each failure writes the whole of LastError to the log, so the line that reaches
// the operator carries what the earlier chains tried too.

#include "control/PlayerCore.h"
#include "formats/ChainSupport.h"

namespace corvid {

bool PlayerCore::ConnectWMAFilters(platform::PinPtr& sourcePin, platform::PinPtr& sgIn,
                               platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                               const std::string& fileName) {
    using namespace formats;

    auto failWith = [&](const std::string& line) {
        LastError_ += "\r\n" + line;
        Log(LastError_);
    };
    // The sample grabber stays: only the source goes.
    auto cleanUp = [&]() -> bool {
        RemoveSourceFilterKeepingError();
        sourcePin.reset();
        return false;
    };

    if (!TakeSourcePin(sourcePin, fileName, true,
                       {"ConnectWMAFilters: cannot add source filter",
                        "ConnectWMAFilters, for: ",
                        "ConnectWMAFilters: no source pin, cannot continue"}))
        return false;

    platform::PinPtr dmoIn, dmoOut;
    GetPins(dmoIn, dmoOut, fWMADecoder);
    if (!dmoIn || !dmoOut) {
        RaisePlayerLogInfo("Failed to get DMO Pins");
        return false;
    }

    trap(connectDirect(sourcePin, dmoIn));
    if (errPending()) {
        failWith("ConnectWMAFilters: Cannot connect Source Pin directly to DMOInPin");
        return cleanUp();
    }
    trap(connectDirect(dmoOut, sgIn));
    if (errPending()) return cleanUp();

    trap(connectDirect(sgOut, renderIn));
    if (!errPending()) return true;

    failWith("ConnectWMAFilters: Cannot connect Grabber out Pin directly to RenderInPin: " + ErrText());
    clearErr();
    trap(connect(sgOut, renderIn));
    if (!errPending()) return true;

    failWith("ConnectWMAFilters: Cannot connect Grabber out pin intelligently to RenderInPin: " + ErrText());
    return cleanUp();
}

} // namespace corvid
