/*
 * The standard lights: their parameters, what an instance keeps, and the mathematics of shading with them.
 */
#pragma once

#include "declaration.h"
#include "light_cone.h"
#include "orl_attenuv.h"

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

// ---- mathematics

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

/* Cube of six pictures about an omni light (faces +x, -x, +y, -y, +z, -z). */
ProjectorCoordinate omni_projection(const miVector& point);
/* One picture in front of a spot; whoever looks it up mirrors both coordinates. */
ProjectorCoordinate spot_projection(const miVector& point, miScalar cosine, const LightConeShape& cone);
/* One picture across a beam. */
ProjectorCoordinate beam_projection(const miVector& point, const LightConeShape& cone);

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
 * null tag: none) by roulette. Always miTRUE: a photon that the roulette ends is not a failure.
 *
 * A photon survives with the brightness of the filter (the mean of its components, 1 at most) times the share
 * that the shape lets through, and carries the filter's tint at mean brightness. So what all photons carry is
 * the light's colour times the mean of filter and shape over the directions or the disc. Spot and beam send
 * photons within their falloff only, with overshoot too.
 */
enum class LightKind { omni, spot, beam };
miBoolean emit_photon(miColor* result, miState* state, const LightInstanceData& data, LightKind kind,
                      miTag projector);

} // namespace orl
