// Coordinate generators over (u, v): placement against matrices worked out apart, environments at directions
// whose place is known, and what generators do with a map that they are to sample.
#include "orl_stduv.h"
#include "shader_fixture.h"
#include "uv_map.h"
#include "uv_placement.h"

#include <algorithm>
#include <complex>
#include <numbers>

using namespace orl;

INIT_AND_EXIT(orl_base_UVGenerator, UVGeneratorParams);
ENTRY_POINT(orl_UVCoordinate, UVCoordinateResult, UVGeneratorParams);
extern "C" miBoolean orl_base_UVGenerator(void*, miState*, const UVGeneratorParams*, const UvBumpRequest*);

namespace {

// A map of intensity 0.2 + 0.5 u + 0.25 v that keeps how it was sampled last.
struct Ramp {
    int samples = 0;
    miVector at{}, over{};

    static void sample(miColor* result, miState*, void* data, miScalar u, miScalar v) {
        EXPECT_TRUE(u >= -1 && u <= 1.5f && v >= -1 && v <= 1.5f) << u << " " << v;
        auto* const ramp = static_cast<Ramp*>(data);
        ++ramp->samples;
        ramp->at = {u, v, 0};
        ramp->over = {0, 0, 0};
        const miScalar mean = 0.2f + 0.5f * u + 0.25f * v;
        *result = {0.5f * mean, mean, 1.5f * mean, 0.75f};
    }
    static void filter(miColor* result, miState* state, void* data, miScalar u, miScalar v, miScalar du,
                       miScalar dv) {
        sample(result, state, data, u, v);
        static_cast<Ramp*>(data)->over = {du, dv, 0};
    }
    UvBumpRequest request(const GeneratorRequest& wanted, bool with_filter = false) {
        return {UvBumpRequest::magic_number, sample, &wanted, with_filter, filter, this};
    }
};

// On the plane of the state, 5 units away: aperture and focal length are 1, a pixel is half as high as wide.
constexpr float pixel = 5.0f / 640, high = pixel / 2;
constexpr GeneratorRequest color{OutputRequest::color, context::Selector::surface};
constexpr GeneratorRequest bump{OutputRequest::vector, context::Selector::surface};

class Uv : public ShaderTest {
protected:
    LiveShader<UVGeneratorParams> base{state, orl_base_UVGenerator_init, orl_base_UVGenerator_exit};
    UVGeneratorParams& p = base.params();
    UvDerivRecord record{UvDerivRecord::magic_number, 7, {9, 9, 9}, {9, 9, 9}, {9, 9, 9}, {9, 9, 9}};
    Ramp ramp;

    Uv() {
        state.camera.aspect = 8.0f / 3;
        p.uTiling = p.vTiling = p.blur = p.noiseSize = 1;
        p.uTile = p.vTile = p.wrapPlain = p.showMapOnBack = miTRUE;
        set_textured_plane();
        state->user = &record;
        state->user_size = sizeof record;
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
        expect_near(both().uvw, uvw, tolerance);
        expect_near(both().duvw, width, 1e-7f);
    }
    miColor call(const UvBumpRequest* request) {
        miColor result{99, 99, 99, 99};
        EXPECT_TRUE(orl_base_UVGenerator(&result, state.run(base), &p, request));
        return result;
    }
    miColor sample(const GeneratorRequest& wanted, bool with_filter = false) {
        const UvBumpRequest request = ramp.request(wanted, with_filter);
        return call(&request);
    }
};

// Worked out apart: plane, turns and tiling one after the other.
miVector turned_apart(const miVector& v, const UVGeneratorParams& p) {
    double c[] = {v.x, v.y, v.z};
    std::rotate(c, c + p.axis, c + 3);
    const float angles[] = {p.uAngle, p.vAngle, p.wAngle};
    for (int k = 0; k < 3; ++k) { // right-handed: from y to z, z to x, x to y
        double &from = c[(k + 1) % 3], &to = c[(k + 2) % 3];
        const std::complex<double> turned = std::complex<double>{from, to} * std::polar<double>(1, angles[k]);
        from = turned.real();
        to = turned.imag();
    }
    return {static_cast<float>(c[0] * p.uTiling), static_cast<float>(c[1]), static_cast<float>(c[2])};
}

TEST_F(Uv, PlacementIsAProductOfMatrices) {
    constexpr miMatrix to_object{1, 0.5f, 0, 0, 0, 2, -0.3f, 0, 0, 0, 1, 0, 0.2f, 0.1f, 0.7f, 1};
    renderer.set_to_space(scripted::Space::object, to_object);
    p.uvwSource = uvw_object_xyz;
    p.uOffset = 0.15f;
    p.vOffset = -0.4f;
    const miVector at = context::object_point(state, context::Selector::surface);
    const miVector d = context::object_width(state, context::Selector::surface);
    const miVector angles[] = {{0, 0, 0}, {0, -0.4f, 0}, {0.7f, -0.4f, 0}, {0.7f, -0.4f, 2.5f}, {0, 0, 2.5f}};
    for (int i = 0; i < 60; ++i) {
        const float pivot = i / 3 % 2 ? 0.5f : 0, start = 0.5f - pivot;
        const miVector& angle = angles[i / 12];
        p.axis = i / 3 % 2 ? 2 - i % 3 : i % 3; // changes while the angles stay, and the other way round
        p.centerAtOrigin = pivot == 0;
        p.uTiling = i / 6 % 2 ? 1 : -3.0f;
        p.uAngle = angle.x, p.vAngle = angle.y, p.wAngle = angle.z;
        const miVector c = turned_apart(
            {0.499f * at.x + start - 0.15f, 0.499f * at.y + start + 0.4f, 0.499f * at.z + start}, p);
        miVector width{}; // of the box around the turned box: the edges turned, added up
        for (const miVector& edge : {miVector{d.x / 2, 0, 0}, {0, d.y / 2, 0}, {0, 0, d.z / 2}}) {
            const miVector e = turned_apart(edge, p);
            width = {width.x + std::fabs(e.x), width.y + std::fabs(e.y), width.z + std::fabs(e.z)};
        }
        if (i < 12 && p.axis == 2) // the host's exception: the third plane without a turn
            width = {std::fabs(p.uTiling) * d.y / 2, d.z / 2, d.x / 2};
        expect_both({c.x + pivot, c.y + pivot, c.z + pivot}, width, 4e-6f);
    }
}

TEST_F(Uv, EnvironmentsAtKnownDirections) {
    scripted::State eye;
    eye->options = &state.options;
    eye->camera = &state.camera;
    state.set_parent(eye, miRAY_REFLECT);
    p.isEnvironment = p.mappingType = 1;
    const float h = std::numbers::sqrt2_v<float> / 2, pi = std::numbers::pi_v<float>;
    // A pixel covers 1/640 by 1/1280, the width is the sum over `narrowing`.
    // clang-format off
    const struct { int type; bool flip; miVector dir; float u, v; float narrowing; } cases[] = {
        {1, false, {-1, 0, 0}, 0.5f, 0.5f, pi * 1.1f},   {1, false, {0, 1, 0}, 0.75f, 0.5f, pi * 1.1f},
        {1, false, {0, -1, 0}, 0.25f, 0.5f, pi * 1.1f},  {1, false, {-h, 0, h}, 0.5f, 0.75f, pi * 0.6f},
        {1, false, {0, 0, -1}, 1, 0, pi * 0.1f},         {1, true, {-h, h, 0}, 0.5f, 0.75f, pi * 0.6f},
        {1, true, {0, 0, 1}, 0.25f, 0.5f, pi * 1.1f},    {2, true, {0, 1, 0}, 0.75f, 0.5f, pi}, // spheres alone
        {2, false, {-1, 0, 1}, 0.5f, 0.75f, pi},        {2, false, {-1, 0, 2}, 0.5f, 0.875f, pi}, // rim, lids
        {2, false, {-1, 0, -2}, 0.5f, 0.125f, pi},      {2, false, {-2, 0, -1}, 0.5f, 0.375f, pi},
        {3, false, {0, 0, 1}, 0.5f, 0.5f, pi * 1.01f},   {3, false, {-1, 0, 0}, 0.75f, 0.5f, pi * 0.76f},
        {3, false, {0, -1, 0}, 0.5f, 0.25f, pi * 0.76f}, {3, false, {0, 0, -1}, 0, 0.5f, pi * (1.01f - 1)},
        {7, false, {0, 1, 0}, 0, 0, 1e30f}};
    // clang-format on
    for (const auto& c : cases) { // flipped ones have the pole along y
        orl_SceneData scene{};
        scene.flip_sky = c.flip;
        set_scene(scene);
        state.set_miss({0, 0, 0}, c.dir);
        p.mappingType = c.type;
        const float w = 1.5f / 640 / c.narrowing;
        expect_both({c.u, c.v, 0}, {w, w, w});
    }
    EXPECT_NEAR(spherical_uv({0, 0, 1.0000001f}, 0).uvw.y, 1.0f, 1e-6f); // as rounding may leave a direction
}

TEST_F(Uv, BackFacesShowOnlyMapsThatGoOn) {
    p.showMapOnBack = p.uTile = p.vTile = miFALSE;
    p.uOffset = 0.25f;
    p.blurOffset = 0.5f;
    for (int i = 0; i < 12; ++i) {
        const int towards = i / 4 - 1; // the viewer; edge-on faces hide channels only
        p.uvwSource = i % 4;
        state.set_hit({0, 0, 5}, {0, 0, 0}, {towards ? 0.0f : 1.0f, 0, static_cast<float>(towards)});
        const auto [uvw, width] = both();
        EXPECT_EQ(uvw.x == -0.2f && uvw.y == -0.2f && width.x == 0 && width.y == 0,
                  towards < 0 || (towards == 0 && i % 2 == 0));
    }
    state.set_hit({0, 0, 5}, {0, 0, 0}, {0, 0, -1});
    p.uvwSource = 0;
    for (miBoolean* flag : {&p.uTile, &p.uMirror, &p.vTile, &p.vMirror, &p.showMapOnBack}) {
        *flag = miTRUE;
        EXPECT_EQ(both().uvw.x, 0.25f);
        *flag = miFALSE;
    }
    EXPECT_EQ(sample(color), (miColor{0, 0, 0, 0}));
    state->dir = {0, 0, 0}; // displaced: nobody looks
    EXPECT_EQ(both().uvw.x, 0.25f);
}

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
        EXPECT_TRUE(wrap(c.edge, c.plain, x) == c.there && (!c.there || x == c.at)) << c.x;
    }
}

// A ramp is its own gradient, downhill; its step is the pixel, whatever the blur.
TEST_F(Uv, GradientOfARamp) {
    place(0.4f, 0.3f, 0);
    const auto expect_slope = [&](float by_u, float by_v) {
        for (const int request : {2, 3}) {
            const miColor got = sample({static_cast<OutputRequest>(request), context::Selector::surface});
            expect_near(miVector{got.r, got.g, got.b}, {by_u, by_v, 0}, 2e-4f);
        }
    };
    p.blur = 5;
    expect_slope(-0.5f, -0.25f);
    EXPECT_NEAR(ramp.at.y, 0.3f + high, 1e-6f); // sampled last
    EXPECT_EQ(ramp.over.x, 0.0f);
    p.uMirror = miTRUE; // twice as steep, and downhill in the other half
    p.uTile = miFALSE;
    expect_slope(-1, -0.25f);
    place(0.8f, 0.3f, 0);
    expect_slope(1, -0.25f);
    p.blur = 1;
    p.blurOffset = -pixel; // no width along u
    expect_slope(0, -0.25f);
    p.blurOffset = -high;
    expect_slope(1, 0);
    p.uTiling = p.vTiling = 0; // no step
    expect_slope(0, 0);
}

// Moving the point along a tangent must change that coordinate and no other.
TEST_F(Uv, TangentsFollowTheCoordinates) {
    constexpr miMatrix turned{0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1}; // and twice as large
    constexpr miMatrix rolled{2, 0, 0, 0, 0, 0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 1};
    renderer.set_to_space(scripted::Space::object, turned);
    renderer.set_to_space(scripted::Space::world, rolled);
    p.uAngle = 0.5f, p.vAngle = -0.8f, p.wAngle = 1.1f, p.uTiling = 3;
    for (int i = 0; i < 6; ++i) {
        const float step = i % 2 ? 0.998f : 2.0f;
        p.uvwSource = i % 2 ? uvw_object_xyz : uvw_world_xyz;
        p.axis = i / 2;
        state->point = {0, 0, 0};
        sample(bump);
        const miVector here = both().uvw;
        state->point = record.dPdu;
        expect_near(both().uvw, {here.x + 3 * step, here.y, here.z}, 3e-6f);
        state->point = record.dPdv;
        expect_near(both().uvw, {here.x, here.y + step, here.z}, 3e-6f);
    }
}

TEST_F(Uv, RecordsAreFilledAsAsked) {
    p.blur = 2;
    p.wAngle = 0.6f;
    place(0.5f, 1.5f, 0);
    for (int* of_others : {reinterpret_cast<int*>(&record.magic), &state->user_size}) {
        ++*of_others;
        sample(bump);
        --*of_others;
    }
    sample(color); // tangents are for gradients and for callers that want no sample
    const float s = std::sin(0.6f), c = std::cos(0.6f);
    expect_near(record.dPdu, {9, 9, 9}, 0);
    expect_near(record.uvw, {0.5f - s, 0.5f + c, 0}, 1e-6f);
    expect_near(record.width, {2 * (c * pixel + s * high), 2 * (s * pixel + c * high), 0}, 1e-7f);
    const miVector nines{9, 9, 9};
    for (const miUint flags : {1u, 2u, 4u}) {
        record = {UvDerivRecord::magic_number, flags, nines, nines, nines, nines};
        call(nullptr);
        expect_near(record.dPdu, flags == 1 ? miVector{c, -s, 0} : nines, 1e-6f);
        expect_near(record.dPdv, flags == 1 ? miVector{s, c, 0} : nines, 1e-6f);
        EXPECT_EQ(record.uvw.x == 9, flags != 2);
        EXPECT_EQ(record.width.x == 9, flags != 4);
    }
    record.flags = UvDerivRecord::tangents;
    for (miInteger* other : {&p.isEnvironment, &p.mapChannel}) { // around the scene; no such channel
        *other = 9;
        sample(bump);
        expect_near(record.dPdu, {0, 0, 0}, 0);
        *other = 0;
    }
}

} // namespace
