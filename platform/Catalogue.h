#pragma once
// Registered filters and audio renderers, enumerated by category. An entry is what the
// player keeps in its catalogue: a display name, for renderers a speaker count, and the
// means to make an instance inside a graph.

#include "platform/MediaGraph.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvid::platform {

// Category identifiers, in the textual form the enumeration takes.
namespace category {
inline constexpr const char* VideoInputDevices = "{860BB310-5D01-11d0-BD3B-00A0C911CE86}";
inline constexpr const char* VideoCompressors = "{33D9A760-90C8-11d0-BD43-00A0C911CE86}";
inline constexpr const char* AudioInputDevices = "{33D9A762-90C8-11d0-BD43-00A0C911CE86}";
inline constexpr const char* AudioCompressors = "{33D9A761-90C8-11d0-BD43-00A0C911CE86}";
inline constexpr const char* AudioRenderers = "{E0F158E1-CB04-11d0-BD4E-00A0C911CE86}";
inline constexpr const char* LegacyFilters = "{083863F1-70DE-11d0-BD40-00A0C911CE86}";
inline constexpr const char* VideoRendererClass = "{70e102b0-5556-11ce-97c0-00aa0055595a}";
} // namespace category

class CatalogueEntry {
public:
    virtual ~CatalogueEntry() = default;
    virtual std::string name() const = 0;
    // Speaker channels of an audio renderer; 0 for other filters.
    virtual int32_t numSpeakers() const = 0;
    // A second name a host may give an audio renderer, the sound server's own name for the
    // device where it lists the device by another; empty when there is none.
    virtual std::string alias() const { return {}; }
    // Makes an instance and adds it to `graph` under the entry's name.
    virtual Status createIn(Graph& graph, FilterPtr& filter) = 0;
};

using CatalogueEntryPtr = std::shared_ptr<CatalogueEntry>;

class Catalogue {
public:
    virtual ~Catalogue() = default;

    // Entries of one category in the platform's order. An unknown category yields none.
    virtual Status enumerate(const std::string& categoryId,
                             std::vector<CatalogueEntryPtr>& entries) = 0;

    // Audio renderers as the routing lists them: each device once, and each device with
    // more than two speakers once more per stereo pair, named with " [1-2]" ... " [7-8]".
    virtual Status enumerateRenderersWithPairs(std::vector<CatalogueEntryPtr>& entries) = 0;

    // Forgets anything cached, so that the next enumeration sees the machine as it is now.
    virtual void refresh() = 0;
};

} // namespace corvid::platform
