// The surround insert: on a speaker-pair output the routing filter (fSurround, chosen with the
// device) must sit immediately before the renderer. It is spliced between the renderer's
// input and whatever feeds it. Unlike the chains, its precondition failures go to the caller
// as numbered errors; the dispatcher catches them. The numbers follow the order in which the
// checks were first written, not the order in which they run.

#include "formats/FormatChains.h"
#include "formats/ChainSupport.h"

namespace corvid {

void FormatChains::InsertSurroundFilter(platform::PinPtr& renderInPin) {
    using namespace formats;

    if (g_.SurroundRenderName_.empty()) return;
    if (!renderInPin) raise(7777, "InsertSurroundFilter NEEDS a Render In pin!");

    const platform::PinPtr renderWasConnectedTo = connectedTo(renderInPin);
    if (!g_.SurroundInPin) raise(7779, "InsertSurroundFilter NEEDS a Surround in pin");
    if (!g_.SurroundOutPin) raise(7780, "InsertSurroundFilter NEEDS a Surround out pin");

    // Already in place (a second call for the same chain): nothing to do.
    if (renderWasConnectedTo == g_.SurroundOutPin && isConnected(g_.SurroundInPin)) return;

    if (!renderWasConnectedTo) raise(7778, "InsertSurroundFilter NEEDS a CONNECTED Render in Pin!");
    if (isConnected(g_.SurroundInPin))
        raise(7781, "InsertSurroundFilter: surround in pin MUST NOT be already connected!");
    if (isConnected(g_.SurroundOutPin))
        raise(7782, "InsertSurroundFilter surround out pin MUST NOT be already connected");

    disconnect(renderWasConnectedTo);

    // A failed splice leaves the renderer disconnected; its failure goes to the caller as is.
    platform::Status joined = connectDirect(renderWasConnectedTo, g_.SurroundInPin);
    if (!joined.ok()) joined = connect(renderWasConnectedTo, g_.SurroundInPin);
    if (!joined.ok()) raise(joined.number, joined.description);

    connectDirect(g_.SurroundOutPin, renderInPin);
}

} // namespace corvid
