// Image filters: the levels, which of them a look-up takes, and how it samples them.
#include "image_filter_fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <thread>

namespace {

using BitmapFilter = ImageFilterTest;
using testing::Message;

constexpr miImg_type kinds[] = {miIMG_TYPE_RGBA, miIMG_TYPE_RGBA_16, miIMG_TYPE_RGBA_FP};

// A grey that holds in all kinds: so many steps of 8 bits.
miColor grey(int steps) {
    const float value = static_cast<float>(steps) / 255.0f;
    return {value, value, value, value};
}

// Of 3 x 3 pixels, in steps of 8 bits:
//     70 81 91
//     40 50 61
//     10 20 31     lowest row first
// the texels of the first level are quarters of these sums: 10 + 20 + 40 + 50 = 120 for all; where the image
// tiles, 31 + 10 + 61 + 40 = 142, 70 + 81 + 10 + 20 = 181 and 91 + 70 + 31 + 10 = 202; where it does not,
// twice 31 + 61 = 184, twice 70 + 81 = 302 and four times 91 = 364. Fixed point rounds down.
TEST_F(BitmapFilter, OddEdgesTakeTheOtherSideOfATile) {
    constexpr int pixels[3][3] = {{10, 20, 31}, {40, 50, 61}, {70, 81, 91}};
    constexpr int sums[2][4] = {{120, 184, 302, 364}, {120, 142, 181, 202}};
    for (const bool tiles : {false, true})
        for (const miImg_type kind : kinds) {
            SCOPED_TRACE(Message() << "tiles " << tiles << ", kind " << kind);
            stage::ImageMemory image =
                make_image(3, 3, kind, [&](int x, int y) { return grey(pixels[y][x]); });
            const Filter filter(renderer, image, tiles);
            const int largest = kind == miIMG_TYPE_RGBA ? 255 : 65535;
            for (int i = 0; i < 4; ++i) {
                const int sum = sums[tiles][i] * (largest / 255);
                const double expected = kind == miIMG_TYPE_RGBA_FP ? sum / 4.0 : sum / 4;
                EXPECT_NEAR(filter.texel(1, i % 2, i / 2), expected / largest, 1e-7);
            }
        }
}

// Means of light, worked out in double precision, keep the gamma of the image. To the nearest byte, give or
// take the thousandth of the light by which it is looked up; in the dark the byte nearest in light may be 3/4
// of a step away: the light half way from 0 to byte 1 is that of byte 2^(-1 / gamma) = 0.73.
TEST_F(BitmapFilter, LevelsWithAGammaHoldTheMeanOfTheLight) {
    for (const double gamma : {0.45, 1.8, 2.2, 3.0}) {
        const auto light = [=](double value) { return std::pow(value, gamma); };
        // A row of blocks of 2 x 2: black beside each byte, and each byte alone, which stays.
        stage::ImageMemory image =
            make_image(1024, 2, miIMG_TYPE_RGBA, [](int x, int) { return grey(x % 4 == 0 ? 0 : x / 4); });
        const Filter filter(renderer, image, true, static_cast<float>(gamma));
        ASSERT_EQ(orl::filter_level(filter.filter, 1).bits, 8);
        for (int x = 0; x < 512; ++x) {
            const double byte = x / 2, value = byte / 255;
            const double mean = x % 2 == 0 ? 255 * std::pow(light(value) / 2, 1 / gamma) : byte;
            EXPECT_NEAR(255 * filter.texel(1, x, 0), mean, x % 2 == 0 ? 0.76 : 0) << gamma << ' ' << byte;
            EXPECT_EQ(255 * filter.texel(1, x, 0, 3), x % 2 == 0 ? std::floor(byte / 2) : byte);
        }
    }
}

// Position between the levels by an independent formula in double precision: the levels' colours are steps of
// 20, so a colour tells the level and the blend.
double expected_position(double edge, int last) {
    const double level = edge > 0 ? std::log2(0.45 * edge) : 0;
    if (level <= 0 || level >= last)
        return level <= 0 ? 0 : last;
    const double whole = std::floor(level);
    return whole + std::floor((level - whole) * 4096) / 4095;
}

TEST_F(BitmapFilter, LevelsOfTheImageAreTaken) {
    constexpr int edge = 20;
    stage::ImageMemory image(edge, edge, miIMG_TYPE_RGBA, 4); // 20, 10, 5 and 2 pixels
    for (int n = 0; n < 4; ++n)
        for (int i = 0; i < edge * edge; ++i)
            stage::put_image_color(stage::image_level(image.image(), n), grey(20 * n), i % edge, i / edge);
    const Filter filter(renderer, image);
    EXPECT_EQ(orl::filter_level(filter.filter, 2).texels, nullptr);
    for (double du = 1e-3; du < 1e3; du *= 1.013)
        for (const double dv : {0.0, du / 3, du * 3}) // the rounded logarithm may move the blend by a step
            ASSERT_NEAR(filter.look_up(0.37f, 0.81f, static_cast<float>(du), static_cast<float>(dv)).r * 255 /
                            20,
                        expected_position(edge * std::max(du, dv), 3), 1.01 / 4095)
                << "for " << du << " x " << dv;
    // The texels of a level cover the image, whatever their number.
    miImg_image* const last = stage::image_level(image.image(), 3);
    for (int i = 0; i < 4; ++i)
        stage::put_image_color(last, grey(i % 2 * 255), i % 2, i / 2);
    EXPECT_NEAR(filter.look_up(0.25f, 0.5f, 9).r, 0, 1e-6f);
    EXPECT_NEAR(filter.look_up(0.75f, 0.5f, 9).r, 1, 1e-6f);
    image.image()->dirsize = 1000; // more than there can be
    EXPECT_EQ(orl::level_count(Filter(renderer, image).filter), 4);
    image.image()->dirsize = 1; // none: 20, 10, 5, 3, 2 and 1 are built
    EXPECT_EQ(orl::level_count(Filter(renderer, image).filter), 6);
    image.image()->filter = miFALSE;
    image.image()->dirsize = 4; // of no account
    EXPECT_EQ(orl::level_count(Filter(renderer, image).filter), 6);
    stage::ImageMemory many(1, 1, miIMG_TYPE_RGBA, 20);
    EXPECT_EQ(orl::level_count(Filter(renderer, many).filter), 13);
}

// The weights of Catmull and Rom at t, whose powers are rounded down to 12 bits.
std::array<double, 4> weights(double t) {
    const auto rounded = [](double x) { return std::floor(x * 4096) / 4096; };
    const double t2 = rounded(t * t), t3 = rounded(t2 * t);
    return {0.5 * (-t + 2 * t2 - t3), 0.5 * (2 - 5 * t2 + 3 * t3), 0.5 * (t + 4 * t2 - 3 * t3),
            0.5 * (t3 - t2)};
}

// `texel`(x, y) repeats, and its middle is half a step from its corner.
template <class Texel> double bicubic(double x, double y, Texel texel) {
    const double left = std::floor(x - 0.5), below = std::floor(y - 0.5);
    const auto across = weights(x - 0.5 - left), up = weights(y - 0.5 - below);
    double sum = 0;
    for (int i = 0; i < 16; ++i)
        sum += across[static_cast<std::size_t>(i % 4)] * up[static_cast<std::size_t>(i / 4)] *
               texel(static_cast<int>(left) - 1 + i % 4, static_cast<int>(below) - 1 + i / 4);
    return sum;
}

TEST_F(BitmapFilter, SamplesAreCubicInTheImageAndOnLevels) {
    constexpr int edge = 16;
    std::mt19937 random(3);
    for (const auto& [kind, gamma] : {std::pair{miIMG_TYPE_RGBA, 1.0f},
                                      {miIMG_TYPE_RGBA, 2.2f},
                                      {miIMG_TYPE_RGBA_16, 2.2f}, // linear
                                      {miIMG_TYPE_RGBA_FP, 2.2f}})
        for (const int level : {0, 1}) {
            const double decode = kind == miIMG_TYPE_RGBA ? static_cast<double>(gamma) : 1;
            const double range = kind == miIMG_TYPE_RGBA_FP ? 50 : 1;
            stage::ImageMemory image = noise_image(edge, edge, kind, static_cast<float>(range));
            stage::fail_allocations_after(level == 0 ? 1 : 3); // the filter, a level and the rows for it
            const Filter filter(renderer, image, true, gamma);
            stage::fail_allocations_after(-1);
            ASSERT_EQ(orl::level_count(filter.filter), level + 1);
            const int size = edge >> level;
            const auto component = [&](int x, int y, int c) -> double {
                x = (x + size) % size;
                y = (y + size) % size;
                const miColor pixel = stage::image_color(image.image(), x, y);
                return level > 0 ? filter.texel(1, x, y, c) : c == 0 ? pixel.r : pixel.a;
            };
            const auto texel = [&](int x, int y) { return std::pow(component(x, y, 0), decode); };
            const auto coverage = [&](int x, int y) { return component(x, y, 3); };
            const auto limited = [=](double x) { return std::clamp(x, 0.0, range > 1 ? 1e9 : 1.0); };
            for (int k = 0; k < 2000; ++k) { // at whole steps of the fixed point, which are exact in floats
                const auto place = [&] {
                    return static_cast<int>(random() % 65536) % (4096 * size) / 4096.0;
                };
                const double x = place(), y = place();
                const miColor color =
                    filter.look_up(static_cast<float>(x / size), static_cast<float>(y / size), 9, 0);
                SCOPED_TRACE(Message() << "kind " << kind << ", level " << level << " at " << x << ", " << y);
                ASSERT_NEAR(color.r, limited(bicubic(x, y, texel)), 1e-6 * range);
                ASSERT_NEAR(color.a, limited(bicubic(x, y, coverage)), 1e-6 * range);
            }
        }
}

TEST_F(BitmapFilter, WhatDoesNotTileDoesNotReachAround) {
    for (const int width : {8, 9}) { // black on the left, white on the right
        stage::ImageMemory image =
            make_image(width, 8, miIMG_TYPE_RGBA, [&](int x, int) { return grey(x < width / 2 ? 0 : 255); });
        const Filter filter(renderer, image, false);
        for (const float box : {0.0f, 0.4f}) {
            EXPECT_EQ(filter.look_up(0.001f, 0.5f, box, box), grey(0)) << width;
            EXPECT_EQ(filter.look_up(0.999f, 0.5f, box, box), grey(255)) << width;
        }
        // The first level, which 0.45 times the box chooses, has the edge where the image has it.
        const auto edges = static_cast<float>(width);
        const float middle = static_cast<float>(width / 2) / edges;
        EXPECT_NEAR(filter.look_up(middle, 0.5f, 2 / 0.45f / edges).r, 0.5f, 1e-3f) << width;
    }
}

TEST_F(BitmapFilter, WithoutMemoryTheLevelsBuiltSoFarServe) {
    stage::ImageMemory image = make_image(64, 64, miIMG_TYPE_RGBA, [](int, int) { return grey(255); });
    const miTag tag = renderer.add(miSCENE_IMAGE, image.image());
    // The filter, the first level, its rows, then the levels.
    constexpr int expected_levels[] = {0, 1, 1, 2, 3, 4, 5, 6, 7, 7};
    for (int successes = 0; successes < 10; ++successes) {
        stage::fail_allocations_after(successes);
        orl::BitmapFilter* const filter = orl::create_filter(state, tag, 1, true);
        miColor color{-1, -1, -1, -1};
        for (const float box : {0.0f, 0.1f, 0.7f, 100.0f}) {
            EXPECT_EQ(orl::look_up(&color, state, filter, 0.3f, 0.9f, box, box), successes > 0);
            EXPECT_EQ(color, grey(successes > 0 ? 255 : 0)) << successes << " successes, box " << box;
        }
        stage::fail_allocations_after(-1);
        EXPECT_EQ(filter != nullptr ? orl::level_count(filter) : 0, expected_levels[successes]);
        orl::destroy_filter(filter);
    }
}

TEST_F(BitmapFilter, WhatIsNoImageIsBlack) {
    EXPECT_EQ(orl::create_filter(state, miNULLTAG, 1, true), nullptr);
    orl::destroy_filter(nullptr);
    miImg_image empty{}, wrong{};
    wrong.width = 3;
    wrong.height = -7;
    for (const miTag tag : {renderer.add_material({}), miTag{9999}, renderer.add(miSCENE_IMAGE, &empty),
                            renderer.add(miSCENE_IMAGE, &wrong)}) {
        orl::BitmapFilter* const filter = orl::create_filter(state, tag, 1, true);
        miColor color{-1, -1, -1, -1};
        EXPECT_TRUE(orl::look_up(&color, state, filter, 0.5f, 0.5f, 0.1f, 0.1f));
        EXPECT_EQ(color, (miColor{0, 0, 0, 0}));
        orl::destroy_filter(filter);
    }
}

TEST_F(BitmapFilter, AnyCoordinateGivesAColourOfTheImage) {
    constexpr float bad[] = {not_a_number, infinite, -infinite, 3e38f,       -3e38f, 1e10f, -1e10f,
                             -1e-30f,      -1,       0,         0.99999994f, 1,      77.3f};
    for (const auto& [width, height] : {std::pair{1, 1}, {1, 40}, {3, 2}, {65535, 1}})
        for (const miImg_type kind : kinds)
            for (const bool tiles : {false, true}) {
                stage::ImageMemory image = noise_image(width, height, kind);
                const Filter filter(renderer, image, tiles, tiles ? 2.2f : 1.0f);
                for (const float u : bad)
                    for (const float v : bad)
                        for (const float box : bad) {
                            const miColor color = filter.look_up(u, v, box, -box);
                            ASSERT_TRUE(color.r >= 0 && color.r <= 1.3f && color.a >= 0 && color.a <= 1.3f)
                                << u << ", " << v << ", " << box;
                        }
                EXPECT_EQ(filter.look_up(not_a_number, -infinite), filter.look_up(0, 0));
            }
}

TEST_F(BitmapFilter, ThreadsBuildOnceAndAgree) {
    stage::ImageMemory image = noise_image(200, 100, miIMG_TYPE_RGBA);
    const Filter alone(renderer, image);
    orl::BitmapFilter* const shared =
        orl::create_filter(state, renderer.add(miSCENE_IMAGE, image.image()), 1, true);
    renderer.mi_db_access.reset_calls();
    std::atomic<int> waiting{0}; // at the lock, where each arrives before the other has built
    renderer.mi_lock = [&](miLock lock) {
        for (++waiting; waiting < 2;)
            std::this_thread::yield();
        renderer.mi_lock.unscripted(lock);
    };
    in_threads(2, [&](scripted::State&) {
        for (int i = 0; i < 3000; ++i) {
            const float u = static_cast<float>(i) * 0.013f, box = static_cast<float>(i % 7) * 0.01f;
            miColor color;
            orl::look_up(&color, nullptr, shared, u, 1 - u, box, 0);
            ASSERT_EQ(color, alone.look_up(u, 1 - u, box, 0));
        }
    });
    EXPECT_EQ(renderer.mi_db_access.calls(), 1);
    EXPECT_EQ(waiting, 2) << "no thread locks again";
    orl::destroy_filter(shared);
}

} // namespace
