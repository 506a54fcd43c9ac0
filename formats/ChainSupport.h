#pragma once
// Pin work shared by the format chains. The chains hand pins around that may be empty (a
// filter without the pin, a pin given up after a failure); an operation on an empty pin is a
// failed operation like any other, kept as the pending error, never a crash.

#include "platform/MediaGraph.h"

#include <string>

namespace corvid::formats {

// The failure of an operation on a pin or filter that is not there.
platform::Status noObject();

platform::Status connectDirect(const platform::PinPtr& from, const platform::PinPtr& to);
platform::Status connect(const platform::PinPtr& from, const platform::PinPtr& to);
platform::Status disconnect(const platform::PinPtr& pin);
bool isConnected(const platform::PinPtr& pin);
platform::PinPtr connectedTo(const platform::PinPtr& pin);

// Name of the filter that owns the pin; empty when there is none.
std::string ownerName(const platform::PinPtr& pin);

} // namespace corvid::formats
