// Photons: emitted by lights, followed through photon shaders, kept in maps, and looked up by shaders.
#pragma once

#include <cstdint>
#include <memory>

#include "render/context.h"
#include "render/photon_map.h"

namespace stage {

class Renderer;

// Kinds of stored photons, to be combined with |. Caustic photons came to a diffuse surface from specular or
// glossy ones alone, global ones on every other way. What comes straight from its light is not kept: light
// samples bring that.
using PhotonKinds = std::uint32_t;
inline constexpr PhotonKinds caustic_photons = 1, global_photons = 2;

// The photons of a frame.
struct PhotonMaps {
    PhotonMap caustic, global, volume;
    float scene_radius; // of a sphere about the scene; gives the radii that the options leave open
};

// Fills the frame's photon maps before its first bucket, when its options ask for any, on the threads of the
// calling arena. The maps do not depend on their number. Null when there are no photons, and when the frame
// was stopped.
std::shared_ptr<const PhotonMaps> trace_photons(Renderer& renderer);

// Irradiance (power for each area) that the photons of those kinds bring to the state's point, on the side
// that its normal looks to or on the back; false, and black, where none are found. Kinds that the frame's
// options switch off bring nothing.
miBoolean photon_irradiance(miColor* result, miState* state, bool backside, PhotonKinds kinds);

// Power for each volume that photons leave about the state's point; false, and black, where none are found.
miBoolean photon_volume_irradiance(miColor* result, miState* state);

} // namespace stage
