// Photons: emitted by lights, followed through photon shaders, kept in maps, and looked up by shaders.
#pragma once

#include <cstdint>

#include "render/context.h"

namespace stage {

class Renderer;

// Kinds of stored photons, to be combined with |. Caustic photons came to a diffuse surface from specular or
// glossy ones alone, global ones on every other way.
using PhotonKinds = std::uint32_t;
inline constexpr PhotonKinds caustic_photons = 1, global_photons = 2;

// Fills the frame's photon maps before its first bucket, when its options ask for any. The maps do not depend
// on the number of threads. False when the frame was stopped.
bool trace_photons(Renderer& renderer);

// Irradiance (power for each area) that the photons of those kinds bring to the state's point, on the side
// that its normal looks to or on the back; false, and black, where none are found. Kinds that the frame's
// options switch off bring nothing.
miBoolean photon_irradiance(miColor* result, miState* state, bool backside, PhotonKinds kinds);

} // namespace stage
