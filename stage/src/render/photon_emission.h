// How lights send photons.
#pragma once

#include "render/context.h"

namespace stage {

// A sphere about the scene, in internal space.
struct SceneSphere {
    miVector centre{};
    float radius = 0.0f;
};

// The sphere about the box of the scene in world space, so that it does not depend on the internal space.
SceneSphere sphere_about(const World& world);

// The shader that emits a light's photons: its emitter, or a light shader that is declared to emit; null
// where the light's kind and shape decide.
miTag emitter_of(const Scene& scene, const miLight& light);

// Sends one photon with that energy on its way. `state` is the light's own, of an emission type, and the
// photon is the thread's.
void emit_photon(miState* state, const WorldLight& light, miTag emitter, const SceneSphere& scene);

} // namespace stage
