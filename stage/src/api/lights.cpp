// Light: samples of light sources, and what is known of them.
#include <algorithm>
#include <cmath>

#include "api/api.h"
#include "api/light_groups.h"
#include "kit/matrix.h"
#include "render/shading.h"
#include "render/vector.h"
#include "scene/light_profile.h"

namespace stage {
namespace {

// ---- areas ----

struct SampleGrid {
    int u = 1, v = 1;
    [[nodiscard]] int count() const { return u * v; }
};

SampleGrid grid_of(const miLight& light, const miState* state) {
    if (light.area == miLIGHT_NONE)
        return {};
    const bool low =
        light.low_level > 0 && state->reflection_level + state->refraction_level >= light.low_level;
    return {std::max<int>(low ? light.low_samples_u : light.samples_u, 1),
            std::max<int>(low ? light.low_samples_v : light.samples_v, 1)};
}

// A sample of an area: its numbers in [0, 1), and the point that they mean, from the light's origin.
struct AreaSample {
    float s = 0.5f, t = 0.5f;
    miVector offset{};
};

// A random point of cell k of the light's grid.
AreaSample stratified_sample(ThreadContext& context, const WorldLight& light, const SampleGrid& grid, int k) {
    if (light.light->area == miLIGHT_NONE)
        return {};
    const int column = k % grid.u, row = k / grid.u;
    const float s = (static_cast<float>(column) + context.next_random()) / static_cast<float>(grid.u);
    const float t = (static_cast<float>(row) + context.next_random()) / static_cast<float>(grid.v);
    return {s, t, light.area->point(*light.light, s, t).offset};
}

// ---- the ray from a light ----

// Sets start, direction and length of the ray from the light to the state's point.
void aim(miState& state, const World& world, const WorldLight& light, const miVector& offset) {
    const miLight& record = *light.light;
    Matrix blended;
    const Matrix& place = place_at(light, shutter_time(&state), blended);
    if (record.type == miLIGHT_DIRECTION) {
        state.dir = normalized(transform_vector(record.direction, place.m));
        state.dist = world.way_from_afar(state.point, state.dir);
        if (record.dirlight_has_org) {
            const miVector origin = transform_point(record.origin + offset, place.m);
            const double from_plane = dot(state.point - origin, state.dir);
            if (from_plane > 0.0)
                state.dist = from_plane;
        }
        state.org = point_on_ray(state.point, state.dir, -state.dist);
        return;
    }
    state.org = transform_point(record.origin + offset, place.m);
    const miVector way = state.point - state.org;
    const double squared = double{way.x} * way.x + double{way.y} * way.y + double{way.z} * way.z;
    state.dist = std::sqrt(squared);
    state.dir = normalized(way);
}

// Where there is no surface, light comes from the front. A shader of a volume says so by clearing `pri`.
bool has_no_surface(const miState* state) {
    return !state->pri && (state->call_type == miSHADER_VOLUME || state->call_type == miSHADER_PHOTONVOL ||
                           state->call_type == miSHADER_LIGHT);
}

// Runs the light's shaders for a point of the light, then the volume of the ray from there. The light decides
// by itself about surfaces that look away and about shadows: nothing is left out before it has run.
miBoolean sample_at(miColor* result, miVector* dir, miScalar* dot_nl, miState* state, const WorldLight& light,
                    const AreaSample& sample) {
    ++context_of(state).statistics.light_samples;
    RayFrame& frame = new_ray(state, miRAY_LIGHT);
    const RayInFlight in_flight(frame);
    miState& ray = frame.state;
    ray.light_instance = light.instance;
    aim(ray, *context_of(state).world, light, sample.offset);
    // Such a light's shader chooses the point itself, by these numbers.
    if (light.light->area == miLIGHT_USER)
        ray.tex = {sample.s, sample.t, 0.0f};
    ray.dot_nd = has_no_surface(state) ? 1.0f : -dot(ray.normal, ray.dir);
    *result = {};
    const miBoolean lit = call_shader(result, miSHADER_LIGHT, &ray, light.light->shader, nullptr);
    if (lit)
        apply_volume(result, &ray, lit);
    *dir = -ray.dir;
    *dot_nl = ray.dot_nd;
    return lit;
}

// Sample `index` of all the samples that the lights behind a tag take together.
struct LightSample {
    const WorldLight* light = nullptr; // null: there is no such sample
    SampleGrid grid;
    int cell = 0;
    int total = 0; // samples of all lights
};

LightSample find_sample(const miState* state, miTag tag, int index) {
    LightSample found;
    for_each_light(*context_of(state).world, tag, [&](const WorldLight& light) {
        const SampleGrid grid = grid_of(*light.light, state);
        if (!found.light && index < found.total + grid.count()) {
            found.light = &light;
            found.grid = grid;
            found.cell = index - found.total;
        }
        found.total += grid.count();
        return true;
    });
    return found;
}

} // namespace
} // namespace stage

// The count rises also for samples that bring no light, so that dividing by it averages over the light's
// area. The lights of a group are to add up instead: their samples weigh as much more as the group takes more
// samples.
STAGE_API miBoolean mi_sample_light(miColor* result, miVector* dir, miScalar* dot_nl, miState* state,
                                    miTag light_inst, miInteger* samples) {
    for (;;) {
        const stage::LightSample sample = stage::find_sample(state, light_inst, *samples);
        if (!sample.light)
            return miFALSE;
        ++*samples;
        const stage::AreaSample point =
            stage::stratified_sample(stage::context_of(state), *sample.light, sample.grid, sample.cell);
        if (!stage::sample_at(result, dir, dot_nl, state, *sample.light, point))
            continue;
        if (sample.total != sample.grid.count()) {
            const miScalar weight =
                static_cast<miScalar>(sample.total) / static_cast<miScalar>(sample.grid.count());
            result->r *= weight;
            result->g *= weight;
            result->b *= weight;
        }
        return miTRUE;
    }
}

// The light's centre only, and of a group the first light that shines.
STAGE_API miBoolean mi_trace_light(miColor* result, miVector* dir, miScalar* dot_nl, miState* state,
                                   miTag light_inst) {
    bool lit = false;
    stage::for_each_light(*stage::context_of(state).world, light_inst, [&](const stage::WorldLight& light) {
        lit = stage::sample_at(result, dir, dot_nl, state, light, {}) != miFALSE;
        return !lit;
    });
    return lit ? miTRUE : miFALSE;
}

// The list is the frame's own and stays valid until its end.
STAGE_API miBoolean mi_global_lights_info(miState* state, int* count, miTag** lights) {
    const stage::World* world = stage::world_of(state);
    if (!world)
        return miFALSE;
    *count = static_cast<int>(world->light_tags.size());
    *lights = const_cast<miTag*>(world->light_tags.data());
    return miTRUE;
}

// In candela, for light that leaves in a direction of internal space; the profile hangs in the space of the
// state's light, along its -z. 0 without a profile or where its file was missing.
STAGE_API miScalar mi_lightprofile_value(miState* state, miTag profile, miVector* dir) {
    const stage::World* world = stage::world_of(state);
    const stage::Element* element = world ? world->scene.database.find(profile) : nullptr;
    if (!element || !element->profile)
        return 0.0f;
    const stage::WorldLight* light = world->find_light(state->light_instance);
    return element->profile->value(
        stage::normalized(light ? stage::transform_vector(*dir, light->from_internal.m) : *dir));
}
