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

inline double pow(double base, double exponent) {
    return std::pow(base, exponent);
}

inline float log10(float x) {
    return std::log10(x);
}

inline double exp(double exponent) {
    return std::exp(exponent);
}

inline float sin(float x) {
    return std::sin(x);
}

inline float cos(float x) {
    return std::cos(x);
}

inline float tan(float x) {
    return std::tan(x);
}

inline float asin(float x) {
    return std::asin(x);
}

inline float acos(float x) {
    return std::acos(x);
}

inline float atan(float x) {
    return std::atan(x);
}

} // namespace orl::numeric
