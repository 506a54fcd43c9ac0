#include "devices/clsEnumFilters.h"

#include <corvid/AutomationError.h>
#include "support/Text.h"

#include <array>
#include <limits>

namespace corvid {

namespace {

constexpr int16_t kAudioRenderers = 5;

// Entries that stall or confuse an audio graph when they are offered as candidates.
constexpr std::array<const char*, 2> kSkippedNames = {"Windows Media Video Decoder",
                                                      "Video Renderer"};

bool isSkipped(const std::string& name) {
    for (const char* skipped : kSkippedNames)
        if (text::equalsNoCase(name, skipped)) return true;
    return false;
}

int16_t checkedIncrement(int16_t value) {
    if (value == std::numeric_limits<int16_t>::max()) throw overflowError();
    return static_cast<int16_t>(value + 1);
}

} // namespace

std::string CategoryIdentifier(int16_t category) {
    namespace cat = platform::category;
    switch (category) {
    case 1: return cat::VideoInputDevices;
    case 2: return cat::VideoCompressors;
    case 3: return cat::AudioInputDevices;
    case 4: return cat::AudioCompressors;
    case 5: return cat::AudioRenderers;
    case 6:
    case 7: return cat::LegacyFilters;
    case 9: return cat::VideoRendererClass; // a class identifier used as a category, kept so
    default: return {};
    }
}

clsEnumFilters::clsEnumFilters(platform::Platform& platform)
    : platform_(platform), reportPath_(platform.operatorServices().detectionReportPath()) {}

void clsEnumFilters::Log(const std::string& line) { report_ += line + "\r\n"; }

std::optional<FilterCatalogue> clsEnumFilters::EnumFilters(int16_t category) {
    // The category's identifier; category 8 is not enumerated at all.
    const std::string categoryId = CategoryIdentifier(category);
    if (categoryId.empty()) return std::nullopt;
    if (category == kAudioRenderers) Log("Looking for FilterCategory: " + categoryId);

    FilterCatalogue result;
    try {
        // The enumerator, bound to the category.
        Log("Creating Enumerator");
        platform::Catalogue& catalogue = platform_.catalogue();
        Log("Setting Catlist");
        std::vector<platform::CatalogueEntryPtr> entries;
        const platform::Status listed = catalogue.enumerate(categoryId, entries);
        Log("Setting Enumfilters = New Collection");
        Log("Declared FilterClass");
        if (!listed) Log("Enumeration failed: " + std::to_string(listed.number) + " " + listed.description);

        // How many there are to count.
        if (FilterCountStarted) FilterCountStarted(static_cast<int32_t>(entries.size()));

        // Each entry under its name, or under a numbered key when the name is taken.
        int16_t index = 0;
        for (const auto& entry : entries) {
            index = checkedIncrement(index);
            if (FiltersBeingCounted) FiltersBeingCounted(index);
            try {
                AddEntry(result, entry);
            } catch (const std::exception& e) {
                Log(std::string("Skipped an entry: ") + e.what());
            }
        }
    } catch (const std::exception& e) {
        Log(std::string("Enumeration stopped: ") + e.what());
    }

    // Done: the report replaces the previous one.
    if (FilterCountFinished) FilterCountFinished();
    Log("Detection Done!");
    platform_.operatorServices().writeTextFile(reportPath_, report_);
    return result;
}

void clsEnumFilters::AddEntry(FilterCatalogue& result, const platform::CatalogueEntryPtr& entry) {
    if (!entry) throw std::runtime_error("empty catalogue entry");
    const std::string name = entry->name();
    Log("Found " + name);
    if (isSkipped(name)) return;

    Log("Adding " + name);
    if (result.Add(name, entry)) return;
    // Two devices or filters of one name: both stay, the later under a numbered key. The
    // count is bounded by the entries already in the result.
    for (std::size_t n = 2;; ++n) {
        const std::string key = name + " " + std::to_string(n);
        if (result.Add(key, entry)) {
            Log("Added as " + key);
            return;
        }
    }
}

} // namespace corvid
