/*
 * Volume fog: noise with a threshold, summed along each ray. It fills the scene or the gizmos that the host
 * lists, see gizmo.h, and relies on the noise of noise.h.
 */
#include "atm_vfog.h"

#include "noise.h"
#include "numeric.h"
#include "orl_support.h"
#include "orlshaderapi.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace orl {
namespace {

// ---- instance record

struct VolumeFogInstance {
    Gizmo* gizmos;
    miInteger gizmo_count;
    miVector wind_offset;
    miScalar hard_part; // of a gizmo, from its centre on: 1 - softEdges
    miScalar soft_edges;
    miScalar step_density; // of a step of stepSize
    miScalar frequency;
    miScalar range; // bias + 1, at least 0.0001
    miScalar low_threshold, high_threshold;
    miBoolean moving, thresholds;
};
static_assert(sizeof(VolumeFogInstance) == 64);

} // namespace

// ---- mathematics

miVector wind_vector(miInteger direction) {
    constexpr miVector vectors[] = {{0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0, 0, -1}};
    return direction >= 0 && direction < 6 ? vectors[direction] : miVector{0, 0, 0};
}

float count_fog_steps(float length, float step, miInteger limit) {
    const float all = length / step;
    const int most = limited_steps(limit);
    if (!(step > 0.0f && all > 0.0f)) // also what is not a number
        return 0.0f;
    return std::min(all, static_cast<float>(most));
}

float fog_amount(float sum, bool exponential) {
    return exponential ? 1.0f - numeric::exp(-sum) : sum;
}

namespace {

float density_of_noise(const FogTexture& fog, float noise) {
    const float summed = fog.turbulence ? noise * 4.0f - 1.0f : noise;
    const float biased = summed + fog.bias;
    const float turned = fog.invert ? -biased : biased;
    const float value = turned > 0.0f ? turned / fog.range : 0.0f;
    return fog.thresholds ? smoothStep(fog.lowThreshold, fog.highThreshold, value) : value;
}

// The density of fog, 1 for the densest, at the ends of `count` steps from `first` on.
void find_densities(const FogTexture& fog, const FogWay& way, int first, int count, float* density) {
    MarchPoints points, scaled;
    place_points(way.march, first, count, points);
    scale_points(points, way.offset, {fog.frequency, fog.frequency, fog.frequency}, count, scaled);
    alignas(16) float noise[steps_at_once];
    sum_noise(fog.noise, scaled, count, noise);
    for (int i = 0; i < count; ++i)
        density[i] = density_of_noise(fog, noise[i]);
    if (way.soft == nullptr)
        return;
    float out[steps_at_once];
    falloff(*way.soft, points.x, points.y, points.z, count, out);
    for (int i = 0; i < count; ++i)
        if (out[i] > fog.hardPart)
            density[i] *= 1.0f - (out[i] - fog.hardPart) / fog.softEdges;
}

} // namespace

float march_fog(const FogTexture& fog, bool exponential, const FogWay& way, float sum) {
    constexpr float opaque = 25.0f; // 1 - exp(-25) is 1
    const float enough = exponential ? opaque : 1.0f;
    const int points = way.march.points();
    for (int first = 0; first < points && sum < enough; first += steps_at_once) {
        const int count = std::min(steps_at_once, points - first);
        float density[steps_at_once];
        find_densities(fog, way, first, count, density);
        if (first + count == points) // perhaps the partial step
            density[count - 1] *= way.march.steps - static_cast<float>(points - 1);
        for (int i = 0; i < count && sum < enough; ++i)
            sum += density[i] * way.density;
    }
    return exponential ? sum : std::min(sum, 1.0f);
}

// ---- rays

namespace {

// Deliberate: longer ways have no fog at all rather than some, as in the host. Limited steps would cover
// little of them.
constexpr float longest_way = 100000.0f;

FogTexture read_texture(miState* state, const VolumeFogParams* params, const VolumeFogInstance& data) {
    const miInteger type = eval(state, params->noiseType);
    const bool summed = type == fog_noise_fractal || type == fog_noise_turbulence;
    FogTexture fog;
    fog.turbulence = type == fog_noise_turbulence;
    fog.noise = {summed ? eval(state, params->levels) : 1.0f, fog.turbulence, data.moving != miFALSE,
                 eval(state, params->phase)};
    fog.frequency = data.frequency;
    fog.bias = eval(state, params->bias);
    fog.range = data.range;
    fog.invert = eval(state, params->invert);
    fog.thresholds = data.thresholds;
    fog.lowThreshold = data.low_threshold;
    fog.highThreshold = data.high_threshold;
    fog.hardPart = data.hard_part;
    fog.softEdges = data.soft_edges;
    return fog;
}

struct FogSteps {
    float length; // world units
    miInteger limit;
    bool exponential;
};

float add_fog_of_ray(const FogTexture& fog, const FogSteps& steps, const VolumeFogInstance& data,
                     const WorldRay& ray) {
    if (!(ray.length <= longest_way))
        return 0.0f;
    const FogWay way{
        {ray.org, scaled(ray.dir, steps.length), count_fog_steps(ray.length, steps.length, steps.limit)},
        data.wind_offset,
        data.step_density,
        nullptr};
    return march_fog(fog, steps.exponential, way, 0.0f);
}

// In a gizmo lengths are those of its space: a gizmo that grows with the scene around it looks the same.
float add_fog_of_gizmo(const FogTexture& fog, const FogSteps& steps, const VolumeFogInstance& data,
                       const Gizmo& gizmo, const WorldRay& ray, float sum) {
    GizmoPassage passage;
    const int count = limited_steps(steps.limit);
    if (count == 0 || steps.length == 0.0f || !pass_through_gizmo(gizmo, ray, passage) ||
        !(passage.length <= longest_way))
        return sum;
    const float step = passage.length / static_cast<float>(count);
    const miVector step_vector = scaled(passage.dir, step);
    FogWay way{{passage.start, step_vector, static_cast<float>(count)},
               gizmo.noise_offset,
               data.step_density * step / steps.length,
               &gizmo};
    if (data.soft_edges == 0.0f) {
        way.march.start = transform_point(gizmo.to_world, passage.start);
        way.march.step = transform_vector(gizmo.to_world, step_vector);
        way.offset = data.wind_offset;
        way.soft = nullptr;
    }
    return march_fog(fog, steps.exponential, way, sum);
}

float fog_of_ray(miState* state, const VolumeFogParams* params, const VolumeFogInstance& data) {
    WorldRay ray;
    if (!world_ray(state, ray))
        return 0.0f;
    const FogTexture fog = read_texture(state, params, data);
    const FogSteps steps{eval(state, params->stepSize), eval(state, params->maxSteps),
                         eval(state, params->exponential) != miFALSE};
    float sum = 0.0f;
    if (data.gizmo_count == 0)
        sum = add_fog_of_ray(fog, steps, data, ray);
    for (miInteger k = 0; k < data.gizmo_count; ++k)
        sum = add_fog_of_gizmo(fog, steps, data, data.gizmos[k], ray, sum);
    const float amount = fog_amount(sum, steps.exponential);
    return std::isfinite(amount) ? amount : 0.0f; // parameters that make no sense make no fog
}

bool acts_on_ray(miState* state, const VolumeFogParams* params, const miColor& result) {
    // Of the material editor's samples nothing shall be hidden by the scene's weather.
    if (!eval(state, params->on) || is_material_editor(state))
        return false;
    if (state->type == miRAY_LIGHT && (result.a == 0.0f || !light_passes_atmosphere(state)))
        return false;
    return state->dist > 0.0 || eval(state, params->fogBackground);
}

void blend(miColor& result, const miColor& fog, float amount) {
    result.r += (fog.r - result.r) * amount;
    result.g += (fog.g - result.g) * amount;
    result.b += (fog.b - result.b) * amount;
    result.a = amount + result.a * (1.0f - amount);
}

// What gets through to what the light shines on; the alpha is the weight of the atmosphere's shadow.
void take_light(miColor& result, float amount) {
    const float left = 1.0f - amount * result.a;
    result.r *= left;
    result.g *= left;
    result.b *= left;
}

void fill_record(miState* state, const VolumeFogParams* params, VolumeFogInstance& data) {
    const miScalar phase = eval(state, params->phase);
    data.moving = phase != 0.0f;
    data.low_threshold = eval(state, params->lowThreshold);
    data.high_threshold = eval(state, params->highThreshold);
    if (data.low_threshold > data.high_threshold)
        std::swap(data.low_threshold, data.high_threshold);
    data.thresholds = data.low_threshold != 0.0f || data.high_threshold != 0.0f;
    data.soft_edges = eval(state, params->softEdges);
    data.hard_part = 1.0f - data.soft_edges;
    data.step_density = eval(state, params->density) * 0.002f * eval(state, params->stepSize);
    const miScalar size = eval(state, params->size);
    data.frequency = size != 0.0f ? 1.0f / size : 0.0f;
    data.range = std::max(eval(state, params->bias) + 1.0f, 0.0001f);
    const miScalar way = phase * eval(state, params->windStrength);
    data.wind_offset = scaled(wind_vector(eval(state, params->windDirection)), way);
    const auto nodes = span(state, params, &VolumeFogParams::gizmos);
    data.gizmo_count = nodes.size();
    data.gizmos = read_gizmos(state, nodes, {1.0f, GizmoShape::centred_cylinder, data.wind_offset});
}

} // namespace
} // namespace orl

using namespace orl;

// ---- entry points

ORL_VERSION(atm_vfog, orl_VolumeFog);

ORL_EXPORT void orl_VolumeFog_init(miState* state, const VolumeFogParams* params,
                                   miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required)) {
        noiseTablesInit(state);
        return;
    }
    if (auto* const data = new_instance_data<VolumeFogInstance>(state))
        fill_record(state, params, *data);
}

ORL_EXPORT miBoolean orl_VolumeFog(miColor* result, miState* state, const VolumeFogParams* params) {
    const auto* const data = instance_data<VolumeFogInstance>(state);
    if (data == nullptr || !acts_on_ray(state, params, *result))
        return miTRUE;
    const float amount = fog_of_ray(state, params, *data);
    if (state->type == miRAY_LIGHT)
        take_light(*result, amount);
    else
        blend(*result, eval(state, params->color), amount);
    return miTRUE;
}

ORL_EXPORT void orl_VolumeFog_exit(miState* state, const VolumeFogParams* params) {
    if (params == nullptr)
        return;
    if (const auto* const data = instance_data<VolumeFogInstance>(state))
        release_gizmos(data->gizmos);
    delete_instance_data(state);
}
