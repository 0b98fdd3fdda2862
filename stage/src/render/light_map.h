// Light maps: shaders of materials that look at every vertex of their surfaces before the picture is
// rendered, and write what they find into textures.
#pragma once

namespace stage {

class Renderer;

// Runs the light maps of the frame, once its photons are there. A light map is a shader in the `lightmap`
// slot of materials; it is called for the vertices of all triangles that have it, then in mesh mode for each
// instance. One thread does everything in the order of the instances: light maps write while they are asked
// for a vertex, and may look up what an earlier one has written. False when the frame was stopped.
bool run_light_maps(Renderer& renderer);

} // namespace stage
