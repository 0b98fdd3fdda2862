/* The samples of a light, and their mean: what everything that walks the lights has in common. */
#pragma once

#include "orlshaderapi.h"

namespace orl {

// Affect flags of a light.
inline constexpr miInteger affects_diffuse = 1;
inline constexpr miInteger affects_specular = 2;
inline constexpr miInteger affects_all = affects_diffuse | affects_specular;

/* One sample of a light. */
struct LightSample {
    miColor color;
    miVector dir;     /* from the surface to the light, unit length */
    miScalar dot_nl;  /* cosine of the angle of incidence */
    miScalar diffuse; /* diffuse factor of models: dot_nl, or what the light bent it to; not negative */
};

inline void add(miColor& sum, const miColor& color, miScalar factor = 1.0f) {
    sum.r += color.r * factor;
    sum.g += color.g * factor;
    sum.b += color.b * factor;
}

inline void add(miColor& sum, const miColor& color, const miColor& factor) {
    sum.r += color.r * factor.r;
    sum.g += color.g * factor.g;
    sum.b += color.b * factor.b;
}

inline void divide(miColor& sum, miScalar by) {
    sum = {sum.r / by, sum.g / by, sum.b / by, sum.a};
}

/* Mean of what add_sample(sample, sums) makes of a light's samples; those that add nothing count as well. */
template <class Sums, class AddSample>
Sums mean_of_samples(miState* state, miTag light, const AddSample& add_sample) {
    Sums sums{};
    LightSample sample{};
    miInteger count = 0;
    while (mi_sample_light(&sample.color, &sample.dir, &sample.dot_nl, state, light, &count))
        add_sample(sample, sums);
    if (count > 1)
        divide(sums, static_cast<miScalar>(count));
    return sums;
}

} // namespace orl
