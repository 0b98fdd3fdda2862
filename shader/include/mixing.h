/*
 * What a mixing value comes to: one of two inputs alone, or both.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

/* The first input alone, the second alone, or both by `weight`, the share of the second. */
struct BlendChoice {
    enum { first, second, both } which;
    miScalar weight;
};

/* Values below 0.0001, and what is no number, leave the first input alone, values above 0.9999 the second;
   the two themselves blend. */
constexpr BlendChoice choose_blend(miScalar mix) {
    constexpr miScalar least = 0.0001f, most = 0.9999f;
    return {!(mix >= least) ? BlendChoice::first : mix > most ? BlendChoice::second : BlendChoice::both, mix};
}

/* The mixing curve: a value below `lower` becomes 0, one from `upper` on 1, smooth between. */
constexpr miScalar mixing_curve(miScalar mix, miScalar lower, miScalar upper) {
    if (mix < lower)
        return 0;
    if (mix >= upper)
        return 1;
    const miScalar s = (mix - lower) / (upper - lower);
    return (3.0f - 2.0f * s) * (s * s);
}

constexpr miScalar mixed(miScalar first, miScalar second, miScalar weight) {
    return weight * second + (1.0f - weight) * first;
}

constexpr miColor mixed(const miColor& first, const miColor& second, miScalar weight) {
    return {mixed(first.r, second.r, weight), mixed(first.g, second.g, weight),
            mixed(first.b, second.b, weight), mixed(first.a, second.a, weight)};
}

} // namespace orl
