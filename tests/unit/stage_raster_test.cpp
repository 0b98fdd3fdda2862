// The rasterizer's layers and the rays of lens shaders, where pictures do not tell.
#include "stage_scene.h"

namespace {

using namespace stage_test;

class StageRaster : public testing::Test {
protected:
    StageRaster() { s.options->scanline = 'r'; }
    // A pane that tells an opacity, none at all for a negative one.
    void pane(const std::string& name, float z, miColor color, float opacity) {
        s.shader(name + "_shader", [=](miState* state, miColor& c) {
            miColor of_pane = {opacity, opacity, opacity, opacity}, behind;
            c = color;
            EXPECT_TRUE(state->scanline);
            EXPECT_FALSE(mi_trace_transparent(&behind, state)) << "is the rasterizer's work";
            EXPECT_TRUE(opacity < 0.0f || mi_opacity_set(state, &of_pane));
        });
        s.square(name, {0.0f, 0.0f, z}, "shader " + name + "_shader");
    }
    Told told;
    TestScene s;
};

TEST_F(StageRaster, AlphaStandsForAnOpacityThatNobodyTells) {
    pane("alpha", 3.0f, {0.125f, 0.0f, 0.0f, 0.25f}, -1.0f);
    pane("clear", 2.0f, {}, -1.0f);
    pane("half", 1.0f, {0.0f, 0.5f, 0.0f, 0.5f}, 0.5f);
    pane("solid", 0.0f, {0.0f, 0.0f, 1.0f, 1.0f}, 1.0f);
    pane("hidden", -1.0f, {1.0f, 1.0f, 1.0f, 1.0f}, 1.0f);
    s.build();
    // 0.75 of what the second brings, of which half is the third's
    EXPECT_EQ(show(s.shade()), "0.125 0.375 0.375 1");
}

// Compound materials: nobody knows the shares of those who told.
TEST_F(StageRaster, AlphaStandsForSeveralOpacities) {
    s.shader("compound", [](miState* state, miColor& c) {
        miColor first = {1, 1, 1, 1}, second = {};
        mi_opacity_set(state, &first);
        mi_opacity_set(state, &second);
        c = {0.0f, 0.0f, 0.0f, 0.75f};
    });
    s.square("front", {0.0f, 0.0f, 1.0f}, "shader compound");
    pane("behind", 0.0f, {1.0f, 1.0f, 1.0f, 1.0f}, 1.0f);
    s.build();
    EXPECT_EQ(show(s.shade()), "0.25 0.25 0.25 1");
}

TEST_F(StageRaster, BentRaysAreTracedAndTheirLensIsNamed) {
    s.shader("straight",
             [](miState* state, miColor& c) { mi_trace_eye(&c, state, &state->org, &state->dir); });
    s.shader("bending", [](miState* state, miColor& c) {
        miVector org = state->org;
        org.x += 0.5f;
        mi_trace_eye(&c, state, &org, &state->dir);
    });
    s.shader("ground", [](miState* state, miColor& c) {
        miColor half = {0.5f, 0.5f, 0.5f, 0.5f};
        EXPECT_FALSE(state->scanline || mi_opacity_set(state, &half));
        c.r = 1.0f;
    });
    s.square("floor", {}, "shader ground");
    s.build("lens 'straight' 'bending'");
    EXPECT_EQ(s.shade().r, 1.0f);
    EXPECT_EQ(s.shade().r, 1.0f);
    EXPECT_THAT(told.text, testing::MatchesRegex("scene.mi:1:[^\n]*lens shader \"bending\" changes[^\n]*\n"));
}

// As when a lens shader is connected to a parameter: it would meet itself at the end of its own ray.
TEST_F(StageRaster, OnlyLensShadersTraceEyeRays) {
    s.shader("lost", [](miState* state, miColor& c) {
        EXPECT_FALSE(mi_trace_eye(&c, state, &state->org, &state->dir));
        c.g = 1.0f;
    });
    s.square("floor", {}, "shader lost");
    s.build();
    s.shade();
    EXPECT_EQ(s.shade().g, 1.0f);
    EXPECT_THAT(told.text, testing::MatchesRegex("[^\n]*shader \"lost\" traces eye rays[^\n]*\n"));
}

// A camera without perspective, one pixel; two panes that each write both buffers.
TEST(StageRasterBuffers, FollowTheOpacityOrTheFirstLayer) {
    TestScene s;
    s.options->scanline = 'r';
    for (const bool front : {true, false}) {
        const std::string name = front ? "front" : "back";
        s.shader(name + "_shader", [front](miState* state, miColor& c) {
            miColor value = {front ? 0.25f : 1.0f, 0.0f, 0.0f, 0.0f}, opacity = {0.5f, 0.5f, 0.5f, 0.5f};
            mi_fb_put(state, 1, &value);
            mi_fb_put(state, 2, &value);
            c.a = 1.0f;
            if (front)
                mi_opacity_set(state, &opacity);
        });
        s.square(name, {0.0f, 0.0f, front ? 1.0f : 0.0f}, "shader " + name + "_shader");
    }
    const std::string buffer = " datatype 'rgba_fp' user on";
    s.build("focal infinity resolution 1 1 framebuffer main primary on framebuffer seen" + buffer +
            " useopacity on framebuffer first" + buffer);
    auto buffers = s.render();
    EXPECT_EQ(buffers[1].pixel(0, 0)[0], 0.25f + 0.5f * 1.0f);
    EXPECT_EQ(buffers[2].pixel(0, 0)[0], 0.25f);
}

} // namespace
