// What the scene asks of the frame as a whole: demands of shader declarations, and features that the stage
// does not have yet.
#pragma once

#include <span>
#include <string>

#include "render/world.h"

namespace stage {

// Warns of an element with its name and place; of the same thing once for all frames of the scene.
void warn_once(Scene& scene, const Element& element, const std::string& text);

// Turns on the shadow mode and the tracing that the declarations of the scene's shaders demand. Where they
// differ the shadow mode that keeps most order wins: segments, sorted, simple.
void apply_demands(Scene& scene, miOptions& options);

// Throws SceneError, with the camera's name and place, unless `camera`, the one of the frame, can make a
// picture: of at most 2^28 pixels, with lengths above 0.
void check_camera(const Scene& scene, const RenderCommand& command, const miCamera& camera);

// Warns of everything that the scene asks for and the stage passes over, with its place. What equals the
// default, or what switches a missing feature off, asks for nothing. Files that the camera names are told of
// when `outputs` take their place.
void report_unsupported(const World& world, const RenderCommand& command,
                        std::span<const std::string> outputs);

} // namespace stage
