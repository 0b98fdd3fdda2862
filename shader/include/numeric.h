/*
 * Transcendental functions of the library. Every unit takes them from here, so that their accuracy is decided
 * in one place; the run-time libraries of two platforms may differ in the last bits.
 */
#pragma once

#include <cmath>

namespace orl::numeric {

inline float pow(float base, float exponent) {
    return std::pow(base, exponent);
}

inline float log10(float x) {
    return std::log10(x);
}

inline double exp(double exponent) {
    return std::exp(exponent);
}

} // namespace orl::numeric
