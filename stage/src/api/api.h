// What the published functions share: their export marker, and the roads from a state to the frame and the
// scene that it belongs to.
#pragma once

#include <algorithm>

#include "render/context.h"
#include "render/renderer.h"
#include "scene/scene.h"

// Everything else of the renderer is hidden: shader libraries see the published functions only.
#define STAGE_API extern "C" __attribute__((visibility("default")))

namespace stage {

// The frame that a state belongs to; null for a state that no frame made.
inline const World* world_of(const miState* state) {
    return state && state->renderer ? context_of(state).world : nullptr;
}

// The scene that a state belongs to, otherwise the one that is loaded; null when there is none.
inline Scene* scene_of(const miState* state) {
    const World* world = world_of(state);
    return world ? &world->scene : current_scene();
}

// The instance that the state stands on. A shader that clears `pri`, as volumes do, is still in the space of
// the instance that was hit.
inline const WorldInstance* current_instance(const miState* state) {
    const World* world = world_of(state);
    if (!world)
        return nullptr;
    const WorldInstance* instance = instance_of(state);
    return instance ? instance : world->find_instance(state->instance);
}

} // namespace stage
