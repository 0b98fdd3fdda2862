// One photon's way from its light: rays, the shaders that it meets, and what is kept of it.
#pragma once

#include <cstdint>
#include <vector>

#include "render/photon_map.h"
#include "render/photons.h"

namespace stage {

// A photon that a path has left, with the number of its emission.
struct KeptPhoton {
    Photon photon;
    std::uint32_t emission;
};

// What the path has met between its light and the ray in flight.
enum class PhotonWay : std::uint8_t {
    direct,  // nothing, or only what it passed straight through: light samples bring that light
    focused, // only what mirrors or refracts, clearly or not
    spread   // a diffuse surface or a volume at least once
};

// What a thread knows of the photon that it follows.
struct PhotonPath {
    PhotonKinds pass;  // the kind of photon that is kept on surfaces
    bool keeps_volume; // photons in volumes are kept too
    float exponent;    // power changes with distance ^ exponent
    std::uint32_t emission = 0;
    bool endless = false; // a photon was given up because it went on without end
    std::vector<KeptPhoton> surface, volume;

    // of the ray in flight
    PhotonWay way = PhotonWay::direct;
    double length = 0.0;    // from the light to its start
    std::uint32_t rays = 0; // since the emission
};

// Starts a photon at the state's origin, along its direction.
miBoolean send_photon_from_light(const miColor& energy, miState* state);
// Send it on from the state's surface. False where the path ends: too deep, or the surface does not cast.
miBoolean send_photon_reflected(const miColor& energy, miState* state, miRay_type type, const miVector& dir);
miBoolean send_photon_transmitted(const miColor& energy, miState* state, miRay_type type,
                                  const miVector& dir);
// From the state's point, in the same volume.
miBoolean send_photon_scattered(const miColor& energy, miState* state, const miVector& dir);

// Keep the photon at the state's point. False when it is of no kind that is kept.
miBoolean keep_surface_photon(const miColor& energy, const miState* state);
miBoolean keep_volume_photon(const miColor& energy, const miState* state);

} // namespace stage
