// Volume fog: against closed forms and against its settings in plain words, one step after the other.
#include "atm_vfog.h"
#include "gizmo_fixture.h"
#include "noise.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>

ENTRY_POINT(orl_VolumeFog, miColor, orl::VolumeFogParams);
INIT_AND_EXIT(orl_VolumeFog, orl::VolumeFogParams);

namespace {

using namespace orl;

struct Fog : GizmoShader<VolumeFogParams> {
    explicit Fog(scripted::State& state) : GizmoShader(state, orl_VolumeFog_init, orl_VolumeFog_exit) {
        VolumeFogParams& p = params();
        p.color = {0.8f, 0.6f, 0.4f, 1};
        p.density = 20;
        p.stepSize = 0.25f;
        p.maxSteps = 1000;
        p.noiseType = fog_noise_fractal;
        p.levels = 2.5f;
        p.on = p.fogBackground = miTRUE;
    }
};

class VolumeFog : public GizmoTest {
protected:
    miColor shade(Fog& fog, miColor color = {0, 0, 0, 0}) {
        state.run(fog, miSHADER_VOLUME);
        EXPECT_TRUE(orl_VolumeFog(&color, state, &fog.params()));
        return color;
    }
    float amount(Fog& fog) { return shade(fog).a; } // of a transparent ray: the fog alone

    // Size 0 looks all noise up in one place, where it is 0; the bias 1 makes fog of density 1/2.
    miColor shade_even(const std::function<void(Fog&)>& change, miColor color = {0, 0, 0, 0}) {
        Fog fog(state);
        fog->size = 0, fog->bias = 1;
        change(fog);
        fog.start();
        return shade(fog, color);
    }
};

// A ray of 5 units: 0.5 * 20 * 0.002 * 5 = 0.1, in whole and in broken steps.
TEST_F(VolumeFog, EvenFogHasTheClosedForm) {
    const struct {
        float step;
        miInteger limit;
        float density, expected;
    } cases[] = {
        {0.25f, 1000, 20, 0.1f},   {1.5f, 4, 20, 0.1f}, // 3 steps and a third of one
        {7, 1000, 20, 0.1f},                            // part of a step
        {0.0625f, 1000, 20, 0.1f},                      // 80 steps: more than are taken at once
        {1.5f, 3, 20, 0.09f},                           // the limit ends it: 4.5 units
        {1, 2, 20, 0.04f},         {1, 1000, 2000, 10}, // opaque
        {0, 1000, 20, 0},          {-1, 1000, 20, 0},   {1, 0, 20, 0}, {1, -3, 20, 0},
    };
    for (const auto& each : cases)
        for (const bool exponential : {false, true}) {
            const auto change = [&](Fog& fog) {
                fog->stepSize = each.step, fog->maxSteps = each.limit, fog->density = each.density;
                fog->exponential = exponential;
            };
            EXPECT_NEAR(shade_even(change).a,
                        exponential ? 1 - std::exp(-each.expected) : std::fmin(1.0f, each.expected), 2e-6f)
                << each.step << ' ' << each.limit << ' ' << each.density;
        }
}

TEST_F(VolumeFog, WhichRaysAreFogged) {
    orl_SceneData editor{};
    editor.material_editor = miTRUE;
    const miColor carried{1, 0.5f, 0.25f, 0.5f};
    const float a = 0.1f; // of the ray of 5 units
    const miColor fogged = shade_even([](Fog&) {}, carried);
    EXPECT_NEAR(fogged.r, 1 + (0.8f - 1) * a, 1e-6f);
    EXPECT_NEAR(fogged.b, 0.25f + (0.4f - 0.25f) * a, 1e-6f);
    EXPECT_NEAR(fogged.a, a + 0.5f * (1 - a), 1e-6f);
    EXPECT_EQ(shade_even([](Fog& fog) { fog->on = miFALSE; }, carried), carried);

    // Light: dimmed by the weight in its alpha, where its light left the atmosphere on the ray.
    state->type = miRAY_LIGHT;
    state->volume = 1;
    const miColor lit = shade_even([](Fog&) {}, carried);
    EXPECT_NEAR(lit.r, 1 - a * 0.5f, 1e-6f);
    EXPECT_NEAR(lit.b, 0.25f * (1 - a * 0.5f), 1e-6f);
    EXPECT_EQ(lit.a, 0.5f);
    EXPECT_EQ(shade_even([](Fog&) {}, {1, 1, 1, 0}), (miColor{1, 1, 1, 0}));
    state->volume = miNULLTAG;
    EXPECT_EQ(shade_even([](Fog&) {}, carried), carried);

    state->type = miRAY_EYE;
    set_scene(editor);
    EXPECT_EQ(shade_even([](Fog&) {}, carried), carried);
    set_scene(orl_SceneData{});
    EXPECT_NE(shade_even([](Fog&) {}, carried), carried);

    // Into nothing: too far without a gizmo; from the middle of the ball its radius.
    const auto filled = [&](miBoolean background) {
        return [&, background](Fog& fog) { fog.fill({add_node(ball)}), fog->fogBackground = background; };
    };
    state.set_miss({0, 0, 0}, {0, 1, 0});
    EXPECT_EQ(shade_even([](Fog&) {}, carried), carried);
    EXPECT_NEAR(shade_even(filled(miTRUE), {}).a, 0.02f, 1e-6f);
    EXPECT_EQ(shade_even(filled(miFALSE), carried), carried);
    const auto countless = [&](Fog& fog) { filled(miTRUE)(fog), fog->maxSteps = INT_MAX; };
    EXPECT_NEAR(shade_even(countless, {}).a, 0.02f, 1e-4f); // in time
    const auto nonsense = [&](Fog& fog) { filled(miTRUE)(fog), fog->density = not_a_number; };
    EXPECT_EQ(shade_even(nonsense, carried), carried);

    // Ways of more than 100000 units, of the world or of the gizmo, have no fog.
    constexpr miMatrix tiny{1e-5f, 0, 0, 0, 0, 1e-5f, 0, 0, 0, 0, 1e-5f, 0, 0, 0, 0, 1};
    for (const auto& [length, amount] : {std::pair{90000.0f, 0.18f}, {110000.0f, 0.0f}}) {
        const auto in_gizmo = [&](Fog& fog) {
            orl_GizmoData large = ball;
            large.radius = length / 2;
            fog->density = 2e-4f;
            fog.fill({add_node(large, tiny)});
        };
        state.set_hit({0, 0, length}, {0, 0, 0}, {0, 0, 1});
        EXPECT_NEAR(shade_even([](Fog& fog) { fog->density = 2e-3f, fog->stepSize = 1e4f; }, {}).a, amount,
                    1e-5f);
        state.set_hit({0, 0, 5}, {0, 0, -5}, {0, 0, 1});
        EXPECT_NEAR(shade_even(in_gizmo, {}).a, amount / 10, 1e-5f);
    }
}

// The density of fog where noise is looked up, in plain words.
float density_at(const VolumeFogParams& p, float x, float y, float z) {
    const bool turbulence = p.noiseType == fog_noise_turbulence;
    const float levels = turbulence || p.noiseType == fog_noise_fractal ? p.levels : 1.0f;
    float sum = 0.0f;
    for (int i = 0; i < 6; ++i) {
        const float f = std::ldexp(1.0f, i), share = std::clamp(levels - static_cast<float>(i), 0.0f, 1.0f);
        const float n =
            p.phase != 0 ? perlinNoise4(f * x, f * y, f * z, p.phase) : perlinNoise3(f * x, f * y, f * z);
        sum += share * (turbulence ? std::fabs(n) : n) / f;
    }
    const float biased = (turbulence ? sum * 4 - 1 : sum) + p.bias;
    const float value = std::fmax(0.0f, p.invert ? -biased : biased) / std::fmax(p.bias + 1, 0.0001f);
    const float low = std::fmin(p.lowThreshold, p.highThreshold),
                high = std::fmax(p.lowThreshold, p.highThreshold);
    return low != 0 || high != 0 ? smoothStep(low, high, value) : value;
}

// Four steps down the ray of 5 units, in the world or through a ball of radius 1 around (0, 0, 2). Fog of
// soft edges has its place in the ball, whose offset are the generator's first numbers after the seed 1.
TEST_F(VolumeFog, NoiseByItsSettings) {
    const struct {
        miInteger type;
        float phase, levels, low, high;
        miInteger wind;
        miVector to;
        miBoolean invert, in_ball;
        float soft;
    } cases[] = {
        {fog_noise_plain, 0, 3, 0, 0, 0, {0, -1, 0}, 0, 0, 0},
        {fog_noise_plain, 1.3f, 3, 0, 0, 1, {0, 1, 0}, 1, 1, 0.3f},
        {fog_noise_fractal, 1.3f, 2.7f, 0, 0, 2, {-1, 0, 0}, 0, 0, 0},
        {fog_noise_fractal, 1.3f, 1, 0.8f, 0, 3, {1, 0, 0}, 1, 1, 0.6f},
        {fog_noise_fractal, 1.3f, 5, 0.8f, 0.05f, 4, {0, 0, 1}, 0, 1, 0},
        {fog_noise_turbulence, 1.3f, 2.7f, 0, 0, 5, {0, 0, -1}, 0, 1, 0.6f},
        {fog_noise_turbulence, 0, 0, 0, 0, 6, {0, 0, 0}, 1, 0, 0},
        {fog_noise_turbulence, 1.3f, 5, 0.05f, 0.8f, -1, {0, 0, 0}, 0, 1, 0.6f},
    };
    for (const auto& each : cases) {
        Fog fog(state);
        fog->noiseType = each.type, fog->phase = each.phase, fog->levels = each.levels;
        fog->lowThreshold = each.low, fog->highThreshold = each.high, fog->invert = each.invert;
        fog->windDirection = each.wind, fog->windStrength = 40, fog->softEdges = each.soft;
        fog->size = 1.4f, fog->density = 100, fog->bias = 0.1f;
        fog->stepSize = 1.25f, fog->maxSteps = 4;
        if (each.in_ball)
            fog.fill({add_node(ball, up)});
        fog.start();

        const bool of_ball = each.in_ball && each.soft != 0;
        const float step = each.in_ball ? 0.5f : 1.25f, start = of_ball ? 1 : each.in_ball ? 3 : 5;
        const float way = each.phase * 40, number = of_ball ? 3.051851e-2f : 0;
        float sum = 0;
        for (int k = 1; k <= 4; ++k) {
            const float at = start - static_cast<float>(k) * step, rim = std::fabs(at);
            const float x = way * each.to.x + number * 41, y = way * each.to.y + number * 18467,
                        z = way * each.to.z + number * 6334 + at;
            const float density = density_at(fog.params(), x / 1.4f, y / 1.4f, z / 1.4f);
            sum += density * (of_ball && rim > 1 - each.soft ? (1 - rim) / each.soft : 1);
        }
        EXPECT_NEAR(amount(fog), 100 * 0.002f * step * sum, 1e-5f) << &each - cases;
    }
}

} // namespace
