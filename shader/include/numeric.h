/*
 * Transcendental functions of the library. Every unit takes them from here, so that their accuracy is decided
 * in one place; the run-time libraries of two platforms may differ in the last bits.
 */
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace orl {

/* Luminance of a surface that scatters all light evenly, for an illuminance of 1. */
inline constexpr float inverse_pi = 0.31830987f;

/* 0 to `height` with level ends, for t from 0 to 1: 3 t^2 - 2 t^3. */
constexpr float smooth_ramp(float t, float height = 1.0f) {
    return height * (3.0f - 2.0f * t) * (t * t);
}

} // namespace orl

namespace orl::numeric {

inline float pow(float base, float exponent) {
    return std::pow(base, exponent);
}

inline double pow(double base, double exponent) {
    return std::pow(base, exponent);
}

inline float log2(float x) {
    return std::log2(x);
}

/* Natural logarithm. */
inline float log(float x) {
    return std::log(x);
}

inline float log10(float x) {
    return std::log10(x);
}

/* Decimal logarithm of a positive normal number without a call, for callers that need few of its digits: off
   from log10 by at most log10_estimate_error (1 + |log10 x|), which leaves room for the error of log10 and
   for a few roundings of the caller. With x = 2^k m and m between the square roots of 1/2 and 2, log m =
   2 artanh((m - 1) / (m + 1)), see Abramowitz and Stegun, Handbook of mathematical functions, 1964, 4.1.27;
   the two coefficients are those of the least greatest error there, 1.7e-6. */
inline float log10_estimate(float x) {
    constexpr float log10_of_two = 0.30103f;
    constexpr std::uint32_t root_of_half = 0x3f3504f3, exponent_step = 1u << 23;
    const auto bits = std::bit_cast<std::uint32_t>(x);
    const std::int32_t k = static_cast<std::int32_t>(bits - root_of_half) >> 23;
    const auto m = std::bit_cast<float>(bits - static_cast<std::uint32_t>(k) * exponent_step);
    const float s = (m - 1.0f) / (m + 1.0f);
    return static_cast<float>(k) * log10_of_two + s * (0.86854034f + 0.29607339f * (s * s));
}
inline constexpr float log10_estimate_error = 4e-6f;

inline float exp(float exponent) {
    return std::exp(exponent);
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

inline float atan2(float y, float x) {
    return std::atan2(y, x);
}

} // namespace orl::numeric
