// Lights and groups of lights: what a tag that a shader asks with stands for.
#pragma once

#include "render/world.h"

namespace stage {

// Calls `visit(light)` for a light instance, for every instance of a light, or for every light of a group,
// until it returns false.
template <class Visit> bool for_each_light(const World& world, miTag tag, const Visit& visit, int depth = 0) {
    constexpr int deepest = 64; // a deeper group contains itself
    if (const WorldLight* light = world.find_light(tag))
        return visit(*light);
    const Element* element = tag ? world.scene.database.find(tag) : nullptr;
    if (element && element->type == miSCENE_INSTANCE)
        element = world.scene.database.find(element->as<miInstance>()->item);
    else if (element && element->type == miSCENE_LIGHT)
        return std::all_of(world.lights.begin(), world.lights.end(),
                           [&](const WorldLight& light) { return light.light_tag != tag || visit(light); });
    if (!element || element->type != miSCENE_GROUP || depth > deepest)
        return true;
    const auto* group = element->as<miGroup>();
    for (int k = 0; k < group->no_kids; ++k)
        if (!for_each_light(world, group->kids[k], visit, depth + 1))
            return false;
    return true;
}

} // namespace stage
