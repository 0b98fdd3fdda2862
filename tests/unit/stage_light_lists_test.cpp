// Which lights a shader is told of.
#include "stage_scene.h"

namespace {

using namespace stage_test;

// A plate half way between the floor and a lamp of 8. A picture has more lists.
TEST(StageLightLists, ShadowsOfSomeLights) {
    const struct {
        const char *plate, *floor;
        float red;
    } cases[] = {{"light []", "", 0.0f},
                 {"light shadow exclusive 'lamp'", "", 8.0f},
                 {"shadow 1", "shadow 2", 0.0f}, // modes: 1 casts, 2 receives
                 {"shadow 2", "", 8.0f},
                 {"", "shadow 1", 8.0f}};
    for (const auto& c : cases) {
        for (const int mode : {1, int{'l'}, int{'s'}}) {
            TestScene s;
            float red = -1.0f;
            s.shader("shine", [](miState* state, miColor& color) {
                color = {8.0f, 8.0f, 8.0f, 1.0f};
                mi_trace_shadow(&color, state);
            });
            s.shader("ground", [&](miState* state, miColor&) {
                miColor color;
                miVector dir;
                miScalar cosine;
                miInteger samples = 0;
                mi_sample_light(&color, &dir, &cosine, state, s.tag("lamp"), &samples);
                red = color.r;
            });
            s.red("surface", 1.0f);
            s.light("lamp", {0, 0, 5}, "= shine origin 0 0 0");
            s.square("floor", {}, "shader ground", c.floor);
            s.square("plate", {0, 0, 2}, "shader surface", std::string("visible off ") + c.plate);
            s.options->shadow = mode;
            s.build();
            s.shade(0.5f, 0.0f);
            EXPECT_EQ(red, c.red) << c.plate << " mode " << mode;
        }
    }
}

// Seen from (0, 0, 0): a lamp straight above, a ball of radius 3 whose centre is 45 degrees off at a distance
// of 6, so that it reaches from 15 to 75 degrees, and the sun at 60 degrees.
TEST(StageLightLists, LightsWithinACone) {
    const struct {
        double degrees;
        bool list; // ball and sun by their group
        std::string lights;
    } cases[] = {{180, false, "lamp ball sun "},
                 {61, false, "lamp ball sun "},
                 {59, false, "lamp ball "},
                 {16, false, "lamp ball "},
                 {14, false, "lamp "},
                 {180, true, "ball sun "},
                 {59, true, "ball "}};
    for (const auto& c : cases) {
        TestScene s;
        std::string found;
        s.shader("ground", [&](miState* state, miColor&) {
            mi::shader_v3::Interface& renderer = *mi_get_shader_interface(3);
            miTag group = s.tag("two");
            const auto cosine = static_cast<miScalar>(std::cos(c.degrees * 3.14159265358979 / 180.0));
            mi::shader_v3::LightList* const list =
                renderer.createLightList(state, {0, 0, 1}, cosine, c.list ? &group : nullptr, c.list ? 1 : 0);
            for (int k = 0; k < list->get_count(); ++k)
                found += s.scene.database.find(list->get_lights()[k])->name + ' ';
            renderer.releaseLightList(list);
        });
        s.red("shine", 1.0f);
        s.square("floor", {}, "shader ground");
        s.light("lamp", {0, 0, 4}, "= shine origin 0 0 0");
        s.light("ball", {4.242641f, 0, 4.242641f}, "= shine origin 0 0 0 sphere 3");
        s.light("sun", {}, "= shine direction -0.8660254 0 -0.5");
        s.parse("instgroup two 'ball' 'sun' end instgroup");
        s.build();
        s.shade();
        EXPECT_EQ(found, c.lights) << c.degrees << c.list;
    }
}

} // namespace
