#include "devices/clsCards.h"
#include "devices/FilterNames.h"

#include "devices/clsEnumFilters.h"

namespace corvid {

std::string clsDShowRender::Name() const { return entry_ ? entry_->name() : std::string(); }
int32_t clsDShowRender::NumSpeakers() const { return entry_ ? entry_->numSpeakers() : 0; }

using namespace filters;

namespace {

constexpr int16_t kAudioRenderers = 5;
constexpr int16_t kRegisteredFilters = 6;

// Re-registers the platform's own filters (two blanks, as the command has always read).
constexpr const char* kRepairFilterRegistration = "regsvr32.exe  quartz.dll /s";

SoundCardCollection asSoundCards(const FilterCatalogue& renderers) {
    SoundCardCollection cards;
    for (const auto& entry : renderers) cards.Add(entry.key, clsDShowRender(entry.value));
    return cards;
}

} // namespace

clsCards::clsCards(platform::Platform& platform) : platform_(platform) {}

bool clsCards::MustUseACM() const { return detected_ && !filters_.Contains(kMp3Decoder); }

SoundCardCollection clsCards::GetSoundcards(const CardsEvents* events) {
    auto& ops = platform_.operatorServices();
    try {
        // Fresh results.
        soundCards_.Clear();
        found_.Clear();
        weNeed_.Clear();

        // Audio renderers and registered filters, with the enumerator's progress passed on.
        clsEnumFilters enummer(platform_);
        if (events) {
            enummer.FilterCountStarted = [events](int32_t count) {
                if (events->StartedCounting) events->StartedCounting(count);
            };
            enummer.FiltersBeingCounted = [events](int32_t index) {
                if (events->Counting) events->Counting(index);
            };
        }
        if (auto renderers = enummer.EnumFilters(kAudioRenderers)) soundCards_ = asSoundCards(*renderers);
        if (auto filters = enummer.EnumFilters(kRegisteredFilters)) filters_ = std::move(*filters);
        detected_ = true;
        int32_t filterCount = static_cast<int32_t>(filters_.Count());
        if (events && events->StartedCounting) events->StartedCounting(filterCount);

        // The filters playback needs; a missing one is only noticed below.
        for (const char* name : kRequiredFilters) {
            if (const platform::CatalogueEntryPtr* entry = filters_.find(name)) {
                found_.Add(name, *entry);
                weNeed_.Add(name);
            }
        }

        if (!soundCards_.empty()) {
            // Sound cards found. Without the MPEG splitter no MP3 plays: repair first.
            if (events && events->FinishedCountingFilters) events->FinishedCountingFilters();
            const bool splitterFound = found_.Contains(kSplitter);
            if (splitterFound || repairFlag_) {
                if (!splitterFound)
                    ops.messageBox("Cant find stream splitter!", "It is required for mp3 playback in Orvo.",
                                   platform::MessageIcon::Exclamation);
                if (events && events->GotFiltersWeNeed) events->GotFiltersWeNeed(found_, weNeed_);
            } else {
                // The repair is started, never awaited: the next detection looks again.
                repairFlag_ = true;
                ops.startProcess(kRepairFilterRegistration, platform::WindowStyle::Minimized);
                repairFlag_ = false;
                return soundCards_;
            }
        } else {
            // No sound card at all: nothing can play on this machine.
            ops.messageBox("There was a SERIOUS error detecting the soundcards on your system.\r\n"
                           "Have You got Microsoft DirectX Installed??",
                           "Orvo Can't find any soundcards!", platform::MessageIcon::Critical);
            found_.Clear();
            weNeed_.Clear();
            if (events && events->FinishedCountingFilters) events->FinishedCountingFilters();
        }
    } catch (const std::exception&) {
        // A failed detection returns what it found.
        repairFlag_ = false;
    }
    return soundCards_;
}

void clsCards::AdjustVolumeSettings() {
    try {
        auto& ops = platform_.operatorServices();
        if (!ops.startProcess("SNDVOL32.EXE", platform::WindowStyle::Normal))
            ops.messageBox("Can't open the Volume control program", "Sorry", platform::MessageIcon::None);
    } catch (const std::exception&) {
    }
}

} // namespace corvid
