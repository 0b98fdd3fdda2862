/*
 * Distance fog, run on the colour that a ray brings back. Relies on the noise tables for the horizon, and on
 * the camera's record for the ranges.
 */
#include "atm_fog.h"
#include "noise.h"
#include "numeric.h"
#include "orl_support.h"
#include "orlshaderapi.h"
#include "output_request.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>

namespace orl {
namespace {

// ---- instance data

struct FogInstance {
    miInteger hasColorMap;
    miInteger hasOpacityMap;
    miScalar nearValue;
    miScalar farValue;
    miScalar valueRange;
    miScalar thickness;
    miScalar layerDensity;
    miScalar noiseScale;
    miScalar rangeNear;
    miScalar rangeFar;
    miScalar rangeLength;
    miScalar slope;
};
static_assert(sizeof(FogInstance) == 48);

} // namespace

// ---- mathematics

miScalar fog_value(const FogRange& range, miScalar depth) {
    const miScalar d = std::fabs(depth);
    if (d < range.rangeNear)
        return range.nearValue;
    if (d > range.rangeFar)
        return range.farValue;
    return range.nearValue + (d - range.rangeNear) * range.slope;
}

miScalar fog_exponent(miScalar x) {
    return -numeric::log(std::max(1.0f - x, 0.001f));
}

miScalar layer_exponent(const FogLayer& layer, miScalar low, miScalar high, miScalar distance) {
    // Of the layer's thickness, from its bottom; all of a layer without thickness, whose 0 / 0 keeps the
    // limits.
    miScalar from = std::max(0.0f, (low - layer.bottom) / layer.thickness);
    miScalar to = std::min(1.0f, (high - layer.bottom) / layer.thickness);
    if (layer.falloff == FogLayer::towards_bottom) {
        const miScalar flipped = 1.0f - to;
        to = 1.0f - from;
        from = flipped;
    }
    // Integral of the density 1 + 2t - 3t^2, which is 0 at the top.
    const auto integral = [](miScalar t) { return t + t * t * (1.0f - t); };
    miScalar share = 1.0f; // deliberate: of an unknown falloff, which the host takes for all of the layer
    if (layer.falloff == FogLayer::towards_top || layer.falloff == FogLayer::towards_bottom)
        share = integral(to) - integral(from);
    else if (layer.falloff == FogLayer::none)
        share = to - from;
    // Deliberate: heights count by the layer's thickness and lengths by their horizontal part, so that the
    // same density looks the same in layers of any thickness, and straight up and down is clear.
    return -share * layer.density * distance / (high - low);
}

miScalar horizon_factor(const miVector& dir, miScalar angle, miScalar scale, miScalar phase) {
    const miScalar elevation = numeric::asin(std::clamp(dir.z, -1.0f, 1.0f));
    if (!(std::fabs(elevation) < angle))
        return 1;
    const miScalar n = std::min(
        1.0f, perlinNoise3(numeric::atan2(dir.y, dir.x) * scale, elevation * scale - phase, phase) + 1.0f);
    // Deliberate: the last factor takes all fog from the horizon itself, so that it stays a clear line.
    const miScalar w = std::fabs(elevation) / angle;
    return (1.0f - (1.0f - w) * n) * w;
}

namespace {

// ---- reading the state

// Amounts of fog in red, green and blue.
struct Amounts {
    miScalar r, g, b;
};

// The fog's colour and, where a map scales its density, the opacities.
struct Fog {
    miColor color;
    miColor opacity;
    bool has_opacity_map;
};

FogRange range_of(const FogInstance& instance) {
    return {instance.nearValue, instance.farValue, instance.rangeNear, instance.rangeFar, instance.slope};
}

miScalar depth_of(miState* state, miVector point) {
    mi_point_to_camera(state, &point, &point);
    return point.z;
}

Fog fog_of(miState* state, const FogParams* params, const FogInstance& instance) {
    Fog fog{eval(state, params->color), {0, 0, 0, 0}, instance.hasOpacityMap != 0};
    if (instance.hasColorMap)
        call_map(&fog.color, state, eval(state, params->colorMap), OutputRequest::color);
    if (instance.hasOpacityMap)
        call_map(&fog.opacity, state, eval(state, params->opacityMap), OutputRequest::color);
    return fog;
}

// Settings that are no numbers make no fog.
miScalar number_or_0(miScalar amount) {
    return std::isnan(amount) ? 0.0f : amount;
}

// What fog of an exponent, not positive, amounts to.
miScalar amount_of(miScalar exponent) {
    return number_or_0(1.0f - numeric::exp(exponent));
}

Amounts amounts_of(const Fog& fog, miScalar exponent) {
    if (fog.has_opacity_map)
        return {amount_of(exponent * fog.opacity.r), amount_of(exponent * fog.opacity.g),
                amount_of(exponent * fog.opacity.b)};
    const miScalar amount = amount_of(exponent);
    return {amount, amount, amount};
}

// ---- blending

void add_fog(miColor& result, const miColor& color, const Amounts& x) {
    result.r += (color.r - result.r) * x.r;
    result.g += (color.g - result.g) * x.g;
    result.b += (color.b - result.b) * x.b;
}

miScalar largest(miScalar r, miScalar g, miScalar b) {
    return std::max(std::max(r, g), b);
}

void blend(miColor& result, const miColor& color, const Amounts& x) {
    const miScalar a = 1.0f - result.a;
    add_fog(result, color, x);
    result.a = largest(1.0f - (1.0f - x.r) * a, 1.0f - (1.0f - x.g) * a, 1.0f - (1.0f - x.b) * a);
}

// ---- the two kinds

bool hit_nothing(const miState* state) {
    return !(state->dist > 0.0);
}

void linear_fog(miColor& result, miState* state, const Fog& fog, const FogRange& range) {
    const miScalar value =
        hit_nothing(state) ? range.farValue : fog_value(range, depth_of(state, state->point));
    const miScalar f = number_or_0(std::min(value, 1.0f));
    if (!fog.has_opacity_map)
        return blend(result, fog.color, {f, f, f});
    // Deliberate: coverage takes opacity and amount one after the other here, not as their product, as in
    // the host's own renderer.
    const miScalar a = 1.0f - result.a;
    const miColor& o = fog.opacity;
    add_fog(result, fog.color, {o.r * f, o.g * f, o.b * f});
    const auto transparency = [=](miScalar opacity) { return 1.0f - (1.0f - opacity) * (1.0f - f) * a; };
    result.a = largest(transparency(o.r), transparency(o.g), transparency(o.b));
}

void exponential_fog(miColor& result, miState* state, const Fog& fog, const FogRange& range) {
    const miScalar end =
        hit_nothing(state) ? range.farValue : fog_value(range, depth_of(state, state->point));
    blend(result, fog.color, amounts_of(fog, fog_value(range, depth_of(state, state->org)) - end));
}

// The ray in world space; one that hit nothing is as good as endless.
struct FogRay {
    miVector origin, end, dir;
};

FogRay fog_ray(miState* state) {
    constexpr miScalar endless = 1e9f;
    FogRay ray;
    mi_point_to_world(state, &ray.origin, &state->org);
    mi_vector_to_world(state, &ray.dir, &state->dir);
    mi_vector_normalize(&ray.dir);
    if (hit_nothing(state))
        ray.end = along(ray.origin, ray.dir, endless);
    else
        mi_point_to_world(state, &ray.end, &state->point);
    return ray;
}

void layered_fog(miColor& result, miState* state, const FogParams* params, const FogInstance& instance,
                 const Fog& fog) {
    const FogRay ray = fog_ray(state);
    const miScalar one = eval(state, params->top), other = eval(state, params->bottom);
    const miScalar bottom = std::min(one, other), top = std::max(one, other);
    const miScalar low = std::min(ray.origin.z, ray.end.z), high = std::max(ray.origin.z, ray.end.z);
    if (!(high >= bottom && low <= top))
        return;
    const miScalar noise = eval(state, params->horizonNoise)
                               ? horizon_factor(ray.dir, eval(state, params->noiseAngle), instance.noiseScale,
                                                eval(state, params->noisePhase))
                               : 1.0f;
    if (high == low) {
        // Deliberate: full fog, so that the opacities themselves are the amounts and not an exponential of
        // them.
        const Amounts full =
            fog.has_opacity_map ? Amounts{fog.opacity.r, fog.opacity.g, fog.opacity.b} : Amounts{1, 1, 1};
        return blend(result, fog.color, {full.r * noise, full.g * noise, full.b * noise});
    }
    const FogLayer layer{bottom, instance.thickness, instance.layerDensity, eval(state, params->falloff)};
    const miScalar dx = ray.end.x - ray.origin.x, dy = ray.end.y - ray.origin.y;
    const miScalar exponent = layer_exponent(layer, low, high, std::sqrt(dx * dx + dy * dy));
    if (fog.has_opacity_map)
        return blend(result, fog.color, amounts_of(fog, exponent * noise));
    const miScalar amount = amount_of(exponent) * noise;
    blend(result, fog.color, {amount, amount, amount});
}

// ---- init

miScalar value_of(miState* state, const miScalar& amount, bool exponential) {
    const miScalar x = eval(state, amount);
    return exponential ? fog_exponent(x) : x;
}

void set_ranges(FogInstance& fog, const orl_CameraData* camera) {
    // Deliberate: without ranges the amounts stand for them too, so that fog fills one unit before the eye.
    fog.rangeNear = camera ? camera->near_range : fog.nearValue;
    fog.rangeFar = camera ? camera->far_range : fog.farValue;
    fog.rangeLength = fog.rangeFar - fog.rangeNear;
    fog.slope = 1.0f;
    if (camera)
        fog.slope = fog.rangeLength != 0.0f ? fog.valueRange / fog.rangeLength : 0.0f;
}

} // namespace

// ---- fog

ORL_VERSION(atm_fog, orl_Fog);

ORL_EXPORT void orl_Fog_init(miState* state, const FogParams* params, miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return noiseTablesInit(state);
    auto* const fog = new_instance_data<FogInstance>(state);
    if (fog == nullptr)
        return;
    fog->hasColorMap = eval(state, params->useColorMap) && eval(state, params->colorMap) != miNULLTAG;
    fog->hasOpacityMap = eval(state, params->useOpacityMap) && eval(state, params->opacityMap) != miNULLTAG;
    const bool exponential = eval(state, params->exponential);
    fog->nearValue = value_of(state, params->nearAmount, exponential);
    fog->farValue = value_of(state, params->farAmount, exponential);
    fog->valueRange = fog->farValue - fog->nearValue;
    fog->thickness = std::fabs(eval(state, params->top) - eval(state, params->bottom));
    fog->layerDensity = eval(state, params->density) * 0.01f;
    const miScalar size = eval(state, params->noiseSize);
    fog->noiseScale = size != 0.0f ? 400.0f / size : size;
    if (eval(state, params->type) == 0)
        set_ranges(*fog, camera_data(state));
}

ORL_EXPORT miBoolean orl_Fog(miColor* result, miState* state, const FogParams* params) {
    const auto* const instance = instance_data<FogInstance>(state);
    const bool fogged_ray = state->type == miRAY_EYE || state->type == miRAY_TRANSPARENT;
    if (instance == nullptr || !fogged_ray || !eval(state, params->active) ||
        (hit_nothing(state) && !eval(state, params->fogBackground)))
        return miTRUE;
    const bool layered = eval(state, params->type) != 0;
    // A layer would hide the material editor's samples, which lie at the origin.
    if (layered && is_material_editor(state))
        return miTRUE;
    const Fog fog = fog_of(state, params, *instance);
    if (layered)
        layered_fog(*result, state, params, *instance, fog);
    else if (eval(state, params->exponential))
        exponential_fog(*result, state, fog, range_of(*instance));
    else
        linear_fog(*result, state, fog, range_of(*instance));
    return miTRUE;
}

ORL_EXPORT void orl_Fog_exit(miState* state, const FogParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

} // namespace orl
