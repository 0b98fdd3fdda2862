// The library's own approximations, beside the run-time library in double precision.
#include "numeric.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace orl;

namespace {

TEST(Numeric, EstimateOfTheDecimalLogarithm) {
    double worst = 0;
    for (float x = 1.2e-38f; x < 3.3e38f; x *= 1.00007f) { // all exponents, some 10000 mantissas each
        const double exact = std::log10(static_cast<double>(x));
        const double off = std::fabs(static_cast<double>(numeric::log10_estimate(x)) - exact);
        worst = std::max(worst, off / (1 + std::fabs(exact)));
    }
    // Half of the bound is for the callers.
    EXPECT_LT(worst, 0.5 * static_cast<double>(numeric::log10_estimate_error));
    EXPECT_EQ(numeric::log10_estimate(1), 0);
}

} // namespace
