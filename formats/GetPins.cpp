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

bool FormatChains::TakeSourcePin(platform::PinPtr& sourcePin, const std::string& fileName,
                           bool mustUseAsfReader, const SourcePinTexts& texts) {
    if (!sourcePin) {
        if (graph_.AddSourceFilter(fileName, mustUseAsfReader))
            sourcePin = g_.MainSourcePin;
        else
            events_.Log(texts.cannotAdd);
    } else if (events_.logging()) {
        events_.Log(texts.givenPrefix + fileName + " Source is: " + formats::ownerName(sourcePin));
    }
    if (!sourcePin) {
        events_.Log(texts.noPin);
        return false;
    }
    return true;
}

bool FormatChains::get_UsingHaldenSource() { return g_.UsingHaldenSource_; }

bool FormatChains::get_UsingASFReader() { return g_.UsingASFReader_; }

} // namespace corvid
