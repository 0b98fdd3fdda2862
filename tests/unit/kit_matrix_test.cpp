// Matrices and transforms, checked against geometry that needs no matrix.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include <gtest/gtest.h>

#include "kit/matrix.h"

namespace {

constexpr float quarter = static_cast<float>(std::numbers::pi / 2);

void expect_near(const miVector& actual, const miVector& expected, float tolerance = 1e-6f) {
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
    EXPECT_NEAR(actual.z, expected.z, tolerance);
}

TEST(Matrix, RotatesAboutXThenYThenZ) {
    // Where quarter turns take each axis, followed by hand: x turns y to z, y turns z to x, z turns x to y.
    struct {
        float x, y, z;
        miVector of_x, of_y, of_z;
    } const cases[] = {
        {quarter, 0, 0, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
        {0, quarter, 0, {0, 0, -1}, {0, 1, 0}, {1, 0, 0}},
        {0, 0, quarter, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1}},
        {quarter, quarter, 0, {0, 0, -1}, {1, 0, 0}, {0, -1, 0}},
        {quarter, quarter, quarter, {0, 0, -1}, {0, 1, 0}, {1, 0, 0}},
    };
    for (const auto& turn : cases) {
        miMatrix m;
        stage::matrix_rotate(m, turn.x, turn.y, turn.z);
        expect_near(stage::transform_vector({1, 0, 0}, m), turn.of_x);
        expect_near(stage::transform_vector({0, 1, 0}, m), turn.of_y);
        expect_near(stage::transform_vector({0, 0, 1}, m), turn.of_z);
    }
}

TEST(Matrix, ProductAppliesTheLeftMatrixFirst) {
    miMatrix scale = {2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 4, 0, 0, 0, 0, 1};
    const miMatrix move = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
    miMatrix both;
    stage::matrix_product(both, scale, move);
    expect_near(stage::transform_point({1, 1, 1}, both), {12, 23, 34});
    expect_near(stage::transform_vector({1, 1, 1}, both), {2, 3, 4});
    stage::matrix_product(scale, move, scale); // the result may be an argument
    expect_near(stage::transform_point({1, 1, 1}, scale), {22, 63, 124});
}

TEST(Matrix, PointsAreDividedByTheFourthCoordinate) {
    const miMatrix perspective = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, -1, 0, 0, 0, 0}; // w = -z
    expect_near(stage::transform_point({2, 4, -2}, perspective), {1, 2, -1});
    expect_near(stage::transform_point({2, 4, 0}, perspective), {2, 4, 0}); // w = 0: not divided
}

TEST(Matrix, InverseUndoesRandomAffineMatrices) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> value(-1, 1);
    for (int i = 0; i < 200; ++i) {
        miMatrix m, inverse, product;
        stage::matrix_rotate(m, 3 * value(random), 3 * value(random), 3 * value(random));
        const float sizes[] = {1 + 0.9f * value(random), 1000.0f, 0.001f};
        for (int row = 0; row < 3; ++row)
            for (int k = 0; k < 3; ++k)
                m[4 * row + k] *= sizes[row];
        for (int k = 12; k < 15; ++k)
            m[k] = 100 * value(random);
        ASSERT_TRUE(stage::matrix_invert(inverse, m));
        // The last column of an affine inverse is exact, or points would be divided.
        EXPECT_EQ(inverse[3], 0);
        EXPECT_EQ(inverse[7], 0);
        EXPECT_EQ(inverse[11], 0);
        EXPECT_EQ(inverse[15], 1);
        for (int row = 0; row < 4; ++row)
            for (int column = 0; column < 4; ++column) {
                double sum = 0, size = 0; // of row times column and of the terms without sign
                for (int k = 0; k < 4; ++k) {
                    const double term =
                        static_cast<double>(m[4 * row + k]) * static_cast<double>(inverse[4 * k + column]);
                    sum += term;
                    size += std::fabs(term);
                }
                // The inverse is rounded once to single precision: half a unit of 2^-23 for each term.
                EXPECT_NEAR(sum, row == column ? 1.0 : 0.0, size * 0x1p-23);
            }
        stage::matrix_copy(product, m);
        ASSERT_TRUE(stage::matrix_invert(product, product));
        EXPECT_EQ(product[5], inverse[5]);
    }
}

TEST(Matrix, InverseOfUniformScalesFarFromOne) {
    for (const float scale : {1e-18f, 1e18f}) {
        const miMatrix m = {scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, 1};
        miMatrix inverse;
        ASSERT_TRUE(stage::matrix_invert(inverse, m));
        EXPECT_FLOAT_EQ(inverse[0], 1 / scale);
    }
}

TEST(Matrix, SingularMatricesAreToldAndTheResultIsLeftAlone) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const miMatrix cases[] = {
        {0},
        {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},        // flat
        {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, // rank 2
        {nan, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},
        {infinity, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},
        {1e-39f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, // inverse beyond single precision
    };
    for (const auto& m : cases) {
        miMatrix inverse;
        std::fill_n(inverse, 16, 7.0f);
        EXPECT_FALSE(stage::matrix_invert(inverse, m));
        for (const float value : inverse)
            EXPECT_EQ(value, 7.0f);
    }
}

TEST(Matrix, NormalsStayUprightWithTheMatrixThatLeadsBack) {
    const miMatrix to = {3, 0, 0, 0, 0.5f, 1, 0, 0, 0, 2, 0.25f, 0, 5, 6, 7, 1};
    miMatrix from;
    ASSERT_TRUE(stage::matrix_invert(from, to));
    const miVector tangents[] = {{1, -1, 0}, {0, 1, -1}};
    const miVector normal = stage::transform_vector_transposed({1, 1, 1}, from);
    for (const miVector& tangent : tangents) {
        const miVector moved = stage::transform_vector(tangent, to);
        EXPECT_NEAR(mi_vector_dot(&normal, &moved), 0, 1e-5f);
    }
}

TEST(Matrix, IdentityIsRecognised) {
    miMatrix m;
    stage::matrix_identity(m);
    EXPECT_TRUE(stage::matrix_is_identity(m));
    m[12] = 1e-30f;
    EXPECT_FALSE(stage::matrix_is_identity(m));
    stage::matrix_null(m);
    EXPECT_FALSE(stage::matrix_is_identity(m));
}

} // namespace
