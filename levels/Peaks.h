#pragma once
// The levels derived from one peak report of the helper (left, right on the 16-bit sample
// scale, as received; a report may carry negative values).

#include "support/CheckedInt.h"

#include <cstdint>

namespace corvid::peaks {

// What LeftVUPeak / RightVuPeak show: the magnitude. Throws "Overflow" for the most
// negative 32-bit value, whose magnitude does not fit.
inline int32_t magnitude(int32_t peak) { return checked::abs(peak); }

// The overall level raised with Timing: |right|, unless |left| is greater, in which case
// left itself, sign and all. A negative left peak thus gives a negative level; ties go to
// the right channel's magnitude. Hosts have always seen the sign here; it stays.
inline int32_t overallLevel(int32_t left, int32_t right) {
    int32_t level = checked::abs(right);
    if (checked::abs(left) > level) level = left;
    return level;
}

} // namespace corvid::peaks
