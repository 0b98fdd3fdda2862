// The blend material.
#include "mixing.h"
#include "orl_cpdmtl.h"
#include "shader_fixture.h"

#include <tuple>

using namespace orl;

ENTRY_POINT(orl_BlendMaterial, miColor, BlendMaterialParams);
INIT_AND_EXIT(orl_BlendMaterial, BlendMaterialParams);

namespace {

// The first material gives 1, the second 10; both multiply what a shadow ray brings. The mask is 1.5 m, m,
// 0.5 m.
class Blend : public ShaderTest {
protected:
    LiveShader<BlendMaterialParams> blend{state, orl_BlendMaterial_init, orl_BlendMaterial_exit};
    std::vector<float> runs; // importance and normal.z
    float mask = -1;         // negative: fails
    miColor result{};

    miTag add_sub_material(float value) {
        miMaterial sub{};
        sub.shader = sub.shadow = renderer.add_shader([=, this](void* to, miState* s, void*) {
            auto& c = *static_cast<miColor*>(to);
            runs.insert(runs.end(), {s->importance, s->normal.z}), s->normal.z = 9;
            c = s->type == miRAY_SHADOW ? miColor{c.r * value, c.g * value, c.b * value, c.a}
                                        : miColor{value, value, value, value};
            return value > 0 ? miTRUE : miFALSE;
        });
        return renderer.add_material(sub);
    }
    Blend() {
        blend->material1 = add_sub_material(1), blend->material2 = add_sub_material(10);
        blend->material1On = blend->material2On = miTRUE;
        blend->mask = renderer.add_shader([this](void* to, miState*, void* request) {
            *static_cast<miColor*>(to) = {mask * 1.5f, mask, mask * 0.5f, 0};
            return mask >= 0 && *static_cast<miInteger*>(request) == 1;
        });
        state.camera.framebuffers = renderer.add_framebuffers({{"fb_mtl_id", miIMG_TYPE_TAG}});
        blend.start(), state->importance = 0.5f;
    }
    miBoolean run(miColor incoming = {}) {
        runs.clear(), result = incoming, state->normal.z = 1;
        state.run(blend, state->type == miRAY_SHADOW ? miSHADER_SHADOW : miSHADER_MATERIAL);
        const miBoolean answer = orl_BlendMaterial(&result, state, &blend.params());
        EXPECT_EQ(state->importance, 0.5f);
        return answer;
    }
};

TEST_F(Blend, Mixes) {
    for (const auto& [amount, which] : {std::pair{0.00009f, BlendChoice::first},
                                        {0.0001f, BlendChoice::both},
                                        {0.9999f, BlendChoice::both},
                                        {0.99991f, BlendChoice::second}})
        EXPECT_EQ(choose_blend(amount).which, which) << amount;
    EXPECT_EQ(mixing_curve(0.5f, 0.5f, 0.5f), 1);
    blend->useCurve = miTRUE, blend->lower = 0.3f, blend->upper = 0.7f; // which only masks take
    // amount, first on, second on: value
    const std::tuple<float, bool, bool, float> amounts[] = {
        {0.00005f, true, true, 1}, {0.99995f, true, true, 10}, {0.25f, true, true, 3.25f},
        {0.5f, true, false, 1},    {0.5f, false, true, 10},    {0.5f, false, false, 0},
        {0, false, true, 0},       {1, true, false, 0},        {not_a_number, true, true, 1}};
    for (const auto& [amount, first, second, value] : amounts) {
        blend->mixAmount = amount, blend->material1On = first, blend->material2On = second;
        EXPECT_TRUE(run() && result == (miColor{value, value, value, value})) << amount;
    }
    blend->maskOn = blend->material1On = blend->material2On = miTRUE, blend->lower = 0.2f,
    blend->upper = 0.8f;
    // mask, curve: share of the second; s = 0.25 gives (3 - 0.5) / 16
    const std::tuple<float, bool, float> masks[] = {
        {0.1f, true, 0},       {0.9f, true, 1}, {0.5f, true, 0.5f}, {0.35f, true, 0.15625f},
        {0.35f, false, 0.35f}, {1, false, 1},   {-1, true, 0},      {-1, false, 0}};
    for (const auto& [intensity, curve, share] : masks) {
        mask = intensity, blend->useCurve = curve, run();
        EXPECT_NEAR(result.r, 1 + 9 * share, 2e-4f) << mask; // a third is 0.33333
    }
    mask = 0.5f, run();
    EXPECT_FLOAT_EQ(result.r, 1 + 9 * 0.499995f);
}

TEST_F(Blend, SplitsTheStateAndFiltersLight) {
    blend->mixAmount = 0.25f, blend->mtlId = 5, run();
    EXPECT_EQ(runs, (std::vector<float>{0.375f, 1, 0.125f, 1}));
    state->type = miRAY_SHADOW;
    EXPECT_TRUE(run({0.5f, 0, 0, 1}) && result.r == 0.5f * 3.25f);
    EXPECT_FALSE(run({0, 0, 0, 1}));
    blend->material2 = add_sub_material(-1);
    EXPECT_TRUE(run({0.5f, 0, 0, 1}) && result.r == 0.375f);
    blend->mixAmount = 1;
    EXPECT_FALSE(run({0.5f, 0, 0, 1}));
    EXPECT_EQ(renderer.framebuffer_writes().size(), 1u);
}

} // namespace
