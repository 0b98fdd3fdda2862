/*
 * Fire: noise that glows, thinning out towards the surface of the gizmos that it burns in, see gizmo.h. It
 * relies on the noise of noise.h.
 */
#include "atm_combust.h"

#include "noise.h"
#include "numeric.h"
#include "orlshaderapi.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>

namespace orl {
namespace {

// ---- instance record

struct FireInstance {
    miColor inner, outer;
    miScalar frequency;
    miScalar density;
    miScalar vertical; // frequency along z, in frequencies
    miScalar phase;
    miScalar growth;
    miInteger gizmo_count;
    Gizmo* gizmos;
};
static_assert(sizeof(FireInstance) == 64);

} // namespace

// ---- mathematics

namespace {

miColor mix(const miColor& a, const miColor& b, float t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t, a.a + (b.a - a.a) * t};
}

void turn_to_smoke(const FireSettings& settings, FireMoment& fire) {
    if (settings.phase > 200.0f) {
        fire.inner = fire.outer = settings.smoke_color;
    } else if (settings.phase > 100.0f) {
        const float share = smooth_ramp((settings.phase - 100.0f) * 0.01f);
        fire.inner = mix(fire.inner, settings.smoke_color, share);
        fire.outer = mix(fire.outer, settings.smoke_color, share);
    }
}

} // namespace

FireMoment fire_at(const FireSettings& settings) {
    FireMoment fire{settings.inner, settings.outer, settings.density * 0.02f,
                    settings.phase * 0.0033333334f * 5.0f, 1.0f};
    if (!settings.explosion)
        return fire;
    if (!(settings.phase >= 0.0f && settings.phase <= 300.0f)) { // also what is not a number
        fire.density = fire.phase = fire.growth = 0.0f;
        return fire;
    }
    fire.growth = std::sqrt(settings.phase * 0.01f);
    if (settings.phase > 100.0f)
        fire.density *= smooth_ramp(1.0f - (settings.phase - 100.0f) * 0.005f);
    if (settings.smoke)
        turn_to_smoke(settings, fire);
    fire.phase = std::sqrt(settings.phase * 0.013333334f) * 0.5f * 5.0f * settings.fury;
    return fire;
}

void march_fire(const Flames& flames, const Gizmo& gizmo, const MarchWay& way, float length, FireSums& sums) {
    const int points = way.points();
    for (int first = 0; first < points; first += steps_at_once) {
        const int count = std::min(steps_at_once, points - first);
        MarchPoints at, scaled;
        place_points(way, first, count, at);
        scale_points(at, gizmo.noise_offset, flames.frequency, count, scaled);
        float out[steps_at_once];
        alignas(16) float noise[steps_at_once];
        falloff(gizmo, at.x, at.y, at.z, count, out);
        sum_noise(flames.noise, scaled, count, noise);
        for (int i = 0; i < count; ++i) {
            const float flame = flames.tendrils ? std::max(0.0f, 0.5f - noise[i]) : noise[i];
            const float thinned = std::max(0.0f, flame - (out[i] - flames.regularity));
            const float n = out[i] > flames.regularity ? thinned : flame;
            const float weight = (1.0f - out[i]) * n * length * flames.density;
            sums.opacity += weight;
            sums.inner += n * weight;
        }
    }
}

miColor burn(const miColor& carried, const FireSums& sums, const miColor& inner, const miColor& outer) {
    const float left = numeric::exp(-sums.opacity);
    const auto channel = [&](float k, float inner_k, float outer_k) {
        const float glow = sums.inner * inner_k + (sums.opacity - sums.inner) * outer_k;
        return 1.0f - numeric::exp(-glow) + k * left;
    };
    return {channel(carried.r, inner.r, outer.r), channel(carried.g, inner.g, outer.g),
            channel(carried.b, inner.b, outer.b), 1.0f - left + carried.a * left};
}

miColor light_behind_fire(const miColor& incoming, const miColor& passed) {
    const float shadow = 1.0f - passed.a * 0.5f;
    const auto channel = [=](float k, float light) { return (1.0f - (1.0f - k) * 0.5f) * light * shadow; };
    return {channel(passed.r, incoming.r), channel(passed.g, incoming.g), channel(passed.b, incoming.b),
            incoming.a}; // as the light set it: what is left for a fog behind to shade
}

// ---- rays

namespace {

float reciprocal(float x) {
    return x != 0.0f ? 1.0f / x : 0.0f;
}

Flames read_flames(miState* state, const FireEffectParams* params, const FireInstance& data) {
    Flames flames;
    flames.noise = {eval(state, params->flameDetail), true, true, data.phase};
    flames.tendrils = eval(state, params->flameType) != 0;
    flames.frequency = {data.frequency, data.frequency, data.vertical * data.frequency};
    flames.regularity = eval(state, params->regularity);
    flames.density = data.density;
    return flames;
}

// False where the ray meets no gizmo.
bool fire_of_ray(miState* state, const FireEffectParams* params, const FireInstance& data, FireSums& sums) {
    WorldRay ray;
    const int steps = limited_steps(eval(state, params->samples));
    if (steps == 0 || !world_ray(state, ray))
        return false;
    const Flames flames = read_flames(state, params, data);
    bool crossed = false;
    for (miInteger k = 0; k < data.gizmo_count; ++k) {
        GizmoPassage passage;
        if (!pass_through_gizmo(data.gizmos[k], ray, passage))
            continue;
        const float step = passage.length / static_cast<float>(steps);
        const MarchWay way{passage.start, scaled(passage.dir, step), static_cast<float>(steps)};
        march_fire(flames, data.gizmos[k], way, step, sums);
        crossed = true;
    }
    return crossed;
}

void fill_record(miState* state, const FireEffectParams* params, FireInstance& data) {
    const FireMoment fire = fire_at(
        {eval(state, params->innerColor), eval(state, params->outerColor), eval(state, params->smokeColor),
         eval(state, params->density), eval(state, params->phase), eval(state, params->fury),
         eval(state, params->explosion) != miFALSE, eval(state, params->smoke) != miFALSE});
    data.inner = fire.inner;
    data.outer = fire.outer;
    data.frequency = reciprocal(eval(state, params->flameSize));
    data.density = fire.density;
    data.vertical = reciprocal(eval(state, params->stretch));
    data.phase = fire.phase;
    data.growth = fire.growth;
    const auto nodes = span(state, params, &FireEffectParams::gizmos);
    data.gizmo_count = nodes.size();
    const miScalar drift = eval(state, params->drift);
    data.gizmos = read_gizmos(state, nodes, {data.growth, GizmoShape::standing_cylinder, {0, 0, -drift}});
}

} // namespace
} // namespace orl

using namespace orl;

// ---- entry points

ORL_VERSION(atm_combust, orl_FireEffect);

ORL_EXPORT void orl_FireEffect_init(miState* state, const FireEffectParams* params,
                                    miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required)) {
        noiseTablesInit(state);
        return;
    }
    if (auto* const data = new_instance_data<FireInstance>(state))
        fill_record(state, params, *data);
}

ORL_EXPORT miBoolean orl_FireEffect(miColor* result, miState* state, const FireEffectParams* params) {
    const auto* const data = instance_data<FireInstance>(state);
    if (data == nullptr || !eval(state, params->on))
        return miTRUE;
    const bool light = state->type == miRAY_LIGHT;
    FireSums sums;
    if ((light && !light_passes_atmosphere(state)) || !fire_of_ray(state, params, *data, sums))
        return miTRUE;
    const miColor behind = light ? miColor{1, 1, 1, 0} : *result;
    const miColor burnt = burn(behind, sums, data->inner, data->outer);
    if (std::isfinite(burnt.r + burnt.g + burnt.b + burnt.a)) // parameters that make no sense make no fire
        *result = light ? light_behind_fire(*result, burnt) : burnt;
    return miTRUE;
}

ORL_EXPORT void orl_FireEffect_exit(miState* state, const FireEffectParams* params) {
    if (params == nullptr)
        return;
    if (const auto* const data = instance_data<FireInstance>(state))
        release_gizmos(data->gizmos);
    delete_instance_data(state);
}
