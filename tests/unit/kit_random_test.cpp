// The random generator: the sequence of the C library's family, and the bound below 1.
#include <array>
#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>

#include "kit/random.h"

namespace {

TEST(Random, FollowsTheRecurrence) {
    // x = 25214903917 x + 11 modulo 2^48 from 0, in exact arithmetic: 11, 277363943098, 11718085204285, ...;
    // the state's words lie low first, and the result is the upper 24 bits.
    std::array<unsigned short, 3> seed = {0, 0, 0};
    EXPECT_EQ(stage::next_random(seed.data()), 0.0f);
    EXPECT_EQ(seed, (std::array<unsigned short, 3>{11, 0, 0}));
    EXPECT_EQ(stage::next_random(seed.data()), static_cast<float>(277363943098 >> 24) / 16777216.0f);
    EXPECT_EQ(stage::next_random(seed.data()), static_cast<float>(11718085204285 >> 24) / 16777216.0f);
}

#ifndef _WIN32
TEST(Random, AgreesWithTheCLibrary) {
    std::array<unsigned short, 3> ours = {0x1234, 0xABCD, 0x0F0F}, theirs = ours;
    for (int i = 0; i < 10000; ++i) {
        // Theirs has 48 bits, ours the upper 24 of them.
        const double expected = std::floor(erand48(theirs.data()) * 0x1p24) * 0x1p-24;
        ASSERT_EQ(static_cast<double>(stage::next_random(ours.data())), expected);
        ASSERT_EQ(ours, theirs);
    }
    stage::seed_shared_random(42);
    srand48(42);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(static_cast<double>(stage::shared_random()), std::floor(drand48() * 0x1p24) * 0x1p-24);
}
#endif

TEST(Random, StaysBelowOne) {
    // The state whose successor has all 48 bits set: (2^48 - 12) times the inverse of the factor.
    std::array<unsigned short, 3> seed = {0x1744, 0xB27B, 0x817B};
    EXPECT_LT(stage::next_random(seed.data()), 1.0f);
    EXPECT_EQ(seed, (std::array<unsigned short, 3>{0xFFFF, 0xFFFF, 0xFFFF}));
}

} // namespace
