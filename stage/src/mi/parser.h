// Reads the renderer's scene language into a Scene.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "scene/scene.h"

namespace stage {

// Called for each `render` statement, while the file is being read, with everything before it in the scene.
using RenderHandler = std::function<void(Scene& scene, const RenderCommand& command)>;

// Reads a file. Throws SceneError at the first mistake; what was read before it stays in the scene.
void parse_file(Scene& scene, const std::string& path, const RenderHandler& on_render);

// Reads text, for tests; `name` stands for the file in messages and relative paths start at `folder`.
void parse_text(Scene& scene, std::string_view text, const std::string& name, const RenderHandler& on_render,
                const std::string& folder = ".");

} // namespace stage
