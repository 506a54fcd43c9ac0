#pragma once
// The audio output devices as the player lists them to a host: each device by name with its
// number of speakers, in enumeration order.

#include <corvid/KeyedCollection.h>

#include <cstdint>
#include <memory>
#include <string>

namespace corvid {

namespace platform {
class CatalogueEntry;
}

class clsDShowRender {
public:
    clsDShowRender() = default;
    explicit clsDShowRender(std::shared_ptr<platform::CatalogueEntry> entry) : entry_(std::move(entry)) {}

    std::string Name() const;
    int32_t NumSpeakers() const;
    // The enumerated device entry, from which its renderer is made in a graph.
    const std::shared_ptr<platform::CatalogueEntry>& entry() const { return entry_; }

private:
    std::shared_ptr<platform::CatalogueEntry> entry_;
};

// Devices keyed by name, in enumeration order.
using SoundCardCollection = KeyedCollection<clsDShowRender>;

} // namespace corvid
