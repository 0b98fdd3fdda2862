// Output shaders: what runs after the last sample, and the pictures that it reads and writes.
#include "stage_scene.h"

namespace {

using namespace stage_test;

TEST(StageOutput, ShadersSeeTheFinishedPictureAndChangeIt) {
    TestScene s;
    std::string told;
    mi::shader_v3::Interface& pictures = *mi_get_shader_interface(3);
    s.shader("sky", [](miState*, miColor& c) { c = {0.5f, 0.25f, 0.0f, 1.0f}; });
    s.shader("first", [&](miState* state, miColor&) {
        miImg_image* const image = pictures.open_output_image(state, 0);
        miColor color{}, changed{2.0f, 3.0f, 4.0f, 0.5f};
        mi_img_get_color(image, &color, 3, 2);
        told = show(mi_img_get_width(image), mi_img_get_height(image), color, state->type == miRAY_OUTPUT);
        mi_img_put_color(image, &changed, 1, 2);
        pictures.close_output_image(state, 0);
    });
    s.shader("second", [&](miState* state, miColor&) {
        miColor color{}, depth{7.0f, 7.0f, 7.0f, 7.0f};
        mi_img_get_color(pictures.open_output_image(state, 0), &color, 1, 2); // left open: closed for it
        mi_img_put_color(pictures.open_output_image(state, 2), &depth, 0, 0);
        told += " | " + show(color);
        for (const int none : {-1, 1, 3}) // 1 holds tags
            EXPECT_EQ(pictures.open_output_image(state, none), nullptr) << none;
    });
    s.build(
        "resolution 4 3 environment = sky output = first output = second "
        "framebuffer m datatype 'rgba' primary on framebuffer t datatype 'tag' framebuffer d datatype 'z'");
    auto buffers = s.render();
    EXPECT_EQ(told, "4 3 0.5 0.25 0 1 1 | 2 3 4 0.5");
    EXPECT_THAT(buffers[0].pixel(1, 2), testing::ElementsAre(2.0f, 3.0f, 4.0f, 0.5f));
    EXPECT_EQ(buffers[2].pixel(0, 0)[0], 7.0f);
    s.parse("incremental options opt output off end options render root cam_inst opt");
    EXPECT_EQ(s.render()[0].pixel(1, 2)[0], 0.5f);
}

} // namespace
