// The small shaders: shadows, the editor background and gamma.
#include "shader_fixture.h"
#include "utilshaders.h"

#include <cmath>
#include <tuple>
#include <utility>

using namespace orl;

ENTRY_POINT(orl_ShadowWrapper, miColor, ShadowWrapperParams);
ENTRY_POINT(orl_base_MeditBackground, miColor, MeditBackgroundParams);
INIT_AND_EXIT(orl_base_MeditBackground, MeditBackgroundParams);
ENTRY_POINT(orl_base_ImageGammaCorrect, miColor, ImageGammaCorrectParams);
INIT_AND_EXIT(orl_base_ImageGammaCorrect, ImageGammaCorrectParams);

namespace {

class UtilShaders : public ShaderTest {
protected:
    miColor result{9, 9, 9, 9};
};

// ---- mathematics

TEST(GammaTableTest, FollowsThePowerAndStaysInside) {
    static float table[GammaTable::size];
    GammaTable::fill(table, 2.2f);
    EXPECT_EQ(table[0], 0.0f);
    EXPECT_EQ(table[8191], 1.0f);
    const auto apply = [&](float c) { return GammaTable::apply(table, 2.2f, c); };
    for (float c = 0; c <= 1; c += 0.0137f) {
        // half a step of the table is at most 0.5 / 8191 in c, and the slope of c^2.2 is at most 2.2
        EXPECT_NEAR(apply(c), std::pow(c, 2.2), 2.2 * 0.5 / 8191 + 1e-6) << c;
    }
    EXPECT_FLOAT_EQ(apply(1.5f), 2.4400615f); // exp(2.2 ln 1.5) = exp(0.892023238)
    EXPECT_EQ(apply(infinite), infinite);
    for (const float c : {-0.0f, -1e-9f, -0.3f, -1e9f, -infinite})
        EXPECT_EQ(apply(c), 0.0f) << c;
    EXPECT_TRUE(std::isnan(apply(not_a_number)));
}

TEST(CubeFaces, AreUprightAndUnmirroredFromTheMiddle) {
    // Looking along each axis with y up; `right` and `up` as a viewer in the middle sees them. Above and
    // below, the viewer has tilted from looking along -z, so up is +z and -z.
    const struct {
        miVector ahead, right, up;
    } faces[] = {
        {{0, 0, -1}, {1, 0, 0}, {0, 1, 0}}, {{1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
        {{0, 0, 1}, {-1, 0, 0}, {0, 1, 0}}, {{-1, 0, 0}, {0, 0, -1}, {0, 1, 0}},
        {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}},  {{0, -1, 0}, {1, 0, 0}, {0, 0, -1}},
    };
    for (const auto& face : faces)
        for (const float x : {-0.9f, 0.0f, 0.5f})
            for (const float y : {-0.25f, 0.0f, 0.75f}) {
                const miVector dir{3 * (face.ahead.x + x * face.right.x + y * face.up.x),
                                   3 * (face.ahead.y + x * face.right.y + y * face.up.y),
                                   3 * (face.ahead.z + x * face.right.z + y * face.up.z)};
                const TextureCoordinate at = cube_face_coordinate(dir);
                EXPECT_NEAR(at.u, (x + 1) / 2, 1e-6f);
                EXPECT_NEAR(at.v, (y + 1) / 2, 1e-6f);
            }
    for (const miVector& nowhere :
         {miVector{0, 0, 0}, miVector{not_a_number, 0, 1}, miVector{0, not_a_number, 1},
          miVector{0, 1, not_a_number}, miVector{infinite, infinite, 0}}) {
        EXPECT_EQ(cube_face_coordinate(nowhere).u, 0.5f);
        EXPECT_EQ(cube_face_coordinate(nowhere).v, 0.5f);
    }
}

// ---- shadows

TEST_F(UtilShaders, ShadowWrapper) {
    scripted::ShaderInstance<ShadowWrapperParams> shader;
    const auto add_shadow = [&](miBoolean answer) {
        return renderer.add_shader([answer](void* light, miState* s, void*) {
            EXPECT_EQ(s->call_type, miSHADER_SHADOW); // whatever the outer call is
            return static_cast<miColor*>(light)->r *= 0.5f, answer;
        });
    };
    const miTag passes = add_shadow(miTRUE), blocks = add_shadow(miFALSE);
    renderer.mi_trace_shadow_seg = [](miColor* light, miState*) { return light->r = 0.25f, miFALSE; };
    orl_NodeData makes_none{}, makes_all{};
    makes_all.shadows_from_all_lights = miTRUE;
    // node record, shader, shadow mode: answer and what is left of 1
    const std::tuple<const orl_NodeData*, miTag, int, miBoolean, float> cases[] = {
        {nullptr, passes, 1, miTRUE, 0.5f},        {nullptr, blocks, 1, miFALSE, 0.5f},
        {nullptr, miNULLTAG, 1, miFALSE, 1},       {&makes_all, passes, 's', miTRUE, 0.5f},
        {&makes_none, blocks, 1, miTRUE, 1},       {&makes_none, miNULLTAG, 'l', miTRUE, 1},
        {&makes_none, passes, 's', miFALSE, 0.25f}};
    for (const auto& [node, shadow, mode, answer, light] : cases) {
        state->instance = add_instance_with(node ? add_record(*node) : miNULLTAG);
        state->type = miRAY_SHADOW;
        state.options.shadow = mode;
        shader->shadow = shadow;
        result = grey(1);
        EXPECT_EQ(orl_ShadowWrapper(&result, state.run(shader, miSHADER_TEXTURE), &shader.params()), answer);
        EXPECT_EQ(result.r, light) << mode;
    }
}

// ---- background and gamma

class Background : public UtilShaders {
protected:
    LiveShader<MeditBackgroundParams> shader{state, orl_base_MeditBackground_init,
                                             orl_base_MeditBackground_exit};
    miVector asked{};

    miColor shade() {
        EXPECT_TRUE(orl_base_MeditBackground(&result, state, &shader.params()));
        return result;
    }
    miTag add_image() {
        return renderer.add_texture([this](miColor* value, const miVector& at) {
            asked = at;
            *value = {0.25f, 0.5f, 2, 0.75f};
            return miTRUE;
        });
    }
};

TEST_F(Background, BandsWithoutAPlaceAreThoseOfTheMiddle) {
    shader->on = miTRUE;
    shader.start();
    constexpr miColor blue{0, 0, 128.0f / 255, 0}; // 4 + 4 = 8
    state->raster_x = not_a_number;
    EXPECT_EQ(shade(), blue);
    state->raster_x = 0;
    state.camera.x_resolution = 0;
    EXPECT_EQ(shade(), blue);
    state->camera = nullptr;
    EXPECT_EQ(shade(), blue);
}

TEST_F(Background, EnvironmentRaysOfOrdinaryScenesSeeACube) {
    shader->on = miTRUE;
    shader->background = add_image();
    shader.start();
    // A view that looks along world x while internal -z is ahead: world = internal turned about y.
    constexpr miMatrix to_world{0, 0, 1, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 0, 1};
    renderer.set_to_space(scripted::Space::world, to_world);
    state->type = miRAY_ENVIRONMENT;
    state->dir = {0.5f, 0.25f, -1}; // world (1, 0.25, 0.5): the face at +x, right is +z
    shade();
    EXPECT_NEAR(asked.x, 0.75f, 1e-6f);
    EXPECT_NEAR(asked.y, 0.625f, 1e-6f);

    orl_SceneData editor{};
    editor.material_editor = miTRUE;
    set_scene(editor);
    shade();
    EXPECT_EQ(asked.x, 320.0f / 640);
    EXPECT_EQ(asked.y, 240.0f / 480);
}

// The power itself is seen in pictures.
TEST_F(UtilShaders, GammaOfOneBuildsNoTableAndMissingImagesAreBlack) {
    orl_SceneData scene{};
    for (const float gamma : {1.0f, 2.2f}) {
        scene.display_gamma = gamma;
        set_scene(scene);
        LiveShader<ImageGammaCorrectParams> shader(state, orl_base_ImageGammaCorrect_init,
                                                   orl_base_ImageGammaCorrect_exit);
        const long long before = renderer.resources().live_bytes;
        shader.start();
        EXPECT_EQ(renderer.resources().live_bytes - before > 8192, gamma != 1.0f);
        for (const miTag texture : {miNULLTAG, miTag{9999}}) {
            shader->texture = texture;
            EXPECT_TRUE(orl_base_ImageGammaCorrect(&result, state, &shader.params()));
            EXPECT_EQ(std::exchange(result, grey(9)), grey(0));
        }
    }
}

} // namespace
