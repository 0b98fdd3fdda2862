// Which lights a shader is told of.
#include "stage_scene.h"

namespace {

using namespace stage_test;

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
