// The matrices that lead from internal space to the spaces of a state and back.
#pragma once

#include "render/context.h"

namespace stage {

struct Space {
    const miScalar* to;   // from internal space
    const miScalar* from; // back to internal space
};

Space world_space(const miState* state);
Space camera_space(const miState* state);

// Where the matrices of an instance that moves are put.
struct MovingSpace {
    Matrix to, from;
};
// Of the light instance of the state, at the state's time; internal space when there is none.
Space light_space(const miState* state, MovingSpace& storage);
// Of the instance that the state stands on, at the state's time; internal space when there is none.
Space object_space(const miState* state, MovingSpace& storage);

} // namespace stage
