#pragma once
// clsCards: the process-wide catalogue of audio output devices and registered filters.
//
// GetSoundcards enumerates the audio renderers and the registered filters, checks the filters
// that playback cannot do without, and starts a repair of the platform's filter registration
// when the MPEG splitter is missing. The player that asked receives the progress as events.
// Control thread only.

#include <corvid/SoundCards.h>
#include "devices/FilterNames.h"
#include "devices/clsEnumFilters.h"
#include "platform/Platform.h"
#include <corvid/NameCollection.h>

#include <cstdint>
#include <functional>

namespace corvid {

// The catalogue's events, delivered to the player that runs a detection.
struct CardsEvents {
    std::function<void(FilterCatalogue& found, NameCollection& weNeed)> GotFiltersWeNeed;
    std::function<void(int32_t& count)> StartedCounting;
    std::function<void(int32_t index)> Counting;
    std::function<void()> FinishedCountingFilters;
};

class clsCards {
public:
    // Registered names of the filters that playback needs, in the order they are checked.
    static constexpr const char* kRequiredFilters[] = {
        filters::kWaveParser, filters::kStreamSource, filters::kSampleGrabber,
        filters::kSplitter,   filters::kMp3Decoder,   filters::kAcmWrapper};

    explicit clsCards(platform::Platform& platform);

    // Runs the whole detection and returns the sound cards, keyed by device name.
    SoundCardCollection GetSoundcards(const CardsEvents* events = nullptr);

    // Opens the desktop's volume mixer.
    void AdjustVolumeSettings();

    // The required filters that were found (the name is historical).
    const FilterCatalogue& colVideoRenderers() const { return found_; }
    // Names of the required filters that were found.
    const NameCollection& FiltersWeNeed() const { return weNeed_; }
    // Every registered filter, by display name: what the graphs create their filters from.
    const FilterCatalogue& Filters() const { return filters_; }
    const SoundCardCollection& SoundCards() const { return soundCards_; }
    NameCollection& Plugins() { return plugins_; }

    // Whether a detection has run in this process.
    bool Detected() const { return detected_; }
    // No "MPEG Layer-3 Decoder" is registered: MPEG audio must be decoded through the
    // "ACM Wrapper" (the question a graph build asks first).
    bool MustUseACM() const;
    // True only while the re-registration command is being started.
    bool RepairInProgress() const { return repairFlag_; }

private:
    platform::Platform& platform_;
    SoundCardCollection soundCards_;
    FilterCatalogue filters_;
    FilterCatalogue found_;
    NameCollection weNeed_;
    NameCollection plugins_;
    bool detected_ = false;
    bool repairFlag_ = false;
};

} // namespace corvid
