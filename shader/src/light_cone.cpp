/*
 * The shapes that bound the light of a lamp. A shape is made once for a light, when settings that make no
 * shape are put right; asking it is arithmetic alone.
 */
#include "light_cone.h"

#include "numeric.h"
#include "orl_attenuv.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace orl {

namespace {

// ---- making a shape

// What is not a number becomes the lowest value.
miScalar limited(miScalar value, miScalar lowest, miScalar highest) {
    return value > lowest ? std::min(value, highest) : lowest;
}

// Closed cones are next to dark, and cones stay short of the half space, whose edge no picture plane meets.
constexpr miScalar narrowest = 1e-3f, widest = 179.999f; // degrees
constexpr miScalar thinnest = 1e-6f, thickest = 1e18f;   // radius; its square is finite
constexpr miScalar least_aspect = 1e-6f, most_aspect = 1e6f;
constexpr miScalar widest_field = 1.5707962f; // half angle; single precision rounds a right angle up

// A shape without an aspect is square.
miScalar legal_aspect(miScalar aspect) {
    return aspect > 0.0f ? limited(aspect, least_aspect, most_aspect) : 1.0f;
}

LightConeShape* new_shape(const LightConeOperations& operations, miScalar hotspot, miScalar falloff,
                          miBoolean overshoot, miBoolean circular, miScalar aspect) {
    // The allocation that may fail: a light without its shape is dark, and the picture goes on without it.
    void* const memory = mi_mem_int_test_allocate("light_cone", __LINE__, sizeof(LightConeShape));
    if (memory == nullptr)
        return nullptr;
    auto* const cone = new (memory) LightConeShape{};
    cone->operations = &operations;
    cone->hotspot = hotspot;
    cone->falloff = falloff;
    cone->overshoot = overshoot ? miTRUE : miFALSE;
    cone->circular = circular ? miTRUE : miFALSE;
    cone->aspect = legal_aspect(aspect);
    cone->ratio = hotspot / falloff;
    cone->oneMinusRatio = 1.0f - cone->ratio;
    return cone;
}

void release(LightConeShape* cone) {
    mi_mem_int_release("light_cone", __LINE__, cone);
}

// ---- asking a shape

// Without overshoot, what lies outside is dark and counts as shadowed; with it, the light goes on there and
// throws no shadow.
miScalar outside(const LightConeShape* cone, miBoolean* inShadowZone) {
    *inShadowZone = cone->overshoot ? miFALSE : miTRUE;
    return cone->overshoot ? 1.0f : 0.0f;
}

// Fades from the hot rectangle to the edge, x and y from 0 in the middle to 1 at the edges.
miScalar in_rectangle(const LightConeShape* cone, miScalar x, miScalar y, miBoolean* inShadowZone) {
    if (!(x <= 1.0f && y <= 1.0f))
        return outside(cone, inShadowZone);
    *inShadowZone = miTRUE;
    const bool fades_x = x > cone->ratio, fades_y = y > cone->ratio;
    if (cone->overshoot || (!fades_x && !fades_y))
        return 1.0f;
    miScalar s = 1.0f;
    if (fades_y)
        s = 1.0f - (y - cone->ratio) / cone->oneMinusRatio;
    if (fades_x)
        s *= 1.0f - (x - cone->ratio) / cone->oneMinusRatio;
    return smooth_ramp(s);
}

miScalar evaluate_spot(const LightConeShape* cone, const miVector* point, miScalar cosine,
                       miBoolean* inShadowZone) {
    if (!(point->z < 0.0f && cosine >= cone->cosLimit))
        return outside(cone, inShadowZone);
    if (!cone->circular)
        return in_rectangle(cone, std::fabs(point->x / point->z * cone->projectionScale),
                            std::fabs(point->y / point->z * cone->projectionScale) * cone->aspect,
                            inShadowZone);
    *inShadowZone = miTRUE;
    if (cone->overshoot || !cone->smooth || cosine >= cone->cosHalfHotspot)
        return 1.0f;
    return smooth_ramp((cosine - cone->cosLimit) / cone->cosDifference);
}

miScalar evaluate_beam(const LightConeShape* cone, const miVector* point, miScalar /*cosine*/,
                       miBoolean* inShadowZone) {
    if (!cone->circular)
        return in_rectangle(cone, std::fabs(point->x) / cone->falloff,
                            std::fabs(point->y) / cone->falloff * cone->aspect, inShadowZone);
    const miScalar squared = point->x * point->x + point->y * point->y;
    if (!(squared <= cone->falloffSquared))
        return outside(cone, inShadowZone);
    *inShadowZone = miTRUE;
    const miScalar r = std::sqrt(squared) / cone->falloff;
    if (cone->overshoot || r <= cone->ratio)
        return 1.0f;
    return smooth_ramp((1.0f - r) / cone->oneMinusRatio);
}

miScalar cos_limit(const LightConeShape* cone) {
    return cone->cosLimit;
}

miScalar tan_half_falloff(const LightConeShape* cone) {
    return cone->tanHalfFalloff;
}

miScalar always_one(const LightConeShape* /*cone*/) {
    return 1.0f;
}

miScalar field_angle(const LightConeShape* cone) {
    return cone->fieldAngle;
}

miScalar projection_scale(const LightConeShape* cone) {
    return cone->projectionScale;
}

void spot_edges_x(const LightConeShape* cone, miVector* left, miVector* right) {
    const miScalar extent = cone->extent.u;
    *left = normalized({-extent, 0.0f, -1.0f});
    *right = normalized({extent, 0.0f, -1.0f});
}

void spot_edges_y(const LightConeShape* cone, miVector* bottom, miVector* top) {
    const miScalar extent = cone->extent.v;
    *bottom = normalized({0.0f, -extent, -1.0f});
    *top = normalized({0.0f, extent, -1.0f});
}

void beam_edges(const LightConeShape* /*cone*/, miVector* one, miVector* other) {
    *one = *other = {0.0f, 0.0f, -1.0f};
}

constexpr LightConeOperations spot_operations{evaluate_spot, cos_limit,    tan_half_falloff,
                                              always_one,    field_angle,  projection_scale,
                                              spot_edges_x,  spot_edges_y, release};
constexpr LightConeOperations beam_operations{evaluate_beam, cos_limit,   tan_half_falloff,
                                              always_one,    field_angle, projection_scale,
                                              beam_edges,    beam_edges,  release};

// ---- spot and beam

constexpr miScalar half_degrees(miScalar angle) {
    return angle * 0.5f * (std::numbers::pi_v<miScalar> / 180.0f);
}

// What photons need: they are spread evenly over the solid angle.
void measure(LightConeShape* cone) {
    const miScalar half_width = 1.0f / cone->projectionScale;
    cone->extent = cone->circular ? miVector2d{cone->tanHalfFalloff, cone->tanHalfFalloff}
                                  : miVector2d{half_width, half_width / cone->aspect};
    const auto [u, v] = cone->extent;
    // From the sine, so that narrow cones keep their digits.
    cone->depth = cone->sinHalfFalloff * cone->sinHalfFalloff / (1.0f + cone->cosLimit);
    cone->sineHalfHeight = v / std::sqrt(1.0f + v * v);
    cone->quarterSolidAngle = numeric::asin(u / std::sqrt(1.0f + u * u) * cone->sineHalfHeight);
}

LightConeShape* make_spot(miScalar hotspot, miScalar falloff, miBoolean overshoot, miBoolean circular,
                          miScalar aspect) {
    LightConeShape* const cone = new_shape(spot_operations, limited(hotspot, 0.0f, widest),
                                           limited(falloff, narrowest, widest), overshoot, circular, aspect);
    if (cone == nullptr)
        return nullptr;
    const miScalar half_falloff = half_degrees(cone->falloff);
    const miScalar half_hotspot = half_degrees(cone->hotspot);
    cone->tanHalfFalloff = numeric::tan(half_falloff);
    cone->sinHalfFalloff = numeric::sin(half_falloff);
    cone->cosHalfHotspot = numeric::cos(half_hotspot);
    cone->cosLimit = numeric::cos(half_falloff);
    if (!cone->circular)
        cone->cosLimit *= 0.7071067f; // a cone that holds the corners of the pyramid
    cone->smooth = cone->cosLimit != cone->cosHalfHotspot;
    cone->cosDifference = cone->cosHalfHotspot - cone->cosLimit;
    const miScalar k = cone->circular ? 1.0f : std::sqrt(cone->aspect);
    const miScalar half_field = numeric::atan(numeric::tan(std::max(half_falloff, half_hotspot)) * k);
    cone->fieldAngle = 2.0f * std::min(half_field, widest_field);
    cone->projectionScale = 1.0f / numeric::tan(cone->fieldAngle * 0.5f);
    measure(cone);
    return cone;
}

LightConeShape* make_beam(miScalar hotspot, miScalar falloff, miBoolean overshoot, miBoolean circular,
                          miScalar aspect) {
    LightConeShape* const cone = new_shape(beam_operations, limited(hotspot, 0.0f, thickest),
                                           limited(falloff, thinnest, thickest), overshoot, circular, aspect);
    if (cone == nullptr)
        return nullptr;
    cone->falloffSquared = cone->falloff * cone->falloff;
    cone->projectionScale = 1.0f / cone->falloff;
    return cone;
}

// ---- omni light

// The distance between ray and centre decides, rather than the difference of large squares (Eric Haines,
// Johannes Guenther, Tomas Akenine-Moeller, Precision Improvements for Ray/Sphere Intersection, 2019).
miBoolean intersect_sphere(const miVector* org, const miVector* dir, miScalar radius, miScalar* enter,
                           miScalar* leave) {
    const miScalar nearest = -mi_vector_dot(org, dir) / mi_vector_dot(dir, dir);
    const miVector from_center = along(*org, *dir, nearest);
    const miScalar squared = radius * radius - dot(from_center, from_center);
    if (!(squared >= 0.0f))
        return miFALSE;
    const miScalar half = std::sqrt(squared / mi_vector_dot(dir, dir));
    if (!(nearest + half >= 0.0f))
        return miFALSE;
    *enter = std::max(nearest - half, 0.0f);
    *leave = nearest + half;
    return miTRUE;
}

miScalar evaluate_omni(const miVector* /*point*/, miScalar /*cosine*/, miBoolean* inShadowZone) {
    *inShadowZone = miTRUE;
    return 1.0f;
}

miScalar omni_cos_limit() {
    return -1.0f;
}

miScalar omni_field_angle() {
    return 2.0f * std::numbers::pi_v<miScalar>;
}

miScalar omni_projection_scale() {
    return 1.0f;
}

} // namespace

const LightConeFactory light_cone_factory[light_cone_kinds] = {make_spot, make_beam};

const OmniShapeOperations omni_shape_operations = {intersect_sphere, evaluate_omni, omni_cos_limit,
                                                   omni_field_angle, omni_projection_scale};

} // namespace orl
