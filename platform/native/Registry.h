#pragma once
// The one list of named native filters. Each entry is a small descriptor: display name,
// category, merit and factory; the catalogue and intelligent connect are built from it.

#include "platform/native/graph/Graph.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvid::native {

// Merits in the order intelligent connect tries them; DoNotUse keeps pass-through filters
// (grabber, pitch shifter, pipe sender, routers) and sources out of automatic chains.
namespace merit {
constexpr uint32_t Preferred = 0x800000;
constexpr uint32_t Normal = 0x600000;
constexpr uint32_t Unlikely = 0x400000;
constexpr uint32_t DoNotUse = 0x200000;
} // namespace merit

struct FilterDescriptor {
    const char* displayName;
    const char* category;
    uint32_t merit;
    // What its input takes, so that intelligent connect skips filters that cannot help.
    enum class Input { None, ByteStream, Compressed, Pcm } input;
    std::function<NativeFilterPtr()> factory;
};

const std::vector<FilterDescriptor>& registeredFilters();
// A new instance of the registered filter of that exact display name, or empty.
NativeFilterPtr makeRegisteredFilter(const std::string& displayName);
// The name under which an instance stands in a graph (the ASF reader reports another).
std::string instanceName(const FilterDescriptor& descriptor);

} // namespace corvid::native
