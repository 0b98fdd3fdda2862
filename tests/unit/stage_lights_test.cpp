// Light samples and shadows, with light shaders and shadow shaders of the test.
#include "stage_scene.h"

namespace {

using namespace stage_test;

// A surface at z = 0 below the camera that takes all samples of "lamp".
class LitScene : public TestScene {
public:
    std::vector<miColor> colors;
    miVector dir; // of the last sample
    miScalar cosine = 0.0f;
    miInteger samples = 0;
    int level = 0; // as if the surface were seen in that many mirrors

    explicit LitScene(const std::string& flags = "") { // of the surface
        shader("ground", [this](miState* state, miColor&) {
            state->reflection_level = level;
            receive(state);
        });
        square("floor", {}, "shader ground", flags);
    }
    void receive(miState* state) {
        miColor c;
        samples = 0;
        while (mi_sample_light(&c, &dir, &cosine, state, tag("lamp"), &samples))
            colors.push_back(c);
    }
};

// The illuminated point is (0.6, 0, 0), its normal (0, 0, 1).
TEST(StageLights, StatesOfLightRays) {
    const struct {
        miVector place;
        std::string light;
        std::string ray, back; // start and direction; direction to the light, length and cosine
    } cases[] = {
        {{0, 0, 0.5f}, "origin 0 0 0.3", "0 0 0.8 > 0.6 0 -0.8", "-0.6 0 0.8 , 1 0.8"},
        {{0.6f, 0, -2}, "origin 0 0 0", "0.6 0 -2 > 0 0 1", "0 0 -1 , 2 -1"},
        // Whether the point lies in a spot's cone is for its shader to say.
        {{0, 0, 1}, "origin 0 0 -.2 direction 0 0 1 spread .9", "0 0 0.8 > 0.6 0 -0.8", "-0.6 0 0.8 , 1 0.8"},
        // From 16 radii before the ball about floor, light and camera: its centre is (2, 0, 5), its radius
        // the root of 35, and the point lies 3.16 behind the centre.
        {{5, 0, 3}, "direction 3 0 -4", "-58.09 0 78.254 > 0.6 0 -0.8", "-0.6 0 0.8 , 97.817 0.8"},
        // With a plane to start from, and behind that: 3.5 and 16 times the root of 44.25.
        {{0, 0, 3}, "origin 0 0 0 direction 0 0 -2", "0.6 0 3 > 0 0 -1", "0 0 1 , 3 1"},
        {{0, 0, -3}, "origin 0 0 0 direction 0 0 -1", "0.6 0 109.933 > 0 0 -1", "0 0 1 , 109.933 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.light);
        LitScene s;
        std::string distance;
        s.shader("shine", [&](miState* state, miColor&) {
            EXPECT_EQ(show(state->type, state->call_type), show(miRAY_LIGHT, miSHADER_LIGHT));
            EXPECT_EQ(state->light_instance, s.tag("lamp"));
            EXPECT_EQ(state->parent->child, state);
            EXPECT_EQ(show(state->org, ">", state->dir), c.ray);
            EXPECT_EQ(show(state->point, state->normal), "0.6 0 0 0 0 1");
            distance = show(state->dist, state->dot_nd);
            state->dot_nd = 0.25f; // what the shader leaves is what the surface gets
        });
        s.light("lamp", c.place, "= shine " + c.light);
        s.build();
        s.shade(0.6f, 0.0f);
        EXPECT_EQ(s.colors.size(), 1u); // black light is light all the same
        EXPECT_EQ(s.samples, 1);
        EXPECT_EQ(show(s.dir, ",", distance), c.back);
        EXPECT_EQ(s.cosine, 0.25f);
    }
}

// Volumes dim light rays. A volume's own samples have no surface, and so are lit from the front, though the
// light is below.
TEST(StageLights, Volumes) {
    LitScene s;
    s.shader("shine", [](miState* state, miColor& c) { c.r = state->dot_nd; });
    s.shader("fog", [&](miState* state, miColor& c) {
        c.r *= 0.25f * static_cast<float>(state->dist);
        if (state->type == miRAY_LIGHT)
            return;
        state->pri = nullptr;
        state->volume = miNULLTAG;
        s.receive(state);
    });
    s.light("lamp", {0.0f, 0.0f, -2.0f}, "= shine origin 0 0 0");
    s.build("volume fog");
    s.shade();
    ASSERT_EQ(s.colors.size(), 2u);
    EXPECT_EQ(show(s.colors[0].r, s.colors[1].r), "-0.5 1");
}

// The average over the samples of a group is the sum of its lights: 1 + 3, though one takes twelve samples,
// and two where two mirrors or more lie between.
TEST(StageLights, GroupsStandForTheirMembers) {
    for (const auto& [level, samples] : {std::pair{0, 13}, {1, 13}, {2, 3}}) {
        LitScene s;
        s.level = level;
        s.red("shine_1", 1.0f);
        s.red("shine_3", 3.0f);
        s.light("one", {0.0f, 0.0f, 4.0f}, "= shine_1 origin 0 0 0");
        s.light("three", {0.0f, 1.0f, 4.0f}, "= shine_3 origin 0 0 0 sphere 1 4 3 2 2 1");
        s.parse("instgroup lamp 'one' 'three' end instgroup");
        s.build();
        s.shade();
        EXPECT_EQ(s.samples, samples);
        float sum = 0.0f;
        for (const miColor& c : s.colors)
            sum += c.r;
        EXPECT_NEAR(sum / static_cast<float>(samples), 4.0f, 1e-5f);
    }
}

// A point light of red 8 at z = 5 that casts a shadow ray to the surface, and surfaces between that only
// shadow rays see.
class ShadowScene : public LitScene {
public:
    miBoolean answer = miTRUE;
    int calls = 0; // of shadow shaders
    std::function<void(miState*)> before = [](miState*) {};

    explicit ShadowScene(const std::string& flags = "") : LitScene(flags) {
        shader("shine", [this](miState* state, miColor& c) {
            c = {8.0f, 8.0f, 8.0f, 1.0f};
            before(state);
            answer = mi_trace_shadow(&c, state);
        });
        light("lamp", {0.0f, 0.0f, 5.0f}, "= shine origin 0 0 0");
        red("surface", 1.0f);
    }
    void occluder(float height, const std::string& material, const std::string& flags = "") {
        square(show(height) + "_occluder", {0.0f, 0.0f, height}, material, "visible off " + flags);
    }
    // Its shadow shader does c -> c / 2 + height, after the rest of the way in segment mode.
    void filter(float height) {
        const std::string name = show(height) + "_filter";
        shader(name, [this, height](miState* state, miColor& c) {
            ++calls;
            EXPECT_EQ(state->type, miRAY_SHADOW);
            EXPECT_EQ(state->light_instance, tag("lamp"));
            EXPECT_EQ(show(state->point.x, state->point.z), show(0.15 * (5.0 - height), height));
            if (state->options->shadow == 's' && !mi_trace_shadow_seg(&c, state))
                return miFALSE;
            c.r = c.r * 0.5f + height;
            return miTRUE;
        });
        occluder(height, "shader surface shadow '" + name + "'");
    }
    // The red that arrives at (0.75, 0, 0).
    float trace(int mode) {
        if (!world)
            build();
        options->shadow = mode;
        calls = 0;
        colors.clear();
        samples = 0;
        shade(0.75f, 0.0f);
        return colors.at(0).r;
    }
};

TEST(StageShadows, WhatBlocks) {
    const struct {
        const char* material;
        float red;    // what arrives: 8 / 2 + 3 by the filter alone, or nothing
        bool at_once; // nothing is shaded in vain
    } cases[] = {
        {"shader surface", 0.0f, true},
        {"opaque shader surface shadow surface", 0.0f, true},
        {"shader surface shadow black", 0, false},
        {"shader surface shadow refuses", 0.0f, false},
        {"volume surface", 7.0f, false},
    };
    for (const auto& c : cases) {
        for (const int mode : {1, int{'l'}, int{'s'}}) {
            ShadowScene s;
            s.shader("black", [](miState*, miColor& r) { r = {}; });
            s.shader("refuses", [](miState*, miColor&) { return miFALSE; });
            s.occluder(2.0f, c.material);
            s.filter(3.0f);
            EXPECT_FLOAT_EQ(s.trace(mode), c.red) << c.material << " mode " << mode;
            EXPECT_EQ(s.answer, c.red > 0.0f);
            if (mode == 'l') {
                EXPECT_EQ(s.calls == 0, c.red == 0.0f && c.at_once) << c.material;
            }
        }
    }
}

// A picture has more lists of lights. Modes of shadows: 1 casts, 2 receives.
TEST(StageShadows, OfSomeLights) {
    const struct {
        const char *plate, *floor;
        float red;
    } cases[] = {{"light []", "", 0.0f},
                 {"light shadow exclusive 'lamp'", "", 8.0f},
                 {"shadow 1", "shadow 2", 0.0f},
                 {"shadow 2", "", 8.0f},
                 {"", "shadow 1", 8.0f}};
    for (const auto& c : cases)
        for (const int mode : {1, int{'l'}, int{'s'}}) {
            ShadowScene s(c.floor);
            s.occluder(2.0f, "shader surface", c.plate);
            EXPECT_EQ(s.trace(mode), c.red) << c.plate << " mode " << mode;
        }
}

// Options and tolerance are those of the casting state; the light's own place does not count.
TEST(StageShadows, WhatDoesNotBlock) {
    ShadowScene s;
    s.filter(1.0f);
    s.filter(3.0f);
    s.occluder(5.0f, "shader surface");
    miOptions off;
    s.before = [&](miState* state) {
        off = *state->options;
        off.shadow = 0;
        state->options = &off;
    };
    EXPECT_EQ(s.trace('l'), 8.0f);
    s.before = [](miState* state) { state->shadow_tol = 2.0; };
    for (const int mode : {1, int{'l'}, int{'s'}})
        EXPECT_FLOAT_EQ(s.trace(mode), 7.0f) << mode; // 8 / 2 + 3
}

// Pieces of 2, 2 and 1, from the light: each halves the light, and the light ray as a whole does not again.
TEST(StageShadows, VolumesActOnEachSegment) {
    ShadowScene s;
    std::string pieces;
    for (const std::string name : {"air", "water"}) {
        s.shader(name, [&, name](miState* state, miColor& c) {
            if (state->type == miRAY_EYE)
                return;
            pieces += name + " " + show(state->point.z - state->org.z) + " ";
            c.r *= 0.5f;
        });
        s.shader("into_" + name, [&, name](miState* state, miColor& c) {
            state->refraction_volume = s.tag(name);
            return mi_trace_shadow_seg(&c, state);
        });
    }
    s.occluder(1.0f, "shader surface shadow into_water");
    s.occluder(3.0f, "shader surface shadow into_air");
    s.build("volume air");
    EXPECT_FLOAT_EQ(s.trace('s'), 1.0f);
    EXPECT_EQ(pieces, "air 2 water 2 air 1 ");
}

} // namespace
