#pragma once
// Checked integer arithmetic. The stopwatch, the silence settings and the peak levels keep
// the overflow behaviour the host's scripts expect: a result that does not fit raises the
// runtime's "Overflow" error (number 6) instead of wrapping. Conversions from floating
// point round to nearest with ties to even, as the host's own conversions do.

#include <corvid/AutomationError.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace corvid::checked {

inline int32_t add(int32_t a, int32_t b) {
    int32_t r;
    if (__builtin_add_overflow(a, b, &r)) throw overflowError();
    return r;
}

inline int32_t sub(int32_t a, int32_t b) {
    int32_t r;
    if (__builtin_sub_overflow(a, b, &r)) throw overflowError();
    return r;
}

inline int32_t mul(int32_t a, int32_t b) {
    int32_t r;
    if (__builtin_mul_overflow(a, b, &r)) throw overflowError();
    return r;
}

// |v|; the magnitude of the most negative value does not fit.
inline int32_t abs(int32_t v) {
    if (v == std::numeric_limits<int32_t>::min()) throw overflowError();
    return v < 0 ? -v : v;
}

// Narrowing to a signed 16-bit field.
inline int16_t toInt16(int64_t v) {
    if (v < std::numeric_limits<int16_t>::min() || v > std::numeric_limits<int16_t>::max())
        throw overflowError();
    return static_cast<int16_t>(v);
}

// Round to the nearest integer, ties to the even neighbour (2.5 -> 2, 3.5 -> 4, -2.5 -> -2).
// Does not depend on the floating-point environment's rounding mode.
inline double roundHalfEven(double x) {
    double r = std::round(x); // ties away from zero
    if (std::fabs(x - std::trunc(x)) == 0.5) r = 2.0 * std::round(x / 2.0);
    return r;
}

// A floating-point value to a signed 32-bit integer, rounded half to even; NaN and values
// outside the range raise "Overflow".
inline int32_t toInt32(double x) {
    if (std::isnan(x)) throw overflowError();
    const double r = roundHalfEven(x);
    if (r < -2147483648.0 || r > 2147483647.0) throw overflowError();
    return static_cast<int32_t>(r);
}

} // namespace corvid::checked
