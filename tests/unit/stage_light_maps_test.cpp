// Writable textures, light maps and colour profiles.
#include <filesystem>

#include "api/api.h"
#include "image/texture.h"
#include "stage_api_scene.h"
#include "test_paths.h"

namespace {

using namespace stage_test;

miColor decoded(const std::string& profile, const miColor& stored) {
    Stage stage;
    stage.parse("colorprofile \"p\" " + profile + " end colorprofile");
    return stage["p"].as<stage::ColorProfile>()->decoded(stored);
}

TEST(ColorProfile, AgreesWithPublishedNumbers) {
    const std::string xyz = "matrix 1 0 0 0 1 0 0 0 1";
    const struct {
        std::string profile;
        miColor stored, expected;
        double tolerance;
    } cases[] = {
        {"", {0.5f, -2, 7, 0.25f}, {0.5f, -2, 7, 0.25f}, 1e-6},
        // IEC 61966-2-1: 0.5 is 0.21404, 0.04 is on the straight part
        {"gamma srgb", {0.5f, 0.04f, -0.5f, 0.5f}, {0.21404f, 0.04f / 12.92f, -0.21404f, 0.5f}, 1e-5},
        {"gamma 2", {0.5f, 0.25f, 1, 1}, {0.25f, 0.0625f, 1, 1}, 1e-6},
        // its four-digit matrix of the primaries: the columns of red and green
        {xyz, {0.4124f, 0.2126f, 0.0193f, 1}, {1, 0, 0, 1}, 3e-4},
        {xyz, {0.3576f, 0.7152f, 0.1192f, 1}, {0, 1, 0, 1}, 3e-4},
        // the red and green of sRGB in the space of ICC profiles, which is CIE XYZ with white D50
        {xyz + " white 0.34567 0.35850", {0.43607f, 0.22249f, 0.01392f, 1}, {1, 0, 0, 1}, 5e-4},
        {xyz + " white 0.34567 0.35850", {0.38515f, 0.71687f, 0.09708f, 1}, {0, 1, 0, 1}, 5e-4},
        // white stays white
        {"primaries 0.7347 0.2653 0.1596 0.8404 0.0366 0.0001 white 0.3457 0.3585",
         {1, 1, 1, 1},
         {1, 1, 1, 1},
         1e-6},
    };
    for (const auto& c : cases)
        expect_color(decoded(c.profile, c.stored), c.expected, c.tolerance, c.profile);
    EXPECT_THROW(decoded("matrix 1 0 0 2 0 0 0 0 1", {}), stage::SceneError);
    EXPECT_THROW(decoded("primaries 0.1 0.1 0.2 0.2 0.3 0.3", {}), stage::SceneError);
    EXPECT_THROW(decoded("white 0.3 0", {}), stage::SceneError);
    EXPECT_THROW(decoded("gamma 0", {}), stage::SceneError);
}

TEST(ByteTexture, HasOneToFourComponents) {
    const std::pair<std::string, miColor> cases[] = {
        {"1 1 '33'", {0.2f, 0.2f, 0.2f, 1}},
        {"1 1 '3366'", {0.2f, 0.2f, 0.2f, 0.4f}},
        {"1 1 '0033ff'", {0, 0.2f, 1, 1}},
        {"1 1 2 '000033330000ffff'", {0, 0.2f, 0, 1}}, // low byte first
        {"1 1 4 '000020c1'", {-10, -10, -10, 1}},
        {"2 1 '33663366'", {0.2f, 0.2f, 0.2f, 0.4f}},
    };
    for (const auto& [bytes, expected] : cases)
        for (const std::string filter : {"", "filter "}) {
            Stage stage;
            stage.parse(filter + "color texture \"t\" " + bytes);
            miVector middle{0.5f, 0.5f, 0};
            miColor color{};
            EXPECT_TRUE(mi_lookup_color_texture(&color, &stage.state, stage.tag("t"), &middle));
            expect_color(color, expected, 1e-6, bytes);
        }
}

TEST(WritableTexture, IsEditedKeptAndWritten) {
    const std::string file = std::string(orl_test_output_dir) + "/written.png";
    std::filesystem::remove(file);
    const std::string texture = "colorprofile \"p\" gamma 2 end colorprofile writable color texture \"t\" "
                                "colorprofile \"p\" \"" +
                                file + "\" \"rgb_16\" 3 2";
    miVector middle{0.5f, 0.25f, 0};
    miColor color{};
    {
        Stage stage;
        const Told told;
        stage.parse(texture);
        void *handle = nullptr, *other = &color;
        miImg_image* image = mi_lightmap_edit(&handle, stage.tag("t"));
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(mi_lightmap_edit(&other, stage.tag("t")), nullptr);
        EXPECT_EQ(other, nullptr);
        EXPECT_THAT(told.text, testing::MatchesRegex("[^\n]*.scene.mi:1:[^\n]*\n"));
        color = {0.25f, 0.5f, 1, 1};
        mi_img_put_color(image, &color, 1, 0);
        mi_lightmap_edit_end(handle);
        mi_lightmap_edit_end(handle); // nothing is open any more
        mi_lightmap_edit_end(nullptr);
        EXPECT_TRUE(mi_lookup_color_texture(&color, &stage.state, stage.tag("t"), &middle));
        expect_color(color, {0.25f, 0.5f, 1, 1}, 0);
    }
    // What is stored are the square roots; another scene finds them, the same in its own type and size.
    Stage stage;
    stage.parse("color texture \"plain\" \"" + file + "\"" + texture);
    EXPECT_TRUE(mi_lookup_color_texture(&color, &stage.state, stage.tag("plain"), &middle));
    expect_color(color, {0.5f, 0.70711f, 1, 1}, 1e-5);
    EXPECT_TRUE(mi_lookup_color_texture(&color, &stage.state, stage.tag("t"), &middle));
    expect_color(color, {0.25f, 0.5f, 1, 1}, 4e-5);
    void* handle = &color;
    const Told told;
    EXPECT_EQ(mi_lightmap_edit(&handle, stage.tag("plain")), nullptr);
    EXPECT_EQ(mi_lightmap_edit(&handle, 0), nullptr);
    EXPECT_THAT(told.text, testing::MatchesRegex("[^\n]*needs a writable texture[^\n]*\n"));
}

// What a light map was called with, in the order of the calls.
std::vector<std::string> calls;

miBoolean log_call(void* result, miState* state, void*, void* extra) {
    std::ostringstream line;
    line << stage::scene_of(state)->database.find(state->material)->name;
    if (state->type == miRAY_LM_VERTEX) {
        line << " v " << state->point.x << ' ' << state->point.y << ' ' << state->point.z << " n "
             << state->normal.z << " t " << state->tex_list[0].x << " d " << state->dir.z;
        *static_cast<float*>(result) = state->point.x;
    } else if (const auto* mesh = static_cast<const miLightmap_mesh*>(extra)) {
        line << " m " << mesh->remaining << ':';
        for (miUint t = 0; t < mesh->triangle_count; ++t) {
            mi_state_set_pri(state, mesh->pri, mesh->triangles[t]);
            miVector* p[3];
            mi_tri_vectors(state, 'p', 0, &p[0], &p[1], &p[2]);
            for (int k = 0; k < 3; ++k) { // each corner with what its vertex gave: both are x
                const float given =
                    static_cast<const float*>(mesh->results)[mesh->corners[3 * t + static_cast<miUint>(k)]];
                line << ' ' << p[k]->x << '=' << given;
            }
        }
    }
    calls.push_back(line.str());
    return miTRUE;
}

TEST(LightMap, VisitsVerticesThenMeshes) {
    Stage stage;
    stage.define("log", log_call);
    calls.clear();
    // Two materials share one light map; the upper triangle and the second instance have the other material.
    stage.parse(R"(
        declare shader scalar "log" () end declare
        shader "map" "log" ()
        material "a" "tint" () lightmap "map" end material  material "b" "tint" () lightmap "map" end material
        object "two" group 0 0 0 1 0 0 1 1 0 0 1 0  5 0 0 6 0 0
            v 0 t 4 v 1 t 5 v 2 t 5 v 3 t 4  p "a" 0 1 2 p "b" 0 2 3 end group end object
        object "one" group 2 0 0 3 0 0 3 1 0 v 0 t 0 v 1 t 1 v 2 t 2 p "b" 0 1 2 end group end object
        instance "i" "two" end instance instance "j" "one" transform 1 0 0 0 0 1 0 0 0 0 1 0 0 0 -7 1 end instance
        camera "small" resolution 1 1 end camera instance "eye" "small" end instance
        instgroup "g" "eye" "i" "j" end instgroup render "g" "eye" "opt")");
    stage.render();
    EXPECT_THAT(calls, testing::ElementsAre(
                           "a v 0 0 0 n 1 t 5 d -1", "a v 1 0 0 n 1 t 6 d -1", "a v 1 1 0 n 1 t 6 d -1",
                           "b v 0 0 0 n 1 t 5 d -1", "b v 1 1 0 n 1 t 6 d -1", "b v 0 1 0 n 1 t 5 d -1",
                           "b v 2 0 7 n 1 t 2 d -1", "b v 3 0 7 n 1 t 3 d -1", "b v 3 1 7 n 1 t 3 d -1",
                           "a m 2: 0=0 1=1 1=1", "b m 1: 0=0 1=1 0=0", "b m 0: 2=2 3=3 3=3"));
}

} // namespace
