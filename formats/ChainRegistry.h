#pragma once
// The format chains as data: for each format, which items it is the first choice for, what the
// log says when it runs, and what follows when it fails; and the fixed order of the fallbacks.
// The dispatcher (graph/ChainDispatch.cpp) walks these tables and never names a format itself.

#include "formats/FormatChains.h"
#include "platform/ItemName.h"

#include <span>
#include <string_view>

namespace corvid {

struct FormatChain {
    std::string_view name;                     // "mp3", "wave", ...
    std::span<const std::string_view> extensions; // items it is the first choice for
    bool forAddresses;                         // the first choice for every address
    const char* announce;                      // logged before it runs first; nullptr: nothing
    // Its failure as the first choice ends the dispatch, with this WriteLog line; nullptr:
    // the fallbacks follow.
    const char* failureEndsDispatch;
    // The dispatcher takes over the pins the chain changed (renderer, grabber).
    bool handsBackPins;
    bool (FormatChains::*connect)(ChainPins& pins, bool& usingWM, const item::Name& item);
};

// One step of the fallbacks after a failed first choice.
struct ChainFallback {
    const FormatChain* chain;
    const char* announce;
    bool freshSource;    // the source goes first, and the chain adds its own
    bool listGraphAfter; // the graph's filters go to the log after it
};

namespace chains {
// The chain tried first for the item; nullptr when none claims it.
const FormatChain* firstChoiceFor(const item::Name& item);
// The fallbacks, in their fixed order.
std::span<const ChainFallback> fallbacks();
} // namespace chains

// Whether the Ogg source and chain take the item by its name: ".ogg", and the lossless
// endings that go the same way ("...lac" that are not FLAC files).
bool isOggName(const item::Name& item);

} // namespace corvid
