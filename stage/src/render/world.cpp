// Flattens the instance graph of a frame.
#include "render/world.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <unordered_set>

#include "kit/matrix.h"
#include "render/affine.h"
#include "render/demands.h"
#include "render/embree_scene.h"
#include "render/passage.h"
#include "render/vector.h"

namespace stage {

namespace {

constexpr int deepest_group = 256; // a graph this deep contains itself

constexpr miUint1 flag_inherits = 2;

constexpr miUint1 casts = 1, receives = 2; // bits of an object's reflection, refraction and transparency

// What an instance hands down to what it contains.
struct Inherited {
    Affine to_local, to_world,
        motion_to_world; // world to local space and back, and back at the end of the shutter
    miTag material = miNULLTAG;
    int material_count = 0; // of an array of materials, 0 for a single one
    bool override_material = false;
    miTag light_list = miNULLTAG;
    int light_count = 0;
    bool exclusive_lights = false;
    miTag shadow_light_list = miNULLTAG;
    int shadow_light_count = 0;
    bool exclusive_shadow_lights = false;
    miUint1 visible = flag_inherits, shadow = flag_inherits, trace = flag_inherits,
            reflection = flag_inherits, refraction = flag_inherits, transparency = flag_inherits,
            finalgather = flag_inherits, caustic = flag_inherits, globillum = flag_inherits;
    miUint1 face = 0;
    bool no_motion = false;
};

bool is_null_matrix(const miScalar* m) {
    return std::all_of(m, m + 16, [](miScalar v) { return v == 0.0f; });
}

// The space that the instance's matrix leads into, seen from its parent.
Affine local_space(const Element& element, const miScalar* matrix, const char* what) {
    const std::optional<Affine> to_local = Affine::from(matrix);
    if (!to_local)
        throw SceneError(element.place,
                         std::string(what) + " of instance \"" + element.name + "\" is not affine");
    return *to_local;
}

Affine inverse_of(const Element& element, const Affine& a, const char* what) {
    const std::optional<Affine> inverse = a.inverse();
    if (!inverse)
        throw SceneError(element.place,
                         std::string(what) + " of instance \"" + element.name + "\" is singular");
    return *inverse;
}

void inherit_space(Inherited& in, const Element& element, const miInstance& instance) {
    const Affine to_local =
        instance.tf.identity ? Affine{} : local_space(element, instance.tf.global_to_local, "the transform");
    const Affine to_parent = inverse_of(element, to_local, "the transform");
    Affine motion_to_parent = to_parent;
    if (instance.gen_motion == 1 && !is_null_matrix(instance.motion_transform))
        motion_to_parent =
            inverse_of(element, local_space(element, instance.motion_transform, "the motion transform"),
                       "the motion transform");
    in.to_local = in.to_local * to_local;
    in.to_world = to_parent * in.to_world;
    in.motion_to_world = motion_to_parent * in.motion_to_world;
    if (instance.gen_motion == 2) {
        in.no_motion = true;
        in.motion_to_world = in.to_world;
    }
}

void inherit_flag(miUint1& inherited, miUint1 own) {
    if (own != flag_inherits)
        inherited = own;
}

Inherited inherit(const Inherited& parent, const Element& element, const miInstance& instance) {
    Inherited in = parent;
    inherit_space(in, element, instance);
    if (instance.material && !parent.override_material) {
        in.material = instance.material;
        in.material_count = instance.mtl_array_size;
        in.override_material = instance.override_material != 0;
    }
    if (instance.light_list) {
        in.light_list = instance.light_list;
        in.light_count = instance.light_list_size;
        in.exclusive_lights = instance.exclusive_lights != 0;
    }
    if (instance.shadow_light_list) {
        in.shadow_light_list = instance.shadow_light_list;
        in.shadow_light_count = instance.shadow_light_list_size;
        in.exclusive_shadow_lights = instance.exclusive_shadow_lights != 0;
    }
    inherit_flag(in.visible, instance.visible);
    inherit_flag(in.shadow, instance.shadow);
    inherit_flag(in.trace, instance.trace);
    inherit_flag(in.reflection, instance.reflection);
    inherit_flag(in.refraction, instance.refraction);
    inherit_flag(in.transparency, instance.transparency);
    inherit_flag(in.finalgather, instance.finalgather);
    inherit_flag(in.caustic, instance.caustic);
    inherit_flag(in.globillum, instance.globillum);
    if (instance.face)
        in.face = instance.face;
    return in;
}

// An instance's switch acts on both bits of the object's mode.
miUint1 mode_of(miUint1 inherited, miUint1 of_object) {
    if (inherited == flag_inherits)
        return of_object;
    return inherited ? miUint1{casts | receives} : miUint1{0};
}

bool switch_of(miUint1 inherited, miUint1 of_object) {
    return (inherited == flag_inherits ? of_object : inherited) != 0;
}

std::span<const miTag> tag_list(const Database& database, miTag list, int count) {
    const Element* element = database.find(list);
    if (!element || element->type != miSCENE_TAGS || count <= 0)
        return {};
    return {element->as<miTag>(), std::min(static_cast<std::size_t>(count), element->size / sizeof(miTag))};
}

std::uint32_t bit(RayMask mask, bool on) {
    return on ? static_cast<std::uint32_t>(mask) : 0u;
}

} // namespace

// Walks the graph and fills the world's lists.
class Flattener {
public:
    Flattener(World& world, const RenderCommand& command) : world_(world), command_(command) {}

    void run();
    void find_light_lists(); // once the world has its lights
    [[nodiscard]] const std::optional<Inherited>& camera() const { return camera_; }
    [[nodiscard]] const std::vector<Inherited>& instance_spaces() const { return instance_spaces_; }
    [[nodiscard]] const std::vector<Inherited>& light_spaces() const { return light_spaces_; }
    [[nodiscard]] bool moves(const Inherited& in) const {
        return world_.shutter_opens() && !(in.motion_to_world == in.to_world);
    }

private:
    void visit(miTag tag, const Inherited& parent, int depth);
    void visit_group(const Element& group, const Inherited& in, int depth);
    void add_object(Element& instance, const Element& object, const Inherited& in);
    void add_light(Element& instance, const Element& light, const Inherited& in);
    void add_light_mesh(const WorldLight& light, const Inherited& in);
    void check_labels(const WorldInstance& w, const Element& instance, const Element& object) const;
    Element& leaf_for_path(Element& instance);

    World& world_;
    const RenderCommand& command_;
    std::optional<Inherited> camera_;
    std::vector<Inherited> instance_spaces_, light_spaces_; // beside World::instances and World::lights
    std::unordered_set<miTag> reached_;
};

void Flattener::run() {
    const Element* root = world_.scene.database.find(command_.root);
    if (!root || root->type != miSCENE_GROUP)
        throw SceneError(command_.place, "the root to render is not an instgroup");
    visit_group(*root, {}, 0);
    if (!camera_) {
        const Element* camera = world_.scene.database.find(command_.camera_instance);
        throw SceneError(command_.place, "the camera instance \"" + (camera ? camera->name : std::string()) +
                                             "\" is not below the root group \"" + root->name + "\"");
    }
}

void Flattener::visit_group(const Element& group, const Inherited& in, int depth) {
    if (depth > deepest_group)
        throw SceneError(group.place, "instgroup \"" + group.name + "\" contains itself");
    const auto* record = group.as<miGroup>();
    for (int k = 0; k < record->no_kids; ++k)
        visit(record->kids[k], in, depth);
}

void Flattener::visit(miTag tag, const Inherited& parent, int depth) {
    Element* element = world_.scene.database.find(tag);
    if (!element || element->type != miSCENE_INSTANCE)
        throw SceneError(element ? element->place : command_.place,
                         "\"" + (element ? element->name : std::string()) +
                             "\" in an instgroup is not an instance");
    const auto& instance = *element->as<miInstance>();
    if (instance.off)
        return;
    const Inherited in = inherit(parent, *element, instance);
    const Element* item = world_.scene.database.find(instance.item);
    if (!item)
        throw SceneError(element->place, "instance \"" + element->name + "\" has no element");
    switch (item->type) {
    case miSCENE_GROUP:
        return visit_group(*item, in, depth + 1);
    case miSCENE_OBJECT:
        return add_object(*element, *item, in);
    case miSCENE_LIGHT:
        return add_light(*element, *item, in);
    case miSCENE_CAMERA:
        if (tag == command_.camera_instance && !camera_) {
            camera_ = in;
            world_.camera = item->as<miCamera>();
        }
        return;
    case miSCENE_FUNCTION: // a geometry shader
        if (world_.options->no_geometry)
            return;
        [[fallthrough]];
    default:
        throw SceneError(element->place, "instance \"" + element->name + "\": an element of this kind (\"" +
                                             item->name + "\") cannot be rendered yet");
    }
}

// A leaf that is reached again gets an element of its own, equal to the first but for the tag.
Element& Flattener::leaf_for_path(Element& instance) {
    if (reached_.insert(instance.tag).second)
        return instance;
    Element& copy = world_.scene.database.add(miSCENE_INSTANCE, {}, instance.place, instance.size);
    std::memcpy(copy.record, instance.record, instance.size);
    copy.name = instance.name;
    return copy;
}

void Flattener::add_object(Element& instance, const Element& object_element, const Inherited& in) {
    const auto* object = object_element.as<miObject>();
    if (!object->triangles || object->triangles->triangle_count == 0)
        return;
    Element& leaf = leaf_for_path(instance);
    const auto* record = leaf.as<miInstance>();

    WorldInstance w;
    w.tag = leaf.tag;
    w.object_tag = object_element.tag;
    w.object = object;
    w.triangles = object->triangles;
    const bool deforms = object->triangles->motion_offset >= 0;
    w.has_motion = !in.no_motion && (deforms || !(in.motion_to_world == in.to_world));

    const bool trace = switch_of(in.trace, object->trace);
    const miUint1 reflection = mode_of(in.reflection, object->reflection);
    const miUint1 refraction = mode_of(in.refraction, object->refraction);
    const miUint1 transparency = mode_of(in.transparency, object->transparency);
    const miUint1 finalgather = mode_of(in.finalgather, object->finalgather);
    w.mask = bit(RayMask::primary, switch_of(in.visible, object->visible)) |
             bit(RayMask::shadow, switch_of(in.shadow, object->shadow)) | bit(RayMask::trace, trace) |
             bit(RayMask::reflection, trace && (reflection & casts)) |
             bit(RayMask::refraction, trace && (refraction & casts)) |
             bit(RayMask::transparency, trace && (transparency & casts)) |
             bit(RayMask::finalgather, trace && (finalgather & casts));
    w.caustic = mode_of(in.caustic, object->caustic);
    w.globillum = mode_of(in.globillum, object->globillum);
    w.receives_reflection = (reflection & receives) != 0;
    w.receives_refraction = (refraction & receives) != 0;
    w.receives_transparency = (transparency & receives) != 0;
    w.receives_finalgather = (finalgather & receives) != 0;
    const int general_face = world_.options->face;
    w.face = in.face        ? in.face
             : object->face ? object->face
                            : static_cast<miUint1>(general_face ? general_face : 'a');

    w.override_material = in.override_material;
    if (in.material_count > 0)
        w.materials = tag_list(world_.scene.database, in.material, in.material_count);
    else
        w.material = in.material;
    w.label = record->label ? record->label : object->label;
    check_labels(w, leaf, object_element);

    world_.instances.push_back(w);
    instance_spaces_.push_back(in);
}

// Labels that index a list of materials must stay inside it.
void Flattener::check_labels(const WorldInstance& w, const Element& instance, const Element& object) const {
    if (!w.object->tagged || w.materials.empty())
        return;
    const miUint count = w.triangles->materials ? w.triangles->triangle_count : 1;
    const miTag* labels = w.triangles->materials ? w.triangles->materials : &w.triangles->material;
    const miTag highest = *std::max_element(labels, labels + count);
    if (highest >= w.materials.size())
        throw SceneError(instance.place, "object \"" + object.name + "\" has a polygon with label " +
                                             std::to_string(highest) + ", but instance \"" + instance.name +
                                             "\" has only " + std::to_string(w.materials.size()) +
                                             " materials");
}

void Flattener::add_light(Element& instance, const Element& light, const Inherited& in) {
    WorldLight w;
    w.has_motion = moves(in);
    w.instance = leaf_for_path(instance).tag;
    w.placed = instance.tag;
    w.light_tag = light.tag;
    w.light = light.as<miLight>();
    w.area = &world_.light_areas_.emplace_back(world_.scene.database, *w.light);
    if (is_seen(*w.light))
        add_light_mesh(w, in);
    world_.lights.push_back(w);
    light_spaces_.push_back(in);
}

// Seen by the eye, in mirrors and through glass. It is in nobody's way: not in that of shadow rays, probes
// and photons; and gathering, which would count its light a second time, does not see it.
void Flattener::add_light_mesh(const WorldLight& light, const Inherited& in) {
    const LightMesh& mesh = world_.light_meshes_.emplace_back(world_.scene.database, *light.light);
    if (mesh.triangles.triangle_count == 0)
        return;
    WorldInstance w;
    w.tag = light.instance;
    w.object_tag = light.light_tag;
    w.object = &mesh.object;
    w.triangles = &mesh.triangles;
    w.light = static_cast<int>(world_.lights.size());
    const bool trace = switch_of(in.trace, 1);
    w.mask = bit(RayMask::primary, switch_of(in.visible, 1)) |
             bit(RayMask::reflection, trace && switch_of(in.reflection, 1)) |
             bit(RayMask::refraction, trace && switch_of(in.refraction, 1)) |
             bit(RayMask::transparency, trace && switch_of(in.transparency, 1));
    w.label = light.light->label;
    world_.instances.push_back(w);
    instance_spaces_.push_back(in);
}

void Flattener::find_light_lists() {
    const auto lights_of = [this](miTag list, int count, bool exclusive) {
        return world_.light_lists_.find(world_, tag_list(world_.scene.database, list, count), exclusive);
    };
    for (std::size_t i = 0; i < world_.instances.size(); ++i) {
        WorldInstance& w = world_.instances[i];
        const Inherited& in = instance_spaces_[i];
        w.lights = world_.light_tags;
        if (in.light_list)
            w.lights = lights_of(in.light_list, in.light_count, in.exclusive_lights);
        w.casts_all_shadows = in.shadow_light_list == miNULLTAG;
        if (!w.casts_all_shadows)
            w.shadow_lights =
                lights_of(in.shadow_light_list, in.shadow_light_count, in.exclusive_shadow_lights);
    }
}

miTag WorldInstance::material_of(std::uint32_t triangle) const {
    const miTag own = triangles->materials ? triangles->materials[triangle] : triangles->material;
    if (object->tagged) // `own` is a label
        return materials.empty() ? material : own < materials.size() ? materials[own] : miNULLTAG;
    const miTag inherited = materials.empty() ? material : materials.front();
    return own == miNULLTAG || (override_material && inherited != miNULLTAG) ? inherited : own;
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
        (to_world * in.to_local).store(w.from_internal.m);
        (in.motion_to_world * from_world).store(w.motion_to_internal.m);
        w.mirrored = to_internal.determinant() < 0.0;
        moving = moving || (w.has_motion && shutter_opens());
        all_block = all_block && in.shadow_light_list == miNULLTAG && blocks(scene, w);
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

namespace {

void start_query(SideContext& context, const World& world, bool rejects_sides) {
    rtcInitIntersectContext(&context.embree);
    context.world = &world;
    if (rejects_sides)
        context.embree.filter = reject_hidden_side;
}

void set_ray(RTCRay& ray, const miVector& org, const miVector& dir, double near, double far, float time,
             std::uint32_t mask) {
    ray.org_x = org.x;
    ray.org_y = org.y;
    ray.org_z = org.z;
    ray.tnear = static_cast<float>(near);
    ray.dir_x = dir.x;
    ray.dir_y = dir.y;
    ray.dir_z = dir.z;
    ray.time = time;
    ray.tfar = static_cast<float>(far);
    ray.mask = mask;
    ray.id = 0;
    ray.flags = 0;
}

} // namespace

// From 0 to 1 at the shutter's closing.
float World::time_in_shutter(float time) const {
    return moving ? std::clamp(time / options->shutter, 0.0f, 1.0f) : 0.0f;
}

bool World::occluded(const miVector& org, const miVector& dir, double near, double far, float time,
                     std::uint32_t mask) const {
    SideContext context;
    start_query(context, *this, embree_->rejects_sides);
    RTCRay ray;
    set_ray(ray, org, dir, near, far, time_in_shutter(time), mask);
    rtcOccluded1(embree_->top, &context.embree, &ray);
    return ray.tfar < 0.0f;
}

bool World::intersect(const miVector& org, const miVector& dir, double near, double far, float time,
                      std::uint32_t mask, miRc_intersection& hit) const {
    SideContext context;
    start_query(context, *this, embree_->rejects_sides);
    RTCRayHit ray;
    set_ray(ray.ray, org, dir, near, far, time_in_shutter(time), mask);
    ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    ray.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(embree_->top, &context.embree, &ray);
    if (ray.hit.geomID == RTC_INVALID_GEOMETRY_ID) {
        hit = {};
        return false;
    }
    hit.instance = hit_instance(ray.hit.instID[0], ray.hit.geomID);
    hit.triangle = ray.hit.primID;
    hit.u = ray.hit.u;
    hit.v = ray.hit.v;
    hit.distance = ray.ray.tfar;
    return true;
}

} // namespace stage
