/*
 * The standard material: its parameters, and the mathematics of its wire frame, opacity and map amounts.
 */
#pragma once

#include "declaration.h"

namespace orl {

// ---- mathematics

/* Distance of a point in the picture from the line through two others, in pixels; z does not count. 0 when
   the two are one. */
miScalar raster_line_distance(const miVector& point, const miVector& a, const miVector& b);

/* Squared distance of a point from the line through two others; 0 when the two are one. */
miScalar squared_line_distance(const miVector& point, const miVector& a, const miVector& b);

/* Opacity (0 to 1) of a surface seen under that cosine. `amount` 0 to 1 is what it loses at most: where it
   faces the eye, with `outwards` at its rim. */
miScalar fallen_off(miScalar opacity, miScalar cosine, miScalar amount, bool outwards);

/* A map's colour over what a channel holds; the map covers it as far as its alpha goes, after both were
   multiplied by the amount. */
miColor over_channel(const miColor& channel, const miColor& map, miScalar amount);

/* A map's intensity mixed with what a scalar channel holds. Negative amounts take the inverse of the map. */
miScalar mix_into_channel(miScalar channel, miScalar intensity, miScalar amount);

// ---- parameters

struct StandardMaterialParams {
    miBoolean wire;
    miBoolean twoSided;
    miInteger energyConservation;
    miBoolean faceted;
    miInteger transparencyType;
    miScalar opacity;
    miColor filterColor;
    miScalar field_7;
    miInteger falloffType;
    miScalar falloffAmount;
    miScalar indexOfRefraction;
    miScalar wireSize;
    miInteger wireUnits;
    miBoolean dimReflections;
    miScalar dimLevel;
    miScalar reflectionLevel;
    decl::Array<miBoolean> mapEnabled;
    decl::Array<miTag> maps;
    decl::Array<miScalar> mapAmounts;
    miInteger lockAmbient;
    miBoolean selfIlluminationColorOn;
    miInteger field_21;
    miInteger field_22;
    miInteger materialId;
    miTag illumination;
};

enum WireUnits : miInteger { wire_pixels = 0, wire_world = 1 };

namespace standard_material_table {

using P = StandardMaterialParams;

inline constexpr auto fields = decl::fields<P>(
    decl::boolean(&P::wire, "wire", false, "draw only the edges of the polygons"),
    decl::boolean(&P::twoSided, "twoSided", false, "shade back faces, too; otherwise rays pass them"),
    decl::integer(&P::energyConservation, "energyConservation", 0, {0, 1},
                  "1: highlights and reflections take light from the rest, in models that support it; render "
                  "elements show the components as they were before"),
    decl::boolean(&P::faceted, "faceted", false, "shade every triangle flat"),
    decl::integer(&P::transparencyType, "transparencyType", 0, {0, 2},
                  "what comes through: 0 is multiplied (by the filter colour at opacity 0.5, more white "
                  "below, more black above), 1 has the diffuse colour taken off, 2 is added"),
    decl::scalar(&P::opacity, "opacity", 1, decl::unit_interval, "", "opacity, under the opacity map"),
    decl::color(&P::filterColor, "filterColor", {1, 1, 1, 1},
                "colour of what comes through, for type 0; 0.5 0.5 0.5 is the plain mix by the opacity"),
    decl::scalar(&P::field_7, "field_7", 0, decl::any, "", "the host's own"),
    decl::integer(&P::falloffType, "falloffType", 0, decl::any,
                  "1: opacity falls off towards the rim; otherwise towards the middle"),
    decl::scalar(&P::falloffAmount, "falloffAmount", 0, decl::unit_interval, "",
                 "share of the opacity that falls off at most; 0 for none"),
    decl::scalar(&P::indexOfRefraction, "indexOfRefraction", 1.5, decl::not_negative, "",
                 "index of refraction inside, for refraction maps; outside is air"),
    decl::scalar(&P::wireSize, "wireSize", 1, decl::not_negative, "wireUnits", "thickness of the wires"),
    decl::integer(&P::wireUnits, "wireUnits", wire_pixels, {0, 1}, "0 pixels, 1 units of the scene"),
    decl::boolean(&P::dimReflections, "dimReflections", false, "reflections fade in the dark"),
    decl::scalar(&P::dimLevel, "dimLevel", 0, decl::unit_interval, "",
                 "share of the reflection that stays in the dark"),
    decl::scalar(&P::reflectionLevel, "reflectionLevel", 3, decl::not_negative, "",
                 "how fast light brings the rest back"),
    decl::array(&P::mapEnabled, miTYPE_BOOLEAN, "mapEnabled",
                "for each channel: its map counts; a map without an entry here is ignored"),
    decl::array(&P::maps, miTYPE_SHADER, "maps",
                "for each channel: its map; docs/materials.md tells the channels of each model"),
    decl::array(&P::mapAmounts, miTYPE_SCALAR, "mapAmounts",
                "for each channel: how much its map counts; 1, also where missing, is all"),
    decl::integer(&P::lockAmbient, "lockAmbient", 1, {0, 1},
                  "1: the diffuse map also colours ambient light, in place of the ambient map"),
    decl::boolean(&P::selfIlluminationColorOn, "selfIlluminationColorOn", false,
                  "the surface glows in a colour of its own; otherwise in its diffuse colour"),
    decl::host_field(&P::field_21, "field_21"), decl::host_field(&P::field_22, "field_22"),
    decl::material_id(&P::materialId, "materialId"),
    decl::element(&P::illumination, miTYPE_SHADER, "illumination",
                  "illumination model, required; another shader shows its colour, but maps belong into "
                  "`maps`: most of the module's are black here"));

} // namespace standard_material_table

inline constexpr decl::Shader orl_material[] = {
    {"orl_StandardMaterial", miTYPE_COLOR, 1, true, true,
     decl::apply(miSHADER_MATERIAL, miSHADER_SHADOW, miSHADER_PHOTON), standard_material_table::fields,
     "Everyday material with up to 24 mapped channels, shaded by an illumination model; also its own shadow "
     "and photon shader. What lies outside a documented range is not refused."},
};

} // namespace orl
