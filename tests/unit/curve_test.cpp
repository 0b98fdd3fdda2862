// Curves: against a Bezier curve that is walked along in small steps of its parameter, in double precision by
// de Casteljau's construction; beyond their ends; the table that threads share; points that make no curve.
#include "shader_fixture.h"
#include "utl_curve.h"

#include <climits>
#include <complex>
#include <thread>

using namespace orl;

INIT_AND_EXIT(orl_base_Curve, CurveParams);
extern "C" miBoolean orl_base_Curve(miScalar*, miState*, const CurveParams*, const CurveRequest*);

namespace {

CurvePoint knot(miInteger flags, float x, float y, float in_x = 0, float in_y = 0, float out_x = 0,
                float out_y = 0) {
    return {flags, x, y, in_x, in_y, out_x, out_y};
}

using P = std::complex<double>; // x + i y
using Polygon = std::vector<P>; // a point, the ends of its tangent and of the next point's, the next point

P bezier(Polygon p, double t) {
    for (int n = 3; n > 0; --n)
        for (int k = 0; k < n; ++k)
            p[k] += (p[k + 1] - p[k]) * t;
    return p[0];
}

// One tangent is 2.5 times too long: at most 0.4 of it fits in front of the neighbour.
const std::vector<CurvePoint> bent{knot(0, 0.1f, 0.2f, 0, 0, 0.1f, 0.5f),
                                   knot(0, 0.5f, 0.6f, -0.3f, 0.2f, 0.75f, -0.5f), knot(0, 0.8f, 1, -0.1f)};

using Curve = ShaderTest;

class Live : public LiveShader<CurveParams> {
public:
    Live(scripted::State& state, const std::vector<CurvePoint>& points, miInteger flags = 0,
         miInteger size = 100)
        : LiveShader(state, orl_base_Curve_init, orl_base_Curve_exit), state_(state) {
        params().flags = flags;
        params().tableSize = size;
        set_array(params().points.first, params().points.count, params().points.elements, points);
        start();
    }
    float operator()(CurveRequest request) {
        miScalar result = 99;
        EXPECT_TRUE(orl_base_Curve(&result, state_.run(*this), &params(), &request));
        return result;
    }
    float at(float x, miBoolean table = miFALSE) { return (*this)({0, 0, x, 0, 1, 0, 1, table}); }

private:
    scripted::State& state_;
};

TEST_F(Curve, TableIsInterpolatedBetweenItsSamples) {
    Live curve(state, bent, 0, 8);
    for (float x = 0.125f; x < 0.7f; x += 0.125f) // a quarter of the way
        EXPECT_NEAR(curve.at(x + 0.03125f, miTRUE), 0.75f * curve.at(x) + 0.25f * curve.at(x + 0.125f),
                    1e-6f);
    EXPECT_EQ(curve.at(not_a_number, miTRUE), 0.0f);
    for (const auto& [x0, x1] : {std::pair{0.0f, 0.9f}, {0.1f, 1.0f}}) // not the table's range
        EXPECT_EQ(curve({0, 0, 0.33f, x0, x1, 0, 1, miTRUE}), curve.at(0.33f));
    // The sample at the end lies on the last point, even where 41 steps of 0.7 / 41 are more than 0.7.
    for (const miInteger steps : {INT_MIN, 1, 41, 65536, INT_MAX}) {
        Live line(state, {knot(0, 0, 0.25f), knot(0, 0.7f, 0.75f)}, 0, steps);
        EXPECT_EQ(line({0, 0, 0.7f, 0, 0.7f, 0, 1, miTRUE}), 0.75f) << steps;
        EXPECT_NEAR(line({0, 0, 0.28f, 0, 0.7f, 0, 1, miTRUE}), 0.45f, 1e-5f) << steps;
    }
}

TEST_F(Curve, FlagsHoldEndsAndTangents) {
    const std::pair<miInteger, Polygon> cases[] = {
        {0, {{0, 0.3}, {0.5, 2.3}, {0.5, -2.4}, {1, 0.6}}},
        {curve_fixed_ends, {{0, -1}, {0.5, 1}, {0.5, -1}, {1, 2}}}, // tangents go along
        {curve_within_y, {{0, 0.3}, {0.5, 2}, {0.5, -1}, {1, 0.6}}},
    };
    for (const auto& [flags, polygon] : cases) {
        Live curve(state, {knot(0, 0, 0.3f, 0, 0, 0.5f, 2), knot(0, 1, 0.6f, -0.5f, -3)}, flags);
        for (double t = 0; t < 1; t += 0.1) {
            const P p = bezier(polygon, t);
            EXPECT_NEAR(curve({2, 0, static_cast<float>(p.real()), 0, 1, -1, 2, miFALSE}), p.imag(), 1e-5);
        }
    }
}

TEST_F(Curve, BeyondTheRangeAndWithoutSegments) {
    const auto smooth = [](miInteger first, miInteger last) {
        return std::vector{knot(first, 0, 0.25f, 0, 0, 0.25f, 0.5f), knot(last, 1, 0.75f, -0.25f, 0.25f)};
    };
    using Points = std::vector<CurvePoint>;
    const std::tuple<Points, float, float, float> cases[] = {
        // at -1, 0.5 and 2
        // Tangents of slope 2 and -1, chord of 0.5; in the middle (.25 + 3 .75 + 3 1 + .75) / 8, corner or
        // not.
        {smooth(0, 3), -1.75f, 0.78125f, -0.25f},
        {smooth(2, 2), -0.25f, 0.78125f, 1.25f},
        // Too short and backwards: the chord; (.25 + 3 1.25 + 3 1.75 + .75) / 8.
        {{knot(0, 0, 0.25f, 0, 0, 0.0001f, 1), knot(0, 1, 0.75f, -0.00009f, 1)}, -0.25f, 1.25f, 1.25f},
        {{knot(0, 0, 0.25f, 0, 0, -0.5f, 1), knot(0, 1, 0.75f, 0.5f, 1)}, -0.25f, 1.25f, 1.25f},
        // Just long enough, of slope 2; the chord of 0.5, and 3/8 of what the tangent's end lies above it.
        {{knot(0, 0, 0.25f, 0, 0, 0x1p-12f, 0x1p-11f), knot(2, 1, 0.75f)}, -1.75f, 0.5001373f, 1.25f},
        {{knot(2, 0, 0), knot(0, 0.25f, 1), knot(0, 0.5f, 1), knot(2, 1, 0.5f)}, -4, 1, -0.5f}, // next points
        {{}, 0, 0, 0},
        {{knot(0, 0.5f, 0.7f)}, 0.7f, 0, 0.7f},
        {{knot(0, 0.5f, 0.7f, 0, 0, 1, 1)}, -0.8f, 0, 0.7f},
        {{knot(0, 0.5f, 0.25f), knot(0, 0.5f, 0.75f)}, 0.25f, 0.25f, 0.75f},           // equal x
        {{knot(0, 0, 0), knot(0, 0.5f, 0), knot(0, 0.5f, 1), knot(0, 1, 1)}, 0, 0, 1}, // a step
        {{knot(0, 0.6f, 1, 0, 0, 0.1f, 1), knot(0, 0.4f, 0, 0.1f, 1)}, -15, 0, 8},     // falling x
        {{knot(0, 0, 0, 0, 0, 1e6f, 1e6f), knot(0, 1, 1, -1e6f, -1e6f)}, -1, 0.5f, 2}, // far too long
    };
    for (const auto& [points, below, inside, above] : cases)
        for (const miBoolean table : {miFALSE, miTRUE}) {
            Live curve(state, points);
            EXPECT_NEAR(curve.at(-1, table), below, 1e-5f) << points.size();
            EXPECT_NEAR(curve.at(2, table), above, 1e-5f) << below;
            EXPECT_NEAR(curve.at(0.5f, table), inside, 1e-5f) << below;
        }
}

TEST_F(Curve, ThreadsShareOneTable) {
    const auto before = renderer.resources();
    Live curve(state, bent);
    EXPECT_EQ(renderer.resources().live_bytes, before.live_bytes + 40);
    CurvePoint& middle = (&curve->points.elements[0])[curve->points.first + 1];
    curve.connect(middle.y, [](miState*) {                         // one number of a point by itself
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // until the others wait for the lock
        return 0.7f;
    });
    mi_init_lock(&curve.function().lock);
    in_threads(8, [&](scripted::State& own) {
        const CurveRequest request{0, 0, 0.5f, 0, 1, 0, 1, miTRUE};
        miScalar result = 99;
        orl_base_Curve(&result, own.run(curve), &curve.params(), &request);
        EXPECT_NEAR(result, 0.7f, 1e-5f);
    });
    mi_delete_lock(&curve.function().lock);
    EXPECT_EQ(renderer.resources().allocations, before.allocations + 3); // instance, points, table
}

} // namespace
