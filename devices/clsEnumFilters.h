#pragma once
// clsEnumFilters: the registered filters of one platform category, keyed by display name.
//
// Every step of an enumeration is written to a detection report beside the player (the
// operators' first look when a machine plays nothing), and the progress is raised as it goes
// so that a host can show a counter while a slow machine enumerates. Control thread only.

#include <corvid/SoundCards.h>
#include "platform/Platform.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace corvid {

// Registered filters keyed by display name.
using FilterCatalogue = KeyedCollection<platform::CatalogueEntryPtr>;

// The platform category identifier of a category number (1-9); empty for 8, which is never
// enumerated, and for numbers outside the table.
std::string CategoryIdentifier(int16_t category);

class clsEnumFilters {
public:
    explicit clsEnumFilters(platform::Platform& platform);

    // Progress events, raised synchronously from inside EnumFilters.
    std::function<void(int32_t count)> FilterCountStarted;
    std::function<void(int32_t index)> FiltersBeingCounted;
    std::function<void()> FilterCountFinished;

    // The entries of one category in the platform's order, keyed by name. A second entry of
    // a name already present is kept under the name followed by " 2", " 3", ... Entries named
    // "Windows Media Video Decoder" or "Video Renderer" never appear. No collection at all for
    // category 8. A failing enumeration returns what it had collected.
    std::optional<FilterCatalogue> EnumFilters(int16_t category);

    const std::string& ReportPath() const { return reportPath_; }
    // The report so far: one line per step, each ending in CR LF.
    const std::string& Report() const { return report_; }

private:
    void Log(const std::string& line);
    void AddEntry(FilterCatalogue& result, const platform::CatalogueEntryPtr& entry);

    platform::Platform& platform_;
    std::string reportPath_;
    std::string report_;
};

} // namespace corvid
