// Running shaders and casting rays: what the interface's call and trace functions are made of.
#pragma once

#include "render/context.h"

namespace stage {

// Runs the shader instance `tag` on the state: init on first call, version of the call's type in the state,
// user pointer and running shader restored after. Lists (next_function) are run in order for every type but
// lens shaders, whose next one runs when the first traces its eye ray. False for a null tag.
miBoolean call_shader(void* result, miShader_type type, miState* state, miTag tag, void* arg);

// The value of a connected parameter of the running shader; valid until that shader returns.
void* evaluate_parameter(miState* state, void* param);

// A fresh frame for a ray cast from `parent`: a copy of its state with parent and child links set. The frame
// stays valid until the parent casts again or its shader returns.
RayFrame& new_ray(miState* parent, miRay_type type);

// Fills everything of the frame's state that belongs to an intersection from its `hit` (point, normals, sides,
// textures, motion, derivatives, material, instance, label); without a hit the state of a ray that met nothing.
void set_intersection(RayFrame& frame, bool was_hit);

// Runs material or environment, then the volume of the ray, on a frame whose intersection is set.
miBoolean shade(miColor* result, RayFrame& frame);

// Runs the whole eye ray of a sample: lens shaders first. `state` is the camera state of the sample.
miBoolean shade_eye_sample(miColor* result, miState* state);

// Distance from which a ray that starts on the state's surface looks for hits, so that it does not meet its own start.
double start_distance(const miState* state);

} // namespace stage
