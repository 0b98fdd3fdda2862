// How lights shape what they send: contrast and soft edges, coloured shadows, and the maps they project.
#include "orl_light.h"
#include "orlshaderapi.h"
#include "output_request.h"

#include <algorithm>

namespace orl {

miScalar percent(miScalar value) {
    return value > 0.0f ? std::min(value, 100.0f) : 0.0f;
}

miScalar contrast_weight(miScalar contrast) {
    return 2.0f - 1.0f / (percent(contrast) * 0.004901961f + 0.5f);
}

miScalar shapeCosine(miScalar soften, miScalar cosine, miScalar contrastA, miScalar contrastB,
                     miScalar contrast) {
    miScalar v = cosine;
    if (soften != 0.0f)
        v = cosine * cosine * (2.0f - cosine) * soften + (1.0f - soften) * cosine;
    if (contrast != 0.0f)
        v = v / (v * contrastA + contrastB);
    return v;
}

miColor blendShadow(const miColor& light, const miColor& filter, const miColor& shadowColor, miScalar density,
                    bool lightAffects) {
    const miColor s{(1.0f - filter.r) * density, (1.0f - filter.g) * density, (1.0f - filter.b) * density,
                    0.0f};
    const miScalar mean = (s.r + s.g + s.b) / 3.0f;
    const auto blend = [&](miScalar lit, miScalar weight, miScalar shadow) {
        // Shadows of more than full density leave nothing of the light, those of negative density all of it.
        if (mean > 1.0f)
            return lightAffects ? lit * weight * shadow : weight * shadow;
        const miScalar rest = mean < 0.0f ? 1.0f : 1.0f - weight;
        return lightAffects ? lit * (weight * shadow + rest) : rest * lit + weight * shadow;
    };
    return {blend(light.r, s.r, shadowColor.r), blend(light.g, s.g, shadowColor.g),
            blend(light.b, s.b, shadowColor.b), light.a};
}

namespace {

// A coordinate that is not a number is not within the picture either.
bool within_unit(miScalar x) {
    return x >= 0.0f && x <= 1.0f;
}

ProjectorCoordinate unbounded(miScalar u, miScalar v) {
    return {u, v, std::isfinite(u) && std::isfinite(v)};
}

} // namespace

miColor light_filter(miState* state, miColor color) {
    color.a = 1.0f;
    guard_nan(state, color);
    return color;
}

ProjectorCoordinate omni_projection(const miVector& point) {
    const auto [x, y, z] = point;
    const miScalar ax = std::fabs(x), ay = std::fabs(y), az = std::fabs(z);
    miVector face; // right, up, and the divisor
    if (ax > ay && ax > az)
        face = x > 0.0f ? miVector{z, y, -x} : miVector{-z, y, x};
    else if (ay > az)
        face = y > 0.0f ? miVector{x, z, -y} : miVector{x, -z, y};
    else
        face = z > 0.0f ? miVector{-x, y, -z} : miVector{x, y, z};
    const miScalar u = (face.x / face.z + 1.0f) * 0.5f, v = (face.y / face.z + 1.0f) * 0.5f;
    return {u, v, within_unit(u) && within_unit(v)};
}

ProjectorCoordinate spot_projection(const miVector& point, miScalar cosine, const LightConeShape& cone) {
    if (!(cone.cosLimit <= cosine))
        return {};
    const miScalar scale = cone.projectionScale;
    return unbounded((scale * point.x / point.z + 1.0f) * 0.5f,
                     (scale * point.y / point.z * cone.aspect + 1.0f) * 0.5f);
}

ProjectorCoordinate beam_projection(const miVector& point, const LightConeShape& cone) {
    return unbounded((point.x / cone.falloff + 1.0f) * 0.5f,
                     (point.y / cone.falloff * cone.aspect + 1.0f) * 0.5f);
}

ProjectorCoordinate projection(const LightInstanceData& data, LightKind kind, const miVector& point,
                               miScalar cosine) {
    switch (kind) {
    case LightKind::spot: {
        const ProjectorCoordinate at = spot_projection(point, cosine, *data.cone);
        return {1.0f - at.u, 1.0f - at.v, at.inside};
    }
    case LightKind::beam:
        return beam_projection(point, *data.cone);
    default:
        return omni_projection(point);
    }
}

miColor look_up_projection(miState* state, miTag map, const miVector& point, const ProjectorCoordinate& at) {
    const miVector dir = state->dir, tex = state->tex;
    state->dir = point;
    state->tex = {at.u, at.v, 0.0f};
    miColor color{};
    if (!call_in_slot(&color, state, miSHADER_TEXTURE, map))
        color = {};
    state->dir = dir;
    state->tex = tex;
    return light_filter(state, color);
}

} // namespace orl
