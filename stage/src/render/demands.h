// What the scene asks of the frame as a whole: demands of shader declarations, and features that the stage
// does not have yet.
#pragma once

#include "scene/scene.h"

namespace stage {

// Turns on the shadow mode that the declarations of the scene's shaders demand. Where they differ the one
// that keeps most order wins: segments, sorted, simple.
void apply_shadow_demands(const Database& database, miOptions& options);

// Warns of everything that the scene asks for and the stage passes over, with its place.
void report_unsupported(const Database& database, const miOptions& options);

} // namespace stage
