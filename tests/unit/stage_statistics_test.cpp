// Calls and times of families of shaders.
#include <chrono>

#include <gtest/gtest.h>

#include "render/statistics.h"

namespace {

using stage::Family;
using stage::FamilyScope;
using stage::Statistics;
using namespace std::chrono_literals;

void spend(Statistics::Clock::duration time) {
    const auto end = Statistics::Clock::now() + time;
    while (Statistics::Clock::now() < end) {
    }
}

TEST(StageStatistics, TimeBelongsToTheInnermostFamily) {
    Statistics s;
    { const FamilyScope uncounted(s, Family::renderer); }
    EXPECT_EQ(s.of(Family::renderer).own, 0ns); // the clock does not run yet

    const auto start = Statistics::Clock::now();
    s.start_clock();
    {
        const FamilyScope renderer(s, Family::renderer);
        const FamilyScope material(s, stage::family_of(miSHADER_MATERIAL));
        spend(2ms);
        for (int k = 0; k < 3; ++k) {
            const FamilyScope texture(s, stage::family_of(miSHADER_TEXTURE));
            spend(5ms);
        }
        spend(2ms);
    }
    const auto all = Statistics::Clock::now() - start;
    Statistics sum; // of two threads that did the same
    sum += s;
    sum += s;
    const Statistics::Work material = sum.of(stage::family_of(miSHADER_MATERIAL)),
                           texture = sum.of(stage::family_of(miSHADER_TEXTURE));
    EXPECT_EQ(material.calls, 2u);
    EXPECT_EQ(texture.calls, 6u);
    EXPECT_GE(material.own, 8ms);
    EXPECT_GE(texture.own, 30ms);
    // Nothing is counted twice: with the textures' time in it the material's would be too long.
    EXPECT_LE(material.own + texture.own + sum.of(Family::renderer).own, 2 * all);
}

} // namespace
