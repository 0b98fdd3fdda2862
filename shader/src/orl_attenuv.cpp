/*
 * How light fades with distance, and the light's side of the exchange with a volume light.
 *
 * A volume light asks a light for what it sends to points of the air. The light cannot simply shade them: the
 * ranges of its attenuation are stretched for the volume, and there is no surface. So it has itself sampled
 * once more for each point, with a probe record in the way that holds the point and the stretched ranges.
 */
#include "orl_attenuv.h"

#include "orlshaderapi.h"

#include <cmath>

namespace orl {

namespace {

struct ProbeAnswer {
    miColor color;
    miScalar attenuation; // by the ranges
};

// The mean of the light's samples; one that brings no light counts as black.
miColor sampled_light(miState* state, miTag light) {
    miColor sum{0, 0, 0, 0}, color;
    miVector dir;
    miScalar dot_nl;
    miInteger samples = 0;
    while (mi_sample_light(&color, &dir, &dot_nl, state, light, &samples))
        sum = {sum.r + color.r, sum.g + color.g, sum.b + color.b, sum.a + color.a};
    if (samples < 2)
        return sum;
    const auto count = static_cast<miScalar>(samples);
    return {sum.r / count, sum.g / count, sum.b / count, sum.a / count};
}

ProbeAnswer probe_light(miState* state, miTag light, LightAttenuationProbe probe) {
    const ScopedRecord record(state, keys::attenuation_probe, probe);
    ProbeAnswer answer{sampled_light(state, light), 0.0f};
    if (const LightAttenuationProbe* const answered = record.get())
        answer.attenuation = answered->attenuation;
    return answer;
}

// While it is probed, the light knows the stretched ranges but fades by its own decay; this takes it to the
// stretched one. Where its own decay leaves nothing, neither does the other.
miScalar decay_ratio(miScalar wanted, miScalar applied) {
    return applied != 0.0f ? wanted / applied : 0.0f;
}

bool is_black(const miColor& color) {
    return color.r == 0.0f && color.g == 0.0f && color.b == 0.0f;
}

} // namespace

miScalar nearFarAttenuation(miScalar distance, const AttenuationRange& range) {
    miScalar a = 1.0f;
    if (range.useNear) {
        if (distance < range.nearStart)
            return 0.0f;
        if (distance < range.nearEnd)
            a = smooth_ramp((distance - range.nearStart) / (range.nearEnd - range.nearStart));
    }
    if (range.useFar) {
        if (distance > range.farEnd)
            return 0.0f;
        if (distance > range.farStart)
            a *= smooth_ramp((range.farEnd - distance) / (range.farEnd - range.farStart));
    }
    return a;
}

miScalar decay(miScalar distance, miInteger decayType, miScalar decayStart) {
    if (decayType == decay_none || distance == 0.0f)
        return 1.0f;
    const miScalar f = decayStart / distance;
    if (!(f < 1.0f))
        return 1.0f;
    return decayType == decay_inverse_square ? f * f : f;
}

miBoolean sample_light_in_volume(miState* state, const VolumeLightRequest& request, AttenuationRange range,
                                 miInteger decayType, miScalar decayStart, ProbeDistance measure) {
    // A point in the air: the ray's own state stays as it is, and no surface turns away from the light.
    miState at = *state;
    at.parent = state;
    at.pri = nullptr;
    at.light_instance = request.light;
    miVector point;
    const LightAttenuationProbe probe{0,
                                      0.0f,
                                      range.nearStart * request.startFactor,
                                      range.nearEnd * request.endFactor,
                                      range.farStart * request.startFactor,
                                      range.farEnd * request.endFactor,
                                      &point,
                                      nullptr};
    miBoolean lit = miFALSE;
    for (miInteger k = 0; k < request.count; ++k) {
        at.point = request.points[k];
        mi_point_to_light(&at, &point, &at.point);
        const miScalar distance = measure == ProbeDistance::along_axis ? -point.z : mi_vector_norm(&point);
        const miScalar wanted = decay(distance, decayType, decayStart * request.endFactor);
        const miScalar ratio = decay_ratio(wanted, decay(distance, decayType, decayStart));
        const ProbeAnswer answer = probe_light(&at, request.light, probe);
        const miColor& color = answer.color;
        request.colors[k] = {color.r * ratio, color.g * ratio, color.b * ratio, color.a};
        if (request.attenuations != nullptr)
            request.attenuations[k] = answer.attenuation * wanted;
        lit |= !is_black(request.colors[k]);
    }
    return lit;
}

} // namespace orl
