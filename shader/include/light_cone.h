/*
 * Shapes that bound the light of a lamp: the cone of a spot, the beam of a directional light, and the sphere
 * of influence of an omni light. The lights shade with them, and the volume light marches through them.
 *
 * Points and vectors are in light space, where the light stands at the origin and looks down -z.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

struct LightConeShape;

/* What a cone or beam can be asked, in the order that other libraries of the host rely on. */
struct LightConeOperations {
    /* Share of the light (0 to 1) that the shape lets through to a point, whose direction has that cosine
       with the axis. `inShadowZone` tells whether the point can lie in the light's shadow. */
    miScalar (*evaluate)(const LightConeShape*, const miVector* point, miScalar cosine,
                         miBoolean* inShadowZone);
    miScalar (*cosLimit)(const LightConeShape*); /* of the angle behind which nothing is lit; beams: 0 */
    miScalar (*tanHalfFalloff)(const LightConeShape*); /* beams: 0, they do not widen */
    miScalar (*one)(const LightConeShape*);            /* always 1 */
    miScalar (*fieldAngle)(const LightConeShape*); /* radians, full angle that a projector covers; beams: 0 */
    miScalar (*projectionScale)(const LightConeShape*); /* light space to projector; beams: 1 / falloff */
    /* Unit vectors along two opposite edges of the shape in the plane of x (first pair) and of y (second). */
    void (*edgesX)(const LightConeShape*, miVector* left, miVector* right);
    void (*edgesY)(const LightConeShape*, miVector* bottom, miVector* top);
    void (*destroy)(LightConeShape*);
};

struct LightConeShape {
    const LightConeOperations* operations;
    miScalar hotspot; /* spot: full angle in degrees; beam: radius */
    miScalar falloff; /* likewise */
    miBoolean overshoot;
    miBoolean circular;
    miScalar aspect;
    /* Worked out when the shape is made. */
    miScalar tanHalfFalloff, sinHalfFalloff, cosHalfHotspot; /* spot */
    miScalar ratio, oneMinusRatio;                           /* hotspot / falloff */
    miScalar cosLimit;                                       /* spot */
    miBoolean smooth;                                        /* spot: hotspot and falloff are apart */
    miScalar cosDifference;                                  /* spot: cosHalfHotspot - cosLimit */
    miScalar fieldAngle, projectionScale;
    miVector2d extent;          /* spot: half of the width and height of its circle or rectangle at z = -1 */
    miScalar depth;             /* round spot: 1 - cos of half the falloff */
    miScalar sineHalfHeight;    /* rectangular spot: of the angle that half the height fills */
    miScalar quarterSolidAngle; /* likewise: of the rectangle, seen from the light */
    miScalar falloffSquared;    /* beam */
};

enum LightConeKind { light_cone_spot = 0, light_cone_beam = 1, light_cone_kinds };

/*
 * Makes a shape of each kind; null when there is no memory. Memory is the renderer's; `destroy` gives it
 * back.
 *
 * Settings that bound nothing are replaced, and the shape holds what it was made with: a spot's falloff below
 * 0.001 or above 179.999 degrees, a beam's below 1e-6 or above 1e18 (and what is not a number) by the nearest
 * of these; an aspect that is not positive by 1; a hotspot that is negative or not a number by 0. A hotspot
 * above the falloff is legal: the edge is hard, and that of a rectangular spot lies at the hotspot.
 */
using LightConeFactory = LightConeShape* (*)(miScalar hotspot, miScalar falloff, miBoolean overshoot,
                                             miBoolean circular, miScalar aspect);
extern const LightConeFactory light_cone_factory[light_cone_kinds];

/* What the volume light asks of an omni light: the part of a ray within the sphere of that radius about the
   light. The other four are the same for every omni light. */
struct OmniShapeOperations {
    /* Distances along the ray, in lengths of `dir`, at which it enters (0 when it starts inside) and leaves;
       miFALSE when it misses, and the distances stay. */
    miBoolean (*intersect)(const miVector* org, const miVector* dir, miScalar radius, miScalar* enter,
                           miScalar* leave);
    miScalar (*evaluate)(const miVector* point, miScalar cosine, miBoolean* inShadowZone); /* 1, everywhere */
    miScalar (*cosLimit)();                                                                /* -1 */
    miScalar (*fieldAngle)();                                                              /* 2 pi */
    miScalar (*projectionScale)();                                                         /* 1 */
};
extern const OmniShapeOperations omni_shape_operations;

} // namespace orl
