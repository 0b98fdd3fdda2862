// What a frame renders, in internal space.
#include "render/world.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kit/matrix.h"
#include "render/embree_scene.h"
#include "render/flatten.h"
#include "render/passage.h"
#include "render/vector.h"

namespace stage {

miTag WorldInstance::material_of(std::uint32_t triangle) const {
    const miTag own = triangles->materials ? triangles->materials[triangle] : triangles->material;
    if (object->tagged) // `own` is a label
        return materials.empty() ? material : own < materials.size() ? materials[own] : miNULLTAG;
    const miTag inherited = materials.empty() ? material : materials.front();
    return own == miNULLTAG || (override_material && inherited != miNULLTAG) ? inherited : own;
}

void set_cofactors(Matrix& cofactors, const Matrix& matrix) {
    const auto row = [&](std::size_t i) {
        return miVector{matrix.m[4 * i], matrix.m[4 * i + 1], matrix.m[4 * i + 2]};
    };
    cofactors = {};
    for (std::size_t i = 0; i < 3; ++i) {
        const miVector c = cross(row((i + 1) % 3), row((i + 2) % 3));
        cofactors.m[4 * i] = c.x;
        cofactors.m[4 * i + 1] = c.y;
        cofactors.m[4 * i + 2] = c.z;
    }
}

namespace {

// Remembers the place of a tag; the first one counts.
void note(std::vector<std::uint32_t>& index, miTag tag, std::size_t place) {
    if (tag >= index.size())
        index.resize(std::size_t{tag} + 1, UINT32_MAX);
    if (index[tag] == UINT32_MAX)
        index[tag] = static_cast<std::uint32_t>(place);
}

// Whether the instance lets no light through, wherever it casts a shadow.
bool blocks(const Scene& scene, const WorldInstance& instance) {
    if (!(instance.mask & static_cast<std::uint32_t>(RayMask::shadow)))
        return true;
    if (!instance.casts_all_shadows)
        return false;
    const miTriangles& triangles = *instance.triangles;
    const miUint count =
        triangles.materials ? triangles.triangle_count : std::min(triangles.triangle_count, 1u);
    miTag last = miNULLTAG;
    for (miUint k = 0; k < count; ++k) {
        const miTag material = instance.material_of(k);
        if (k > 0 && material == last)
            continue;
        last = material;
        if (passage(scene, material) != Passage::blocked)
            return false;
    }
    return true;
}

} // namespace

World::World(Scene& the_scene, const RenderCommand& command, bool camera_space)
    : scene(the_scene), camera_instance(command.camera_instance) {
    options = scene.database.record<miOptions>(command.options, miSCENE_OPTIONS);
    if (!options)
        throw SceneError(command.place, "the options to render with do not exist");
    state_shaders = scene.database.find(command.options)->state_shaders;
    Flattener flat(*this, command);
    flat.run();

    const Inherited& view = *flat.camera();
    camera_space = camera_space || options->render_space == 'c';
    const Affine from_world = camera_space ? view.to_local : Affine{}; // to internal space
    const Affine to_world = camera_space ? view.to_world : Affine{};
    from_world.store(world_to_internal.m);
    to_world.store(internal_to_world.m);
    // In camera space these two are the identity itself, not a product that rounds near it.
    (camera_space ? Affine{} : view.to_world).store(camera_to_internal.m);
    (camera_space ? Affine{} : view.to_local).store(internal_to_camera.m);
    (view.motion_to_world * from_world).store(camera_motion_to_internal.m);
    moving = camera_moves = flat.moves(view);

    for (std::size_t i = 0; i < instances.size(); ++i) {
        WorldInstance& w = instances[i];
        const Inherited& in = flat.instance_spaces()[i];
        const Affine to_internal = in.to_world * from_world;
        to_internal.store(w.to_internal.m);
        set_cofactors(w.normal_to_internal, w.to_internal);
        (to_world * in.to_local).store(w.from_internal.m);
        (in.motion_to_world * from_world).store(w.motion_to_internal.m);
        w.mirrored = to_internal.determinant() < 0.0;
        moving = moving || (w.has_motion && shutter_opens());
        note(instance_index_, w.tag, i);
    }
    for (std::size_t i = 0; i < lights.size(); ++i) {
        WorldLight& w = lights[i];
        (flat.light_spaces()[i].to_world * from_world).store(w.to_internal.m);
        (to_world * flat.light_spaces()[i].to_local).store(w.from_internal.m);
        (flat.light_spaces()[i].motion_to_world * from_world).store(w.motion_to_internal.m);
        moving = moving || w.has_motion;
        note(light_index_, w.instance, i);
        light_tags.push_back(w.instance);
    }
    flat.find_light_lists();
    all_block = std::ranges::all_of(instances, [&](const WorldInstance& w) { return blocks(scene, w); });
    measure();
    embree_ = std::make_unique<EmbreeScene>(*this);
}

// The ball about the box, in world space, so that it is the same whatever the internal space.
void World::measure() {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    miVector low{infinity, infinity, infinity}, high{-infinity, -infinity, -infinity};
    const auto include = [&](const miVector& point, const miScalar* to_internal) {
        const miVector p = transform_point(transform_point(point, to_internal), internal_to_world.m);
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    };
    for (const WorldInstance& w : instances) {
        const miVector &a = w.object->bbox_min, &b = w.object->bbox_max;
        for (unsigned k = 0; k < 8; ++k) {
            const miVector corner{k & 1 ? b.x : a.x, k & 2 ? b.y : a.y, k & 4 ? b.z : a.z};
            include(corner, w.to_internal.m);
            include(corner, w.motion_to_internal.m);
        }
    }
    for (const WorldLight& w : lights)
        include(w.light->origin, w.to_internal.m);
    include({}, camera_to_internal.m);
    const miVector half = (high - low) * 0.5f;
    const float radius = length(half);
    if (!(radius > 0.0f) || !std::isfinite(radius))
        return;
    center_ = transform_point(low + half, world_to_internal.m);
    const miVector unit = transform_vector({1.0f, 0.0f, 0.0f}, world_to_internal.m);
    radius_ = double{radius} * length(unit);
}

// Fog and fire reach beyond the meshes and have no bounds that the stage knows: room is left for them.
double World::way_from_afar(const miVector& point, const miVector& dir) const {
    constexpr double room = 16.0;
    const miVector from_center = point - center_;
    return std::max(double{dot(from_center, dir)}, -radius_) + room * radius_;
}

World::~World() = default;

std::size_t World::memory() const {
    return static_cast<std::size_t>(embree_->memory.load(std::memory_order_relaxed));
}

const WorldInstance* World::find_instance(miTag tag) const {
    return tag < instance_index_.size() && instance_index_[tag] != UINT32_MAX
               ? &instances[instance_index_[tag]]
               : nullptr;
}

const WorldLight* World::find_light(miTag instance) const {
    return instance < light_index_.size() && light_index_[instance] != UINT32_MAX
               ? &lights[light_index_[instance]]
               : nullptr;
}

} // namespace stage
