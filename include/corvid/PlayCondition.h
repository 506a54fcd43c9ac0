#pragma once
#include <cstdint>

namespace corvid {

// The playstate. The names and their odd capitalisation are part of the interface.
enum PlayCondition : int32_t {
    mpstopped = 0,
    mpPaused = 1,
    MpPlaying = 2,
    mpUnknown = 6, // a stream could not be started
    MpCueing = 10, // for hosts; the player never sets it
};

} // namespace corvid
