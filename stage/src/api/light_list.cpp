#include "api/light_list.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "api/api.h"
#include "api/light_groups.h"
#include "kit/matrix.h"
#include "render/vector.h"

namespace stage {
namespace {

class Lights final : public mi::shader_v3::LightList {
public:
    Lights(const miTag* lights, int count) : lights_(lights), count_(count) {}
    int get_count() const override { return count_; }
    const miTag* get_lights() const override { return lights_; }

private:
    const miTag* lights_;
    int count_;
};

// How far the light reaches from its origin, internal space.
float reach_of(const WorldLight& light) {
    const miScalar* m = light.to_internal.m;
    const float scale = std::sqrt(
        std::max({dot({m[0], m[1], m[2]}, {m[0], m[1], m[2]}), dot({m[4], m[5], m[6]}, {m[4], m[5], m[6]}),
                  dot({m[8], m[9], m[10]}, {m[8], m[9], m[10]})}));
    return light.area->reach * scale;
}

// The cone and the ball about the light, as seen from the point, have a direction in common.
bool is_within(const WorldLight& light, const miVector& point, const LightCone& cone) {
    const miLight& record = *light.light;
    if (record.type == miLIGHT_DIRECTION)
        return dot(normalized(transform_vector(record.direction, light.to_internal.m)), cone.axis) <=
               -cone.cosine;
    const miVector way = transform_point(record.origin, light.to_internal.m) - point;
    const float distance = length(way), reach = reach_of(light);
    if (distance <= reach)
        return true;
    const float off = std::acos(std::clamp(dot(way, cone.axis) / distance, -1.0f, 1.0f));
    return off <= std::acos(std::clamp(cone.cosine, -1.0f, 1.0f)) + std::asin(reach / distance);
}

} // namespace

mi::shader_v3::LightList* light_list_of(miState* state, const miTag* list, int count, const LightCone* cone) {
    const World* world = world_of(state);
    if (!world)
        return nullptr;
    Arena& arena = context_of(state).arena;
    const WorldInstance* instance = current_instance(state);
    const std::span<const miTag> usual = instance ? instance->lights : std::span(world->light_tags);
    const bool own = list && count > 0;
    if (!own && !cone)
        return new (arena.allocate(sizeof(Lights), alignof(Lights)))
            Lights(usual.data(), static_cast<int>(usual.size()));

    const std::span<const miTag> asked = own ? std::span(list, static_cast<std::size_t>(count)) : usual;
    const auto visit_all = [&](const auto& visit) {
        for (const miTag tag : asked)
            for_each_light(*world, tag, [&](const WorldLight& light) {
                if (!cone || is_within(light, state->point, *cone))
                    visit(light.instance);
                return true;
            });
    };
    int found = 0;
    visit_all([&](miTag) { ++found; });
    auto* tags = static_cast<miTag*>(
        arena.allocate(sizeof(miTag) * static_cast<std::size_t>(std::max(found, 1)), alignof(miTag)));
    miTag* next = tags;
    visit_all([&](miTag tag) { *next++ = tag; });
    return new (arena.allocate(sizeof(Lights), alignof(Lights))) Lights(tags, found);
}

} // namespace stage
