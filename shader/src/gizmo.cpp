/*
 * Gizmos: their shapes, and reading them from the scene.
 */
#include "gizmo.h"

#include "host_random.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <iterator>
#include <limits>

namespace orl {

// ---- maps

miVector transform_vector(const AffineMap& map, const miVector& v) {
    const auto& m = map.element;
    return {v.x * m[0] + v.y * m[3] + v.z * m[6], v.x * m[1] + v.y * m[4] + v.z * m[7],
            v.x * m[2] + v.y * m[5] + v.z * m[8]};
}

miVector transform_point(const AffineMap& map, const miVector& point) {
    const auto& m = map.element;
    const miVector turned = transform_vector(map, point);
    return {turned.x + m[9], turned.y + m[10], turned.z + m[11]};
}

namespace {

// ---- intersections
// Conditions are such that what is not a number misses.

// To the ball around the origin, or to the endless cylinder when org and dir are flat. The point of the ray
// that is nearest to the centre keeps its digits however far away the ray begins.
bool clip_round(const miVector& org, const miVector& dir, float radius_squared, RaySpan& span) {
    constexpr float parallel = 1e-12f;
    const float squared = dot(dir, dir);
    if (squared < parallel)
        return dot(org, org) <= radius_squared;
    const float middle = -dot(org, dir) / squared;
    const miVector nearest = along(org, dir, middle);
    const float room = radius_squared - dot(nearest, nearest);
    if (!(room >= 0.0f))
        return false;
    const float half = std::sqrt(room / squared);
    span.enter = std::max(span.enter, middle - half);
    span.leave = std::min(span.leave, middle + half);
    return true;
}

// To what lies between two planes across an axis.
bool clip_slab(float org, float dir, float low, float high, RaySpan& span) {
    if (dir == 0.0f)
        return org >= low && org <= high;
    const float a = (low - org) / dir, b = (high - org) / dir;
    span.enter = std::max(span.enter, std::min(a, b));
    span.leave = std::min(span.leave, std::max(a, b));
    return !std::isnan(a) && !std::isnan(b);
}

bool clip_cylinder(const miVector& org, const miVector& dir, float radius_squared, float bottom, float top,
                   RaySpan& span) {
    return clip_round({org.x, org.y, 0.0f}, {dir.x, dir.y, 0.0f}, radius_squared, span) &&
           clip_slab(org.z, dir.z, bottom, top, span);
}

bool clip_shape(const Gizmo& gizmo, const miVector& org, const miVector& dir, RaySpan& span) {
    const auto& size = gizmo.size;
    switch (gizmo.shape) {
    case GizmoShape::sphere:
        return clip_round(org, dir, size[1], span);
    case GizmoShape::centred_cylinder:
        return clip_cylinder(org, dir, size[1], -size[3], size[3], span);
    case GizmoShape::box:
        return clip_slab(org.x, dir.x, -size[0], size[0], span) &&
               clip_slab(org.y, dir.y, -size[1], size[1], span) &&
               clip_slab(org.z, dir.z, -size[2], size[2], span);
    case GizmoShape::hemisphere:
        return clip_round(org, dir, size[1], span) && clip_slab(org.z, dir.z, 0.0f, size[0], span);
    case GizmoShape::standing_cylinder: {
        // Deliberate: nothing is seen straight along the axis, as in the host's fires.
        constexpr float along_the_axis = 1e-5f;
        return dir.x * dir.x + dir.y * dir.y >= along_the_axis &&
               clip_cylinder(org, dir, size[1], 0.0f, size[2], span);
    }
    case GizmoShape::none:
        break;
    }
    return false;
}

// ---- falloffs

// Also of what is not a number.
float at_most_1(float value) {
    return std::min(1.0f, value);
}

using Size = miScalar[4];

float sphere_falloff(const Size& size, float x, float y, float z) {
    return at_most_1(std::sqrt(x * x + y * y + z * z) / size[0]);
}

float cylinder_falloff(const Size& size, float x, float y, float z) {
    return at_most_1(std::max(std::sqrt(x * x + y * y) / size[0], std::fabs(z) / size[3]));
}

float standing_cylinder_falloff(const Size& size, float x, float y, float z) {
    return cylinder_falloff(size, x, y, z - size[3]);
}

float box_falloff(const Size& size, float x, float y, float z) {
    return at_most_1(
        std::max(std::max(std::fabs(x) / size[0], std::fabs(y) / size[1]), std::fabs(z) / size[2]));
}

float hemisphere_falloff(const Size& size, float x, float y, float z) {
    const float to_the_dome = (std::sqrt(x * x + y * y + z * z) - size[3]) / (size[0] - size[3]);
    const float to_the_ground = 1.0f - z / size[2];
    return at_most_1(std::max(0.0f, std::max(to_the_dome, to_the_ground)));
}

float no_falloff(const Size&, float, float, float) {
    return 1.0f;
}

using Falloff = float(const Size&, float, float, float);
using FalloffOfPoints = void(const Size&, const float*, const float*, const float*, int, float*);

template <Falloff& of_point>
void of_points(const Size& size, const float* x, const float* y, const float* z, int count, float* result) {
    for (int i = 0; i < count; ++i)
        result[i] = of_point(size, x[i], y[i], z[i]);
}

FalloffOfPoints* falloff_of(GizmoShape shape) {
    switch (shape) {
    case GizmoShape::sphere:
        return of_points<sphere_falloff>;
    case GizmoShape::centred_cylinder:
        return of_points<cylinder_falloff>;
    case GizmoShape::box:
        return of_points<box_falloff>;
    case GizmoShape::hemisphere:
        return of_points<hemisphere_falloff>;
    case GizmoShape::standing_cylinder:
        return of_points<standing_cylinder_falloff>;
    case GizmoShape::none:
        break;
    }
    return of_points<no_falloff>;
}

} // namespace

bool clip(const Gizmo& gizmo, const miVector& org, const miVector& dir, RaySpan& span) {
    return clip_shape(gizmo, org, dir, span) && span.leave > span.enter;
}

float falloff(const Gizmo& gizmo, const miVector& point) {
    float result;
    falloff(gizmo, &point.x, &point.y, &point.z, 1, &result);
    return result;
}

void falloff(const Gizmo& gizmo, const float* x, const float* y, const float* z, int count, float* result) {
    falloff_of(gizmo.shape)(gizmo.size, x, y, z, count, result);
}

// ---- rays

bool world_ray(miState* state, WorldRay& ray) {
    constexpr float nowhere = 1e9f, afar = 1e5f;
    mi_point_to_world(state, &ray.org, &state->org);
    ray.end = ray.org;
    if (state->dist > 0.0) {
        mi_point_to_world(state, &ray.end, &state->point);
        ray.dir = {ray.end.x - ray.org.x, ray.end.y - ray.org.y, ray.end.z - ray.org.z};
    } else {
        mi_vector_to_world(state, &ray.dir, &state->dir);
    }
    const float length = std::sqrt(dot(ray.dir, ray.dir));
    if (!(length > 0.0f) || !std::isfinite(length))
        return false;
    ray.length = state->dist > 0.0 ? length : nowhere;
    ray.dir = {ray.dir.x / length, ray.dir.y / length, ray.dir.z / length};
    ray.from_afar = state->type == miRAY_LIGHT && state->dist > 0.0 && length > afar;
    return true;
}

namespace {

// Light from afar counts within 10000 units of where it falls: from there on its way is known to a
// thousandth.
WorldRay near_its_end(const WorldRay& ray) {
    constexpr float reach = 1e4f;
    WorldRay rest = ray;
    rest.org = along(ray.end, ray.dir, -reach);
    rest.length = reach;
    rest.from_afar = false;
    return rest;
}

} // namespace

bool pass_through_gizmo(const Gizmo& gizmo, const WorldRay& ray, GizmoPassage& passage) {
    if (gizmo.shape == GizmoShape::none)
        return false;
    if (ray.from_afar)
        return pass_through_gizmo(gizmo, near_its_end(ray), passage);
    const miVector org = transform_point(gizmo.to_gizmo, ray.org);
    const miVector dir = transform_vector(gizmo.to_gizmo, ray.dir);
    const float scale = std::sqrt(dot(dir, dir));
    if (!(scale > 0.0f))
        return false;
    passage.dir = {dir.x / scale, dir.y / scale, dir.z / scale};
    RaySpan span{0.0f, ray.length * scale};
    if (!clip(gizmo, org, passage.dir, span))
        return false;
    passage.start = along(org, passage.dir, span.enter);
    passage.length = span.leave - span.enter;
    return true;
}

// ---- reading gizmos

namespace {

// A size that is not positive, or no number, leaves no space.
bool fills_space(std::initializer_list<miScalar> sizes) {
    return std::all_of(sizes.begin(), sizes.end(), [](miScalar size) {
        return size > 0.0f && size <= std::numeric_limits<miScalar>::max();
    });
}

bool copy_map(miState* state, miQ_type query, miTag node, AffineMap& map) {
    const miScalar* m = nullptr;
    if (!mi_query(query, state, node, &m) || m == nullptr)
        return false;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 3; ++column)
            map.element[3 * row + column] = m[4 * row + column];
    return std::all_of(std::begin(map.element), std::end(map.element),
                       [](miScalar e) { return std::isfinite(e); });
}

bool is_singular(const AffineMap& map) {
    const auto& m = map.element;
    const double determinant = m[0] * (double{m[4]} * m[8] - double{m[5]} * m[7]) -
                               m[1] * (double{m[3]} * m[8] - double{m[5]} * m[6]) +
                               m[2] * (double{m[3]} * m[7] - double{m[4]} * m[6]);
    return determinant == 0.0;
}

// The record on the node; null for a tag that is no instance, or whose data is no gizmo.
const orl_GizmoData* gizmo_data(miState* state, miTag node) {
    miTag data = miNULLTAG;
    const void* record = nullptr;
    int size = 0;
    if (!mi_query(miQ_INST_DATA, state, node, &data) || data == miNULLTAG ||
        !mi_query(miQ_DATA_PARAM_SIZE, state, data, &size) ||
        size < static_cast<int>(sizeof(orl_GizmoData)) || !mi_query(miQ_DATA_PARAM, state, data, &record) ||
        record == nullptr)
        return nullptr;
    const auto* const gizmo = static_cast<const orl_GizmoData*>(record);
    return gizmo->kind >= orl_gizmo_sphere && gizmo->kind <= orl_gizmo_hemisphere ? gizmo : nullptr;
}

// The matrices are those of the node's instance, so that whoever moves the gizmo in a scene moves what is in
// it, and no inverse has to be written by hand. A renderer keeps each instance's matrices relative to the
// group that it is in: gizmos belong into the root group.
bool read_gizmo(miState* state, miTag node, const GizmoUse& use, Gizmo& gizmo) {
    const orl_GizmoData* const data = gizmo_data(state, node);
    if (data == nullptr)
        return false;
    gizmo = shape_gizmo(*data, use);
    const bool placed = copy_map(state, miQ_INST_GLOBAL_TO_LOCAL, node, gizmo.to_gizmo) &&
                        copy_map(state, miQ_INST_LOCAL_TO_GLOBAL, node, gizmo.to_world) &&
                        !is_singular(gizmo.to_gizmo);
    if (!placed)
        gizmo.shape = GizmoShape::none;
    return placed;
}

} // namespace

Gizmo shape_gizmo(const orl_GizmoData& data, const GizmoUse& use) {
    Gizmo gizmo{};
    // Three numbers up to about 1000, of a generator of its own for each gizmo.
    HostRandom random(static_cast<miUint>(data.seed));
    const auto draw = [&random] { return static_cast<miScalar>(random()) * 3.051851e-5f * 1000.0f; };
    gizmo.noise_offset.x = draw() + use.noise_shift.x;
    gizmo.noise_offset.y = draw() + use.noise_shift.y;
    gizmo.noise_offset.z = draw() + use.noise_shift.z;

    auto& size = gizmo.size;
    const auto set = [&](GizmoShape shape, std::initializer_list<miScalar> sizes) {
        gizmo.shape = fills_space(sizes) ? shape : GizmoShape::none;
        std::copy(sizes.begin(), sizes.end(), size);
    };
    const miScalar radius = data.radius * use.growth;
    switch (data.kind) {
    case orl_gizmo_sphere:
        set(GizmoShape::sphere, {radius, radius * radius});
        break;
    case orl_gizmo_cylinder:
        set(use.cylinder, {radius, radius * radius, data.height, data.height * 0.5f});
        break;
    case orl_gizmo_box:
        set(GizmoShape::box, {data.size_x * use.growth * 0.5f, data.size_y * use.growth * 0.5f,
                              data.size_z * use.growth * 0.5f});
        break;
    case orl_gizmo_hemisphere:
        // What fills a half ball keeps to its middle: above a layer over the ground, below one under the
        // dome.
        set(GizmoShape::hemisphere, {radius, radius * radius, radius * 0.2f, radius * 0.4f});
        break;
    default:
        break;
    }
    return gizmo;
}

Gizmo* read_gizmos(miState* state, const ArraySpan<miTag>& nodes, const GizmoUse& use) {
    const miInteger count = nodes.size();
    if (count == 0)
        return nullptr;
    mi_lock(state->global_lock);
    auto* const gizmos = static_cast<Gizmo*>(mi_mem_int_allocate(
        "gizmo", __LINE__, static_cast<miUint>(count) * static_cast<miUint>(sizeof(Gizmo))));
    mi_unlock(state->global_lock);
    bool all_read = true;
    for (miInteger k = 0; k < count; ++k) {
        const miTag node = nodes[k];
        new (&gizmos[k]) Gizmo{};
        if (node != miNULLTAG && !read_gizmo(state, node, use, gizmos[k]))
            all_read = false;
    }
    if (!all_read)
        mi_error("\"%s\": a gizmo has no gizmo data, or a transform without an inverse", shader_name(state));
    return gizmos;
}

void release_gizmos(Gizmo* gizmos) {
    if (gizmos != nullptr)
        mi_mem_int_release("gizmo", __LINE__, gizmos);
}

} // namespace orl
