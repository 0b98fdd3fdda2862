// What a state says of its ray, and what shaders may change in it.
#include "stage_scene.h"

namespace {

using namespace stage_test;

// The fog clears `pri`, as it would before it asks lights; two plates stand on each other, the upper one in a
// group of its own. Rays of the ground meet the sides that it asks for.
TEST(StageState, OfAHit) {
    TestScene s;
    s.shader("fog", [](miState* state, miColor&) { state->pri = nullptr; });
    s.shader("lens", [](miState* state, miColor& c) {
        mi_trace_eye(&c, state, &state->org, &state->dir);
        EXPECT_NE(state->pri, nullptr);
    });
    s.shader("ground", [&](miState* state, miColor& c) {
        miTag parent = miNULLTAG;
        EXPECT_TRUE(mi_query(miQ_INST_PARENT, state, state->instance, &parent));
        EXPECT_EQ(parent, s.tag("above"));
        for (const int face : {'a', 'f', 'b'}) {
            state->face = face;
            c.r = c.r * 10.0f + static_cast<float>(TestScene::probe(state, {0.0f, 0.0f, 8.0f}));
            c.g = c.g * 10.0f + static_cast<float>(TestScene::probe(state, {0, 0, -2}, {0, 0, 1}));
        }
    });
    s.square("floor", {}, "shader ground");
    s.parse("instgroup group 'floor' end instgroup");
    s.instance("above", "group", {0.0f, 0.0f, 2.0f}, "");
    s.build("lens lens volume fog");
    EXPECT_EQ(show(s.shade()), "110 101 0 0");
}

} // namespace
