// Coordinates over three dimensions: every source under one placement, against rotations of vectors in double
// precision by Rodrigues' formula; the records of callers; the caches of threads.
#include "orl_stdxyz.h"
#include "shader_fixture.h"

using namespace orl;
using context::Selector;

INIT_AND_EXIT(orl_base_XYZGenerator, XyzParams);
INIT_AND_EXIT(orl_XYZCoordinate, XyzParams);
ENTRY_POINT(orl_XYZCoordinate, XyzCoordinateResult, XyzParams);
extern "C" miBoolean orl_base_XYZGenerator(XyzGeneratorResult*, miState*, const XyzParams*,
                                           const GeneratorRequest*);

namespace {

struct V {
    double x, y, z;
};

V wide(const miVector& v) {
    return {v.x, v.y, v.z};
}

// v cos t + (k x v) sin t + k (k.v) (1 - cos t), for an axis k of length 1.
V rotated(V v, V k, double t) {
    const double c = std::cos(t), s = std::sin(t), along = (k.x * v.x + k.y * v.y + k.z * v.z) * (1 - c);
    return {v.x * c + (k.y * v.z - k.z * v.y) * s + k.x * along,
            v.y * c + (k.z * v.x - k.x * v.z) * s + k.y * along,
            v.z * c + (k.x * v.y - k.y * v.x) * s + k.z * along};
}

V turned_and_scaled(V v, const XyzParams& p) {
    v = rotated(v, {1, 0, 0}, p.angle.x);
    v = rotated(v, {0, 1, 0}, p.angle.y);
    v = rotated(v, {0, 0, 1}, p.angle.z);
    return {v.x * p.tiling.x, v.y * p.tiling.y, v.z * p.tiling.z};
}

V placed(V v, const XyzParams& p) {
    return turned_and_scaled({v.x + p.offset.x, v.y + p.offset.y, v.z + p.offset.z}, p);
}

void expect_near(const miVector& got, V expected) {
    EXPECT_NEAR(got.x, expected.x, 4e-6);
    EXPECT_NEAR(got.y, expected.y, 4e-6);
    EXPECT_NEAR(got.z, expected.z, 4e-6);
}

class Xyz : public ShaderTest {
protected:
    static constexpr double pixel = 5.0 / 640; // of the state's camera, at the plane
    scripted::ShaderInstance<XyzParams> shader;
    miObject object{};

    Xyz() {
        shader.params() = {xyz_object, 4, {1, -2, 0.5f}, {0.3f, -1.1f, 2}, {2, -3, 0.5f}, 1.5f, 0.01f};
        constexpr miMatrix up_one{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
        constexpr miMatrix twice{2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 3, 0, -1, 1};
        renderer.set_to_space(scripted::Space::object, up_one);
        renderer.set_to_space(scripted::Space::world, twice);
        // Texture coordinates change as positions do; the object's only space is channel 4.
        renderer.triangle.points = scripted::Triangle::Corners{{{-9, -9, 0}, {9, -9, 0}, {0, 18, 0}}};
        renderer.triangle.textures = {*renderer.triangle.points};
        renderer.texture_spaces = 1;
        orl_SceneData scene{};
        scene.map_channel_ids = miTRUE;
        set_scene(scene);
        orl_ObjectData record{};
        record.uv_channels = {0, 1, {4}};
        object.userdata = add_record(record);
        state->instance = add_instance_with(miNULLTAG, renderer.add(miSCENE_OBJECT, &object));
        state.run(shader, miSHADER_TEXTURE);
    }
    ~Xyz() override { orl_base_XYZGenerator_exit(state, &shader.params()); }

    XyzGeneratorResult generate(const GeneratorRequest* request = nullptr) {
        XyzGeneratorResult result{};
        EXPECT_TRUE(orl_base_XYZGenerator(&result, state, &shader.params(), request));
        EXPECT_EQ(result.w, 1.0f);
        return result;
    }
};

TEST_F(Xyz, EverySourceIsPlaced) {
    const struct {
        miInteger source, channel;
        V point, width;
    } cases[] = {
        {xyz_object, 4, {0, 1, 0}, {pixel, pixel, 0}},
        {xyz_map_channel, 4, {0.5, 0.5, 0}, {pixel, pixel, 0}},
        {xyz_vertex_color, 4, {0.5, 0.5, 0}, {pixel, pixel, 0}},
        {xyz_map_channel, 5, {0, 0, 0}, {0, 0, 0}}, // a channel that the object does not have
        {xyz_world, 4, {3, 0, -1}, {2 * pixel, 2 * pixel, 0}},
        {7, 4, {0, 0, 0}, {0, 0, 0}},
        {-1, 4, {0, 0, 0}, {0, 0, 0}},
    };
    for (const auto& [source, channel, point, width] : cases) {
        SCOPED_TRACE(source);
        shader->coordSource = source;
        shader->mapChannel = channel;
        XyzCoordinateResult result{};
        EXPECT_TRUE(orl_XYZCoordinate(&result, state, &shader.params()));
        expect_near(result.point, placed(point, shader.params()));
        const V turned = turned_and_scaled(width, shader.params());
        expect_near(result.width, {turned.x * 1.5 + 0.01, turned.y * 1.5 + 0.01, turned.z * 1.5 + 0.01});
        expect_near(generate().point, placed(point, shader.params()));
    }
}

TEST_F(Xyz, TheRequestChoosesTheKindOfRay) {
    const GeneratorRequest environment{OutputRequest::color, Selector::environment_ray};
    expect_near(generate(&environment).point, placed({0, 0, -1}, shader.params())); // where the ray goes
    state->type = miRAY_ENVIRONMENT;
    expect_near(generate().point, placed({0, 0, -1}, shader.params()));
    const GeneratorRequest surface{OutputRequest::color, Selector::surface};
    expect_near(generate(&surface).point, placed({0, 1, 0}, shader.params()));
}

TEST_F(Xyz, RecordsAreFilledAsTheyAsk) {
    const miVector untouched{7, 7, 7};
    for (const miUint flags : {0u, 1u, 2u, 3u}) {
        XyzDerivRecord record{
            XyzDerivRecord::magic_number, flags, untouched, {untouched, untouched, untouched}};
        state->user = &record;
        state->user_size = sizeof record;
        generate();
        const V turned = turned_and_scaled({pixel, pixel, 0}, shader.params());
        expect_near(record.width, flags & 1
                                      ? V{turned.x * 1.5 + 0.01, turned.y * 1.5 + 0.01, turned.z * 1.5 + 0.01}
                                      : wide(untouched));
        const V unit[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
        for (int k = 0; k < 3; ++k) {
            const V a = turned_and_scaled(unit[k], shader.params());
            const double length = std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z);
            expect_near(record.axis[k],
                        flags & 2 ? V{a.x / length, a.y / length, a.z / length} : wide(untouched));
        }
    }
    shader->tiling = {0, 0, 0}; // axes without a length stay null
    XyzDerivRecord record{XyzDerivRecord::magic_number, XyzDerivRecord::axes, {}, {}};
    state->user = &record;
    generate();
    expect_near(record.axis[1], {0, 0, 0});
    record = {UvDerivRecord::magic_number, 3, untouched, {untouched}}; // another generator's
    generate();
    expect_near(record.width, wide(untouched));
    expect_near(record.axis[0], wide(untouched));
}

TEST_F(Xyz, TheCacheFollowsTheParameters) {
    // Each component by itself, and back from what equals nothing.
    for (int k = 0; k < 9; ++k) {
        generate();
        (&shader->offset.x)[k] += 0.25f;
        expect_near(generate().point, placed({0, 1, 0}, shader.params()));
    }
    const float angle = std::exchange(shader->angle.y, not_a_number);
    EXPECT_TRUE(std::isnan(generate().point.x));
    shader->angle.y = angle;
    expect_near(generate().point, placed({0, 1, 0}, shader.params()));
    renderer.deny(miQ_FUNC_TLS_SET); // no place for a cache: the same coordinates
    orl_XYZCoordinate_exit(state, &shader.params());
    expect_near(generate().point, placed({0, 1, 0}, shader.params()));
}

TEST_F(Xyz, EachThreadHasACacheUntilTheExit) {
    std::vector<void*> released;
    renderer.mi_mem_int_release = [&](const char* file, int line, void* memory) {
        released.push_back(memory);
        renderer.mi_mem_int_release.unscripted(file, line, memory);
    };
    std::vector<void*> made;
    renderer.mi_mem_int_allocate = [&](const char* file, int line, miUint size) {
        EXPECT_EQ(size, 168u);
        return made.emplace_back(renderer.mi_mem_int_allocate.unscripted(file, line, size));
    };
    for (const int thread : {0, 1, 2, 1}) {
        state->thread = static_cast<short>(thread);
        generate();
    }
    ASSERT_EQ(made.size(), 3u);
    orl_base_XYZGenerator_exit(state, nullptr);
    EXPECT_TRUE(released.empty());
    orl_base_XYZGenerator_exit(state, &shader.params());
    EXPECT_EQ(released, std::vector<void*>(made.rbegin(), made.rend()));
}

} // namespace
