// What options are before anything is said.
#include "scene/scene.h"

namespace stage {

miOptions default_options() {
    miOptions o{};
    o.trace = miTRUE;
    o.reflection_depth = o.refraction_depth = o.trace_depth = 1;
    o.min_samples = -2;
    o.contrast = {0.1f, 0.1f, 0.1f, 0.1f};
    o.samplelock = miTRUE;
    o.time_contrast = {0.2f, 0.2f, 0.2f, 0.2f};
    o.caustic_accuracy = o.globillum_accuracy = o.photonvol_accuracy = 100;
    o.caustic_filter_const = 1.1f;
    o.filter_size_x = o.filter_size_y = 1.0f;
    o.jitter = 1.0f;
    o.def_min_samples = -128;
    o.def_max_samples = 127;
    o.space_max_size = 4;
    o.space_max_depth = 40;
    o.visible_lights = miTRUE;
    o.render_space = 'o';
    o.gamma = 1.0f;
    o.luminance_weight = {0.299f, 0.587f, 0.114f, 0.0f}; // ITU-R BT.601
    o.shadow = 1;
    o.face = 'a';
    o.filter = 'b';
    o.finalgather_rays = 64;
    o.photon_reflection_depth = o.photon_refraction_depth = o.photon_trace_depth = 5;
    return o;
}

} // namespace stage
