#pragma once
// Names of the routing: the default and the silent device, and the speaker pairs through which
// a stereo player addresses two channels of a multichannel device.

#include <string>

namespace corvid::routing {

inline constexpr const char* kDefaultDevice = "Default DirectSound Device";
inline constexpr const char* kDummyDevice = "DirectSound: Brindle Dummy Output Device";

// The device name without its speaker-pair suffix (" [1-2]" ... " [7-8]", any case); a name
// without one is returned unchanged.
std::string BaseDeviceName(const std::string& name);

// The surround routing filter ("Sondrel 1-2" ... "Sondrel 7-8") that places stereo on the
// pair a renderer name ends in; empty for any other name.
std::string SurroundFilterFor(const std::string& rendererName);

bool IsDefaultDevice(const std::string& name);

} // namespace corvid::routing
