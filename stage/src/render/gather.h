// Final gathering: indirect light from rays into the hemisphere over a point.
#pragma once

#include "render/context.h"

namespace stage {

// Irradiance that rays of type miRAY_FINALGATHER find over the state's point, on the side that its normal
// looks to or on the back. False, and black, where the frame's options do not ask for it or the state is
// itself below such a ray.
miBoolean gather_irradiance(miColor* result, miState* state, bool backside);

// Whether the state is below a gathering ray.
bool is_below_gathering(const miState* state);

} // namespace stage
