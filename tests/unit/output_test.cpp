// The output stage, by tables worked out by hand, and the map that adds one to another.
#include "orl_output.h"
#include "shader_fixture.h"
#include "utl_curve.h"

using namespace orl;

INIT_AND_EXIT(orl_Output, OutputMapParams);
extern "C" miBoolean orl_base_Output(miColor*, miState*, const OutputStageParams*, const OutputRequest*);
extern "C" miBoolean orl_Output(miColor*, miState*, const OutputMapParams*, const OutputRequest*);

namespace {

constexpr OutputStageParams graded(miScalar amount, miScalar offset, miScalar level, miBoolean invert = 0,
                                   miBoolean clamp = 0, miBoolean alpha_from_rgb = 0) {
    return {amount, offset, level, 9, invert, clamp, alpha_from_rgb, 0, 0, 0, 0};
}

void expect_near(const miColor& got, const miColor& expected) {
    EXPECT_NEAR(got.r, expected.r, 1e-6f);
    EXPECT_NEAR(got.g, expected.g, 1e-6f);
    EXPECT_NEAR(got.b, expected.b, 1e-6f);
    EXPECT_NEAR(got.a, expected.a, 1e-6f);
}

class Output : public ShaderTest {
protected:
    scripted::ShaderInstance<OutputStageParams> stage;
    Output() {
        stage.params() = graded(1, 0, 1);
        state.run(stage, miSHADER_TEXTURE);
    }
    miColor staged(miColor value, OutputRequest request) {
        EXPECT_TRUE(orl_base_Output(&value, state, &stage.params(), &request));
        return value;
    }
};

TEST_F(Output, StepsInTheirOrder) {
    constexpr miBoolean on = miTRUE;
    const float nan = not_a_number;
    const struct {
        OutputStageParams params;
        miColor value, color, mono;
    } cases[] = {
        {graded(1, 0, 1), {0.2f, 0.4f, 5, 2}, {0.2f, 0.4f, 5, 2}, {0.2f, 0.4f, 5, 2}},
        {graded(2, 0, 1), {0.2f, 0.4f, 0.8f, 0.5f}, {0.4f, 0.8f, 1.6f, 0.5f}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {graded(1, 0.1f, 1), {0.2f, 0.4f, 0.8f, 0.5f}, {0.25f, 0.45f, 0.85f, 0.5f}, {0.3f, 0.5f, 0.9f, 0.5f}},
        {graded(1, 0.1f, 1), {0.2f, 0.4f, 0.8f, 0}, {0.2f, 0.4f, 0.8f, 0}, {0.3f, 0.5f, 0.9f, 0}},
        {graded(1, 0, 2), {0.2f, 0.4f, 0.8f, 0.5f}, {0.4f, 0.8f, 1.6f, 1}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {graded(1, 0, 1, on), {0.2f, 0.4f, 1.5f, 0.3f}, {0.8f, 0.6f, -0.5f, 0.3f}, {0.8f, 0.6f, -0.5f, 0.3f}},
        {graded(1, 0, 1, 0, on), {-1, 0.5f, 2, 3}, {0, 0.5f, 1, 1}, {0, 0.5f, 1, 3}},
        {graded(1, 0, 1, 0, on), {nan, 1, nan, nan}, {0, 1, 0, 0}, {0, 1, 0, 3}},
        {graded(1, 0, 1, 0, 0, on), {0.3f, 0.6f, 0.9f, 0}, {0.3f, 0.6f, 0.9f, 0.6f}, {0.3f, 0.6f, 0.9f, 0}},
        // Amount: .1 .2 .4; offset: .2 .3 .5, or .3 .4 .6 unscaled; level: .1 .15 .25 and alpha .25, or .15
        // .2 .3; then 1 minus that, and the mean.
        {graded(0.5f, 0.2f, 0.5f, on, on, on),
         {0.2f, 0.4f, 0.8f, 0.5f},
         {0.9f, 0.85f, 0.75f, 0.8333333f},
         {0.85f, 0.8f, 0.7f, 0.5f}},
        // Inverted to -2, 2, .5; clamped before the mean is taken.
        {graded(1, 0, 1, on, on, on), {3, -1, 0.5f, 4}, {0, 1, 0.5f, 0.5f}, {0, 1, 0.5f, 4}},
    };
    for (std::size_t k = 0; k < std::size(cases); ++k) {
        SCOPED_TRACE(k);
        stage.params() = cases[k].params;
        miColor value = cases[k].value;
        expect_near(staged(value, OutputRequest::color), cases[k].color);
        EXPECT_TRUE(orl_base_Output(&value, state, &stage.params(), nullptr));
        expect_near(value, cases[k].color);
        value = cases[k].value;
        value.a = std::isnan(value.a) ? 3 : value.a;
        expect_near(staged(value, OutputRequest::mono), cases[k].mono);
    }
}

TEST_F(Output, VectorsAreScaledAndTurned) {
    stage.params() = {5, 5, 5, 3, miTRUE, miTRUE, miTRUE, miFALSE, miFALSE, 0, 0};
    EXPECT_EQ(staged({1, -2, 0.5f, 7}, OutputRequest::vector), (miColor{-3, 6, -1.5f, 7}));
    stage->bumpAmount = 1;
    stage->invert = miFALSE;
    EXPECT_EQ(staged({1, -2, 0.5f, 7}, OutputRequest::vector), (miColor{1, -2, 0.5f, 7}));
    stage->bumpAmount = 3;
    EXPECT_EQ(staged({1, -2, 0.5f, 7}, static_cast<OutputRequest>(3)), (miColor{1, -2, 0.5f, 7}));
}

TEST_F(Output, ComponentsGoThroughTheCurveOfTheirChannel) {
    std::vector<miInteger> channels;
    const miTag rising = renderer.add_shader([&](void* result, miState*, void* arg) {
        const auto& request = *static_cast<CurveRequest*>(arg);
        EXPECT_EQ(request.x0, 0.0f);
        EXPECT_EQ(request.x1, 1.0f);
        EXPECT_EQ(request.y0, 0.0f);
        EXPECT_EQ(request.y1, 1.0f);
        EXPECT_EQ(request.useTable, 1);
        channels.push_back(request.channel);
        *static_cast<miScalar*>(result) = request.x + static_cast<float>(10 * (request.channel + 1));
        return miTRUE;
    });
    const miTag failing = renderer.add_shader([](void* result, miState*, void*) {
        *static_cast<miScalar*>(result) = 99;
        return miFALSE;
    });
    const struct {
        miBoolean use, rgb;
        miTag rgb_curve, mono_curve;
        miColor color, mono;
        std::vector<miInteger> asked; // channels, colour first
    } cases[] = {
        {0, 1, rising, rising, {1, 2, 3, 4}, {1, 2, 3, 4}, {}},
        {1, 0, failing, rising, {11, 12, 13, 4}, {11, 2, 3, 4}, {0, 0, 0, 0}},
        {1, 1, rising, failing, {11, 22, 33, 4}, {22, 22, 22, 4}, {0, 1, 2, 0, 1, 2}},
        {1, 0, rising, miNULLTAG, {1, 2, 3, 4}, {1, 2, 3, 4}, {}},
        {1, 1, miNULLTAG, rising, {1, 2, 3, 4}, {1, 2, 3, 4}, {}},
        {1, 0, miNULLTAG, failing, {1, 2, 3, 4}, {1, 2, 3, 4}, {}},
    };
    for (const auto& c : cases) {
        stage.params() = {1, 0, 1, 1, 0, 0, 0, c.use, c.rgb, c.rgb_curve, c.mono_curve};
        channels.clear();
        expect_near(staged({1, 2, 3, 4}, OutputRequest::color), c.color);
        expect_near(staged({1, 2, 3, 4}, OutputRequest::mono), c.mono);
        EXPECT_EQ(channels, c.asked);
    }
    stage->outputAmount = 2; // the curve comes first
    stage->monoCurve = rising;
    expect_near(staged({1, 2, 3, 4}, OutputRequest::color), {22, 24, 26, 4});
}

// ---- the map

class OutputMap : public ShaderTest {
protected:
    // A shader that doubles what it finds, or sets it, and then succeeds or fails.
    miTag add_map(bool doubles, miBoolean succeeds) {
        return renderer.add_shader([this, doubles, succeeds](void* result, miState*, void* arg) {
            asked.push_back(*static_cast<miInteger*>(arg));
            auto& value = *static_cast<miColor*>(result);
            value =
                doubles ? miColor{2 * value.r, 2 * value.g, 2 * value.b, 2 * value.a} : miColor{1, 2, 3, 4};
            return succeeds;
        });
    }
    std::vector<miInteger> asked;
};

TEST_F(OutputMap, RunsTheMapAndThenTheStage) {
    const miTag map = add_map(false, miTRUE), failing = add_map(false, miFALSE);
    const miTag twice = add_map(true, miTRUE), broken = add_map(true, miFALSE);
    const miColor white{1, 1, 1, 1};
    const struct {
        OutputMapParams params;
        miInteger request;
        miColor expected;
        int calls;
    } cases[] = {
        {{map, 1, 0, 0}, 0, {1, 2, 3, 4}, 1},
        {{map, 1, twice, 0}, 1, {2, 4, 6, 8}, 2},
        {{map, 1, twice, 0}, 2, {2, 4, 6, 8}, 2},
        {{map, 1, twice, 0}, 3, {2, 4, 6, 8}, 2},
        {{map, 0, 0, 0}, 0, white, 0},
        {{map, 0, twice, 0}, 1, {2, 2, 2, 2}, 1},
        {{map, 0, 0, 0}, 2, {0, 0, 0, 1}, 0},
        {{0, 1, 0, 0}, 0, white, 0},
        {{0, 1, 0, 0}, 3, {0, 0, 0, 1}, 0},
        {{failing, 1, 0, 0}, 0, {0, 0, 0, 0}, 1},
        {{failing, 1, 0, 0}, 2, {0, 0, 0, 0}, 1},
        {{map, 1, broken, 0}, 0, {1, 2, 3, 4}, 2},
    };
    scripted::ShaderInstance<OutputMapParams> shader;
    state.run(shader, miSHADER_TEXTURE);
    for (const auto& c : cases) {
        shader.params() = c.params;
        miColor result{};
        const auto request = static_cast<OutputRequest>(c.request);
        asked.clear();
        EXPECT_TRUE(orl_Output(&result, state, &shader.params(), &request));
        EXPECT_EQ(result, c.expected);
        EXPECT_EQ(asked, std::vector<miInteger>(static_cast<std::size_t>(c.calls), c.request));
    }
}

TEST_F(OutputMap, EyeRaysAreWrittenToTheNumberedBuffer) {
    state.camera.framebuffers = renderer.add_framebuffers({{"main", miIMG_TYPE_RGBA_FP},
                                                           {"fb_output3", miIMG_TYPE_RGBA_FP},
                                                           {"fb_output-2", miIMG_TYPE_RGBA_FP}});
    const struct {
        miInteger number;
        miRay_type ray;
        int puts, index;
    } cases[] = {{3, miRAY_EYE, 1, 1},
                 {3, miRAY_REFLECT, 0, 0},
                 {-2, miRAY_EYE, 1, 2},
                 {0, miRAY_EYE, 0, 0},
                 {5, miRAY_EYE, 1, -1}}; // the last is left to the renderer
    const miTag map = renderer.add_color({1, 2, 3, 4});
    for (const auto& c : cases) {
        std::vector<int> puts;
        renderer.mi_fb_put = [&](miState*, int index, void* value) {
            EXPECT_EQ(*static_cast<miColor*>(value), (miColor{1, 2, 3, 4}));
            puts.push_back(index);
            return miTRUE;
        };
        LiveShader<OutputMapParams> shader(state, orl_Output_init, orl_Output_exit);
        shader.params() = {map, miTRUE, miNULLTAG, c.number};
        shader.start();
        state->type = c.ray;
        miColor result{};
        orl_Output(&result, state, &shader.params(), nullptr);
        EXPECT_EQ(puts, std::vector<int>(static_cast<std::size_t>(c.puts), c.index)) << c.number;
    }
}

} // namespace
