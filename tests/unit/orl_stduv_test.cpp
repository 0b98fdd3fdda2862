// Coordinate generators over (u, v): placement against matrices worked out apart, environments at directions
// whose place is known, and what generators do with a map that they are to sample.
#include "noise.h"
#include "orl_stduv.h"
#include "shader_fixture.h"
#include "uv_map.h"
#include "uv_placement.h"

#include <algorithm>
#include <array>
#include <complex>
#include <numbers>

using namespace orl;

INIT_AND_EXIT(orl_base_UVGenerator, UVGeneratorParams);
ENTRY_POINT(orl_UVCoordinate, UVCoordinateResult, UVGeneratorParams);
extern "C" miBoolean orl_base_UVGenerator(void*, miState*, const UVGeneratorParams*, const UvBumpRequest*);

namespace {

void expect_near(const miVector& got, const miVector& expected, float tolerance, const char* what) {
    EXPECT_TRUE(std::fabs(got.x - expected.x) <= tolerance && std::fabs(got.y - expected.y) <= tolerance &&
                std::fabs(got.z - expected.z) <= tolerance)
        << what << ": (" << got.x << ", " << got.y << ", " << got.z << ") instead of (" << expected.x << ", "
        << expected.y << ", " << expected.z << ")";
}

// A map, grey 0.2 + 0.5 u + 0.25 v, that keeps how it was sampled last.
struct Ramp {
    int plain = 0, filtered = 0;
    miVector at{}, over{};

    static void sample(miColor* result, miState*, void* data, miScalar u, miScalar v) {
        EXPECT_TRUE(u >= -1 && u <= 1.5f && v >= -1 && v <= 1.5f) << u << " " << v;
        auto* const ramp = static_cast<Ramp*>(data);
        ++ramp->plain;
        ramp->at = {u, v, 0};
        const miScalar grey = 0.2f + 0.5f * u + 0.25f * v;
        *result = {grey, grey, grey, 0.75f};
    }
    static void filter(miColor* result, miState* state, void* data, miScalar u, miScalar v, miScalar du,
                       miScalar dv) {
        sample(result, state, data, u, v);
        auto* const ramp = static_cast<Ramp*>(data);
        --ramp->plain;
        ++ramp->filtered;
        ramp->over = {du, dv, 0};
    }
    UvBumpRequest request(const GeneratorRequest& wanted, bool with_filter = false) {
        return {UvBumpRequest::magic_number, sample, &wanted, with_filter, filter, this};
    }
};

constexpr float pixel = 5.0f / 640; // on the plane of the state: 5 units away, aperture and focal length 1
constexpr GeneratorRequest color{OutputRequest::color, context::Selector::surface};
constexpr GeneratorRequest bump{OutputRequest::vector, context::Selector::surface};

class Uv : public ShaderTest {
protected:
    LiveShader<UVGeneratorParams> base{state, orl_base_UVGenerator_init, orl_base_UVGenerator_exit};
    UVGeneratorParams& p = base.params();
    miObject object{};

    // The plane z = 0 with texture coordinates equal to the position, in the object's channel 4.
    Uv() {
        p.mapChannel = 4;
        p.uTiling = p.vTiling = p.blur = p.noiseSize = 1;
        p.uTile = p.vTile = p.wrapPlain = p.showMapOnBack = miTRUE;
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
        base.start();
        place(0.5f, 0.5f, 0.0f);
    }

    void place(float u, float v, float w) { state.textures[0] = {u, v, w}; }

    // From the stand-alone shader, which has the same life and parameters.
    UVCoordinateResult both() {
        UVCoordinateResult result{};
        EXPECT_TRUE(orl_UVCoordinate(&result, state.run(base), &p));
        return result;
    }
    void expect_both(const miVector& uvw, const miVector& width, float tolerance = 1e-6f) {
        expect_near(both().uvw, uvw, tolerance, "coordinate");
        expect_near(both().duvw, width, 1e-7f, "width");
    }
    miColor call(const UvBumpRequest* request) {
        miColor result{99, 99, 99, 99};
        EXPECT_TRUE(orl_base_UVGenerator(&result, state.run(base), &p, request));
        return result;
    }
    miColor sample(Ramp& ramp, const GeneratorRequest& wanted, bool with_filter = false) {
        const UvBumpRequest request = ramp.request(wanted, with_filter);
        return call(&request);
    }
};

// ---- placement

using Column = std::array<double, 3>;

// Worked out apart: plane, turns and tiling one after the other.
Column turned_apart(Column c, const UVGeneratorParams& p) {
    std::rotate(c.begin(), c.begin() + p.axis, c.end());
    const float angles[] = {p.uAngle, p.vAngle, p.wAngle};
    for (std::size_t k = 0; k < 3; ++k) { // right-handed: from y to z, z to x, x to y
        double &from = c[(k + 1) % 3], &to = c[(k + 2) % 3];
        const std::complex<double> turned = std::complex<double>{from, to} * std::polar<double>(1, angles[k]);
        from = turned.real();
        to = turned.imag();
    }
    return {c[0] * p.uTiling, c[1] * p.vTiling, c[2]};
}

TEST_F(Uv, PlacementIsAProductOfMatrices) {
    constexpr miMatrix to_object{1, 0.5f, 0, 0, 0, 2, -0.3f, 0, 0, 0, 1, 0, 0.2f, 0.1f, 0.7f, 1};
    renderer.set_to_space(scripted::Space::object, to_object);
    p.uvwSource = uvw_object_xyz;
    p.uOffset = 0.15f;
    p.vOffset = -0.4f;
    const miVector at = context::object_point(state, context::Selector::surface);
    const miVector d = context::object_width(state, context::Selector::surface);
    const double edges[] = {d.x / 2, d.y / 2, d.z / 2};
    const miVector angles[] = {{0, 0, 0}, {0.7f, 0, 0}, {0, -0.4f, 0}, {0, 0, 2.5f}, {0.7f, -0.4f, 2.5f}};
    for (int i = 0; i < 60; ++i) {
        const float pivot = i % 2 ? 0.5f : 0, to_pivot = 0.5f - pivot;
        p.centerAtOrigin = i % 2 == 0;
        p.uTiling = i / 2 % 2 ? 1 : -3.0f;
        p.uAngle = angles[i / 4 % 5].x;
        p.vAngle = angles[i / 4 % 5].y;
        p.wAngle = angles[i / 4 % 5].z;
        p.axis = i / 20;
        const Column c = turned_apart(
            {0.499 * at.x + to_pivot - 0.15, 0.499 * at.y + to_pivot + 0.4, 0.499 * at.z + to_pivot}, p);
        Column w{}; // of the box around the turned box: the edges turned, added up
        for (std::size_t k = 0; k < 3; ++k) {
            Column edge{};
            edge[k] = edges[k];
            edge = turned_apart(edge, p);
            for (std::size_t j = 0; j < 3; ++j)
                w[j] += std::fabs(edge[j]);
        }
        if (i / 4 == 10) // the host's exception: the third plane without a turn
            w = {std::fabs(p.uTiling) * edges[1], edges[2], edges[0]};
        const auto narrow = [](const Column& x, float add) {
            return miVector{static_cast<float>(x[0]) + add, static_cast<float>(x[1]) + add,
                            static_cast<float>(x[2]) + add};
        };
        expect_both(narrow(c, pivot), narrow(w, 0), 4e-6f);
    }
}

TEST_F(Uv, SourcesGiveTheirCoordinates) {
    constexpr miMatrix up_one{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1};
    renderer.set_to_space(scripted::Space::world, up_one);
    place(0.25f, 0.125f, 0.5f);
    state->point = {0.5f, 1, 0};
    // clang-format off
    const struct { int source, channel; miVector uvw; float width; } cases[] = {
        {0, 4, {0.25f, 0.125f, 0.5f}, pixel}, {2, 4, {0.25f, 0.125f, 0.5f}, pixel},
        {0, 5, {0, 0, 0}, 0}, // no such channel
        {1, 5, {0.7495f, 0.999f, 0.5f}, pixel / 2}, {3, 5, {0.5f, 1, 1}, pixel},
        {4, 4, {0, 0, 0}, 0}, {-1, 4, {0, 0, 0}, 0}};
    // clang-format on
    for (const auto& c : cases) {
        p.uvwSource = c.source;
        p.mapChannel = c.channel;
        expect_both(c.uvw, {c.width, c.width, 0});
    }
    p.uvwSource = uvw_world_xyz;
    p.blur = 3;
    p.blurOffset = 0.25f;
    expect_both({0.5f, 1, 1}, {3 * pixel + 0.25f, 3 * pixel + 0.25f, 0});
}

// ---- environments

TEST_F(Uv, EnvironmentsAtKnownDirections) {
    scripted::State eye;
    eye->options = &state.options;
    state.set_parent(eye, miRAY_REFLECT);
    p.isEnvironment = miTRUE;
    const float h = std::numbers::sqrt2_v<float> / 2;
    const double pi = std::numbers::pi;
    // A pixel covers 1/640 each way, the width is the sum over `narrowing`.
    // clang-format off
    const struct { int type; bool flip; miVector dir; float u, v; double narrowing; } cases[] = {
        {1, false, {-1, 0, 0}, 0.5f, 0.5f, pi * 1.1},   {1, false, {0, 1, 0}, 0.75f, 0.5f, pi * 1.1},
        {1, false, {0, -1, 0}, 0.25f, 0.5f, pi * 1.1},  {1, false, {-h, 0, h}, 0.5f, 0.75f, pi * 0.6},
        {1, false, {0, 0, -1}, 1, 0, pi * 0.1},         {1, true, {-h, h, 0}, 0.5f, 0.75f, pi * 0.6},
        {1, true, {0, 0, 1}, 0.25f, 0.5f, pi * 1.1},    {2, true, {0, 1, 0}, 0.75f, 0.5f, pi}, // spheres alone
        {2, false, {-1, 0, 1}, 0.5f, 0.75f, pi},        {2, false, {-1, 0, 2}, 0.5f, 0.875f, pi}, // rim, lids
        {2, false, {-1, 0, -2}, 0.5f, 0.125f, pi},      {2, false, {-2, 0, -1}, 0.5f, 0.375f, pi},
        {3, false, {0, 0, 1}, 0.5f, 0.5f, pi * 1.01},   {3, false, {-1, 0, 0}, 0.75f, 0.5f, pi * 0.76},
        {3, false, {0, -1, 0}, 0.5f, 0.25f, pi * 0.76}, {3, false, {0, 0, -1}, 0, 0.5f, pi * 0.01},
        {7, false, {0, 1, 0}, 0, 0, 1e30}};
    // clang-format on
    for (const auto& c : cases) { // flipped ones have the pole along y
        orl_SceneData scene{};
        scene.flip_sky = c.flip;
        set_scene(scene);
        state.set_miss({0, 0, 0}, c.dir);
        p.mappingType = c.type;
        const auto width = static_cast<float>(2.0 / 640 / c.narrowing);
        expect_both({c.u, c.v, 0}, {width, width, width});
    }
    // A quarter turn about the middle, to the environment's side: (0.25, 0) from it becomes (0, -0.25).
    state.set_miss({0, 0, 0}, {0, 1, 0});
    set_scene(orl_SceneData{});
    p.mappingType = mapping_spherical;
    p.wAngle = static_cast<float>(pi / 2);
    expect_near(both().uvw, {0.5f, 0.25f, 0}, 1e-6f, "turned");
}

TEST_F(Uv, ScreensByRasterPosition) {
    p.isEnvironment = miTRUE;
    state->raster_x = 160;
    state->raster_y = 120;
    state.options.max_samples = 1; // 2 x 2 samples
    // clang-format off
    const struct { int type, window[4]; float u, v; } cases[] = {
        {4, {1280, 960, 480, 120}, 0.5f, 0.25f}, {4, {1280, 960, -1, 120}, 0.25f, 0.25f},
        {4, {0, 960, 0, 0}, 0.25f, 0.25f}, {5, {320, 960, 480, 120}, 0.5f, 0.125f}, {5, {0, 960, 0, 0}, 0.25f, 0.25f}};
    // clang-format on
    for (const auto& c : cases) {
        p.mappingType = c.type;
        std::memcpy(&p.screenParam1, c.window, sizeof c.window);
        expect_both({c.u, c.v, 0}, {0.5f / 640, 0.5f / 480, 0});
    }
}

// ---- back faces

TEST_F(Uv, BackFacesShowOnlyMapsThatGoOn) {
    p.showMapOnBack = p.uTile = p.vTile = miFALSE;
    p.uOffset = 0.25f;
    p.blurOffset = 0.5f;
    // clang-format off
    const struct { miVector normal; bool hidden[4]; /* by source */ } cases[] = {
        {{0, 0, 1}, {false, false, false, false}}, {{0, 0, -1}, {true, true, true, true}},
        {{1, 0, 0}, {true, false, true, false}}};
    // clang-format on
    for (const auto& c : cases) {
        state.set_hit({0, 0, 5}, {0, 0, 0}, c.normal);
        for (p.uvwSource = 0; p.uvwSource < 4; ++p.uvwSource) {
            const UVCoordinateResult got = both();
            EXPECT_EQ(got.uvw.x == -0.2f && got.uvw.y == -0.2f, c.hidden[p.uvwSource]) << p.uvwSource;
            EXPECT_EQ(got.duvw.x == 0.0f && got.duvw.y == 0.0f, c.hidden[p.uvwSource]);
        }
    }
    state.set_hit({0, 0, 5}, {0, 0, 0}, {0, 0, -1});
    p.uvwSource = 0;
    for (miBoolean UVGeneratorParams::*flag :
         {&UVGeneratorParams::uTile, &UVGeneratorParams::uMirror, &UVGeneratorParams::vTile,
          &UVGeneratorParams::vMirror, &UVGeneratorParams::showMapOnBack}) {
        p.*flag = miTRUE;
        EXPECT_EQ(both().uvw.x, 0.25f);
        p.*flag = miFALSE;
    }
    Ramp ramp;
    EXPECT_EQ(sample(ramp, color), (miColor{0, 0, 0, 0}));
    state->dir = {0, 0, 0}; // displaced: nobody looks
    EXPECT_EQ(both().uvw.x, 0.25f);
}

// ---- coordinate noise

TEST_F(Uv, NoiseDisplacesUAndThenV) {
    p.noiseOn = miTRUE;
    p.noiseAmount = 3;
    p.noiseSize = 0.4f;
    place(0.3f, 0.7f, 0);
    p.noisePhase = 1.7f;
    for (int i = 0; i < 8; ++i) {
        p.noiseLevels = std::array{0, 1, 5, 1000}[i / 2u];
        p.noiseAnimate = i % 2;
        const auto noise = [&](float x) {
            return i % 2 ? fractalAbsNoise2(x / 0.4f, 1.7f, p.noiseLevels)
                         : fractalAbsNoise1(x / 0.4f, p.noiseLevels);
        };
        const float u = 0.3f + 0.3f * noise(0.7f), v = 0.7f + 0.3f * noise(u);
        expect_both({u, v, 0}, {pixel, pixel, 0}, 2e-6f);
        EXPECT_EQ(i / 2 == 0, both().uvw.x == 0.3f);
    }
    p.noiseSize = 0;
    expect_both({0.3f, 0.7f, 0}, {pixel, pixel, 0});
}

// ---- wrapping and sampling

TEST(Wrap, FollowsTheEdge) {
    constexpr UvEdge ends{false, false}, tiles{true, false}, mirrors{false, true}, prefers_tiles{true, true};
    // clang-format off
    const struct { UvEdge edge; bool plain; float x; bool there; float at; } cases[] = {
        {ends, false, 0, true, 0}, {ends, false, 0.3f, true, 0.3f}, {ends, false, 1, true, 1},
        {ends, true, 1.01f, false, 0}, {ends, true, -0.01f, false, 0}, {ends, true, not_a_number, false, 0},
        {tiles, true, 2.25f, true, 0.25f}, {tiles, false, -0.25f, true, 0.75f}, {tiles, true, -1, true, 1},
        {tiles, true, -1e30f, true, 1}, {tiles, true, 1e30f, true, 0}, {tiles, true, infinite, false, 0},
        {mirrors, true, 0.25f, true, 0.5f}, {mirrors, true, 3.75f, true, 0.5f}, {mirrors, true, 0.5f, true, 1},
        {mirrors, true, -2, true, 0}, {mirrors, true, not_a_number, false, 0},
        // twice the mirrored value less the fraction
        {mirrors, false, 0.25f, true, 0.75f}, {mirrors, false, 0.75f, true, 0.25f},
        {mirrors, false, -1, true, -1}, {prefers_tiles, false, 1.75f, true, 0.75f}};
    // clang-format on
    for (const auto& c : cases) {
        float x = c.x;
        EXPECT_EQ(wrap(c.edge, c.plain, x), c.there) << c.x;
        EXPECT_EQ(c.there ? x : 0, c.at) << c.x;
    }
}

TEST_F(Uv, SamplesTheMapWhereItLies) {
    place(1.25f, -0.5f, 0);
    p.blur = 2;
    Ramp ramp;
    EXPECT_NEAR(sample(ramp, color, true).r, 0.2f + 0.125f + 0.125f, 1e-6f);
    EXPECT_EQ(ramp.filtered, 1);
    expect_near(ramp.over, {2 * pixel, 2 * pixel, 0}, 1e-7f, "widths");
    renderer.answer(miQ_SAMPLE_OVERRIDE, static_cast<void*>(nullptr)); // that it is there counts
    EXPECT_EQ(sample(ramp, {OutputRequest::mono, context::Selector::surface}, true).a, 0.75f);
    EXPECT_EQ(ramp.plain, 1);
    renderer.deny(miQ_SAMPLE_OVERRIDE);
    sample(ramp, color, false);
    EXPECT_EQ(ramp.plain, 2);
    p.vTile = miFALSE;
    EXPECT_EQ(sample(ramp, color), (miColor{0, 0, 0, 0}));
    EXPECT_EQ(ramp.plain + ramp.filtered, 3);
}

// A ramp is its own gradient, downhill; its step is the pixel, whatever the blur.
TEST_F(Uv, GradientOfARamp) {
    Ramp ramp;
    place(0.4f, 0.3f, 0);
    const auto expect_slope = [&](float by_u, float by_v) {
        const miColor got = sample(ramp, bump);
        expect_near({got.r, got.g, got.b}, {by_u, by_v, 0}, 2e-4f, "gradient");
    };
    expect_slope(-0.5f, -0.25f);
    p.blur = 5;
    expect_slope(-0.5f, -0.25f);
    EXPECT_NEAR(ramp.at.y, 0.3f + pixel, 1e-6f); // sampled last
    EXPECT_EQ(ramp.filtered, 0);
    p.uMirror = miTRUE; // twice as steep, and downhill in the other half
    p.uTile = miFALSE;
    expect_slope(-1, -0.25f);
    place(0.8f, 0.3f, 0);
    expect_slope(1, -0.25f);
    p.wrapPlain = miFALSE; // 4 - 5 u
    expect_slope(2.5f, -0.25f);
    p.blur = 0;
    expect_slope(0, 0);
}

TEST_F(Uv, WithoutASoundRequestThereAreThreeNumbers) {
    Ramp ramp;
    UvBumpRequest wrong = ramp.request(color), lame = wrong, open = wrong;
    wrong.magic = 7;
    lame.plain = nullptr;
    open.request = nullptr;
    for (const UvBumpRequest* request : std::initializer_list<const UvBumpRequest*>{nullptr, &wrong, &lame})
        EXPECT_EQ(call(request), (miColor{0.5f, 0.5f, 0, 99}));
    EXPECT_EQ(ramp.plain, 0);
    EXPECT_EQ(call(&open).a, 0.75f);
}

// ---- derivatives

class UvRecord : public Uv {
protected:
    UvDerivRecord record{UvDerivRecord::magic_number, 7, {9, 9, 9}, {9, 9, 9}, {9, 9, 9}, {9, 9, 9}};
    UvRecord() {
        state->user = &record;
        state->user_size = sizeof record;
    }
};

// Moving the point along a tangent must change that coordinate and no other.
TEST_F(UvRecord, TangentsFollowTheCoordinates) {
    constexpr miMatrix turned{0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1}; // and twice as large
    renderer.set_to_space(scripted::Space::object, turned);
    renderer.set_to_space(scripted::Space::world, turned);
    p.uAngle = 0.5f;
    p.vAngle = -0.8f;
    p.wAngle = 1.1f;
    p.uTiling = 3;
    Ramp ramp;
    for (int i = 0; i < 6; ++i) {
        p.uvwSource = i % 2 ? uvw_object_xyz : uvw_world_xyz;
        p.axis = i / 2;
        state->point = {0, 0, 0};
        sample(ramp, bump);
        const miVector here = both().uvw, dPdu = record.dPdu, dPdv = record.dPdv;
        const float step = i % 2 ? 0.998f : 2.0f;
        state->point = dPdu;
        expect_near(both().uvw, {here.x + 3 * step, here.y, here.z}, 3e-6f, "along dPdu");
        state->point = dPdv;
        expect_near(both().uvw, {here.x, here.y + step, here.z}, 3e-6f, "along dPdv");
    }
}

TEST_F(UvRecord, TangentsOfAChannelAndOfAnEnvironment) {
    const float s = std::sin(0.6f), c = std::cos(0.6f);
    // clang-format off
    const struct { int axis; float angle; miVector dPdu, dPdv; } cases[] = {
        {0, 0, {1, 0, 0}, {0, 1, 0}},
        {0, 0.6f, {c, -s, 0}, {s, c, 0}}, // the map turns left, so its u turns right
        {1, 0, {0, 1, 0}, {0, 0, 0}},     // the channel has no third tangent
        {2, 0, {0, 0, 0}, {1, 0, 0}}};
    // clang-format on
    Ramp ramp;
    for (const auto& expected : cases) {
        p.axis = expected.axis;
        p.wAngle = expected.angle;
        sample(ramp, bump);
        expect_near(record.dPdu, expected.dPdu, 1e-6f, "dPdu");
        expect_near(record.dPdv, expected.dPdv, 1e-6f, "dPdv");
    }
    p.isEnvironment = miTRUE;
    sample(ramp, bump);
    expect_near(record.dPdu, {0, 0, 0}, 0, "environment");
}

TEST_F(UvRecord, AnswersWhatIsAsked) {
    Ramp ramp;
    p.blur = 2;
    place(1.25f, 0.5f, 0);
    sample(ramp, color); // tangents are for gradients and for callers that want no sample
    expect_near(record.dPdu, {9, 9, 9}, 0, "left alone");
    expect_near(record.uvw, {1.25f, 0.5f, 0}, 0, "not wrapped");
    expect_near(record.width, {2 * pixel, 2 * pixel, 0}, 1e-7f, "blurred");
    call(nullptr);
    expect_near(record.dPdu, {1, 0, 0}, 1e-6f, "coordinates alone");
    record.uvw = record.width = {9, 9, 9};
    record.flags = UvDerivRecord::tangents;
    sample(ramp, bump);
    expect_near(record.uvw, {9, 9, 9}, 0, "not asked for");
    expect_near(record.width, {9, 9, 9}, 0, "not asked for");
}

// ---- threads and bad input

TEST_F(Uv, EachThreadKeepsWhatIsStillTrue) {
    std::vector<void*> made, released;
    renderer.mi_mem_int_allocate = [&](const char* file, int line, int size) {
        EXPECT_EQ(size, 240);
        return made.emplace_back(renderer.mi_mem_int_allocate.unscripted(file, line, size));
    };
    renderer.mi_mem_int_release = [&](const char* file, int line, void* block) {
        released.push_back(block);
        renderer.mi_mem_int_release.unscripted(file, line, block);
    };
    place(0.75f, 0.5f, 0.5f);
    for (short thread = 0; thread < 3; ++thread) {
        state->thread = thread;
        for (const float angle : {0.0f, 1.0f, -2.0f, 0.0f})
            for (p.axis = 0; p.axis < 3; ++p.axis) {
                p.wAngle = angle;
                const miColor got = call(nullptr);
                const float u = p.axis == 0 ? 0.25f : 0, v = p.axis == 2 ? 0.25f : 0;
                EXPECT_NEAR(got.r, 0.5f + std::cos(angle) * u - std::sin(angle) * v, 1e-6f);
                EXPECT_NEAR(got.g, 0.5f + std::sin(angle) * u + std::cos(angle) * v, 1e-6f);
            }
    }
    EXPECT_EQ(made.size(), 3u);
    state.run(base);
    orl_base_UVGenerator_exit(state, &p);
    EXPECT_EQ(released, std::vector<void*>(made.rbegin(), made.rend()));
    renderer.deny(miQ_FUNC_TLS_SET); // no place to keep it: worked out anew
    renderer.deny(miQ_FUNC_TLS_GET);
    p.axis = 0;
    EXPECT_EQ(call(nullptr).r, 0.75f);
}

TEST_F(Uv, BadNumbersAreSurvived) {
    Ramp ramp; // watches where it is sampled
    const UVGeneratorParams sound = p;
    const std::size_t count = uv_generator_fields.size();
    for (const float value : {not_a_number, infinite, -infinite, 3e38f, -3e9f, 0.0f})
        for (std::size_t i = 0; i < 8 * count; ++i) {
            const int kind = static_cast<int>(i / count);
            p = sound;
            p.isEnvironment = kind & 4;
            p.uvwSource = kind & 3;
            p.mappingType = 1 + (kind & 3);
            p.noiseOn = p.uMirror = miTRUE;
            p.noiseAnimate = p.uTile = kind & 1;
            if (const decl::Field& field = uv_generator_fields[i % count]; field.type == miTYPE_SCALAR)
                std::memcpy(reinterpret_cast<char*>(&p) + field.offset, &value, sizeof value);
            sample(ramp, color, true);
            sample(ramp, bump);
            place(value, value, value); // and on the way from the state
            state->point = state->dir = {value, value, value};
            sample(ramp, color, true);
            place(0.5f, 0.5f, 0);
            state.set_hit({0, 0, 5}, {0, 0, 0}, {0, 0, 1});
        }
    EXPECT_GT(ramp.plain + ramp.filtered, 0);
}

} // namespace
