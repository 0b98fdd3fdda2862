// The random generator: its recurrence, and the bound below 1.
#include <array>

#include <gtest/gtest.h>

#include "kit/random.h"

TEST(Random, FollowsTheRecurrenceAndStaysBelowOne) {
    // x = 25214903917 x + 11 modulo 2^48 from 0, in exact arithmetic: 11, 277363943098, 11718085204285, ...;
    // the state's words lie low first, and the result is the upper 24 bits.
    std::array<unsigned short, 3> seed = {0, 0, 0};
    for (const long long state : {11LL, 277363943098LL, 11718085204285LL})
        EXPECT_EQ(stage::next_random(seed.data()), static_cast<float>(state >> 24) / 16777216.0f);
    // The state whose successor has all 48 bits set: (2^48 - 12) times the inverse of the factor.
    seed = {0x1744, 0xB27B, 0x817B};
    EXPECT_LT(stage::next_random(seed.data()), 1.0f);
    EXPECT_EQ(seed, (std::array<unsigned short, 3>{0xFFFF, 0xFFFF, 0xFFFF}));
}
