// The blend material.
#include "orl_cpdmtl.h"
#include "shader_fixture.h"

#include <tuple>

using namespace orl;

ENTRY_POINT(orl_BlendMaterial, miColor, BlendMaterialParams);
INIT_AND_EXIT(orl_BlendMaterial, BlendMaterialParams);

namespace {

// Two materials: the first gives 1 2 3 4, the second ten times that; both multiply what a shadow ray brings.
class Blend : public ShaderTest {
protected:
    LiveShader<BlendMaterialParams> blend{state, orl_BlendMaterial_init, orl_BlendMaterial_exit};
    std::vector<std::pair<miState*, float>> runs; // and the importance
    bool fails[2] = {};
    miColor mask_color{}, result{};
    bool mask_answers = true;

    Blend() {
        for (const float scale : {1.0f, 10.0f}) {
            miMaterial material{};
            material.shader = material.shadow = renderer.add_shader([=, this](void* to, miState* s, void*) {
                auto& c = *static_cast<miColor*>(to);
                runs.emplace_back(s, s->importance);
                const miColor by = s->type == miRAY_SHADOW ? c : miColor{1, 1, 1, 1};
                c = {scale * by.r, 2 * scale * by.g, 3 * scale * by.b, 4 * scale * by.a};
                s->normal = {9, 9, 9};
                return !fails[scale > 1] ? miTRUE : miFALSE;
            });
            (scale > 1 ? blend->material2 : blend->material1) = renderer.add_material(material);
        }
        blend->mask = renderer.add_shader([this](void* to, miState*, void* request) {
            EXPECT_EQ(*static_cast<miInteger*>(request), 1);
            *static_cast<miColor*>(to) = mask_color;
            return mask_answers ? miTRUE : miFALSE;
        });
        blend->material1On = blend->material2On = miTRUE;
        state.camera.framebuffers = renderer.add_framebuffers({{"fb_mtl_id", miIMG_TYPE_TAG}});
        blend.start();
        state->importance = 0.5f;
    }
    miBoolean run(miColor incoming = {}) {
        runs.clear(), result = incoming;
        state.set_hit({0, 0, 5}, {0, 0, 0}, {0, 0, 1});
        state.run(blend, state->type == miRAY_SHADOW ? miSHADER_SHADOW : miSHADER_MATERIAL);
        const miBoolean answer = orl_BlendMaterial(&result, state, &blend.params());
        EXPECT_EQ(state->importance, 0.5f);
        return answer;
    }
};

TEST_F(Blend, MixesByAmount) {
    // amount, first on, second on: factor of 1 2 3 4
    const std::tuple<float, bool, bool, float> table[] = {
        {0.00005f, true, true, 1},  {0.99995f, true, true, 10}, {0.5f, true, true, 5.5f},
        {0.25f, true, true, 3.25f}, {0.5f, true, false, 1},     {0.5f, false, true, 10},
        {0.5f, false, false, 0},    {0, false, true, 0},        {1, true, false, 0},
        {-1, true, true, 1},        {2, true, true, 10},        {not_a_number, true, true, 1}};
    for (const auto& [amount, first, second, factor] : table) {
        blend->mixAmount = amount, blend->material1On = first, blend->material2On = second;
        EXPECT_TRUE(run());
        EXPECT_FLOAT_EQ(result.r, factor) << amount;
        EXPECT_FLOAT_EQ(result.a, 4 * factor);
        EXPECT_EQ(runs.size(), amount > 0.1f && amount < 0.9f ? first + second : factor > 0) << amount;
    }
}

TEST_F(Blend, SplitsTheState) {
    blend->mixAmount = 0.25f;
    miVector second_sees{};
    run();
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_TRUE(runs[0].first == &state.state && runs[1].first != &state.state);
    EXPECT_FLOAT_EQ(runs[0].second, 0.375f);
    EXPECT_FLOAT_EQ(runs[1].second, 0.125f);
    renderer.mi_call_shader = [&](miColor*, miShader_type, miState* s, miTag) {
        second_sees = s->normal, s->normal = {5, 5, 5};
        return miFALSE;
    };
    run();
    EXPECT_EQ(second_sees.z, 1); // not what the first left in its state
    EXPECT_EQ(result, (miColor{}));
}

TEST_F(Blend, MasksAndCurve) {
    blend->maskOn = miTRUE, blend->lower = 0.2f, blend->upper = 0.8f, blend->mixAmount = 0.7f;
    // mask, answers, curve: share of the second
    const std::tuple<float, bool, bool, float> table[] = {
        {0.1f, true, true, 0},       {0.9f, true, true, 1},
        {0.5f, true, true, 0.5f},    {0.35f, true, true, 0.15625f}, // s = 0.25: (3 - 0.5) / 16
        {0.35f, true, false, 0.35f}, {1, true, false, 1},
        {0.5f, false, true, 0},      {0.5f, false, false, 0}};
    for (const auto& [mask, answers, curve, share] : table) {
        mask_color = {mask * 1.5f, mask, mask * 0.5f, 0}, mask_answers = answers, blend->useCurve = curve;
        run();
        EXPECT_NEAR(result.r, 1 + 9 * share, 2e-4f) << mask; // a third is 0.33333
    }
    EXPECT_NE(choose_blend(3 * 0.33333f).which, BlendChoice::both); // white: 0.99999
    blend->mask = miNULLTAG;
    run();
    EXPECT_FLOAT_EQ(result.r, 7.3f);
}

TEST_F(Blend, ShadowsAndIds) {
    state->type = miRAY_SHADOW, blend->mixAmount = 0.5f, blend->mtlId = 5;
    EXPECT_TRUE(run({0.5f, 0, 0, 1}));
    EXPECT_FLOAT_EQ(result.r, 2.75f); // both filter the light that came in
    fails[0] = true;
    EXPECT_TRUE(run({0.5f, 0, 0, 1}));
    EXPECT_FLOAT_EQ(result.r, 2.5f);
    fails[1] = true;
    EXPECT_FALSE(run({0.5f, 0, 0, 1}));
    EXPECT_FALSE(run({0, 0, 0, 1}));
    EXPECT_TRUE(renderer.framebuffer_writes().empty());
    state->type = miRAY_EYE;
    EXPECT_TRUE(run());
    blend->mtlId = 0;
    run();
    EXPECT_EQ(renderer.framebuffer_writes().size(), 1u);
}

TEST_F(Blend, OfItselfIsTransparent) {
    miMaterial material{};
    material.shader = renderer.add_shader(
        [&](void* to, miState* s, void*) {
            return orl_BlendMaterial(static_cast<miColor*>(to), s, &blend.params());
        },
        "itself", &blend.function());
    blend->material1 = blend->material2 = renderer.add_material(material);
    blend->mixAmount = 0.5f;
    EXPECT_TRUE(run() && result == miColor{});
}

} // namespace
