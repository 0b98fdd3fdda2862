// Lists of lights for the interface object.
#pragma once

#include "shader.h"

namespace stage {

// The directions in which lights are wanted.
struct LightCone {
    miVector axis; // normalised, internal space
    miScalar cosine;
};

// The lights of `list`, or without one those of the state's instance; a null cone is all directions. In the
// memory of the running shader. Null without a frame.
mi::shader_v3::LightList* light_list_of(miState* state, const miTag* list, int count, const LightCone* cone);

} // namespace stage
