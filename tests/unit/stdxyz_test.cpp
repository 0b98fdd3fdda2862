// Coordinates over three dimensions: every source under one placement, against rotations of vectors in double
// precision by Rodrigues' formula; the records of callers; the caches of threads.
#include "orl_stdxyz.h"
#include "shader_fixture.h"

using namespace orl;

INIT_AND_EXIT(orl_base_XYZGenerator, XyzParams);
ENTRY_POINT(orl_XYZCoordinate, XyzCoordinateResult, XyzParams);
extern "C" miBoolean orl_base_XYZGenerator(XyzGeneratorResult*, miState*, const XyzParams*,
                                           const GeneratorRequest*);

namespace {

struct V {
    double x, y, z;
};

// v cos t + (k x v) sin t + k (k.v) (1 - cos t), for an axis k of length 1.
V rotated(V v, V k, double t) {
    const double c = std::cos(t), s = std::sin(t), along = (k.x * v.x + k.y * v.y + k.z * v.z) * (1 - c);
    return {v.x * c + (k.y * v.z - k.z * v.y) * s + k.x * along,
            v.y * c + (k.z * v.x - k.x * v.z) * s + k.y * along,
            v.z * c + (k.x * v.y - k.y * v.x) * s + k.z * along};
}

void expect_near(const miVector& got, V wanted) {
    EXPECT_LT(std::hypot(got.x - wanted.x, got.y - wanted.y, got.z - wanted.z), 4e-6);
}

constexpr double pixel = 5.0 / 640; // of the state's camera, at the plane

class Xyz : public ShaderTest {
protected:
    scripted::ShaderInstance<XyzParams> shader;
    miObject object{};

    Xyz() {
        shader.params() = {xyz_object, 0, {1, -2, 0.5f}, {0.3f, -1.1f, 2}, {2, -3, 0.5f}, 1.5f, 0.01f};
        constexpr miMatrix up_one{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
        constexpr miMatrix twice{2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 3, 0, -1, 1};
        renderer.set_to_space(scripted::Space::object, up_one);
        renderer.set_to_space(scripted::Space::world, twice);
        // The one space of texture coordinates, which change as positions do.
        renderer.triangle.points = scripted::Triangle::Corners{{{-9, -9, 0}, {9, -9, 0}, {0, 18, 0}}};
        renderer.triangle.textures = {*renderer.triangle.points};
        renderer.texture_spaces = 1;
        orl_ObjectData record{};
        record.uv_channels = {0, 1, {0}};
        object.userdata = add_record(record);
        state->instance = add_instance_with(miNULLTAG, renderer.add(miSCENE_OBJECT, &object));
        state.run(shader, miSHADER_TEXTURE);
    }
    ~Xyz() override { orl_base_XYZGenerator_exit(state, &shader.params()); }

    V turned(V v) {
        v = rotated(v, {1, 0, 0}, shader->angle.x);
        v = rotated(v, {0, 1, 0}, shader->angle.y);
        v = rotated(v, {0, 0, 1}, shader->angle.z);
        return {v.x * shader->tiling.x, v.y * shader->tiling.y, v.z * shader->tiling.z};
    }
    V placed(V v) { return turned({v.x + shader->offset.x, v.y + shader->offset.y, v.z + shader->offset.z}); }
    V filtered(V v) {
        v = turned(v);
        return {v.x * 1.5 + 0.01, v.y * 1.5 + 0.01, v.z * 1.5 + 0.01};
    }

    miVector generate(const GeneratorRequest* request = nullptr) {
        XyzGeneratorResult result{};
        EXPECT_TRUE(orl_base_XYZGenerator(&result, state, &shader.params(), request));
        EXPECT_EQ(result.w, 1.0f);
        return result.point;
    }
};

TEST_F(Xyz, EverySourceIsPlaced) {
    const struct {
        miInteger source, channel;
        V point, width;
    } cases[] = {
        {xyz_object, 0, {0, 1, 0}, {pixel, pixel, 0}},
        {xyz_map_channel, 0, {0.5, 0.5, 0}, {pixel, pixel, 0}},
        {xyz_vertex_color, 0, {0.5, 0.5, 0}, {pixel, pixel, 0}},
        {xyz_map_channel, 5, {0, 0, 0}, {0, 0, 0}}, // which the object does not have
        {xyz_world, 0, {3, 0, -1}, {2 * pixel, 2 * pixel, 0}},
        {7, 0, {0, 0, 0}, {0, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.source);
        shader->coordSource = c.source;
        shader->mapChannel = c.channel;
        XyzCoordinateResult result{};
        EXPECT_TRUE(orl_XYZCoordinate(&result, state, &shader.params()));
        expect_near(result.point, placed(c.point));
        expect_near(result.width, filtered(c.width));
        expect_near(generate(), placed(c.point));
    }
}

TEST_F(Xyz, TheRequestChoosesTheKindOfRay) {
    const GeneratorRequest environment{OutputRequest::color, context::Selector::environment_ray};
    expect_near(generate(&environment), placed({0, 0, -1})); // where the ray goes
    state->type = miRAY_ENVIRONMENT;
    expect_near(generate(), placed({0, 0, -1}));
}

TEST_F(Xyz, RecordsAreFilledAsTheyAsk) {
    const miVector blank{7, 7, 7};
    XyzDerivRecord record{};
    state->user = &record;
    state->user_size = sizeof record;
    const V y = turned({0, 1, 0});
    const double size = std::hypot(y.x, y.y, y.z);
    for (const miUint flags : {0u, 1u, 2u, 3u}) {
        record = {XyzDerivRecord::magic_number, flags, blank, {blank, blank, blank}};
        generate();
        expect_near(record.width, flags & 1 ? filtered({pixel, pixel, 0}) : V{7, 7, 7});
        expect_near(record.axis[1], flags & 2 ? V{y.x / size, y.y / size, y.z / size} : V{7, 7, 7});
    }
    shader->tiling = {0, 0, 0}; // axes without a length stay null
    generate();
    expect_near(record.axis[1], {0, 0, 0});
}

TEST_F(Xyz, TheCacheFollowsTheParameters) {
    for (int k = 0; k < 9; ++k) { // each number by itself, and back from what equals nothing
        generate();
        float& number = (&shader->offset.x)[k];
        const float before = std::exchange(number, not_a_number);
        EXPECT_TRUE(std::isnan(generate().x + generate().y + generate().z));
        number = before + 0.25f;
        expect_near(generate(), placed({0, 1, 0}));
    }
}

TEST_F(Xyz, EachThreadHasACacheUntilTheExit) {
    std::vector<void*> made, released;
    renderer.mi_mem_int_allocate = [&](const char* file, int line, miUint size) {
        EXPECT_EQ(size, 168u);
        return made.emplace_back(renderer.mi_mem_int_allocate.unscripted(file, line, size));
    };
    renderer.mi_mem_int_release = [&](const char* file, int line, void* memory) {
        renderer.mi_mem_int_release.unscripted(file, line, released.emplace_back(memory));
    };
    for (const int thread : {0, 1, 2, 1}) {
        state->thread = static_cast<short>(thread);
        generate();
    }
    orl_base_XYZGenerator_exit(state, nullptr);
    EXPECT_TRUE(released.empty());
    orl_base_XYZGenerator_exit(state, &shader.params());
    EXPECT_EQ(made.size(), 3u);
    EXPECT_EQ(released, std::vector<void*>(made.rbegin(), made.rend()));
}

} // namespace
