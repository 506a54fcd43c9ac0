#pragma once
// One audio output device as the catalogue lists it.

#include "platform/Catalogue.h"
#include "support/KeyedCollection.h"

#include <cstdint>
#include <memory>
#include <string>

namespace corvid {

class clsDShowRender {
public:
    clsDShowRender() = default;
    explicit clsDShowRender(platform::CatalogueEntryPtr entry) : entry_(std::move(entry)) {}

    std::string Name() const { return entry_ ? entry_->name() : std::string(); }
    int32_t NumSpeakers() const { return entry_ ? entry_->numSpeakers() : 0; }
    // The enumerated device entry, from which its renderer is made in a graph.
    const platform::CatalogueEntryPtr& entry() const { return entry_; }

private:
    platform::CatalogueEntryPtr entry_;
};

// Devices keyed by name, in enumeration order.
using SoundCardCollection = KeyedCollection<clsDShowRender>;
// Registered filters keyed by display name.
using FilterCatalogue = KeyedCollection<platform::CatalogueEntryPtr>;

} // namespace corvid
