#include "render/light_lists.h"

#include <unordered_set>

#include "render/world.h"

namespace stage {
namespace {

// The tag and all that groups behind it contain.
void add_names(const Database& database, miTag tag, std::unordered_set<miTag>& names) {
    if (!names.insert(tag).second)
        return;
    const Element* element = database.find(tag);
    if (element && element->type == miSCENE_INSTANCE) {
        const miTag item = element->as<miInstance>()->item;
        if (database.record<miGroup>(item, miSCENE_GROUP))
            add_names(database, item, names);
    } else if (element && element->type == miSCENE_GROUP) {
        const auto* group = element->as<miGroup>();
        for (int k = 0; k < group->no_kids; ++k)
            add_names(database, group->kids[k], names);
    }
}

} // namespace

std::span<const miTag> LightLists::find(const World& world, std::span<const miTag> tags, bool exclusive) {
    const auto [known, is_new] = known_.try_emplace({tags.data(), exclusive});
    if (!is_new)
        return known->second;
    std::unordered_set<miTag> names;
    for (const miTag tag : tags)
        add_names(world.scene.database, tag, names);
    for (const WorldLight& light : world.lights)
        if ((names.contains(light.instance) || names.contains(light.placed) ||
             names.contains(light.light_tag)) != exclusive)
            known->second.push_back(light.instance);
    return known->second;
}

} // namespace stage
