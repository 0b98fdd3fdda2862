// Final gathering: indirect light from rays into the hemisphere over a point.
#pragma once

#include "render/context.h"

namespace stage {

// Whether the state is below a gathering ray.
bool is_below_gathering(const miState* state);

// Whether rays gather the light at the state's point: its options ask for it, its instance takes part, and it
// is not itself below such a ray.
bool gathers_at(const miState* state);

// Irradiance that rays of type miRAY_FINALGATHER find over the state's point, on the side that its normal
// looks to or on the back. It counts as the colours of lights do: under an even sky of radiance 1 it is 1.
// `dominant`, unless null, receives the sum of the rays' directions, each weighted by the luminance that it
// brings; its length is at most the luminance of the result. False, and black, where nothing is gathered.
miBoolean gather_irradiance(miColor* result, miState* state, bool backside, miVector* dominant = nullptr);

} // namespace stage
