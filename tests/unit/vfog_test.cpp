// Volume fog: against closed forms and against its settings in plain words, one step after the other.
#include "atm_vfog.h"
#include "gizmo_fixture.h"
#include "noise.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>

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
        {0.25f, 1000, 20, 0.1f}, {1.5f, 4, 20, 0.1f}, // 3 steps and a third of one
        {7, 1000, 20, 0.1f},                          // part of a step
        {1.5f, 3, 20, 0.09f},                         // the limit ends it: 4.5 units
        {1, 2, 20, 0.04f},       {1, 1000, 2000, 10}, // opaque
        {0, 1000, 20, 0},        {-1, 1000, 20, 0},   {1, 0, 20, 0}, {1, -3, 20, 0},
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

// Down the ray of 5 units, in the world or through a ball of radius 1 around (0, 0, 2), with one step after
// the other; linear fog to the same bits. Fog of soft edges has its place in the ball, whose offset are the
// generator's first numbers after the seed 1.
TEST_F(VolumeFog, SettingsStepByStep) {
    constexpr miVector winds[] = {{0, -1, 0}, {0, 1, 0},  {-1, 0, 0}, {1, 0, 0},
                                  {0, 0, 1},  {0, 0, -1}, {0, 0, 0}};
    const auto drawn = [](float number) { return number * 3.051851e-5f * 1000.0f; };
    int k = 0, opaque = 0;
    for (const miInteger type : {0, 1, 2})
        for (const float phase : {0.0f, 1.3f})
            for (const float levels : {0.0f, 1.0f, 2.7f, 5.0f})
                for (const float all : {0.4f, 3.0f, 63.75f, 64.0f, 65.0f, 259.5f})
                    for (const auto& [in_ball, soft] : {std::pair{false, 0.3f}, {true, 0.0f}, {true, 0.3f}}) {
                        const int row = k++;
                        Fog fog(state);
                        fog->noiseType = type, fog->phase = phase, fog->levels = levels;
                        fog->size = 1.4f, fog->softEdges = soft;
                        fog->density = 300, fog->bias = row % 11 == 0 ? -1 : 0.1f;
                        fog->stepSize = 5 / all, fog->maxSteps = in_ball ? static_cast<int>(all) : 1000;
                        fog->windDirection = row % 7, fog->windStrength = 40;
                        fog->invert = row % 5 == 0, fog->exponential = row % 13 == 0;
                        fog->lowThreshold = row % 4 ? 0.8f : 0, fog->highThreshold = row % 4 > 1 ? 0.05f : 0;
                        if (in_ball)
                            fog.fill({add_node(ball, up)});
                        fog.start();

                        const bool of_ball = in_ball && soft != 0;
                        const miVector& wind = winds[row % 7];
                        const float way = phase * 40, x = way * wind.x + (of_ball ? drawn(41) : 0),
                                    y = way * wind.y + (of_ball ? drawn(18467) : 0),
                                    z = way * wind.z + (of_ball ? drawn(6334) : 0);
                        const float start = of_ball ? 1 : in_ball ? 3 : 5, size = 1 / 1.4f;
                        const auto whole = static_cast<float>(fog->maxSteps);
                        const float steps = in_ball ? whole : 5 / fog->stepSize;
                        const float step = in_ball ? 2 / whole : fog->stepSize;
                        const float dense = 300 * 0.002f * fog->stepSize;
                        float sum = 0;
                        for (float t = 0; t < steps && (fog->exponential || sum < 1); ++t) {
                            const float end = std::fmin(t + 1, steps), at = start - end * step;
                            float density = density_at(fog.params(), x * size, y * size, (at + z) * size);
                            if (of_ball && std::fabs(at) > 1 - soft)
                                density *= 1 - (std::fabs(at) - (1 - soft)) / soft;
                            sum += density * (end - t) * (in_ball ? dense * step / fog->stepSize : dense);
                        }
                        if (fog->exponential)
                            EXPECT_NEAR(amount(fog), 1 - std::exp(-sum), 1e-6f) << row;
                        else
                            EXPECT_EQ(amount(fog), std::fmin(sum, 1.0f)) << row;
                        opaque += !fog->exponential && sum >= 1;
                    }
    EXPECT_GT(opaque, 0); // marches that stop early are among them
    EXPECT_LT(opaque, k / 2);
}

TEST_F(VolumeFog, SettingsThatMakeNoSense) {
    using P = VolumeFogParams;
    const std::vector<Change<P>> changes{
        [](P& p) { p.maxSteps = 1000000000; },
        [](P& p) { p.maxSteps = INT_MIN; },
        [](P& p) { p.maxSteps = 1000000000, p.stepSize = 1e-30f; },
        [](P& p) { p.noiseType = -5, p.windDirection = 77, p.levels = 1e30f; },
    };
    const miTag gizmo = add_node(sphere);
    for (const bool exponential : {false, true})
        for (const bool in_gizmo : {false, true})
            survives<P>(changes,
                        {&P::size, &P::density, &P::bias, &P::phase, &P::stepSize, &P::windStrength,
                         &P::levels, &P::lowThreshold, &P::highThreshold, &P::softEdges},
                        [&](const Change<P>& change) {
                            Fog fog(state);
                            fog->size = 3;
                            fog->phase = 0.5f;
                            fog->softEdges = 0.2f;
                            fog->exponential = exponential;
                            change(fog.params());
                            if (in_gizmo)
                                fog.fill({gizmo});
                            fog.start();
                            return shade(fog, {0.5f, 0.5f, 0.5f, 0.5f});
                        });
}

} // namespace
