// GetPins, with which every chain finds a filter's pins, and the two properties that say which
// reader the current item was loaded into (the MP3 chain routes by them).

#include "control/PlayerCore.h"
#include "formats/ChainSupport.h"

namespace corvid {

// The last input pin and the last output pin of the filter's list win; a filter that is not
// there leaves both pins empty.
void PlayerCore::GetPins(platform::PinPtr& inPin, platform::PinPtr& outPin,
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

bool PlayerCore::TakeSourcePin(platform::PinPtr& sourcePin, const std::string& fileName,
                           bool mustUseAsfReader, const SourcePinTexts& texts) {
    if (!sourcePin) {
        if (AddSourceFilter(fileName, mustUseAsfReader))
            sourcePin = MainSourcePin;
        else
            Log(texts.cannotAdd);
    } else if (logging()) {
        Log(texts.givenPrefix + fileName + " Source is: " + formats::ownerName(sourcePin));
    }
    if (!sourcePin) {
        Log(texts.noPin);
        return false;
    }
    return true;
}

bool PlayerCore::get_UsingHaldenSource() { return UsingHaldenSource_; }

bool PlayerCore::get_UsingASFReader() { return UsingASFReader_; }

} // namespace corvid
