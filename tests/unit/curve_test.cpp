// Curves: against a Bezier curve that is walked along in small steps of its parameter, in double precision by
// de Casteljau's construction; beyond their ends; the tables that threads share; points that make no curve.
#include "shader_fixture.h"
#include "utl_curve.h"

#include <barrier>
#include <climits>
#include <thread>

using namespace orl;

INIT_AND_EXIT(orl_base_Curve, CurveParams);
extern "C" miBoolean orl_base_Curve(miScalar*, miState*, const CurveParams*, const CurveRequest*);

namespace {

constexpr CurvePoint knot(miInteger flags, float x, float y, float in_x = 0, float in_y = 0, float out_x = 0,
                          float out_y = 0) {
    return {flags, x, y, in_x, in_y, out_x, out_y};
}

struct P {
    double x, y;
};

P between(P a, P b, double t) {
    return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t};
}

P de_casteljau(P a, P b, P c, P d, double t) {
    const P ab = between(a, b, t), bc = between(b, c, t), cd = between(c, d, t);
    return between(between(ab, bc, t), between(bc, cd, t), t);
}

// y at x between two points; tangent ends as given.
double walked(P a, P b, P c, P d, double x) {
    constexpr int steps = 20000;
    P last = a;
    for (int k = 1; k <= steps; ++k) {
        const P next = de_casteljau(a, b, c, d, static_cast<double>(k) / steps);
        if (next.x >= x)
            return next.x == last.x ? next.y : between(last, next, (x - last.x) / (next.x - last.x)).y;
        last = next;
    }
    return d.y;
}

// A curve with tangents that bend it, one of them 2.5 times too long: at most 0.4 of it fits in front of the
// neighbour.
const std::vector<CurvePoint> bent{{0, 0.1f, 0.2f, 0, 0, 0.1f, 0.5f},
                                   {0, 0.5f, 0.6f, -0.3f, 0.2f, 0.75f, -0.5f},
                                   {0, 0.8f, 1, -0.1f, 0, 0, 0}};

double bent_at(double x) {
    return x <= 0.5 ? walked({0.1, 0.2}, {0.2, 0.7}, {0.2, 0.8}, {0.5, 0.6}, x)
                    : walked({0.5, 0.6}, {0.8, 0.4}, {0.7, 1}, {0.8, 1}, x);
}

class Curve : public ShaderTest {
protected:
    // One instance with its life; asks for values.
    class Live : public LiveShader<CurveParams> {
    public:
        Live(Curve& test, const std::vector<CurvePoint>& points, miInteger flags = 0, miInteger size = 100)
            : LiveShader(test.state, orl_base_Curve_init, orl_base_Curve_exit), state_(test.state) {
            CurveParams& p = params();
            p.flags = flags;
            p.tableSize = size;
            set_array(p.points.first, p.points.count, p.points.elements, points);
            start();
        }
        float operator()(CurveRequest request) {
            miScalar result = 99;
            state_.run(*this, miSHADER_TEXTURE);
            EXPECT_TRUE(orl_base_Curve(&result, state_, &params(), &request));
            return result;
        }
        float at(float x, miBoolean table = miFALSE) { return (*this)({0, 0, x, 0, 1, 0, 1, table}); }

    private:
        scripted::State& state_;
    };
};

TEST_F(Curve, IsABezierCurveBetweenItsPoints) {
    Live curve(*this, bent);
    for (float x = 0.1f; x <= 0.8f; x += 0.01f)
        EXPECT_NEAR(curve.at(x), bent_at(x), 1e-5) << x;
    for (const CurvePoint& p : bent)
        EXPECT_EQ(curve.at(p.x), p.y);
    for (const float x : {0.0f, 0.05f, 0.85f, 1.0f, not_a_number})
        EXPECT_EQ(curve.at(x), 0.0f) << x; // within the range, not between points
}

TEST_F(Curve, TableIsInterpolatedBetweenItsSamples) {
    for (const miInteger steps : {7, 100}) {
        Live curve(*this, bent, 0, steps);
        for (float x = 0.15f; x < 0.7f; x += 0.013f) {
            const double left = std::floor(static_cast<double>(x) * steps) / steps,
                         right = left + 1.0 / steps;
            const double expected =
                left < 0.1 ? (x - left) * steps * bent_at(right)
                           : between({0, bent_at(left)}, {1, bent_at(right)}, (x - left) * steps).y;
            EXPECT_NEAR(curve.at(x, miTRUE), expected, 2e-5) << x;
        }
        EXPECT_EQ(curve.at(not_a_number, miTRUE), 0.0f);
        // Another range than the table's: exact again.
        EXPECT_NEAR(curve({0, 0, 0.33f, 0, 0.9f, 0, 1, miTRUE}), bent_at(0.33f), 1e-5);
    }
    // The sample at the end lies on the last point, however the steps are rounded.
    for (const miInteger steps : {1, 3, 49, 1000, 65536}) {
        Live line(*this, {{0, 0, 0.25f, 0, 0, 0, 0}, {0, 1, 0.75f, 0, 0, 0, 0}}, 0, steps);
        EXPECT_EQ(line.at(0, miTRUE), 0.25f);
        EXPECT_EQ(line.at(1, miTRUE), 0.75f) << steps;
        EXPECT_NEAR(line.at(0.4f, miTRUE), 0.45f, 1e-5f);
    }
}

TEST_F(Curve, GoesOnStraightBeyondTheRange) {
    constexpr miInteger corner = 2;
    const struct {
        CurvePoint first, last;
        float below, above; // at -1 and 2
    } cases[] = {
        // Tangents of slope 2 and -1; chord of slope 0.5.
        {{0, 0, 0.25f, 0, 0, 0.25f, 0.5f}, {0, 1, 0.75f, -0.25f, 0.25f, 0, 0}, -1.75f, -0.25f},
        {{corner, 0, 0.25f, 0, 0, 0.25f, 0.5f}, {corner, 1, 0.75f, -0.25f, 0.25f, 0, 0}, -0.25f, 1.25f},
        {{1, 0, 0.25f, 0, 0, 0.25f, 0.5f}, {3, 1, 0.75f, -0.25f, 0.25f, 0, 0}, -1.75f, -0.25f}, // no corners
        {{0, 0, 0.25f, 0, 0, 0.0001f, 1}, {0, 1, 0.75f, -0.00009f, 1, 0, 0}, -0.25f, 1.25f},    // too short
        {{0, 0, 0.25f, 0, 0, -0.5f, 1}, {0, 1, 0.75f, 0.5f, 1, 0, 0}, -0.25f, 1.25f},           // backwards
    };
    for (const auto& c : cases)
        for (const miBoolean table : {miFALSE, miTRUE}) {
            Live curve(*this, {c.first, c.last});
            EXPECT_NEAR(curve.at(-1, table), c.below, 1e-6f);
            EXPECT_NEAR(curve.at(2, table), c.above, 1e-6f);
        }
    // The chord leads to the next point, not to the other end.
    Live curve(*this, {knot(corner, 0, 0), knot(0, 0.25f, 1), knot(0, 0.5f, 1), knot(corner, 1, 0.5f)});
    EXPECT_FLOAT_EQ(curve.at(-1), -4);
    EXPECT_FLOAT_EQ(curve.at(2), -0.5f);
}

TEST_F(Curve, FlagsHoldEndsAndTangents) {
    const std::vector<CurvePoint> points{{0, 0, 0.3f, 0, 0, 0.5f, 2}, {0, 1, 0.6f, -0.5f, -3, 0, 0}};
    const struct {
        miInteger flags;
        P a, b, c, d;
    } cases[] = {
        {0, {0, 0.3}, {0.5, 2.3}, {0.5, -2.4}, {1, 0.6}},
        {curve_fixed_ends, {0, -1}, {0.5, 1}, {0.5, -1}, {1, 2}}, // tangents go along
        {curve_within_y, {0, 0.3}, {0.5, 2}, {0.5, -1}, {1, 0.6}},
        {curve_fixed_ends | curve_within_y, {0, -1}, {0.5, 1}, {0.5, -1}, {1, 2}},
    };
    for (const auto& c : cases) {
        Live curve(*this, points, c.flags);
        for (float x = 0; x <= 1; x += 0.125f)
            EXPECT_NEAR(curve({2, 0, x, 0, 1, -1, 2, miFALSE}), walked(c.a, c.b, c.c, c.d, x), 2e-5) << x;
    }
}

TEST_F(Curve, WhatIsNoCurveHasAValue) {
    const float nan = not_a_number, inf = infinite, big = 3e38f;
    const struct {
        std::vector<CurvePoint> points;
        float below, inside, above; // at -1, 0.5 and 2
    } cases[] = {
        {{}, 0, 0, 0},
        {{knot(0, 0.5f, 0.7f)}, 0.7f, 0, 0.7f},
        {{{0, 0.5f, 0.7f, 0, 0, 1, 1}}, -0.8f, 0, 0.7f},
        {{knot(0, 0.5f, 0.25f), knot(0, 0.5f, 0.75f)}, 0.25f, 0.25f, 0.75f},           // one above the other
        {{knot(0, 0, 0), knot(0, 0.5f, 0), knot(0, 0.5f, 1), knot(0, 1, 1)}, 0, 0, 1}, // a step
        {{{0, 0.6f, 1, 0, 0, 0.1f, 1}, knot(0, 0.4f, 0, 0.1f, 1)}, -15, 0, 8}, // falling x: tangent, chord
        {{{0, 0, 0, 0, 0, 1e6f, 1e6f}, knot(0, 1, 1, -1e6f, -1e6f)}, -1, 0.5f, 2}, // far too long tangents
    };
    for (std::size_t k = 0; k < std::size(cases); ++k)
        for (const miBoolean table : {miFALSE, miTRUE}) {
            SCOPED_TRACE(k);
            Live curve(*this, cases[k].points);
            EXPECT_NEAR(curve.at(-1, table), cases[k].below, 1e-5f);
            EXPECT_NEAR(curve.at(0.5f, table), cases[k].inside, 1e-5f);
            EXPECT_NEAR(curve.at(2, table), cases[k].above, 1e-5f);
        }
    // Any numbers: no crash, no conversion out of range (the sanitizers look on), the same answer twice.
    for (const float x : {nan, inf, -inf, 0.5f, big})
        for (const float end : {nan, inf, -inf, big, 0.0f, 1.0f})
            for (const miInteger size : {0, -5, INT_MIN, INT_MAX, 10}) {
                Live curve(*this, {{0, 0, end, x, end, x, x}, knot(0, 1, x, -end, x)}, 0x201, size);
                const float first = curve({0, 0, x, 0, end, end, x, miTRUE});
                const float second = curve({0, 0, x, 0, end, end, x, miTRUE});
                EXPECT_TRUE(first == second || (std::isnan(first) && std::isnan(second)));
            }
    miScalar result = 99;
    scripted::ShaderInstance<CurveParams> never_begun;
    state.run(never_begun);
    const CurveRequest request{0, 0, 0.5f, 0, 1, 0, 1, miTRUE};
    EXPECT_TRUE(orl_base_Curve(&result, state, &never_begun.params(), &request));
    EXPECT_EQ(result, 0.0f);
    Live curve(*this, bent);
    EXPECT_TRUE(orl_base_Curve(&(result = 99), state, &curve.params(), nullptr));
    EXPECT_EQ(result, 0.0f);
}

TEST_F(Curve, ThreadsShareOneTable) {
    const auto before = renderer.resources();
    Live curve(*this, bent);
    EXPECT_EQ(renderer.resources().live_bytes, before.live_bytes + 40);
    mi_init_lock(&curve.function().lock);
    std::barrier all_at_once(8);
    std::vector<std::thread> threads;
    for (int k = 0; k < 8; ++k)
        threads.emplace_back([&, k] {
            scripted::State own;
            own->thread = static_cast<short>(k);
            own.run(curve, miSHADER_TEXTURE);
            all_at_once.arrive_and_wait();
            for (int i = 0; i < 50; ++i) {
                const CurveRequest request{0, 0, 0.5f, 0, 1, 0, 1, miTRUE};
                miScalar result = 99;
                orl_base_Curve(&result, own, &curve.params(), &request);
                EXPECT_NEAR(result, 0.6f, 1e-5f);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    mi_delete_lock(&curve.function().lock);
    EXPECT_EQ(renderer.resources().live_blocks, before.live_blocks + 3); // instance, points, table
    EXPECT_EQ(renderer.resources().allocations, before.allocations + 3);
}

TEST_F(Curve, PointsMayBeConnected) {
    Live curve(*this, {knot(0, 0, 0), knot(0, 1, 0)});
    CurvePoint& last = (&curve->points.elements[0])[curve->points.first + 1];
    curve.connect(last.y, [](miState*) { return 0.8f; });
    EXPECT_NEAR(curve.at(0.5f, miTRUE), 0.4f, 1e-5f);
}

} // namespace
