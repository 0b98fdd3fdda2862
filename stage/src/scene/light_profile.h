// Light profiles: how much light a lamp gives in each direction, as measured and written in files of the
// IESNA LM-63 format (editions of 1986 to 2019).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "shader.h"

namespace stage {

// A table of type C photometry. Angles in degrees, ascending: vertical ones from 0, straight down, to 180;
// horizontal ones about the vertical.
struct LightProfile {
    std::vector<float> vertical;   // at least two
    std::vector<float> horizontal; // a single 0: the same all around. Or 0 to 90, 180 or 360, or 90 to 270
    std::vector<float> candela;    // vertical.size() for each horizontal angle

    // Intensity in candela, bilinear between the angles of the table and 0 where it says nothing. The lamp
    // hangs along -z as a light does in its own space; horizontal angles turn from +x to +y. `dir` is where
    // the light goes, normalised.
    [[nodiscard]] float value(const miVector& dir) const;
};

// Reads such a file. Throws SceneError "name:line: what is wrong".
LightProfile read_light_profile(std::string_view text, const std::string& name);
LightProfile read_light_profile_file(const std::string& path);

} // namespace stage
