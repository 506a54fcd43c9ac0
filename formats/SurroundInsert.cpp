// The surround insert: on a speaker-pair output the routing filter (fSurround, chosen with the
// device) must sit immediately before the renderer. It is spliced between the renderer's
// input and whatever feeds it. Unlike the chains, its precondition failures go to the caller
// as numbered errors; the dispatcher catches them. The numbers follow the order in which the
// checks were first written, not the order in which they run.

#include "control/PlayerCore.h"
#include "formats/ChainSupport.h"

namespace corvid {

void PlayerCore::InsertSurroundFilter(platform::PinPtr& renderInPin) {
    using namespace formats;

    if (get_SurroundRenderName().empty()) return;
    if (!renderInPin) raise(7777, "InsertSurroundFilter NEEDS a Render In pin!");

    const platform::PinPtr renderWasConnectedTo = connectedTo(renderInPin);
    if (!SurroundInPin) raise(7779, "InsertSurroundFilter NEEDS a Surround in pin");
    if (!SurroundOutPin) raise(7780, "InsertSurroundFilter NEEDS a Surround out pin");

    // Already in place (a second call for the same chain): nothing to do.
    if (renderWasConnectedTo == SurroundOutPin && isConnected(SurroundInPin)) return;

    if (!renderWasConnectedTo) raise(7778, "InsertSurroundFilter NEEDS a CONNECTED Render in Pin!");
    if (isConnected(SurroundInPin))
        raise(7781, "InsertSurroundFilter: surround in pin MUST NOT be already connected!");
    if (isConnected(SurroundOutPin))
        raise(7782, "InsertSurroundFilter surround out pin MUST NOT be already connected");

    disconnect(renderWasConnectedTo);

    // A failed splice leaves the renderer disconnected; its failure goes to the caller as is.
    platform::Status joined = connectDirect(renderWasConnectedTo, SurroundInPin);
    if (!joined.ok()) joined = connect(renderWasConnectedTo, SurroundInPin);
    if (!joined.ok()) raise(joined.number, joined.description);

    connectDirect(SurroundOutPin, renderInPin);
}

} // namespace corvid
