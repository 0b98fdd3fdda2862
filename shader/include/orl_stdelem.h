/*
 * The standard render elements: one shader that turns what a material hands over into the picture that its
 * type names. Its parameters with the declaration table, and its mathematics.
 */
#pragma once

#include "declaration.h"
#include "orlshaderapi.h"

namespace orl {

/* The host's numbers of the elements. */
enum ElementType : miInteger {
    element_alpha,
    element_atmosphere,
    element_background,
    element_blend,
    element_diffuse,
    element_refraction,
    element_lighting,
    element_matte,
    element_reflection,
    element_ink,
    element_paint,
    element_self_illumination,
    element_shadow,
    element_specular,
    element_z_depth,
    element_hair_and_fur,
    element_illuminance_hdr,
    element_velocity,
    element_material_id,
    element_object_id,
    element_luminance_hdr,
    element_type_count,
};

struct StdElementParams {
    miInteger type;
    miBoolean ambient;
    miBoolean diffuse;
    miBoolean specular;
    miBoolean selfIllumination;
    miBoolean reflection;
    miBoolean refraction;
    miBoolean matteMaterial;
    miInteger matteMaterialId;
    miBoolean matteObject;
    miInteger matteObjectId;
    miBoolean matteInverted;
    miScalar nearDepth;
    miScalar farDepth;
    miScalar nearestDepth;
    miScalar farthestDepth;
    miScalar highestSpeed;
    decl::Array<miTag> matteInstances;
};

/* Share of the picture that the surface covers: 1 where nothing shows through. */
miScalar coverage(const miColor& transparency);

/* Colour that tells an id from its neighbours: the low byte chooses the hue, in steps of 159/256 so that ids
   in sequence lie more than a third of the colour circle apart; the next byte takes saturation away, higher
   ones count for nothing. Alpha 0. */
miColor identity_color(miInteger id);

/* Grey of a distance: 1 up to `nearest`, falling evenly to 0 at `farthest` and beyond. */
miScalar depth_grey(miScalar distance, miScalar nearest, miScalar farthest);

namespace orl_stdelem_table {

inline constexpr auto standard = decl::fields<StdElementParams>(
    decl::integer(
        &StdElementParams::type, "type", element_blend, {0, element_type_count - 1},
        "0 alpha, 1 atmosphere, 2 background, 3 blend, 4 diffuse, 5 refraction, 6 lighting, 7 matte, 8 "
        "reflection, 9 ink, 10 paint, 11 self-illumination, 12 shadow, 13 specular, 14 Z depth, 15 hair and "
        "fur, 16 illuminance HDR, 17 velocity, 18 material id, 19 object id, 20 luminance HDR"),
    decl::boolean(&StdElementParams::ambient, "ambient", true, "blend: contains ambient light"),
    decl::boolean(&StdElementParams::diffuse, "diffuse", true, "blend: contains diffuse light"),
    decl::boolean(&StdElementParams::specular, "specular", true, "blend: contains highlights"),
    decl::boolean(&StdElementParams::selfIllumination, "selfIllumination", true,
                  "blend: contains self-illumination"),
    decl::boolean(&StdElementParams::reflection, "reflection", true, "blend: contains reflections"),
    decl::boolean(&StdElementParams::refraction, "refraction", true, "blend: contains refractions"),
    decl::boolean(&StdElementParams::matteMaterial, "matteMaterial", false,
                  "matte: shows surfaces whose material id is `matteMaterialId`"),
    decl::integer(&StdElementParams::matteMaterialId, "matteMaterialId", 0, decl::not_negative, "see above"),
    decl::boolean(&StdElementParams::matteObject, "matteObject", false,
                  "matte: shows nodes whose id is `matteObjectId`"),
    decl::integer(&StdElementParams::matteObjectId, "matteObjectId", 0, decl::any, "see above"),
    decl::boolean(&StdElementParams::matteInverted, "matteInverted", false,
                  "matte: shows everything else instead"),
    decl::scalar(&StdElementParams::nearDepth, "nearDepth", 0, decl::not_negative, "scene units",
                 "Z depth: white up to this distance"),
    decl::scalar(&StdElementParams::farDepth, "farDepth", 1000, decl::not_negative, "scene units",
                 "Z depth: black from this distance on"),
    decl::scalar(&StdElementParams::nearestDepth, "nearestDepth", 0, decl::any, "scene units",
                 "Z depth writes the smallest distance here at the end of the render; it depends on the "
                 "order of samples"),
    decl::scalar(&StdElementParams::farthestDepth, "farthestDepth", 0, decl::any, "scene units",
                 "likewise, the largest distance"),
    decl::scalar(&StdElementParams::highestSpeed, "highestSpeed", 0, decl::any, "scene units",
                 "velocity writes the longest motion here, at the end of the render"),
    decl::array(&StdElementParams::matteInstances, miTYPE_GEOMETRY, "matteInstances",
                "matte: instances to show, whatever their ids"));

} // namespace orl_stdelem_table

// clang-format off
inline constexpr decl::Shader orl_stdelem[] = {
    {"orl_StdRenderElements", miTYPE_COLOR, 7, false, true, decl::apply(miSHADER_TEXTURE),
     orl_stdelem_table::standard,
     "One render element, for the list of orl_RenderElementHandler. Alpha, hair and fur: coverage as a grey; of "
     "hair, where the first surface is hair. Atmosphere: what the camera's volume shader adds to black. "
     "Background: the environment behind the first surface. Blend: the sum of the chosen components. Diffuse: "
     "with the ambient light. Lighting, illuminance HDR: the light that arrives, direct and indirect. Luminance "
     "HDR: luminance of the direct light. Matte: white where material id, node id or instance match. Ink, paint: as the material "
     "gives them. Shadow: the share of light that arrives, or the material's own shadow colour. Z depth: see "
     "nearDepth. Velocity: motion during the shutter interval, camera space. Ids: a hue for each; a node without "
     "a record has its instance's label for an id. "
     "Ambient, diffuse and self-illumination are weighted by the material's opacity, reflection and refraction "
     "where it asks for that. What lies behind a surface is added through its transparency; a surface that adds it whole covers nothing and has alpha 0. Under a material's energyConservation the components are those before highlights and reflections take their light, so that they add up to more than the picture. The active tone operator maps background, blend, diffuse, refraction, "
     "lighting, reflection, self-illumination, specular and illuminance, and in the end atmosphere and blend."},
};
// clang-format on

} // namespace orl
