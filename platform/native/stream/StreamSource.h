#pragma once
// "_DShowShoutCast": the network stream source. Registered in Registry.cpp.

#include "platform/native/graph/Graph.h"

#include <string>

namespace corvid::native {

// A source for "icystream://host:port/mount" and "http://..." addresses: HTTP with ICY
// metadata in, decoded PCM out on its "Audio" pin, which appears once the stream is open.
// Its StreamSourceControl opens in the background; buffering and titles reach the
// registered callback on the control thread.
NativeFilterPtr makeNetworkStreamSource(const std::string& name);

} // namespace corvid::native
