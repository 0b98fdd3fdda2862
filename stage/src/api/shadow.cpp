// Shadows: what light loses on its way to the point that it illuminates.
//
// Hits are looked for from the point towards the light, where the direction is exact also for lights that
// stand very far away or nowhere.
#include <algorithm>

#include "api/api.h"
#include "kit/color.h"
#include "render/passage.h"
#include "render/vector.h"

namespace stage {
namespace {

// Values of miOptions::shadow; every other one is the simple mode, whose order does not matter.
constexpr int shadows_off = 0, shadows_sorted = 'l', shadows_in_segments = 's';

// Of the way to the light, so that the light's own place does not count.
constexpr double nearly_all = 1.0 - 1e-6;

miBoolean block(miColor* result) {
    *result = {};
    return miFALSE;
}

// Runs the shadow shader of the state's material.
miBoolean filter(miColor* result, miState* state) {
    const miTag shader = material_slot(context_of(state).world->scene, state->material, miSHADER_SHADOW);
    if (!call_shader(result, miSHADER_SHADOW, state, shader, nullptr) || is_black(*result))
        return block(result);
    return miTRUE;
}

// ---- simple and sorted ----

// The surfaces between a point and its light, one after the other.
class Way {
public:
    explicit Way(const miState* light)
        : context_(context_of(light)), light_(light), towards_(-light->dir), step_(start_distance(light)),
          near_(std::max(step_, light->shadow_tol)) {}

    // Finds the next surface that does not let all light through. False when there is none.
    bool next(miRc_intersection& hit, Passage& kind) {
        const double far = light_->dist * nearly_all;
        while (near_ < far) {
            ++context_.statistics.shadow_rays;
            const FamilyScope time(context_.statistics, Family::ray_casting);
            if (!context_.world->intersect(light_->point, towards_, near_, far, shutter_time(light_),
                                           static_cast<std::uint32_t>(RayMask::shadow), hit))
                return false;
            near_ = hit.distance + std::max(step_, hit.distance * 1e-6);
            const WorldInstance& instance = context_.world->instances[hit.instance];
            if (!instance.casts_shadow_of(light_->light_instance))
                continue;
            kind = passage(context_.world->scene, instance.material_of(hit.triangle));
            if (kind != Passage::free)
                return true;
        }
        return false;
    }

private:
    ThreadContext& context_;
    const miState* light_;
    miVector towards_;
    double step_, near_;
};

// The shadow shader at a hit sees the ray that comes from the light.
miBoolean filter_at(miColor* result, miState* light, const miRc_intersection& hit) {
    RayFrame& frame = new_ray(light, miRAY_SHADOW);
    const RayInFlight in_flight(frame);
    frame.hit = hit;
    frame.hit.distance = light->dist - hit.distance;
    set_intersection(frame, true);
    return filter(result, &frame.state);
}

// Where every surface blocks, one is enough, whichever it is.
miBoolean trace_to_any(miColor* result, const miState* light) {
    ThreadContext& context = context_of(light);
    const double near = std::max(start_distance(light), light->shadow_tol);
    const double far = light->dist * nearly_all;
    if (near >= far)
        return miTRUE;
    ++context.statistics.shadow_rays;
    const FamilyScope time(context.statistics, Family::ray_casting);
    return context.world->occluded(light->point, -light->dir, near, far, shutter_time(light),
                                   static_cast<std::uint32_t>(RayMask::shadow))
               ? block(result)
               : miTRUE;
}

miBoolean trace_simple(miColor* result, miState* light) {
    Way way(light);
    miRc_intersection hit;
    Passage kind;
    while (way.next(hit, kind))
        if (kind == Passage::blocked || !filter_at(result, light, hit))
            return block(result);
    return miTRUE;
}

struct Occluder {
    miRc_intersection hit;
    const Occluder* nearer_to_point;
};

// All surfaces are found first, so that nothing is shaded where the light is blocked anyway.
miBoolean trace_sorted(miColor* result, miState* light) {
    Arena& arena = context_of(light).arena;
    new_ray(light, miRAY_SHADOW); // its memory is to outlive the list
    const ArenaScope scope(arena);
    const Occluder* nearest_to_light = nullptr;
    Way way(light);
    miRc_intersection hit;
    Passage kind;
    while (way.next(hit, kind)) {
        if (kind == Passage::blocked)
            return block(result);
        nearest_to_light =
            new (arena.allocate(sizeof(Occluder), alignof(Occluder))) Occluder{hit, nearest_to_light};
    }
    for (const Occluder* o = nearest_to_light; o; o = o->nearer_to_point)
        if (!filter_at(result, light, o->hit))
            return miFALSE;
    return miTRUE;
}

// ---- segments ----

// Casts to the next surface that casts the light's shadow; the others are as if they were not there.
bool cast_shadow_ray(RayFrame& frame, double near, double far) {
    const World& world = *context_of(&frame.state).world;
    while (cast(frame, near, far, RayMask::shadow)) {
        if (world.instances[frame.hit.instance].casts_shadow_of(frame.state.light_instance))
            return true;
        near = frame.hit.distance + std::max(start_distance(&frame.state), frame.hit.distance * 1e-6);
    }
    return false;
}

// One piece of the way from the point to the light, of which `remaining` is left: up to the next surface,
// whose shader goes on from there by itself, or to the light. Volumes act on each piece.
miBoolean trace_segment(miColor* result, miState* from, const miState& light, double near, double remaining,
                        miTag volume) {
    RayFrame& frame = new_ray(from, miRAY_SHADOW);
    const RayInFlight in_flight(frame);
    miState& state = frame.state;
    state.org = from->point;
    state.dir = -light.dir;
    state.volume = volume;
    const World& world = *context_of(from).world;
    ++context_of(from).statistics.shadow_rays;
    if (!cast_shadow_ray(frame, near, remaining * nearly_all)) {
        state.dist = remaining;
        state.point = light.org;
    } else {
        switch (passage(world.scene, state.material)) {
        case Passage::blocked:
            return block(result);
        case Passage::filtered:
            if (!filter(result, &state))
                return miFALSE;
            break;
        case Passage::free:
            if (!trace_segment(result, &state, light, start_distance(&state), remaining - state.dist,
                               volume_behind(&state)))
                return miFALSE;
            break;
        }
    }
    apply_volume(result, &state, miTRUE);
    return is_black(*result) ? block(result) : miTRUE;
}

} // namespace
} // namespace stage

using stage::operator-;

STAGE_API miBoolean mi_trace_shadow(miColor* result, miState* state) {
    const miOptions& options = *state->options;
    const stage::WorldInstance* surface = stage::instance_of(state);
    if (options.shadow == stage::shadows_off || !options.trace || (surface && !surface->receives_shadow))
        return miTRUE;
    if (options.shadow != stage::shadows_in_segments && stage::context_of(state).world->all_block)
        return stage::trace_to_any(result, state);
    if (options.shadow == stage::shadows_sorted)
        return stage::trace_sorted(result, state);
    if (options.shadow != stage::shadows_in_segments)
        return stage::trace_simple(result, state);
    const double near = std::max(stage::start_distance(state), state->shadow_tol);
    const miBoolean lit = stage::trace_segment(result, state, *state, near, state->dist, state->volume);
    // The volumes have acted, piece by piece; the light ray as a whole has none any more.
    state->volume = miNULLTAG;
    return lit;
}

STAGE_API miBoolean mi_trace_shadow_seg(miColor* result, miState* state) {
    const miState* light = state;
    while (light && light->type == miRAY_SHADOW)
        light = light->parent;
    if (!light || state->options->shadow != stage::shadows_in_segments)
        return miTRUE;
    const double passed = stage::dot(state->point - light->point, state->dir);
    return stage::trace_segment(result, state, *light, stage::start_distance(state), light->dist - passed,
                                state->refraction_volume);
}
