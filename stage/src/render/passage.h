// What a surface does to light that comes to it from behind.
#pragma once

#include "render/shading.h"

namespace stage {

enum class Passage { blocked, filtered, free };

// A surface blocks unless its material has a shadow shader or, without any material shader, only bounds a
// volume.
inline Passage passage(const Scene& scene, miTag material) {
    const MaterialSlots slots(scene, material);
    if (slots.is_opaque())
        return Passage::blocked;
    if (slots[miSHADER_SHADOW])
        return Passage::filtered;
    return slots[miSHADER_MATERIAL] ? Passage::blocked : Passage::free;
}

} // namespace stage
