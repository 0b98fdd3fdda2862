/*
 * Declaration tables of the host's records on scene, nodes, objects and gizmos. The records themselves are
 * part of the helper interface, orlshaders.h.
 */
#pragma once

#include "declaration.h"
#include "orlshaders.h"

namespace orl {

namespace scene_data_table {

using decl::host_field;

inline constexpr auto fields = decl::fields<orl_SceneData>(
    decl::boolean(&orl_SceneData::material_editor, "material_editor", false,
                  "the scene is a sample of the material editor"),
    host_field(&orl_SceneData::field_2, "field_2"), host_field(&orl_SceneData::field_3, "field_3"),
    host_field(&orl_SceneData::field_4, "field_4"), host_field(&orl_SceneData::field_5, "field_5"),
    host_field(&orl_SceneData::field_6, "field_6"), host_field(&orl_SceneData::field_7, "field_7"),
    host_field(&orl_SceneData::field_8, "field_8"),
    decl::boolean(&orl_SceneData::force_two_sided, "force_two_sided", false,
                  "every standard material shades both sides"),
    decl::boolean(&orl_SceneData::flip_sky, "flip_sky", false,
                  "spherical environments have their pole along y"),
    decl::scalar(&orl_SceneData::display_gamma, "display_gamma", 1, {0.01, decl::any.highest}, "",
                 "exponent that takes displayed colours to linear ones; 1 changes nothing"),
    host_field(&orl_SceneData::field_12, "field_12"), host_field(&orl_SceneData::field_13, "field_13"),
    host_field(&orl_SceneData::field_14, "field_14"), host_field(&orl_SceneData::field_15, "field_15"),
    decl::boolean(&orl_SceneData::material_switch_16, "material_switch_16", false,
                  "with material_switch_22 a switch of the standard material"),
    host_field(&orl_SceneData::field_17, "field_17"), host_field(&orl_SceneData::field_18, "field_18"),
    host_field(&orl_SceneData::field_19, "field_19"), host_field(&orl_SceneData::field_20, "field_20"),
    host_field(&orl_SceneData::field_21, "field_21"),
    decl::boolean(&orl_SceneData::material_switch_22, "material_switch_22", false,
                  "takes the effect of material_switch_16 back"),
    host_field(&orl_SceneData::field_23, "field_23"),
    decl::boolean(&orl_SceneData::map_channel_ids, "map_channel_ids", false,
                  "ids of texture channels are channel numbers rather than positions"));

// Other libraries and the host know these fields by their place, counted from 1.
static_assert(fields[0].offset == offsetof(orl_SceneData, material_editor));
static_assert(fields[8].offset == offsetof(orl_SceneData, force_two_sided)); // 9 and 10 are this library's
static_assert(fields[9].offset == offsetof(orl_SceneData, flip_sky));        // choice among the free places
static_assert(fields[10].offset == offsetof(orl_SceneData, display_gamma));
static_assert(fields[15].offset == offsetof(orl_SceneData, material_switch_16));
static_assert(fields[21].offset == offsetof(orl_SceneData, material_switch_22));
static_assert(fields[23].offset == offsetof(orl_SceneData, map_channel_ids));

} // namespace scene_data_table

namespace node_data_table {

inline constexpr auto fields = decl::fields<orl_NodeData>(
    decl::scalar(&orl_NodeData::color_r, "color_r", 0.5, decl::unit_interval, "", "wire colour, red"),
    decl::scalar(&orl_NodeData::color_g, "color_g", 0.5, decl::unit_interval, "", "wire colour, green"),
    decl::scalar(&orl_NodeData::color_b, "color_b", 0.5, decl::unit_interval, "", "wire colour, blue"),
    decl::scalar(&orl_NodeData::visibility, "visibility", 1, decl::unit_interval, "", "multiplies opacity"),
    decl::integer(&orl_NodeData::node_id, "node_id", 0, decl::any, "written to fb_node_id"),
    decl::integer(&orl_NodeData::node_render_id, "node_render_id", 0, decl::any,
                  "written to fb_node_render_id"),
    decl::array(&orl_NodeData::shadow_lights, miTYPE_LIGHT, "shadow_lights",
                "lights, or groups of lights, for which the node casts shadows"),
    decl::boolean(&orl_NodeData::shadows_from_all_lights, "shadows_from_all_lights", true,
                  "the node casts shadows for every light; shadow_lights is ignored"),
    decl::array(&orl_NodeData::lights, miTYPE_LIGHT, "lights",
                "lights, or groups of lights, that light the node; they do so alone with all_lights off"),
    decl::boolean(&orl_NodeData::all_lights, "all_lights", true,
                  "all lights of the scene light the node as well as those of `lights`; a light in both "
                  "counts twice. Off: `lights` alone"));

} // namespace node_data_table

namespace object_data_table {

using decl::host_field;

inline constexpr auto fields = decl::fields<orl_ObjectData>(
    host_field(&orl_ObjectData::field_1, "field_1"), host_field(&orl_ObjectData::field_2, "field_2"),
    host_field(&orl_ObjectData::field_3, "field_3"), host_field(&orl_ObjectData::field_4, "field_4"),
    host_field(&orl_ObjectData::field_5, "field_5"), host_field(&orl_ObjectData::field_6, "field_6"),
    host_field(&orl_ObjectData::field_7, "field_7"), host_field(&orl_ObjectData::field_8, "field_8"),
    host_field(&orl_ObjectData::field_9, "field_9"),
    decl::element(&orl_ObjectData::particle_data, miTYPE_DATA, "particle_data",
                  "data block of the particles that the object shows"),
    decl::array(&orl_ObjectData::uv_channels, miTYPE_INTEGER, "uv_channels",
                "for each texture space the number of the host's map channel"));

// The tenth field, with the channels behind it: an array is one field in a declaration and three in the
// block, and so both ways of counting agree.
static_assert(fields[9].offset == offsetof(orl_ObjectData, particle_data));
static_assert(offsetof(orl_ObjectData, particle_data) == 36);

} // namespace object_data_table

namespace camera_data_table {

using decl::host_field;

inline constexpr auto fields = decl::fields<orl_CameraData>(
    host_field(&orl_CameraData::field_1, "field_1"), host_field(&orl_CameraData::field_2, "field_2"),
    host_field(&orl_CameraData::field_3, "field_3"), host_field(&orl_CameraData::field_4, "field_4"),
    host_field(&orl_CameraData::field_5, "field_5"), host_field(&orl_CameraData::field_6, "field_6"),
    host_field(&orl_CameraData::field_7, "field_7"), host_field(&orl_CameraData::field_8, "field_8"),
    host_field(&orl_CameraData::field_9, "field_9"), host_field(&orl_CameraData::field_10, "field_10"),
    host_field(&orl_CameraData::field_11, "field_11"),
    decl::scalar(&orl_CameraData::near_range, "near_range", 0, decl::not_negative, "scene units",
                 "where standard fog begins to grow, distance from the plane of the eye"),
    decl::scalar(&orl_CameraData::far_range, "far_range", 1000, decl::not_negative, "scene units",
                 "where it ends to grow"));

// The host knows them by their place, counted from 1.
static_assert(fields[11].offset == offsetof(orl_CameraData, near_range));
static_assert(fields[12].offset == offsetof(orl_CameraData, far_range));

} // namespace camera_data_table

/* Whether the scene is a sample of the material editor. */
bool is_material_editor(miState* state);

/* The record of the state's camera, or null. */
const orl_CameraData* camera_data(miState* state);

namespace gizmo_data_table {

inline constexpr auto fields = decl::fields<orl_GizmoData>(
    decl::integer(&orl_GizmoData::kind, "kind", orl_gizmo_sphere, {0, 3},
                  "0 sphere, 1 cylinder, 2 box, 3 hemisphere, all around the origin of the instance's space; "
                  "the hemisphere, and the cylinder of a fire, stand on its xy plane"),
    decl::scalar(&orl_GizmoData::radius, "radius", 1, decl::not_negative, "units of the instance",
                 "of sphere, cylinder and hemisphere"),
    decl::scalar(&orl_GizmoData::height, "height", 1, decl::not_negative, "units of the instance",
                 "of the cylinder, along z"),
    decl::scalar(&orl_GizmoData::size_x, "size_x", 1, decl::not_negative, "units of the instance",
                 "of the box, from face to face"),
    decl::scalar(&orl_GizmoData::size_y, "size_y", 1, decl::not_negative, "units of the instance",
                 "of the box"),
    decl::scalar(&orl_GizmoData::size_z, "size_z", 1, decl::not_negative, "units of the instance",
                 "of the box"),
    decl::integer(&orl_GizmoData::seed, "seed", 0, decl::any,
                  "start of the random numbers that shift the gizmo's noise"));

} // namespace gizmo_data_table

inline constexpr decl::Data host_data[] = {
    {"orl_SceneData", 5, scene_data_table::fields,
     "The host's record on the scene, user data of the options."},
    {"orl_NodeData", 2, node_data_table::fields, "The host's record on a node, user data of its instance."},
    {"orl_ObjectData", 5, object_data_table::fields,
     "The host's record on an object, user data of the object."},
    {"orl_CameraData", 1, camera_data_table::fields,
     "The host's record on a camera, user data of the camera."},
    {"orl_GizmoData", 1, gizmo_data_table::fields,
     "A gizmo, the space that volume fog or a fire fills, user data of the gizmo's instance; place, turn and "
     "size come from the instance's transform. The instance stands in the scene's root group; what it is an "
     "instance of does not matter, an empty group will do."},
};

} // namespace orl
