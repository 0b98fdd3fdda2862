/*
 * How light fades with distance, and the exchange between a volume light and the standard lights: the volume
 * light calls a light with a request as the fourth argument, the light answers with what it sends to each
 * point of the request.
 */
#pragma once

#include "call_argument.h"
#include "numeric.h"

namespace orl {

/* Ranges in which a light fades in (near) and out (far). Distances in the light's units. */
struct AttenuationRange {
    miBoolean useNear;
    miScalar nearStart, nearEnd;
    miBoolean useFar;
    miScalar farStart, farEnd;
};

/* Share of the light (0 to 1) that the ranges leave at a distance. */
miScalar nearFarAttenuation(miScalar distance, const AttenuationRange& range);

enum DecayType { decay_none = 0, decay_inverse = 1, decay_inverse_square = 2 };

/* Share that the decay leaves: 1 up to `decayStart` (and at distance 0), decayStart / distance or its square
   behind. */
miScalar decay(miScalar distance, miInteger decayType, miScalar decayStart);

/*
 * Request of a volume light: the fourth argument of a call of a standard light.
 *
 * The volume light sets all but the results; `points` are internal space and lie along one ray. The light's
 * near and far start distances are multiplied by `startFactor`, its end distances and the start of its decay
 * by `endFactor`. For each point the light writes the colour that arrives there, without the light's own
 * colour, and its attenuation at that point.
 */
struct VolumeLightRequest {
    static constexpr miUint magic_number = 0x7011e57;
    miUint magic;
    miTag light;          /* instance of the light */
    miScalar startFactor; /* 1 for the light's own ranges */
    miScalar endFactor;
    miInteger count;
    const miVector* points;
    miColor* colors;        /* result, `count` of them: shape, projector, ranges, decay and shadow */
    miScalar* attenuations; /* result, `count` of them: ranges and decay alone, 0 to 1; may be null */
};

/* How a light measures the distance to a probed point: omni and spot from where they stand, the directional
   light along its axis. */
enum class ProbeDistance { from_origin, along_axis };

/* Answers a request: samples the light for each point under the probe record "KEY_4" and reads the answers
   back; the samples of a light with an area are averaged. The record is gone afterwards. `range` and
   `decayStart` are the light's own; miFALSE when no light comes to any of the points. */
miBoolean sample_light_in_volume(miState* state, const VolumeLightRequest& request, AttenuationRange range,
                                 miInteger decayType, miScalar decayStart,
                                 ProbeDistance measure = ProbeDistance::from_origin);

} // namespace orl
