#pragma once
// Accessors that never fail towards the host: a failing platform call inside one yields the
// member's default (0, false or empty) instead. A superseded operation still unwinds.

#include "support/Reentrance.h"

namespace corvid {

template <class T, class F> T guarded(T fallback, F&& body) {
    try {
        return body();
    } catch (const Superseded&) {
        throw;
    } catch (...) {
        return fallback;
    }
}

template <class F> void guardedVoid(F&& body) {
    try {
        body();
    } catch (const Superseded&) {
        throw;
    } catch (...) {
    }
}

} // namespace corvid
