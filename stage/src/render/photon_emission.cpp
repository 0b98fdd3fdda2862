// Photons of lights: sent by an emitter, or by the light's kind and shape.
#include "render/photon_emission.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kit/matrix.h"
#include "render/hemisphere.h"
#include "render/light_area.h"
#include "render/photon_path.h"
#include "render/shading.h"
#include "render/vector.h"

namespace stage {

namespace {

// ---- directions, in light space; numbers in [0, 1)

miVector about(const miVector& axis, float across, float along, float turn) {
    const miVector other = std::fabs(axis.x) < 0.5f ? miVector{1.0f, 0.0f, 0.0f} : miVector{0.0f, 1.0f, 0.0f};
    const miVector a = normalized(cross(other, axis)), b = cross(axis, a);
    const float angle = two_pi * turn;
    return a * (across * std::cos(angle)) + b * (across * std::sin(angle)) + axis * along;
}

// Evenly over the cap of directions whose cosine with the axis is above `least`.
miVector in_cap(const miVector& axis, float least, float u, float v) {
    const float down = u * (1.0f - least);
    return about(axis, std::sqrt(std::max(0.0f, down * (2.0f - down))), 1.0f - down, v);
}

// As many as a matt surface sends.
miVector over_surface(const miVector& normal, float u, float v) {
    return about(normal, std::sqrt(u), std::sqrt(1.0f - u), v);
}

// The numbers of an emission: well spread over all photons of the light.
struct Numbers {
    double place[2], direction[2], side;

    explicit Numbers(miState* state) {
        mi_sample(place, nullptr, state, 2, nullptr);
        mi_sample(direction, nullptr, state, 2, nullptr);
        mi_sample(&side, nullptr, state, 1, nullptr);
    }
};

// A light without a place shines on the whole scene from outside of it.
void aim_from_afar(miState* state, const WorldLight& light, const SceneSphere& scene, const Numbers& n) {
    const miVector across = about(light.light->direction, std::sqrt(static_cast<float>(n.place[0])), 0.0f,
                                  static_cast<float>(n.place[1]));
    // Light spaces may be scaled: the directions are, the disc is not.
    const miVector turned = normalized(transform_vector(across, light.to_internal.m));
    state->dir = normalized(transform_vector(light.light->direction, light.to_internal.m));
    state->org = scene.centre + turned * (length(across) * scene.radius) - state->dir * scene.radius;
}

// Where the shader of a `user` area puts the sample of those numbers: it is asked as if light were to go from
// there to the middle of the scene. Internal space.
miVector place_by_shader(miState* state, const WorldLight& light, const SceneSphere& scene,
                         const Numbers& n) {
    RayFrame& frame = new_ray(state, miRAY_LIGHT);
    const RayInFlight in_flight(frame);
    miState& ray = frame.state;
    ray.light_instance = light.instance;
    ray.point = scene.centre;
    ray.org = transform_point(light.light->origin, light.to_internal.m);
    ray.dir = normalized(ray.point - ray.org);
    ray.dist = length(ray.point - ray.org);
    ray.tex = {static_cast<float>(n.place[0]), static_cast<float>(n.place[1]), 0.0f};
    miColor unused{};
    call_shader(&unused, miSHADER_LIGHT, &ray, light.light->shader, nullptr);
    return ray.org;
}

void aim(miState* state, const WorldLight& light, const SceneSphere& scene) {
    const miLight& record = *light.light;
    const Numbers n(state);
    if (record.type == miLIGHT_DIRECTION && record.area == miLIGHT_NONE)
        return aim_from_afar(state, light, scene, n);
    const auto u = static_cast<float>(n.direction[0]), v = static_cast<float>(n.direction[1]);
    const AreaPoint from =
        light.area->point(record, static_cast<float>(n.place[0]), static_cast<float>(n.place[1]));
    miVector dir;
    if (record.type == miLIGHT_DIRECTION)
        dir = record.direction;
    else if (record.type == miLIGHT_SPOT)
        dir = in_cap(record.direction, record.spread, u, v);
    else if (length(from.normal) > 0.0f)
        dir = over_surface(from.two_sided && n.side < 0.5 ? -from.normal : from.normal, u, v);
    else
        dir = in_cap({0.0f, 0.0f, 1.0f}, -1.0f, u, v);
    state->org = record.area == miLIGHT_USER
                     ? place_by_shader(state, light, scene, n)
                     : transform_point(record.origin + from.offset, light.to_internal.m);
    state->dir = normalized(transform_vector(dir, light.to_internal.m));
}

} // namespace

SceneSphere sphere_about(const World& world) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    miVector low{infinity, infinity, infinity}, high = -low;
    for (const WorldInstance& instance : world.instances) {
        const miTriangles& t = *instance.triangles;
        for (std::size_t i = 0; i < t.vertex_count; ++i) {
            const float* v = t.vertices + i * static_cast<std::size_t>(t.vertex_stride);
            const miVector p = transform_point(transform_point({v[0], v[1], v[2]}, instance.to_internal.m),
                                               world.internal_to_world.m);
            low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
        }
    }
    if (!(low.x <= high.x))
        return {};
    return {transform_point((low + high) * 0.5f, world.world_to_internal.m), 0.5f * length(high - low)};
}

miTag emitter_of(const Scene& scene, const miLight& light) {
    if (light.emitter)
        return light.emitter;
    const Element* shader = scene.database.find(light.shader);
    const bool emits = shader && shader->shader && shader->shader->declaration &&
                       ((shader->shader->declaration->apply >> miSHADER_PHOTONEMIT) & 1u);
    return emits ? light.shader : miNULLTAG;
}

void emit_photon(miState* state, const WorldLight& light, miTag emitter, const SceneSphere& scene) {
    const miLight& record = *light.light;
    miColor energy = record.energy;
    if (emitter) {
        state->org = transform_point(record.origin, light.to_internal.m);
        state->dir = normalized(transform_vector(record.direction, light.to_internal.m));
        state->point = state->org;
        call_shader(&energy, miSHADER_PHOTONEMIT, state, emitter, nullptr);
        return;
    }
    aim(state, light, scene);
    send_photon_from_light(energy, state);
}

} // namespace stage
