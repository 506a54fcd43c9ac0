// GetPins, with which every chain finds a filter's pins, and the two properties that say which
// reader the current item was loaded into (the MP3 chain routes by them).

#include "formats/FormatChains.h"
#include "formats/ChainSupport.h"

namespace corvid {

// The last input pin and the last output pin of the filter's list win; a filter that is not
// there leaves both pins empty.
void FormatChains::GetPins(platform::PinPtr& inPin, platform::PinPtr& outPin,
                     const platform::FilterPtr& filter) {
    inPin.reset();
    outPin.reset();
    if (!filter) return;
    for (const auto& pin : filter->pins()) {
        if (!pin) continue;
        if (pin->direction() == platform::PinDirection::Input)
            inPin = pin;
        else
            outPin = pin;
    }
}

bool FormatChains::TakeSourcePin(platform::PinPtr& sourcePin, const item::Name& item, bool mustUseAsfReader,
                                 const SourcePinTexts& texts) {
    const bool given = sourcePin != nullptr;
    if (!given) {
        if (graph_.AddSourceFilter(item, mustUseAsfReader))
            sourcePin = g_.MainSourcePin;
        else
            events_.Log(texts.cannotAdd);
    }
    if (!sourcePin) {
        if (texts.noPinInLastError) g_.LastError_ += texts.noPin;
        events_.Log(texts.noPin);
        return false;
    }
    if ((given || texts.namesAddedSource) && events_.logging())
        events_.Log(texts.forPrefix + item.text() + " Source is: " + formats::ownerName(sourcePin));
    return true;
}

bool FormatChains::get_UsingHaldenSource() { return g_.UsingHaldenSource_; }

bool FormatChains::get_UsingASFReader() { return g_.UsingASFReader_; }

} // namespace corvid
