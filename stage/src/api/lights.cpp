// Light: samples of light sources, and what is known of them.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "api/api.h"
#include "api/unsupported.h"
#include "kit/matrix.h"
#include "render/shading.h"
#include "render/vector.h"

namespace stage {
namespace {

// The length of a ray from a light that has no position. Shadows and attenuation only need it to be longer
// than any scene.
constexpr double directional_distance = 1e7;

// ---- areas ----

struct SampleGrid {
    int u = 1, v = 1;
    [[nodiscard]] int count() const { return u * v; }
};

SampleGrid grid_of(const miLight& light, const miState* state) {
    switch (light.area) {
    case miLIGHT_RECTANGLE:
    case miLIGHT_DISC:
    case miLIGHT_SPHERE:
    case miLIGHT_CYLINDER:
        break;
    default:
        return {};
    }
    const bool low =
        light.low_level > 0 && state->reflection_level + state->refraction_level >= light.low_level;
    return {std::max<int>(low ? light.low_samples_u : light.samples_u, 1),
            std::max<int>(low ? light.low_samples_v : light.samples_v, 1)};
}

// Two directions that stand upright on a normalised one and on each other.
void upright_basis(const miVector& n, miVector& a, miVector& b) {
    const miVector other = std::fabs(n.x) < 0.5f ? miVector{1.0f, 0.0f, 0.0f} : miVector{0.0f, 1.0f, 0.0f};
    a = normalized(cross(other, n));
    b = cross(n, a);
}

miVector on_circle(const miVector& axis, float radius, float turn) {
    miVector a;
    miVector b;
    upright_basis(normalized(axis), a, b);
    const float angle = 2.0f * std::numbers::pi_v<float> * turn;
    return a * (radius * std::cos(angle)) + b * (radius * std::sin(angle));
}

// A point of the light's area, evenly spread over it, from its centre; s and t in [0, 1), light space.
miVector area_offset(const miLight& light, float s, float t) {
    const auto& area = light.primitive;
    switch (light.area) {
    case miLIGHT_RECTANGLE:
        return area.rectangle.edge_u * (2.0f * s - 1.0f) + area.rectangle.edge_v * (2.0f * t - 1.0f);
    case miLIGHT_DISC:
        return on_circle(area.disc.normal, area.disc.radius * std::sqrt(s), t);
    case miLIGHT_SPHERE: {
        const float z = 1.0f - 2.0f * s;
        const float r = area.sphere.radius * std::sqrt(std::max(0.0f, 1.0f - z * z));
        return on_circle({0.0f, 0.0f, 1.0f}, r, t) + miVector{0.0f, 0.0f, area.sphere.radius * z};
    }
    case miLIGHT_CYLINDER:
        return area.cylinder.axis * (2.0f * s - 1.0f) +
               on_circle(area.cylinder.axis, area.cylinder.radius, t);
    default:
        return {};
    }
}

// A random point of cell k of the light's grid.
miVector stratified_offset(ThreadContext& context, const miLight& light, const SampleGrid& grid, int k) {
    if (grid.count() == 1 && light.area == miLIGHT_NONE)
        return {};
    const float s = (static_cast<float>(k % grid.u) + context.next_random()) / static_cast<float>(grid.u);
    const float t = (static_cast<float>(k / grid.u) + context.next_random()) / static_cast<float>(grid.v);
    return area_offset(light, s, t);
}

// ---- the ray from a light ----

// Sets start, direction and length of the ray from the light to the state's point.
void aim(miState& state, const WorldLight& light, const miVector& offset) {
    const miLight& record = *light.light;
    Matrix blended;
    const Matrix& place =
        light.has_motion ? blend(light.to_internal, light.motion_to_internal, shutter_time(&state), blended)
                         : light.to_internal;
    if (record.type == miLIGHT_DIRECTION) {
        state.dir = normalized(transform_vector(record.direction, place.m));
        state.dist = directional_distance;
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
                    const miVector& offset) {
    ++context_of(state).statistics.light_samples;
    RayFrame& frame = new_ray(state, miRAY_LIGHT);
    const RayInFlight in_flight(frame);
    miState& ray = frame.state;
    ray.light_instance = light.instance;
    aim(ray, light, offset);
    ray.dot_nd = has_no_surface(state) ? 1.0f : -dot(ray.normal, ray.dir);
    *result = {};
    const miBoolean lit = call_shader(result, miSHADER_LIGHT, &ray, light.light->shader, nullptr);
    if (lit)
        apply_volume(result, &ray, lit);
    *dir = -ray.dir;
    *dot_nl = ray.dot_nd;
    return lit;
}

// ---- lights and groups of lights ----

// Calls `visit(light)` for a light instance, or for every light of a group, until it returns false.
template <class Visit> bool for_each_light(const World& world, miTag tag, const Visit& visit, int depth = 0) {
    constexpr int deepest = 64; // a deeper group contains itself
    if (const WorldLight* light = world.find_light(tag))
        return visit(*light);
    const Element* element = tag ? world.scene.database.find(tag) : nullptr;
    if (element && element->type == miSCENE_INSTANCE)
        element = world.scene.database.find(element->as<miInstance>()->item);
    if (!element || element->type != miSCENE_GROUP || depth > deepest)
        return true;
    const auto* group = element->as<miGroup>();
    for (int k = 0; k < group->no_kids; ++k)
        if (!for_each_light(world, group->kids[k], visit, depth + 1))
            return false;
    return true;
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
        const miVector offset = stage::stratified_offset(stage::context_of(state), *sample.light->light,
                                                         sample.grid, sample.cell);
        if (!stage::sample_at(result, dir, dot_nl, state, *sample.light, offset))
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

STAGE_API miScalar mi_lightprofile_value(miState*, miTag, miVector*) {
    static std::atomic<bool> reported{false};
    stage::report_unsupported(reported, __func__);
    return 0.0f;
}
