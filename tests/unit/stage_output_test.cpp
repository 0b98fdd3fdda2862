// Output shaders: what runs after the last sample, and the pictures that it reads and writes.
#include <gmock/gmock.h>

#include "stage_scene.h"

namespace {

using namespace stage_test;

mi::shader_v3::Interface& interface() {
    return *mi_get_shader_interface(3);
}

// A frame of 4 by 3 pixels that are (0.5, 0.25, 0, 1), with tags and depth beside them.
class StageOutput : public testing::Test {
protected:
    TestScene s;
    std::string told;

    std::vector<stage::FrameBuffer> render(const std::string& camera, const std::string& options = "") {
        s.shader("sky", [](miState*, miColor& c) { c = {0.5f, 0.25f, 0.0f, 1.0f}; });
        std::vector<stage::FrameBuffer> buffers;
        stage::RenderSettings settings;
        settings.progress = false;
        settings.threads = 1; // the shaders of the test write to its members
        const std::string text =
            "incremental options opt " + options +
            " end options incremental camera cam resolution 4 3 environment = sky framebuffer main datatype "
            "'rgba' primary on framebuffer t datatype 'tag' framebuffer d datatype 'z' " +
            camera + " end camera instgroup root 'cam_inst' end instgroup render root cam_inst opt\n";
        std::string quoted = text;
        std::replace(quoted.begin(), quoted.end(), '\'', '"');
        stage::parse_text(s.scene, quoted, "test.mi",
                          [&](stage::Scene& scene, const stage::RenderCommand& command) {
                              stage::Renderer renderer(scene, command, settings);
                              EXPECT_TRUE(renderer.render());
                              buffers = renderer.buffers();
                          });
        return buffers;
    }
};

TEST_F(StageOutput, ShadersSeeTheFinishedPictureAndChangeIt) {
    s.shader("first", [this](miState* state, miColor&) {
        miImg_image* const image = interface().open_output_image(state, 0);
        miColor color{};
        mi_img_get_color(image, &color, 3, 2);
        told = show(mi_img_get_width(image), mi_img_get_height(image), color, state->type == miRAY_OUTPUT,
                    state->camera->x_resolution);
        miColor changed{2.0f, 3.0f, 4.0f, 0.5f};
        mi_img_put_color(image, &changed, 1, 2);
        interface().close_output_image(state, 0);
    });
    s.shader("second", [this](miState* state, miColor&) {
        miColor color{}, depth{7.0f, 7.0f, 7.0f, 7.0f};
        mi_img_get_color(interface().open_output_image(state, 0), &color, 1, 2); // left open: closed for it
        mi_img_put_color(interface().open_output_image(state, 2), &depth, 0, 0);
        told += " | " + show(color);
        for (const int none : {-1, 1, 3}) // 1 holds tags
            EXPECT_EQ(interface().open_output_image(state, none), nullptr) << none;
        interface().close_output_image(state, 5);
    });
    const auto buffers = render("output = first output = second");
    EXPECT_EQ(told, "4 3 0.5 0.25 0 1 1 4 | 2 3 4 0.5");
    EXPECT_THAT(buffers[0].pixel(1, 2), testing::ElementsAre(2.0f, 3.0f, 4.0f, 0.5f));
    EXPECT_THAT(buffers[0].pixel(0, 2), testing::ElementsAre(0.5f, 0.25f, 0.0f, 1.0f));
    EXPECT_EQ(buffers[2].pixel(0, 0)[0], 7.0f);
    EXPECT_EQ(buffers[2].pixel(1, 0)[0], 0.0f);
}

TEST_F(StageOutput, OptionsTurnThemOffAndSamplesHaveNoPicture) {
    s.shader("lens", [this](miState* state, miColor& c) {
        told = interface().open_output_image(state, 0) ? "a picture" : "none";
        return mi_trace_eye(&c, state, &state->org, &state->dir);
    });
    s.shader("out", [this](miState*, miColor&) { told += ", output"; });
    render("lens = lens output = out", "output off");
    EXPECT_EQ(told, "none");
}

} // namespace
