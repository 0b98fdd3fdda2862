/*
 * The standard lights: their parameters, what an instance keeps, and the mathematics of shading with them.
 */
#pragma once

#include "declaration.h"
#include "light_cone.h"
#include "orl_attenuv.h"

#include <tuple>

namespace orl {

// ---- parameters

struct OmniLightParams {
    miBoolean on;
    miColor color;
    miScalar multiplier;
    miScalar contrast;
    miScalar softenDiffuseEdge;
    miBoolean affectDiffuse;
    miBoolean affectSpecular;
    miBoolean ambientOnly;
    miBoolean useNearAtten;
    miScalar nearAttenStart, nearAttenEnd;
    miBoolean useFarAtten;
    miScalar farAttenStart, farAttenEnd;
    miInteger decayType;
    miScalar decayStart;
    miBoolean shadowOn;
    miColor shadowColor;
    miScalar shadowDensity;
    miBoolean lightAffectsShadowColor;
    miBoolean shadowMapOn;
    miTag shadowMap;
    miBoolean projectorOn;
    miTag projectorMap;
    miBoolean atmosphereShadowsOn;
    miScalar atmosphereOpacity, atmosphereColorAmount;
    decl::Array<miBoolean> excludeList;
};

/* Spot and directional light. */
struct ConeLightParams {
    miBoolean on;
    miColor color;
    miScalar multiplier;
    miScalar contrast;
    miScalar softenDiffuseEdge;
    miBoolean affectDiffuse;
    miBoolean affectSpecular;
    miBoolean ambientOnly;
    miScalar hotspot;
    miScalar falloff;
    miBoolean overshoot;
    miBoolean circular;
    miScalar aspect;
    miBoolean useNearAtten;
    miScalar nearAttenStart, nearAttenEnd;
    miBoolean useFarAtten;
    miScalar farAttenStart, farAttenEnd;
    miInteger decayType;
    miScalar decayStart;
    miBoolean shadowOn;
    miColor shadowColor;
    miScalar shadowDensity;
    miBoolean lightAffectsShadowColor;
    miBoolean shadowMapOn;
    miTag shadowMap;
    miBoolean projectorOn;
    miTag projectorMap;
    miBoolean atmosphereShadowsOn;
    miScalar atmosphereOpacity, atmosphereColorAmount;
    decl::Array<miBoolean> excludeList;
};

struct DefaultLightParams {
    miColor color;
    miScalar multiplier;
};

// ---- instance record

enum AffectFlags { affect_diffuse = 1, affect_specular = 2 };

struct OmniShape {
    const OmniShapeOperations* operations;
    miBoolean needsPoint; /* shadows or a projector: the volume light cannot integrate in closed form */
};

struct LightInstanceData {
    miColor color;     /* colour times multiplier times the energy of the light; alpha 1 */
    miInteger isBlack; /* 1: black by its parameters rather than by the energy */
    miInteger affectFlags;
    miScalar soften; /* 0 to 1 */
    miScalar contrastA, contrastB;
    union {
        LightConeShape* cone; /* spot and directional; null when there was no memory */
        OmniShape omni;
    };
};

/* Tells the renderer's architectural material, when it asks, how much the light counts for diffuse and
   specular reflection. `affectFlags` as in the instance record; an ambient light counts for diffuse
   reflection alone. */
void write_light_flags(miState* state, bool ambientOnly, miInteger affectFlags);

// ---- mathematics

/* A setting of 0 to 100; what lies outside counts as the nearest of these, what is not a number as 0. */
miScalar percent(miScalar value);

/* `contrastA` of a contrast from 0 to 100. */
miScalar contrast_weight(miScalar contrast);

/* Cosine of the angle of incidence as the light's diffuse settings bend it. */
miScalar shapeCosine(miScalar soften, miScalar cosine, miScalar contrastA, miScalar contrastB,
                     miScalar contrast);

/* Mixes light and shadow: `filter` is what the shadow rays let through, `density` may lie outside 0 to 1.
   Alpha stays. */
miColor blendShadow(const miColor& light, const miColor& filter, const miColor& shadowColor, miScalar density,
                    bool lightAffects);

/* Where a projector is looked up: inside tells whether the picture covers the point. */
struct ProjectorCoordinate {
    miScalar u, v;
    bool inside;
};

/* Cube of six pictures about an omni light (faces +x, -x, +y, -y, +z, -z). Deliberately they lie upside down
   as seen from the light: the host's maps for omni lights are made so. */
ProjectorCoordinate omni_projection(const miVector& point);
/* One picture in front of a spot, within the cosine's limit also beyond its border; whoever looks it up
   mirrors both coordinates. */
ProjectorCoordinate spot_projection(const miVector& point, miScalar cosine, const LightConeShape& cone);
/* One picture across a beam, which goes on beyond its border. */
ProjectorCoordinate beam_projection(const miVector& point, const LightConeShape& cone);

enum class LightKind { omni, spot, beam };

/* Where a light of that kind looks its picture up: for a spot mirrored in both coordinates, so that the
   picture stands upright where it falls. `cosine` is that of the angle with the axis; spots only. */
ProjectorCoordinate projection(const LightInstanceData& data, LightKind kind, const miVector& point,
                               miScalar cosine);

/* A colour that light is filtered by: its alpha does not count. What is not a number is told and becomes
   black. */
miColor light_filter(miState* state, miColor color);

/* The map at a projector's coordinate. It sees the vector from the light (light space) as the ray's
   direction; the state is as before afterwards. Black where the map fails or is not a number; alpha 1. */
miColor look_up_projection(miState* state, miTag map, const miVector& point, const ProjectorCoordinate& at);

// ---- photons

/* Direction (light space, unit length) and origin (light space) of a photon for two numbers in [0, 1). */
struct Emission {
    miVector org;
    miVector dir;
};

/* Uniform over all directions. */
Emission emit_from_omni(miScalar u, miScalar v);
/* Uniform over the solid angle of the cone, or of its rectangular pyramid (Carlos Urena, Marcos Fajardo, Alan
   King, An Area-Preserving Parametrization for Spherical Rectangles, 2013). */
Emission emit_from_spot(const LightConeShape& cone, miScalar u, miScalar v);
/* Uniform over the disc or rectangle of the beam. */
Emission emit_from_beam(const LightConeShape& cone, miScalar u, miScalar v);

/*
 * Sends one photon for the light of `state`, whose colour `result` holds, through the projector's filter (a
 * null tag: none) by roulette. Spot and beam need their cone. Always miTRUE: a photon that the roulette ends
 * is not a failure.
 *
 * A photon survives with the brightness of the filter (the mean of its components, 1 at most) times the share
 * that the shape lets through, and carries the filter's tint at mean brightness. So what all photons carry is
 * the light's colour times the mean of filter and shape over the directions or the disc. Spot and beam send
 * photons within their falloff only, with overshoot too.
 */
miBoolean emit_photon(miColor* result, miState* state, const LightInstanceData& data, LightKind kind,
                      miTag projector);

// ---- declaration tables

namespace orl_light_table {

// The lights share most of their parameters, so their tables are put together from the shared parts.

template <class Params>
constexpr auto light_fields = std::tuple(
    decl::boolean(&Params::on, "on", true, "off: no light"),
    decl::color(&Params::color, "color", {1, 1, 1, 1},
                "colour, times the energy that the light states in the scene"),
    decl::scalar(&Params::multiplier, "multiplier", 1, decl::any, "", "negative: the light takes light away"),
    decl::scalar(&Params::contrast, "contrast", 0, {0, 100}, "%",
                 "hardens the transition from lit to dark on a surface"),
    decl::scalar(&Params::softenDiffuseEdge, "softenDiffuseEdge", 0, {0, 100}, "%",
                 "softens the border between lit and dark on a surface"),
    decl::boolean(&Params::affectDiffuse, "affectDiffuse", true, "light diffuse reflection"),
    decl::boolean(&Params::affectSpecular, "affectSpecular", true, "light highlights"),
    decl::boolean(&Params::ambientOnly, "ambientOnly", false,
                  "light the ambient component alone, from all sides and without shadows"));

template <class Params>
constexpr auto cone_fields(double largest, const char* unit, const char* hotspot, const char* falloff) {
    return std::tuple(
        decl::scalar(&Params::hotspot, "hotspot", 43, {0, largest}, unit, hotspot),
        decl::scalar(&Params::falloff, "falloff", 45, {0, largest}, unit, falloff),
        decl::boolean(&Params::overshoot, "overshoot", false, "light outside too; shadows stay inside"),
        decl::boolean(&Params::circular, "circular", true, "round; off: rectangular"),
        decl::scalar(&Params::aspect, "aspect", 1, decl::not_negative, "", "width to height"));
}

// Differences of such distances stay finite, stretched ones of a volume light too.
inline constexpr decl::Range distances{0, 1e30};

template <class Params>
constexpr auto reach_fields = std::tuple(
    decl::boolean(&Params::useNearAtten, "useNearAtten", false, "fade in with distance"),
    decl::scalar(&Params::nearAttenStart, "nearAttenStart", 0, distances, "scene units", "dark up to here"),
    decl::scalar(&Params::nearAttenEnd, "nearAttenEnd", 40, distances, "scene units", "full from here on"),
    decl::boolean(&Params::useFarAtten, "useFarAtten", false, "fade out with distance"),
    decl::scalar(&Params::farAttenStart, "farAttenStart", 80, distances, "scene units", "full up to here"),
    decl::scalar(&Params::farAttenEnd, "farAttenEnd", 200, distances, "scene units", "dark from here on"),
    decl::integer(&Params::decayType, "decayType", decay_none, {0, 2}, "0 none, 1 inverse, 2 inverse square"),
    decl::scalar(&Params::decayStart, "decayStart", 40, distances, "scene units",
                 "distance from which the light decays"));

template <class Params>
constexpr auto shadow_fields = std::tuple(
    decl::boolean(&Params::shadowOn, "shadowOn", false, "cast shadows"),
    decl::color(&Params::shadowColor, "shadowColor", {0, 0, 0, 1}, "colour of the shadows"),
    decl::scalar(&Params::shadowDensity, "shadowDensity", 1, decl::any, "",
                 "weight of the shadows; negative: their colour is taken from the light"),
    decl::boolean(&Params::lightAffectsShadowColor, "lightAffectsShadowColor", false,
                  "mix the light's colour into that of the shadows"),
    decl::boolean(&Params::shadowMapOn, "shadowMapOn", false, "take the colour of the shadows from the map"),
    decl::element(&Params::shadowMap, miTYPE_SHADER, "shadowMap",
                  "map of the colour of the shadows, called like projectorMap"),
    decl::boolean(&Params::projectorOn, "projectorOn", false, "project a map"),
    decl::element(&Params::projectorMap, miTYPE_SHADER, "projectorMap",
                  "map that filters the light; it finds its coordinate in state->tex, and in state->dir the "
                  "direction in light space"),
    decl::boolean(&Params::atmosphereShadowsOn, "atmosphereShadowsOn", false,
                  "the atmosphere takes light away, where shadows are on"),
    decl::scalar(&Params::atmosphereOpacity, "atmosphereOpacity", 1, decl::unit_interval, "",
                 "weight of the atmosphere's shadows"),
    decl::scalar(&Params::atmosphereColorAmount, "atmosphereColorAmount", 1, decl::unit_interval, "",
                 "share of the atmosphere's colour in its shadows"),
    decl::array(&Params::excludeList, miTYPE_BOOLEAN, "excludeList",
                "for each node id whether the light leaves the node out"));

template <class... Parts> constexpr auto join(Parts... parts) {
    return std::apply([](auto... entries) { return decl::fields(entries...); }, std::tuple_cat(parts...));
}

inline constexpr auto omni =
    join(light_fields<OmniLightParams>, reach_fields<OmniLightParams>, shadow_fields<OmniLightParams>);

inline constexpr auto spot =
    join(light_fields<ConeLightParams>,
         cone_fields<ConeLightParams>(180, "degrees", "full angle of the cone of full light",
                                      "full angle at which the light ends"),
         reach_fields<ConeLightParams>, shadow_fields<ConeLightParams>);

inline constexpr auto directional =
    join(light_fields<ConeLightParams>,
         cone_fields<ConeLightParams>(decl::any.highest, "scene units", "radius of the beam of full light",
                                      "radius at which the light ends"),
         reach_fields<ConeLightParams>, shadow_fields<ConeLightParams>);

inline constexpr auto default_light = decl::fields<DefaultLightParams>(
    decl::color(&DefaultLightParams::color, "color", {1, 1, 1, 1},
                "colour, times the energy that the light states in the scene"),
    decl::scalar(&DefaultLightParams::multiplier, "multiplier", 1, decl::any, "", "times the colour"));

} // namespace orl_light_table

// clang-format off
inline constexpr decl::Shader lights[] = {
    {"orl_OmniLight", miTYPE_COLOR, 2, true, true, decl::apply(miSHADER_LIGHT, miSHADER_PHOTONEMIT),
     orl_light_table::omni, "Light in all directions from where it stands."},
    {"orl_SpotLight", miTYPE_COLOR, 2, true, true, decl::apply(miSHADER_LIGHT, miSHADER_PHOTONEMIT),
     orl_light_table::spot, "A cone of light, or a pyramid, along the negative z axis."},
    {"orl_DirectionalLight", miTYPE_COLOR, 2, true, true, decl::apply(miSHADER_LIGHT, miSHADER_PHOTONEMIT),
     orl_light_table::directional, "A parallel beam of light along the negative z axis."},
    {"orl_DefaultLight", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_LIGHT),
     orl_light_table::default_light, "Stands in where a scene has no light: plain light without shadows."},
};
// clang-format on

} // namespace orl
