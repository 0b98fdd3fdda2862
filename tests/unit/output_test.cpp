// The output stage, by tables worked out by hand, and the map that adds one to another.
#include "orl_output.h"
#include "shader_fixture.h"
#include "utl_curve.h"

using namespace orl;

extern "C" miBoolean orl_base_Output(miColor*, miState*, const OutputStageParams*, const OutputRequest*);
extern "C" miBoolean orl_Output(miColor*, miState*, const OutputMapParams*, OutputRequest*);

INIT_AND_EXIT(orl_Output, OutputMapParams);

namespace {

constexpr auto color = OutputRequest::color, mono = OutputRequest::mono, bump = OutputRequest::vector,
               other = static_cast<OutputRequest>(3);

OutputStageParams graded(float amount, float offset, float level, miBoolean invert = 0, miBoolean clamp = 0,
                         miBoolean alpha_from_rgb = 0) {
    return {amount, offset, level, 9, invert, clamp, alpha_from_rgb, 0, 0, 0, 0};
}

class Output : public ShaderTest {
protected:
    scripted::ShaderInstance<OutputStageParams> stage;
    miColor staged(const OutputStageParams& params, miColor value, OutputRequest request) {
        stage.params() = params;
        state.run(stage, miSHADER_TEXTURE);
        EXPECT_TRUE(orl_base_Output(&value, state, &stage.params(), request == color ? nullptr : &request));
        return value;
    }
};

TEST_F(Output, StepsInTheirOrder) {
    constexpr miBoolean on = miTRUE;
    const miColor grey{0.2f, 0.4f, 0.8f, 0.5f}, clear{0.2f, 0.4f, 0.8f, 0};
    const std::tuple<OutputStageParams, miColor, miColor, miColor> cases[] = {
        // value, as colour, as mono
        {graded(2, 0, 1), grey, {0.4f, 0.8f, 1.6f, 0.5f}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {graded(1, 0.1f, 1), grey, {0.25f, 0.45f, 0.85f, 0.5f}, {0.3f, 0.5f, 0.9f, 0.5f}},
        {graded(1, 0.1f, 1), clear, clear, {0.3f, 0.5f, 0.9f, 0}},
        {graded(1, 0, 2), grey, {0.4f, 0.8f, 1.6f, 1}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {graded(1, 0, 1, on), grey, {0.8f, 0.6f, 0.2f, 0.5f}, {0.8f, 0.6f, 0.2f, 0.5f}},
        {graded(1, 0, 1, 0, on), {-1, not_a_number, 2, 3}, {0, 0, 1, 1}, {0, 0, 1, 3}},
        // Amount: 1/8 1/4 3/4; offset: 1/4 3/8 7/8, or 3/8 1/2 1 unscaled; level: 1/8 3/16 7/16 and alpha
        // 1/4, or 3/16 1/4 1/2; then 1 minus that, and the mean.
        {graded(.5f, .25f, .5f, on, on, on),
         {.25f, .5f, 1.5f, .5f},
         {.875f, .8125f, .5625f, .75f},
         {.8125f, .75f, .5f, .5f}},
        // Inverted to -2, 2, .5; clamped before the mean is taken.
        {graded(1, 0, 1, on, on, on), {3, -1, 0.5f, 4}, {0, 1, 0.5f, 0.5f}, {0, 1, 0.5f, 4}},
    };
    for (const auto& [params, value, as_color, as_mono] : cases) {
        expect_near(staged(params, value, color), as_color);
        expect_near(staged(params, value, mono), as_mono);
    }
}

TEST_F(Output, VectorsAreScaledAndTurned) {
    OutputStageParams params{5, 5, 5, 3, miTRUE, miTRUE, miTRUE, miFALSE, miFALSE, 0, 0};
    EXPECT_EQ(staged(params, {1, -2, 0.5f, 7}, bump), (miColor{-3, 6, -1.5f, 7}));
    EXPECT_EQ(staged(params, {1, -2, 0.5f, 7}, other), (miColor{1, -2, 0.5f, 7}));
}

TEST_F(Output, ComponentsGoThroughTheCurveOfTheirChannel) {
    const miTag lift = renderer.add_shader([](void* result, miState*, void* arg) {
        const auto& c = *static_cast<CurveRequest*>(arg);
        EXPECT_TRUE(c.x0 == 0 && c.x1 == 1 && c.y0 == 0 && c.y1 == 1 && c.useTable == 1);
        *static_cast<miScalar*>(result) = c.x + static_cast<float>(10 * (c.channel + 1));
        return miTRUE;
    });
    const miTag failing =
        renderer.add_shader([](void* result, miState*, void*) { return *static_cast<int*>(result) = 0; });
    const miColor plain{1, 2, 3, 4};
    const std::tuple<miBoolean, miBoolean, miTag, miTag, miColor, miColor> cases[] = {
        {0, 1, lift, lift, plain, plain},      {1, 0, failing, lift, {11, 12, 13, 4}, {11, 2, 3, 4}},
        {1, 0, lift, miNULLTAG, plain, plain}, {1, 1, lift, failing, {11, 22, 33, 4}, {22, 22, 22, 4}},
        {1, 1, miNULLTAG, lift, plain, plain}, {1, 0, lift, failing, plain, plain},
    };
    for (const auto& [use, rgb, rgb_curve, mono_curve, as_color, as_mono] : cases) {
        OutputStageParams params{1, 0, 1, 1, 0, 0, 0, use, rgb, rgb_curve, mono_curve};
        expect_near(staged(params, plain, color), as_color);
        expect_near(staged(params, plain, mono), as_mono);
        params.outputAmount = 2; // after the curve
        expect_near(staged(params, plain, color), {2 * as_color.r, 2 * as_color.g, 2 * as_color.b, 4});
    }
}

using OutputMap = ShaderTest;

// A map's first component and a stage's last tell the request that they got.
TEST_F(OutputMap, RunsTheMapAndThenTheStage) {
    const auto map_that = [&](miBoolean succeeds) {
        return renderer.add_shader([succeeds](void* result, miState*, void* request) {
            *static_cast<miColor*>(result) = {static_cast<float>(*static_cast<miInteger*>(request)), 2, 3, 4};
            return succeeds;
        });
    };
    const miTag map = map_that(miTRUE), bad = map_that(miFALSE);
    const miTag twice = renderer.add_shader([](void* result, miState*, void* request) {
        auto& c = *static_cast<miColor*>(result);
        c = {2 * c.r, 2 * c.g, 2 * c.b, static_cast<float>(*static_cast<miInteger*>(request))};
        return miTRUE;
    });
    const std::tuple<OutputMapParams, OutputRequest, miColor> cases[] = {
        {{map, 1, 0, 0}, color, {0, 2, 3, 4}},    {{map, 1, twice, 0}, mono, {2, 4, 6, 1}},
        {{map, 1, twice, 0}, bump, {4, 4, 6, 2}}, {{map, 1, twice, 0}, other, {6, 4, 6, 3}},
        {{map, 0, 0, 0}, color, {1, 1, 1, 1}},    {{map, 0, twice, 0}, mono, {2, 2, 2, 1}},
        {{map, 0, 0, 0}, bump, {0, 0, 0, 1}},     {{0, 1, 0, 0}, other, {0, 0, 0, 1}},
        {{bad, 1, 0, 0}, color, {0, 0, 0, 0}},    {{bad, 1, 0, 0}, bump, {0, 0, 0, 0}},
        {{0, 1, bad, 0}, color, {0, 0, 0, 0}},
    };
    scripted::ShaderInstance<OutputMapParams> shader;
    for (auto [params, request, expected] : cases) {
        shader.params() = params;
        miColor result{};
        EXPECT_TRUE(orl_Output(&result, state.run(shader), &shader.params(), &request));
        EXPECT_EQ(result, expected);
    }
}

TEST_F(OutputMap, EyeRaysAreWrittenToTheNumberedBuffer) {
    state.camera.framebuffers =
        renderer.add_framebuffers({{"fb_output3", miIMG_TYPE_RGBA_FP}, {"fb_output-2", miIMG_TYPE_RGBA_FP}});
    const miTag map = renderer.add_color({1, 2, 3, 4});
    const std::tuple<miInteger, miRay_type, std::vector<int>> cases[] = {
        {3, miRAY_EYE, {0}},    {-2, miRAY_EYE, {1}}, {5, miRAY_EYE, {-1}}, // missing: left to the renderer
        {3, miRAY_REFLECT, {}}, {0, miRAY_EYE, {}},
    };
    for (const auto& [number, ray, expected] : cases) {
        std::vector<int> puts;
        renderer.mi_fb_put = [&](miState*, int index, void* value) {
            EXPECT_EQ(*static_cast<miColor*>(value), (miColor{1, 2, 3, 4}));
            puts.push_back(index);
            return miTRUE;
        };
        LiveShader<OutputMapParams> shader(state, orl_Output_init, orl_Output_exit);
        shader.params() = {map, miTRUE, miNULLTAG, number};
        shader.start();
        state->type = ray;
        miColor result{};
        orl_Output(&result, state, &shader.params(), nullptr);
        EXPECT_EQ(puts, expected) << number;
    }
}

} // namespace
