// Matrices and transforms, checked against geometry that needs no matrix.
#include <algorithm>
#include <limits>
#include <numbers>

#include <gtest/gtest.h>

#include "kit/matrix.h"

namespace {

constexpr float quarter = static_cast<float>(std::numbers::pi / 2);

void expect_near(const miVector& actual, const miVector& expected) {
    EXPECT_NEAR(actual.x, expected.x, 1e-6f);
    EXPECT_NEAR(actual.y, expected.y, 1e-6f);
    EXPECT_NEAR(actual.z, expected.z, 1e-6f);
}

TEST(Matrix, RotatesAboutXThenYThenZ) {
    // Where quarter turns take each axis, followed by hand: x turns y to z, y turns z to x, z turns x to y.
    struct {
        miVector turn, of_x, of_y, of_z;
    } const cases[] = {
        {{quarter, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
        {{0, quarter, 0}, {0, 0, -1}, {0, 1, 0}, {1, 0, 0}},
        {{0, 0, quarter}, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1}},
        {{quarter, quarter, 0}, {0, 0, -1}, {1, 0, 0}, {0, -1, 0}},
        {{quarter, quarter, quarter}, {0, 0, -1}, {0, 1, 0}, {1, 0, 0}},
    };
    for (const auto& test : cases) {
        miMatrix m;
        stage::matrix_rotate(m, test.turn.x, test.turn.y, test.turn.z);
        expect_near(stage::transform_vector({1, 0, 0}, m), test.of_x);
        expect_near(stage::transform_vector({0, 1, 0}, m), test.of_y);
        expect_near(stage::transform_vector({0, 0, 1}, m), test.of_z);
    }
}

TEST(Matrix, SingularMatricesAreToldAndTheResultIsLeftAlone) {
    using Limits = std::numeric_limits<float>;
    const miMatrix cases[] = {
        {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},        // flat
        {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, // rank 2
        {Limits::quiet_NaN(), 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},
        {1e-39f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, // inverse beyond single precision
    };
    for (const auto& m : cases) {
        miMatrix inverse;
        std::fill_n(inverse, 16, 7.0f);
        EXPECT_FALSE(stage::matrix_invert(inverse, m));
        EXPECT_EQ(std::count(inverse, inverse + 16, 7.0f), 16);
    }
    for (const float scale : {1e-18f, 1e18f}) { // far from one is not singular
        miMatrix m = {scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, 1};
        ASSERT_TRUE(stage::matrix_invert(m, m)); // the result may be the argument
        EXPECT_FLOAT_EQ(m[0], 1 / scale);
    }
}

} // namespace
