// Fills a state from the triangle that its ray hit.
#include <algorithm>

#include "render/shading.h"
#include "render/vector.h"

namespace stage {

namespace {

Lanes placed_point(const Matrix& place, const miVector& v) {
    const miScalar* m = place.m;
    return load_four(m) * v.x + load_four(m + 4) * v.y + load_four(m + 8) * v.z + load_four(m + 12);
}

miVector placed_normal(const Matrix& cofactors, const miVector& n) {
    const miScalar* m = cofactors.m;
    return vector_of(load_four(m) * n.x + load_four(m + 4) * n.y + load_four(m + 8) * n.z);
}

// The corners of a hit triangle and the weights of the hit point.
struct Corners {
    const miTriangles* triangles;
    const float* vertex[3];
    float weight[3];

    Corners(const miTriangles& t, const miRc_intersection& hit) : triangles(&t) {
        for (int k = 0; k < 3; ++k)
            vertex[k] = t.vertices +
                        std::size_t{t.indices[3 * std::size_t{hit.triangle} + static_cast<std::size_t>(k)]} *
                            static_cast<std::size_t>(t.vertex_stride);
        weight[0] = 1.0f - hit.u - hit.v;
        weight[1] = hit.u;
        weight[2] = hit.v;
    }

    [[nodiscard]] miVector at(int corner, int offset) const {
        const float* v = vertex[corner] + offset;
        return {v[0], v[1], v[2]};
    }
    [[nodiscard]] miVector interpolate(int offset) const {
        return at(0, offset) * weight[0] + at(1, offset) * weight[1] + at(2, offset) * weight[2];
    }
};

// Turns both normals towards the start of the ray. The geometric one decides which side was hit; a smooth
// normal that looks away nevertheless, as happens near outlines, is bent until it is perpendicular to the
// ray.
void face_ray(miState& state) {
    state.inv_normal = dot(state.normal_geom, state.dir) > 0.0f;
    if (state.inv_normal) {
        state.normal_geom = -state.normal_geom;
        state.normal = -state.normal;
    }
    float cosine = dot(state.normal, state.dir);
    if (cosine > 0.0f) {
        const miVector bent = normalized(state.normal - state.dir * cosine);
        state.normal = length(bent) > 0.0f ? bent : state.normal_geom;
        cosine = dot(state.normal, state.dir);
    }
    state.dot_nd = std::min(cosine, 0.0f);
}

void set_normals(miState& state, const Corners& corners, const Matrix& cofactors, const Lanes (&points)[3],
                 bool mirrored) {
    const miVector edges = vector_of(cross(points[1] - points[0], points[2] - points[0]));
    state.normal_geom = normalized(mirrored ? -edges : edges);
    state.normal = state.normal_geom;
    if (corners.triangles->normal_offset >= 0) {
        miVector smooth =
            normalized(placed_normal(cofactors, corners.interpolate(corners.triangles->normal_offset)));
        if (dot(smooth, state.normal_geom) <
            0.0f) // also for a mirrored placement, whose determinant is negative
            smooth = -smooth;
        if (length(smooth) > 0.0f)
            state.normal = smooth;
    }
}

void set_textures(RayFrame& frame, const Corners& corners) {
    const miTriangles& t = *corners.triangles;
    miState& state = frame.state;
    const int spaces = std::min(t.texture_count, max_texture_spaces);
    for (int k = 0; k < spaces; ++k)
        frame.tex[static_cast<std::size_t>(k)] = corners.interpolate(t.texture_offset + 3 * k);
    state.tex_list = spaces > 0 ? frame.tex.data() : nullptr;
    state.tex = spaces > 0 ? frame.tex[0] : miVector{};

    const int bumps = std::min(t.bump_count, max_texture_spaces);
    for (int k = 0; k < bumps; ++k) {
        frame.bump_x[static_cast<std::size_t>(k)] = corners.interpolate(t.bump_offset + 6 * k);
        frame.bump_y[static_cast<std::size_t>(k)] = corners.interpolate(t.bump_offset + 6 * k + 3);
    }
    state.bump_x_list = bumps > 0 ? frame.bump_x.data() : nullptr;
    state.bump_y_list = bumps > 0 ? frame.bump_y.data() : nullptr;
}

// The point's change with u and v of texture space 0, solved from the edges of the triangle. Within a flat
// triangle the second derivatives vanish and are not given.
void set_derivatives(RayFrame& frame, const Corners& corners, const Lanes (&points)[3]) {
    const miTriangles& t = *corners.triangles;
    std::fill(std::begin(frame.state.derivs), std::end(frame.state.derivs), nullptr);
    if (t.texture_count < 1)
        return;
    const miVector t0 = corners.at(0, t.texture_offset);
    const miVector t1 = corners.at(1, t.texture_offset) - t0;
    const miVector t2 = corners.at(2, t.texture_offset) - t0;
    const float determinant = t1.x * t2.y - t1.y * t2.x;
    if (determinant == 0.0f)
        return;
    const miVector p1 = vector_of(points[1] - points[0]);
    const miVector p2 = vector_of(points[2] - points[0]);
    frame.derivs[0] = (p1 * t2.y - p2 * t1.y) * (1.0f / determinant);
    frame.derivs[1] = (p2 * t1.x - p1 * t2.x) * (1.0f / determinant);
    frame.state.derivs[0] = &frame.derivs[0];
    frame.state.derivs[1] = &frame.derivs[1];
}

// From the hit point's place when the shutter opens to that at time 1.
miVector motion_of(const WorldInstance& instance, const Corners& corners) {
    const int offset = corners.triangles->motion_offset;
    if (!instance.has_motion)
        return {};
    const miVector start = corners.interpolate(0);
    const miVector end = offset >= 0 ? start + corners.interpolate(offset) : start;
    return vector_of(placed_point(instance.motion_to_internal, end) -
                     placed_point(instance.to_internal, start));
}

void set_material(miState& state, const World& world, const WorldInstance& instance, std::uint32_t triangle) {
    state.material = instance.material_of(triangle);
    const MaterialSlots slots(world.scene, state.material);
    state.refraction_volume = slots[miRAY_PHOTON(state.type) ? miSHADER_PHOTONVOL : miSHADER_VOLUME];
    const miTag environment = slots[miSHADER_ENVIRONMENT];
    state.environment = environment ? environment : world.camera->environment;
}

void set_miss(RayFrame& frame) {
    miState& state = frame.state;
    frame.hit = {};
    state.pri = nullptr;
    state.cache = nullptr;
    state.dist = 0.0;
    state.point = state.org;
    state.normal = state.normal_geom = -state.dir;
    state.dot_nd = -1.0f;
    state.inv_normal = 0;
    state.instance = state.material = state.refraction_volume = miNULLTAG;
    state.label = 0;
    std::fill(std::begin(state.bary), std::end(state.bary), 0.0f);
    state.tex_list = state.bump_x_list = state.bump_y_list = nullptr;
    state.tex = state.motion = miVector{};
    std::fill(std::begin(state.derivs), std::end(state.derivs), nullptr);
}

} // namespace

float shutter_time(const miState* state) {
    const World& world = *context_of(state).world;
    return world.moving ? std::clamp(state->time, 0.0f, world.options->shutter) : 0.0f;
}

void set_intersection(RayFrame& frame, bool was_hit) {
    if (!was_hit)
        return set_miss(frame);
    miState& state = frame.state;
    const World& world = *context_of(&state).world;
    const WorldInstance& instance = world.instances[frame.hit.instance];
    const Corners corners(*instance.triangles, frame.hit);
    const float time = shutter_time(&state);
    Matrix blended, blended_cofactors;
    const Matrix& place = place_at(instance, time, blended);
    const bool stays = &place != &blended;
    if (!stays)
        set_cofactors(blended_cofactors, blended);

    Lanes points[3];
    for (int k = 0; k < 3; ++k) {
        miVector p = corners.at(k, 0);
        if (time > 0.0f && instance.has_motion && corners.triangles->motion_offset >= 0)
            p = p + corners.at(k, corners.triangles->motion_offset) * time;
        points[k] = placed_point(place, p);
    }
    // From the corners rather than along the ray: the error does not grow with the length of the ray.
    state.point = vector_of(points[0] * corners.weight[0] + points[1] * corners.weight[1] +
                            points[2] * corners.weight[2]);
    state.dist = frame.hit.distance;
    state.pri = &frame.hit;
    state.cache = &frame.hit;
    state.instance = instance.tag;
    state.label = instance.label;
    std::copy(std::begin(corners.weight), std::end(corners.weight), state.bary);
    state.bary[3] = 0.0f;

    set_normals(state, corners, stays ? instance.normal_to_internal : blended_cofactors, points,
                instance.mirrored);
    set_textures(frame, corners);
    set_derivatives(frame, corners, points);
    state.motion = motion_of(instance, corners);
    set_material(state, world, instance, frame.hit.triangle);
    if (state.type == miRAY_SHADOW) {
        state.inv_normal = 0;
        state.dot_nd = dot(state.normal, state.dir);
    } else {
        face_ray(state);
    }
}

} // namespace stage
