// Baking: where the lens looks from, what it leaves out, and the border.
#include "image_filter_fixture.h"
#include "orl_rtt.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <tuple>

using namespace orl;

ENTRY_POINT(orl_rtt_lens, miColor, RttLensParams);
INIT_AND_EXIT(orl_rtt_lens, RttLensParams);
ENTRY_POINT(orl_rtt_output, miColor, void);

namespace {

// Two triangles, 4 by 2 units, on the left half of the texture square. Their normals lean along x; they stand
// where the first of two texture spaces does, the second is baked. Object space is internal space moved by 10
// along x and half as wide there.
class Bake : public ShaderTest {
protected:
    std::vector<float> vertices{0, 0, 0, 0.6f, 0, 0.8f, 0,    0, 0, 4, 0, 0, 0.6f, 0, 0.8f, 0.5f, 0, 0,
                                4, 2, 0, 0.6f, 0, 0.8f, 0.5f, 1, 0, 0, 2, 0, 0.6f, 0, 0.8f, 0,    1, 0};
    std::vector<miUint> indices{0, 1, 2, 0, 2, 3};
    miTriangles triangles{};
    miObject object{};
    LiveShader<RttLensParams> lens{state, orl_rtt_lens_init, orl_rtt_lens_exit};
    const scripted::Resources before = renderer.resources();
    miColor result{};
    miTag met = miNULLTAG;                  // the instance that rays meet
    miVector met_at{14, 1, 0};              // and where
    miColor seen{0.5f, 0.25f, 0, 0.5f};     // there
    std::optional<miVector> org, dir;       // of the last ray
    std::optional<ProjectionContext> texel; // and its record

    Bake() {
        triangles.triangle_count = 2;
        triangles.vertex_count = 4;
        triangles.vertex_stride = 9;
        triangles.normal_offset = 3;
        triangles.texture_count = 2;
        triangles.texture_offset = 3;
        triangles.vertices = vertices.data();
        triangles.indices = indices.data();
        object.bbox_max = {4, 2, 0};
        object.triangles = &triangles;
        constexpr miMatrix to_object{0.5f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -5, 0, 0, 1};
        renderer.set_to_space(scripted::Space::object, to_object);
        met = lens->object = add_instance_with(miNULLTAG, renderer.add_copy(miSCENE_OBJECT, object));
        lens->textureSpace = 1;
        renderer.mi_point_from_object = [this](miState* s, auto... vectors) {
            EXPECT_TRUE(s->instance == lens->object && s->pri == nullptr); // or another space is meant
            renderer.mi_point_from_object.unscripted(s, vectors...);
        };
        renderer.mi_trace_eye = [this](miColor* color, miState* s, miVector* from, miVector* along) {
            EXPECT_TRUE(s->instance == miNULLTAG && s->time == 0.0f); // the eye's, and the shutter opens
            org = *from;
            dir = *along;
            if (const auto* record = find_record(s, keys::projection))
                texel = *record;
            s->instance = met;
            s->point = met_at;
            *color = seen;
            return miTRUE;
        };
    }
    ~Bake() override { EXPECT_EQ(renderer.pins(), 0); }

    // u and v of the sample; the usual one is in the middle of the object.
    miBoolean shade(float u = 0.25f, float v = 0.5f) {
        org = dir = std::nullopt;
        state->raster_x = 640 * u;
        state->raster_y = 480 * v;
        state->instance = miNULLTAG;
        state->pri = this;
        state->time = 0.5f;
        state.run(lens, miSHADER_LENS);
        const miBoolean lit = orl_rtt_lens(&result, state, &lens.params());
        EXPECT_EQ(state->time, 0.5f);
        return lit;
    }
    // Ends the instance before the test does.
    void stop() {
        state.run(lens);
        orl_rtt_lens_exit(state, &lens.params());
    }
    auto count(scripted::Level level) const {
        const auto all = renderer.messages();
        return std::count_if(all.begin(), all.end(), [=](const auto& m) { return m.level == level; });
    }
};

TEST_F(Bake, LooksAtTheTexelsPointAlongTheNormal) {
    lens->selection = renderer.add_userdata("\2", 1); // the usual texel is on the edge of both triangles
    lens.start();
    EXPECT_EQ(renderer.pins(), 0);
    EXPECT_TRUE(shade());
    EXPECT_EQ(result, (miColor{0.5f, 0.25f, 0, 1})); // alpha is coverage
    // (0.25, 0.5) of (0.5, 1) is (2, 1) in the object, (14, 1) outside. A normal's x is halved where lengths
    // double; (0.3, 0, 0.8) has the length 0.8544. The diagonal of 8 by 2 is 8.246.
    const miVector normal{0.3f / 0.8544f, 0, 0.8f / 0.8544f};
    ASSERT_TRUE(org && dir && texel);
    const float offset = 8.246e-4f;
    expect_near(*org, {14 + offset * normal.x, 1, offset * normal.z}, 2e-6f);
    expect_near(*dir, {-normal.x, 0, -normal.z}, 1e-4f);
    expect_near(texel->right, {16.0f / 640, 0, 0}, 1e-6f); // 8 units on half of 640 texels
    expect_near(texel->up, {0, 2.0f / 480, 0}, 1e-6f);
    EXPECT_EQ(find_record(state, keys::projection), nullptr);
    EXPECT_EQ(renderer.pins(), 1);

    lens->offset = 2;
    lens->backSide = miTRUE;
    shade();
    expect_near(*org, {14 - 2 * normal.x, 1, -2 * normal.z}, 1e-4f);
    lens->backSide = miFALSE;
    triangles.normal_offset = -1;
    shade();
    expect_near(*org, {14, 1, 2}, 1e-5f);
    constexpr miMatrix mirrored{-0.5f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 7, 0, 0, 1};
    renderer.set_to_space(scripted::Space::object, mirrored); // 14 - 2x: the front stays in front
    met_at = {10, 1, 0};
    EXPECT_TRUE(shade());
    expect_near(*org, {10, 1, 2}, 1e-5f);

    seen.g = not_a_number;
    EXPECT_TRUE(shade());
    EXPECT_EQ(result, (miColor{0, 0, 0, 1}));

    // No triangle there, one that is not selected, and one without a normal.
    EXPECT_FALSE(shade(0.75f) || org || shade(0.375f, 0.25f) || org);
    vertices[18] = 0;
    EXPECT_FALSE(shade() || org);
    EXPECT_EQ(result, (miColor{0, 0, 0, 0}));
    stop();
}

TEST_F(Bake, LeavesOutWhatIsHidden) {
    lens.start();
    const miTag own = met;
    const std::tuple<miTag, miVector, float> cases[] = {
        {miNULLTAG, {0, 0, 0}, 0.0f},  // nothing is met
        {own + 1, {14, 1, 0}, 0.0f},   // another instance
        {own, {14, 1.001f, 0}, 0.0f},  // another part
        {own, {14, 1.0001f, 0}, 1.0f}, // the neighbour across an edge
    };
    for (const auto& [instance, at, alpha] : cases) {
        met = instance;
        met_at = at;
        EXPECT_EQ(shade() != miFALSE, alpha > 0);
        EXPECT_EQ(result, (miColor{0.5f * alpha, 0.25f * alpha, 0, alpha})) << at.y;
    }
    met_at = {14, 5, -3}; // a material that lets the ray pass leaves such a point: the triangle counts
    renderer.triangle.points = {{{0, 0, 0}, {4, 0, 0}, {4, 2, 0}}};
    EXPECT_TRUE(shade(0.25f, 0.25f));
    EXPECT_EQ(count(scripted::Level::warning), 1);
    stop();
}

TEST_F(Bake, Failures) {
    const std::string create = "Render to Texture: Failed to create acceleration structure (unkown error).",
                      no_object = "Render to Texture: Shader 'shader' requires the instance of an object.";
    const std::tuple<miTag, miInteger, std::string> cases[] = {
        // the object, the texture space
        {miNULLTAG, 1, no_object},
        {add_instance_with(miNULLTAG), 1, no_object},
        {add_instance_with(miNULLTAG, renderer.add_group({})), 1, no_object},
        {met, -1, create}};
    for (const auto& [tag, space, message] : cases) {
        renderer.clear_logs();
        lens->object = tag, lens->textureSpace = space;
        miBoolean wants = miFALSE;
        state.run(lens);
        orl_rtt_lens_init(state, &lens.params(), &wants);
        EXPECT_FALSE(shade() || shade() || result.a > 0);
        EXPECT_EQ(errors(), std::vector<std::string>{message});
        stop();
        EXPECT_EQ(renderer.resources().live_blocks, before.live_blocks);
    }
}

TEST_F(Bake, ThreadsShareOneGrid) {
    lens.start();
    mi_init_lock(&lens.function().lock);
    renderer.mi_trace_eye = [](miColor*, miState*, miVector*, miVector*) { return miTRUE; };
    renderer.mi_mem_int_test_allocate = [this](auto... arguments) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // so that all come while one builds
        return renderer.mi_mem_int_test_allocate.unscripted(arguments...);
    };
    in_threads(8, [&](scripted::State& own) {
        own->raster_x = 160;
        miColor color{};
        orl_rtt_lens(&color, own.run(lens, miSHADER_LENS), &lens.params());
    });
    mi_delete_lock(&lens.function().lock);
    EXPECT_EQ(count(scripted::Level::info), 1);
    EXPECT_EQ(renderer.pins(), 1);
    stop();
}

class Border : public Bake {
protected:
    stage::ImageMemory memory{8, 5, miIMG_TYPE_RGBA_FP};
    scripted::ShaderInstance<int> first_lens, output{"border"};

    // Two texels are covered, one of them by half; the lens is the second one of the camera's.
    Border() {
        renderer.output_image = memory.image();
        read_images(renderer);
        renderer.mi_img_put_color = [](miImg_image* image, miColor* color, int x, int y) {
            stage::put_image_color(image, *color, x, y);
        };
        miColor full{0.2f, 0.4f, 0.6f, 1}, half{0.1f, 0.1f, 0.1f, 0.5f};
        stage::put_image_color(memory.image(), full, 1, 2);
        stage::put_image_color(memory.image(), half, 2, 2);
        lens.function().function_decl = renderer.add(miSCENE_FUNCTION_DECL, nullptr, "orl_rtt_lens");
        first_lens.function().next_function = renderer.add(miSCENE_FUNCTION, &lens.function());
        state.camera.lens = renderer.add(miSCENE_FUNCTION, &first_lens.function());
        lens->border = 2;
    }
    miBoolean fill() {
        state.run(output, miSHADER_OUTPUT);
        return orl_rtt_output(nullptr, state, nullptr);
    }
    void expect_color(int x, int y, const miColor& expected) {
        expect_near(stage::image_color(memory.image(), x, y), expected, 1e-6f);
    }
};

TEST_F(Border, GrowsFromWhatIsCovered) {
    EXPECT_FALSE(fill()); // the lens has not run
    lens.start();
    EXPECT_TRUE(fill());
    const miColor blue{0.2f, 0.4f, 0.6f, 1}, grey{0.2f, 0.2f, 0.2f, 1}, both{0.2f, 0.3f, 0.4f, 1};
    expect_color(2, 2, grey); // what covers half of it, without the rest
    expect_color(0, 3, blue); // the first step, here from one neighbour, there from two
    expect_color(1, 1, both);
    expect_color(4, 2, grey); // the second
    // From (0, 3), (1, 3), (2, 3): blue and twice the mean of both.
    expect_color(1, 4, {0.2f, 1.0f / 3, 1.4f / 3, 1});
    expect_color(5, 2, {0, 0, 0, 0});
    renderer.mi_mem_int_test_allocate = [](const char*, int, miUint) -> void* { return nullptr; };
    EXPECT_FALSE(fill());
    const std::string no_lens =
                          "Render to Texture: Shader 'border' requires a camera with the lens orl_rtt_lens.",
                      no_memory = "Render to Texture: Failed to fill the border (not enough memory).";
    EXPECT_EQ(errors(), (std::vector<std::string>{no_lens, no_memory}));
    stop();
}

} // namespace
