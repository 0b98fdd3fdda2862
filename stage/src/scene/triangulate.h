// Cuts polygons into triangles.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace stage {

// One closed line of a polygon: the outline or a hole, as indices into a list of points.
using Outline = std::vector<std::uint32_t>;

// Triangles of a plane polygon, three entries of `result` each, in the direction of the outline. The first
// outline is the border, the others are holes in any direction. `point` gives three floats of a corner.
// Polygons that are not quite plane are cut as they look along their mean normal; those that cross
// themselves give some triangles, never an endless loop. Time grows with the square of the corners.
//
// Method: holes are joined to the border by bridges, then ears are cut off (David Eberly, "Triangulation by
// Ear Clipping", 2002).
void triangulate(std::span<const Outline> outlines, const float* points, std::size_t point_stride,
                 std::vector<std::uint32_t>& result);

} // namespace stage
