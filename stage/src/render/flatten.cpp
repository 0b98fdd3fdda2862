#include "render/flatten.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace stage {

namespace {

constexpr int deepest_group = 256; // a graph this deep contains itself

constexpr miUint1 casts = 1, receives = 2; // bits of an object's reflection, refraction and transparency

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
    if (instance.gen_motion == 2)
        in.no_motion = true;
    if (in.no_motion) // what stands in it too, whatever motion it has of its own
        in.motion_to_world = in.to_world;
}

void inherit_flag(miUint1& inherited, miUint1 own) {
    if (own != flag_inherits)
        inherited = own;
}

Inherited inherit(const Inherited& parent, const Element& element, const miInstance& instance) {
    Inherited in = parent;
    in.above = parent.instance;
    in.instance = element.tag;
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

miUint1 mode_of(miUint1 inherited, miUint1 of_object) {
    return inherited == flag_inherits ? of_object : inherited;
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
        if (reached_.insert(tag).second)
            element->as<miInstance>()->parent = in.above;
        return visit_group(*item, in, depth + 1);
    case miSCENE_OBJECT:
        return add_object(*element, *item, in);
    case miSCENE_LIGHT:
        return add_light(*element, *item, in);
    case miSCENE_CAMERA:
        if (tag == command_.camera_instance && !camera_) {
            camera_ = in;
            note_motion(tag, in_motion(in));
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
Element& Flattener::leaf_for_path(Element& instance, const Inherited& in) {
    Element* leaf = &instance;
    if (!reached_.insert(instance.tag).second) {
        leaf = &world_.scene.database.add(miSCENE_INSTANCE, {}, instance.place, instance.size);
        std::memcpy(leaf->record, instance.record, instance.size);
        leaf->name = instance.name;
    }
    leaf->as<miInstance>()->parent = in.above;
    return *leaf;
}

void Flattener::note_motion(miTag instance, bool moves) {
    if (moves && world_.first_moving == miNULLTAG)
        world_.first_moving = instance;
}

void Flattener::add_object(Element& instance, const Element& object_element, const Inherited& in) {
    const auto* object = object_element.as<miObject>();
    if (!object->triangles || object->triangles->triangle_count == 0)
        return;
    Element& leaf = leaf_for_path(instance, in);
    const auto* record = leaf.as<miInstance>();

    WorldInstance w;
    w.tag = leaf.tag;
    w.object_tag = object_element.tag;
    w.object = object;
    w.triangles = object->triangles;
    const bool deforms = object->triangles->motion_offset >= 0;
    w.has_motion = !in.no_motion && (deforms || in_motion(in));
    note_motion(leaf.tag, w.has_motion);

    const bool trace = switch_of(in.trace, object->trace);
    const miUint1 shadow = mode_of(in.shadow, object->shadow);
    const miUint1 reflection = mode_of(in.reflection, object->reflection);
    const miUint1 refraction = mode_of(in.refraction, object->refraction);
    const miUint1 transparency = mode_of(in.transparency, object->transparency);
    const miUint1 finalgather = mode_of(in.finalgather, object->finalgather);
    w.mask = bit(RayMask::primary, switch_of(in.visible, object->visible)) |
             bit(RayMask::shadow, shadow & casts) | bit(RayMask::trace, trace) |
             bit(RayMask::reflection, trace && (reflection & casts)) |
             bit(RayMask::refraction, trace && (refraction & casts)) |
             bit(RayMask::transparency, trace && (transparency & casts)) |
             bit(RayMask::finalgather, trace && (finalgather & casts));
    w.caustic = mode_of(in.caustic, object->caustic);
    w.globillum = mode_of(in.globillum, object->globillum);
    w.receives_shadow = (shadow & receives) != 0;
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
    note_motion(instance.tag, in_motion(in));
    w.instance = leaf_for_path(instance, in).tag;
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
             bit(RayMask::reflection, trace && (mode_of(in.reflection, casts) & casts)) |
             bit(RayMask::refraction, trace && (mode_of(in.refraction, casts) & casts)) |
             bit(RayMask::transparency, trace && (mode_of(in.transparency, casts) & casts));
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

} // namespace stage
