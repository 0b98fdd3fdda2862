// Rays: what a state holds after a hit and a miss, what is called and in which order, depths, lens shaders.
#include "render/demands.h"
#include "stage_scene.h"

namespace {

using namespace stage_test;

// The place (0.5, -0.25) of the square, whose coordinates rise from 0 to 1 over a length of 2. Of the corners
// (-1, -1), (1, -1), (1, 1) it is 0.25 a + 0.375 b + 0.375 c. Mirrored, (-0.5, -0.25) of (-1, -1), (1, 1),
// (-1, 1). The outside stays the outside.
TEST(StageIntersection, PlacesOfMirroredInstances) {
    for (const auto& [scale, expected] :
         {std::pair{"1", "0 0 1 , 0.75 0.375 0 , 2 0 0 , 0 2 0 , 0.25 0.375 0.375"},
          {"-1", "0 0 1 , 0.25 0.375 0 , -2 0 0 , 0 2 0 , 0.625 0.25 0.125"}}) {
        TestScene s;
        s.square("floor", {}, "", show("transform", scale, "0 0 0 0 1 0 0 0 0 1 0 0 0 0 1"));
        s.build();
        miState state = s.eye();
        ASSERT_TRUE(TestScene::probe(&state, {0.5f, -0.25f, 9.0f}));
        const miState& hit = *state.child;
        EXPECT_EQ(show(hit.normal_geom, ",", hit.tex_list[0], ",", *hit.derivs[0], ",", *hit.derivs[1], ",",
                       hit.bary[0], hit.bary[1], hit.bary[2]),
                  expected);
        EXPECT_FALSE(hit.inv_normal);
    }
}

// A smooth normal that leans away from the viewer is bent back: (sin 80, 0, cos 80) seen along (0, 0, -1)
// stays; seen along (0.8, 0, -0.6) it looks away by 0.8 sin 80 - 0.6 cos 80 > 0. That it points down in the
// file does not matter: the geometry decides about sides.
TEST(StageIntersection, SmoothNormalsNeverLookAway) {
    TestScene s;
    s.parse("object smooth visible trace group -1 -1 0 1 -1 0 0 1 0 -.98480775 0 -.17364818\n"
            "v 0 n 3 v 1 n 3 v 2 n 3 c 0 1 2 end group end object\n");
    s.instance("smooth_inst", "smooth", {}, "");
    s.build();
    miState state = s.eye();
    ASSERT_TRUE(TestScene::probe(&state, {0.0f, 0.0f, 5.0f}));
    EXPECT_EQ(TestScene::ray(state.child), "0 0 5 > 0 0 -1 : 0 0 0 , 0.985 0 0.174 , 5 -0.174");
    ASSERT_TRUE(TestScene::probe(&state, {-0.8f, 0.0f, 0.6f}, {0.8f, 0.0f, -0.6f}));
    EXPECT_EQ(TestScene::ray(state.child), "-0.8 0 0.6 > 0.8 0 -0.6 : 0 0 0 , 0.6 0 0.8 , 1 0");
    EXPECT_LE(state.child->dot_nd, 0.0f);
    EXPECT_FALSE(state.child->inv_normal);
}

// Neither near the origin nor far from it, where points are rounded to 1/16384.
TEST(StageIntersection, RaysDoNotMeetTheirOwnStart) {
    for (const float place : {0.7f, -333.3f}) {
        TestScene s;
        int met = 0, hits = 0;
        s.shader("mirror", [&](miState* state, miColor& c) {
            ++hits;
            for (float x = -1.2f; x <= 1.2f; x += 0.3f) {
                miVector up{x, 0.1f, 1.0f};
                mi_vector_normalize(&up);
                met += mi_trace_reflection(&c, state, &up);
            }
        });
        // Turned by 30 degrees about y: local = world turned back.
        const double c = 0.8660254;
        s.square("floor", {}, "shader mirror",
                 "transform " + show(c, 0, 0.5, 0, 0, 1, 0, 0, -0.5, 0, c, 0) + " " +
                     show(-place * (c - 0.5), -place, -place * (0.5 + c), 1));
        s.build();
        for (float x = -0.8f; x <= 0.8f; x += 0.07f)
            s.shade(place + x, place + 0.5f * x);
        EXPECT_GT(hits, 20);
        EXPECT_EQ(met, 0) << place;
    }
}

// A hull: a surface whose material has a volume but no shader. Below it a floor that is opaque, whatever its
// shader says.
TEST(StageShade, HullsVolumesEnvironmentsAndClipping) {
    const struct {
        float x;
        const char* camera;
        std::string color; // red of the end, lengths in the hull and above it
    } cases[] = {
        {0, "volume fog", "10 2 8 1"},
        {0, "volume fog clip 9 11", "10 0 10 1"}, // in front of the hull nothing is seen
        {0, "volume fog clip 1 7.5", "0 0 0 0"},
        {50, "volume fog environment sky", "30 0 0 0"}, // the volume after the environment
    };
    for (const auto& c : cases) {
        TestScene s;
        const miState* seen = nullptr;
        s.shader("sky", [&](miState* state, miColor& r) { seen = state, r.r = 3.0f; });
        s.shader("fog", [&](miState* state, miColor& r) {
            EXPECT_TRUE(!seen || state == seen);
            r = {r.r * 10.0f, r.g, static_cast<float>(state->dist), r.a};
            return miFALSE;
        });
        s.shader("water", [](miState* state, miColor& r) { r.g += static_cast<float>(state->dist); });
        s.shader("ground", [](miState*, miColor& r) { r = {1.0f, 0.0f, 0.0f, 0.25f}; });
        s.square("floor", {}, "opaque shader ground");
        s.square("hull", {0.0f, 0.0f, 2.0f}, "volume water");
        s.build(c.camera);
        EXPECT_EQ(show(s.shade(c.x)), c.color);
        EXPECT_EQ(s.lit, c.color[0] != '0');
    }
}

miBoolean back(miColor* result, miState* state) {
    miVector dir{0.0f, 0.0f, -state->dir.z};
    return mi_trace_reflection(result, state, &dir);
}
miBoolean to_sky(miColor* result, miState* state) {
    miVector dir{0.0f, 1.0f, 0.0f};
    return mi_trace_environment(result, state, &dir);
}

// Squares one above the other that reflect straight back, or let rays through.
TEST(StageTrace, DepthLimitsAndObjectsFlags) {
    constexpr auto mirrored = miRAY_REFLECT, refracted = miRAY_REFRACT, through = miRAY_TRANSPARENT;
    const struct {
        int reflection_depth, refraction_depth, trace_depth;
        miRay_type type;
        int others;   // levels of the other kind at the start
        miUint1 flag; // of the objects for such rays: 1 is seen by them, 2 casts them
        int calls;    // of the material
    } cases[] = {
        {3, 0, 8, mirrored, 0, 3, 4},  {3, 0, 2, mirrored, 0, 3, 3},  {0, 5, 8, mirrored, 0, 3, 1},
        {9, 9, 3, mirrored, 2, 3, 2},  {9, 9, 9, mirrored, 0, 1, 1},  {9, 9, 9, mirrored, 0, 2, 1},
        {0, 2, 8, refracted, 0, 3, 3}, {5, 0, 8, refracted, 0, 3, 1}, {9, 9, 3, refracted, 2, 3, 2},
        {9, 9, 9, refracted, 0, 1, 1}, {9, 9, 9, refracted, 0, 2, 1}, {0, 1, 8, through, 0, 3, 2},
        {0, 9, 1, through, 0, 3, 2},   {9, 9, 9, through, 0, 1, 1},   {9, 9, 9, through, 0, 2, 1},
    };
    for (const auto& c : cases) {
        TestScene s;
        int calls = 0;
        miOptions own = *s.options; // those of the state are in force
        own.reflection_depth = c.reflection_depth;
        own.refraction_depth = c.refraction_depth;
        own.trace_depth = c.trace_depth;
        auto& o = s.get<miObject>("square");
        (c.type == mirrored ? o.reflection : c.type == refracted ? o.refraction : o.transparency) = c.flag;
        s.shader("any", [&](miState* state, miColor& result) {
            EXPECT_EQ(c.type == mirrored ? state->reflection_level : state->refraction_level, calls);
            EXPECT_EQ(state->type, calls ? c.type : miRAY_EYE);
            ++calls;
            state->options = &own;
            (c.type == mirrored ? state->refraction_level : state->reflection_level) = c.others;
            return c.type == mirrored    ? back(&result, state)
                   : c.type == refracted ? mi_trace_refraction(&result, state, &state->dir)
                                         : mi_trace_transparent(&result, state);
        });
        for (const int z : {0, 20, -5, -10, -15})
            s.square("at" + std::to_string(z), {0.0f, 0.0f, static_cast<float>(z)}, "shader any");
        s.build();
        s.shade();
        EXPECT_EQ(calls, c.calls) << "case " << &c - cases;
        EXPECT_FALSE(s.lit);
    }
}

// Through a surface at z = 4 with a volume behind it to the ground, or to the environment.
TEST(StageTrace, WhatIsBehindASurface) {
    const struct {
        miBoolean (*trace)(miColor*, miState*);
        miRay_type type;
        const char *material, *end;
        std::string color; // of the end, and the lengths in the surface's volume and in the camera's
    } cases[] = {
        {mi_trace_transparent, miRAY_TRANSPARENT, "", "0 0 4 > 0 0 -1 : 0 0 0 , 0 0 1 , 4 -1", "1 4 6 0"},
        // As if the surface were not there: one ray, one volume.
        {mi_trace_continue, miRAY_EYE, "", "0 0 10 > 0 0 -1 : 0 0 0 , 0 0 1 , 10 -1", "1 0 10 0"},
        {to_sky, miRAY_ENVIRONMENT, "", "0 0 4 > 0 1 0 : 0 0 4 , 0 -1 0 , 0 -1", "1 0 6 0"},
        {to_sky, miRAY_ENVIRONMENT, "environment own", "", "2 0 6 0"}, // before the camera's
    };
    for (const auto& c : cases) {
        TestScene s;
        const auto end = [&](miState* state, miColor& r) {
            EXPECT_EQ(state->type, c.type);
            EXPECT_EQ(TestScene::ray(state), c.end);
            EXPECT_EQ(state->parent != nullptr, state->type != miRAY_EYE);
            EXPECT_TRUE(!state->parent || state->parent->call_type == miSHADER_MATERIAL); // still readable
            r.r = 1.0f;
        };
        s.shader("ground", end);
        s.shader("sky", end);
        s.red("own", 2.0f);
        s.shader("inside", [](miState* state, miColor& r) { r.g = static_cast<float>(state->dist); });
        s.shader("fog", [](miState* state, miColor& r) { r.b += static_cast<float>(state->dist); });
        s.shader("surface", [&](miState* state, miColor& r) { return c.trace(&r, state); });
        s.square("floor", {}, "shader ground");
        s.square("top", {0.0f, 0.0f, 4.0f}, std::string("shader surface volume inside ") + c.material);
        s.build("environment sky volume fog");
        EXPECT_EQ(show(s.shade()), c.color);
    }
}

// A shader may cast from its parent's state while its own ray is still on its way; and a loop of rays needs
// no more memory than one.
TEST(StageTrace, RaysInFlightAreLeftAloneAndOthersUsedAgain) {
    TestScene s;
    s.shader("mirror", [&](miState* state, miColor& c) {
        std::size_t used[4];
        for (std::size_t& u : used) {
            back(&c, state);
            EXPECT_EQ(show(state->child->point), "0 0 20");
            u = s.context.arena.mark().used;
        }
        EXPECT_EQ(used[0], used[3]);
    });
    s.shader("other", [&](miState* state, miColor&) {
        EXPECT_TRUE(TestScene::probe(state->parent, {0.0f, 0.0f, 5.0f}));
        EXPECT_EQ(show(state->parent->child->point), "0 0 0");
        EXPECT_EQ(show(state->point), "0 0 20");
        EXPECT_EQ(state->type, miRAY_REFLECT);
    });
    s.square("floor", {}, "shader mirror");
    s.square("top", {0.0f, 0.0f, 20.0f}, "shader other");
    s.build();
    s.shade();
}

TEST(StageLens, ChainsHandTheHitBack) {
    TestScene s;
    for (const int k : {0, 1})
        s.shader(k ? "second" : "first", [k](miState* state, miColor& c) {
            miVector org = state->org;
            org.x += 0.25f; // the next one gets this ray
            const miBoolean lit = mi_trace_eye(&c, state, &org, &state->dir);
            EXPECT_EQ(show(state->point, state->normal, state->tex_list[0], state->dist, state->bary[2],
                           state->label),
                      "0.5 0 0 0 0 1 0.75 0.5 0 10 0.5 17");
            c.r = k ? c.r * 10.0f : c.r + 1.0f;
            return lit;
        });
    s.shader("ground", [](miState*, miColor& c) { c.r += 3.0f; }); // to nothing
    s.square("floor", {}, "shader ground", "tag 17");
    s.build("lens 'first' 'second'");
    EXPECT_EQ(s.shade().r, 31.0f); // the material, then the second one, then the first
}

TEST(StageRays, DeclarationsDemandShadowModes) {
    const struct {
        const char* demand;
        int options, expected;
    } cases[] = {
        {"sort", 1, 'l'}, {"segments", 'l', 's'}, {"on", 's', 's'}, {"simple", 0, 1}, {"off", 'l', 0}};
    for (const auto& c : cases) {
        TestScene s;
        s.scene.libraries->define("demanding", reinterpret_cast<void*>(+[] { return miTRUE; }));
        s.parse(std::string("declare shader color demanding () shadow ") + c.demand +
                " end declare shader d demanding ()\n");
        s.options->shadow = c.options;
        stage::apply_demands(s.scene, *s.options);
        EXPECT_EQ(s.options->shadow, c.expected) << c.demand;
    }
}

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
