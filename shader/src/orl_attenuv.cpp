/*
 * How light fades with distance, and the light's side of the exchange with a volume light.
 *
 * A volume light asks a light for what it sends to points of the air. The light cannot simply shade them: its
 * attenuation and decay are stretched for the volume, and there is no surface. So it has itself sampled once
 * more for each point, with a probe record in the way that holds the point and the stretched distances.
 */
#include "orl_attenuv.h"

#include "orlshaderapi.h"

#include <cmath>

namespace orl {

namespace {

// Samples the light under the record, which is set anew for each sample: shaders on the way of the last one
// may have cleared it. Keeps the light's answer.
bool sample_probed(miColor* color, miState* state, miTag light, miInteger* samples,
                   LightAttenuationProbe& probe) {
    const ScopedRecord record(state, keys::attenuation_probe, probe);
    miVector dir;
    miScalar dot_nl;
    const bool lit = mi_sample_light(color, &dir, &dot_nl, state, light, samples);
    if (const LightAttenuationProbe* const answered = record.get())
        probe.attenuation = answered->attenuation;
    return lit;
}

// The mean of the light's samples; one that brings no light counts as black.
miColor probe_light(miState* state, miTag light, LightAttenuationProbe& probe) {
    miColor sum{0, 0, 0, 0}, color;
    miInteger samples = 0;
    while (sample_probed(&color, state, light, &samples, probe))
        sum = {sum.r + color.r, sum.g + color.g, sum.b + color.b, sum.a + color.a};
    if (samples < 2)
        return sum;
    const auto count = static_cast<miScalar>(samples);
    return {sum.r / count, sum.g / count, sum.b / count, sum.a / count};
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
            a = smooth_ramp((range.farEnd - distance) / (range.farEnd - range.farStart), a);
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
    LightAttenuationProbe probe{0,
                                0.0f,
                                range.nearStart * request.startFactor,
                                range.nearEnd * request.endFactor,
                                range.farStart * request.startFactor,
                                range.farEnd * request.endFactor,
                                &point,
                                decayStart * request.endFactor,
                                miTRUE};
    miBoolean lit = miFALSE;
    for (miInteger k = 0; k < request.count; ++k) {
        at.point = request.points[k];
        mi_point_to_light(&at, &point, &at.point);
        probe.attenuation = 0.0f;
        request.colors[k] = probe_light(&at, request.light, probe);
        if (request.attenuations != nullptr) {
            const miScalar distance =
                measure == ProbeDistance::along_axis ? -point.z : mi_vector_norm(&point);
            request.attenuations[k] = probe.attenuation * decay(distance, decayType, probe.decayStart);
        }
        lit |= !is_black(request.colors[k]);
    }
    return lit;
}

} // namespace orl
