// Image filters: the levels, which of them a look-up takes, and how it samples them.
#include "image_filter_fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <optional>
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

// ---- levels

TEST_F(BitmapFilter, LevelsAreHalvedUntilOneEdgeIsOne) {
    const struct {
        int width, height;
        std::vector<int> widths; // of all levels
    } cases[] = {{1, 1, {1}},
                 {1, 9, {1}},
                 {65535, 1, {65535}},
                 {5, 5, {5, 3, 2, 1}},
                 {5, 9, {5, 3, 2, 1}},
                 {9, 3, {9, 5, 3}},
                 {2049, 2050, {2049, 1025, 513, 257, 129, 65, 33, 17, 9, 5, 3, 2}}}; // 12 at most
    for (const auto& test : cases) {
        stage::ImageMemory image(test.width, test.height, miIMG_TYPE_RGBA);
        const Filter filter(renderer, image);
        std::vector<int> widths;
        for (int n = 0; n < orl::level_count(filter.filter); ++n)
            widths.push_back(orl::filter_level(filter.filter, n).width);
        EXPECT_EQ(widths, test.widths) << test.width << " x " << test.height;
    }
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
            const orl::FilterLevel level = orl::filter_level(filter.filter, 1);
            for (int i = 0; i < 4; ++i) {
                if (level.bits == 8)
                    EXPECT_EQ(filter.texel(1, i % 2, i / 2), sums[tiles][i] / 4);
                else if (level.bits == 16) // 257 steps for one of 8 bits
                    EXPECT_EQ(filter.texel(1, i % 2, i / 2), sums[tiles][i] * 257 / 4);
                else
                    EXPECT_NEAR(static_cast<const float*>(level.texels)[4 * i],
                                static_cast<float>(sums[tiles][i]) / 1020.0f, 1e-6f);
            }
        }
}

TEST_F(BitmapFilter, EightBitsWithAGammaBecomeLinearOnEveryLevel) {
    const float linear = std::pow(100 / 255.0f, 2.2f);
    for (const miImg_type kind : kinds) {
        stage::ImageMemory image = make_image(16, 16, kind, [](int, int) { return grey(100); });
        const Filter filter(renderer, image, true, 2.2f);
        for (const float width : {0.0f, 0.3f, 2.0f}) {
            const miColor color = filter.look_up(0.3f, 0.6f, width, width);
            EXPECT_NEAR(color.g, kind == miIMG_TYPE_RGBA ? linear : 100 / 255.0f, 1.0f / 65535) << width;
            EXPECT_NEAR(color.a, 100 / 255.0f, 1.0f / 65535) << "coverage has no gamma";
        }
    }
}

// ---- which level

// Position between the levels by an independent formula in double precision: the levels' colours are steps of
// 20, so a colour tells the level and the blend.
double expected_position(double edge, int last) {
    const double level = edge > 0 ? std::log2(0.45 * edge) : 0;
    if (level <= 0)
        return 0;
    if (level >= last)
        return last;
    const double whole = std::floor(level);
    return whole + std::floor((level - whole) * 4096) / 4095;
}

void expect_levels_over_widths(const std::function<float(float du, float dv)>& look_up, int width, int height,
                               int last) {
    for (double du = 1e-3; du < 1e3; du *= 1.013)
        for (const double dv : {0.0, du / 3, du * 3}) {
            const auto u = static_cast<float>(du), v = static_cast<float>(dv);
            const double edge = std::max(width * static_cast<double>(u), height * static_cast<double>(v));
            // The rounding of the logarithm may move the blend by one step of 12 bits.
            ASSERT_NEAR(look_up(u, v) * 255 / 20, expected_position(edge, last), 1.01 / 4095)
                << "for " << u << " x " << v;
        }
}

TEST_F(BitmapFilter, ColouredLevelsShowWhichOneIsTaken) {
    constexpr int width = 64, height = 32; // levels 0 to 5
    stage::ImageMemory image(width, height, miIMG_TYPE_RGBA);
    const Filter filter(renderer, image);
    ASSERT_EQ(orl::level_count(filter.filter), 6);
    for (int n = 1; n < 6; ++n) {
        const orl::FilterLevel level = orl::filter_level(filter.filter, n);
        std::fill_n(static_cast<std::uint8_t*>(level.texels), 4 * level.width * level.height,
                    static_cast<std::uint8_t>(20 * n));
    }
    expect_levels_over_widths([&](float du, float dv) { return filter.look_up(0.37f, 0.81f, du, dv).r; },
                              width, height, 5);
    EXPECT_NEAR(filter.look_up(0.5f, 0.5f, infinite, 0).g, 100 / 255.0f, 1e-6f);
    EXPECT_NEAR(filter.look_up(0.5f, 0.5f, 0, 3e38f).g, 100 / 255.0f, 1e-6f);
    for (const float none : {0.0f, -1.0f, -infinite, not_a_number})
        EXPECT_EQ(filter.look_up(0.5f, 0.5f, none, none), grey(0)) << none;
}

TEST_F(BitmapFilter, LevelsOfTheImageAreTaken) {
    constexpr int edge = 20;
    stage::ImageMemory image(edge, edge, miIMG_TYPE_RGBA, 4); // 20, 10, 5 and 2 pixels
    for (int n = 0; n < 4; ++n)
        for (int i = 0; i < edge * edge; ++i)
            stage::put_image_color(stage::image_level(image.image(), n), grey(20 * n), i % edge, i / edge);
    const Filter filter(renderer, image);
    EXPECT_EQ(orl::filter_level(filter.filter, 2).texels, nullptr);
    expect_levels_over_widths([&](float du, float dv) { return filter.look_up(0.37f, 0.81f, du, dv).r; },
                              edge, edge, 3);
    image.image()->dirsize = 1000; // more than there can be
    const Filter damaged(renderer, image);
    EXPECT_EQ(orl::level_count(damaged.filter), 4);
}

// ---- sampling

double catmull_rom(double p0, double p1, double p2, double p3, double t) {
    return 0.5 * (2 * p1 + (p2 - p0) * t + (2 * p0 - 5 * p1 + 4 * p2 - p3) * t * t +
                  (3 * p1 - p0 - 3 * p2 + p3) * t * t * t);
}

// In both directions; `texel`(x, y) repeats, and its middle is half a step from its corner.
template <class Texel> double bicubic(double x, double y, Texel texel) {
    const int i = static_cast<int>(std::floor(x - 0.5)), j = static_cast<int>(std::floor(y - 0.5));
    const double s = x - 0.5 - i, t = y - 0.5 - j;
    std::array<double, 4> rows{};
    for (int k = 0; k < 4; ++k)
        rows[static_cast<std::size_t>(k)] = catmull_rom(texel(i - 1, j - 1 + k), texel(i, j - 1 + k),
                                                        texel(i + 1, j - 1 + k), texel(i + 2, j - 1 + k), s);
    return catmull_rom(rows[0], rows[1], rows[2], rows[3], t);
}

// The first level of 8 bits in plain integers along rows, at steps of 1 / 4096 texel; vectors must not change
// a bit.
float plain_sample(const Filter& filter, int size, int x, int y) {
    const auto weights = [](int position) {
        const int t = (position + 2048) % 4096, t2 = t * t / 4096, t3 = t2 * t / 4096;
        return std::array{-t + 2 * t2 - t3, 8192 - 5 * t2 + 3 * t3, t + 4 * t2 - 3 * t3, t3 - t2};
    };
    const auto first = [](int position) { return (position + 2048) / 4096 - 2; };
    float sum = 0;
    for (int j = 0; j < 4; ++j) {
        int row = 0;
        for (int i = 0; i < 4; ++i)
            row += weights(x)[static_cast<std::size_t>(i)] *
                   filter.texel(1, (first(x) + i + size) % size, (first(y) + j + size) % size);
        sum += static_cast<float>(weights(y)[static_cast<std::size_t>(j)]) * static_cast<float>(row);
    }
    return std::clamp(sum * (1.0f / (8192.0f * 8192.0f * 255.0f)), 0.0f, 1.0f);
}

// Rounding t squared down costs the weights at most 1, t cubed 2, of 4096; with the factors of the
// polynomials that is (2 + 2 + 5 + 6 + 4 + 6 + 1 + 2) / 2 = 14 for all four and 28 for both directions: 0.7
// percent of the largest deviation from the mean, which is half the range.
TEST_F(BitmapFilter, SamplesAreCubicInTheImageAndOnLevels) {
    constexpr int edge = 16;
    std::mt19937 random(3);
    for (const miImg_type kind : kinds)
        for (const int level : {0, 1}) {
            const float range = kind == miIMG_TYPE_RGBA_FP ? 50.0f : 1.0f;
            stage::ImageMemory image = noise_image(edge, edge, kind, range);
            stage::fail_allocations_after(level == 0 ? 1 : 3); // the filter, a level and the rows for it
            const Filter filter(renderer, image);
            stage::fail_allocations_after(-1);
            ASSERT_EQ(orl::level_count(filter.filter), level + 1);
            const int size = edge >> level;
            const bool bytes = level == 1 && kind == miIMG_TYPE_RGBA;
            const auto texel = [&](int x, int y) -> double {
                x = (x + size) % size;
                y = (y + size) % size;
                if (level == 0)
                    return stage::image_color(image.image(), x, y).r;
                const orl::FilterLevel found = orl::filter_level(filter.filter, 1);
                if (found.bits == 32)
                    return static_cast<const float*>(found.texels)[4 * (y * size + x)];
                return filter.texel(1, x, y) / (found.bits == 8 ? 255.0 : 65535.0);
            };
            for (int k = 0; k < 2000; ++k) { // at whole steps of the fixed point, which are exact in floats
                const unsigned steps = static_cast<unsigned>(size) * 4096;
                const auto place = [&] { return static_cast<double>(random() % steps) / 4096; };
                const double x = place(), y = place();
                const double exact = std::max(0.0, bicubic(x, y, texel));
                const miColor color =
                    filter.look_up(static_cast<float>(x / size), static_cast<float>(y / size), 9, 0);
                ASSERT_NEAR(color.r, range > 1 ? exact : std::min(exact, 1.0), 0.007 * 0.5 * range)
                    << "kind " << kind << ", level " << level << " at " << x << ", " << y;
                if (bytes) {
                    ASSERT_EQ(color.r, plain_sample(filter, size, static_cast<int>(x * 4096),
                                                    static_cast<int>(y * 4096)));
                }
            }
            EXPECT_NEAR(
                filter.look_up(2.5f / static_cast<float>(size), 0.5f / static_cast<float>(size), 9, 9).r,
                texel(2, 0), 1e-6f * range)
                << "in the middle of a texel";
        }
}

TEST_F(BitmapFilter, ColoursStayWhereTheirImageCanHaveThem) {
    const auto extremes = [](miImg_type kind, float low, float high) {
        return make_image(8, 8, kind, [=](int x, int y) {
            const float value = x / 2 % 2 == y / 2 % 2 ? high : low;
            return miColor{value, value, value, value};
        });
    };
    const struct {
        miImg_type kind;
        float low, high;       // of the pixels
        float lowest, highest; // of the samples
    } cases[] = {{miIMG_TYPE_RGBA, 0, 1, 0, 1},
                 {miIMG_TYPE_RGBA_16, 0, 1, 0, 1},
                 {miIMG_TYPE_RGBA_FP, 0, 1000, 0, 1300},
                 {miIMG_TYPE_RGBA_FP, -3, 1000, -3, 1300}};
    for (const auto& test : cases) {
        stage::ImageMemory image = extremes(test.kind, test.low, test.high);
        const Filter filter(renderer, image);
        float lowest = 1e9f, highest = -1e9f;
        for (int i = 0; i < 10000; ++i) {
            const float value =
                filter.look_up(static_cast<float>(i % 100) / 100, static_cast<float>(i / 100) / 100).r;
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
        EXPECT_EQ(lowest, test.lowest) << test.kind;
        EXPECT_LE(highest, test.highest) << test.kind;
        EXPECT_GE(highest, test.high) << test.kind;
    }
}

// A seam would be a jump as large as the pixels' differences; a step of 1e-4 of the edge changes little.
TEST_F(BitmapFilter, TilesHaveNoSeamsAndOthersDoNotReachAround) {
    for (const auto& [width, height] : {std::pair{16, 8}, {5, 7}, {37, 22}}) {
        stage::ImageMemory image = noise_image(width, height, miIMG_TYPE_RGBA_16);
        const Filter filter(renderer, image);
        for (const float box : {0.0f, 0.2f, 0.3f, 0.5f, 1.1f})
            for (float along = 0.05f; along < 1.0f; along += 0.1f) {
                SCOPED_TRACE(Message() << width << " x " << height << ", box " << box << " at " << along);
                constexpr float step = 1e-4f;
                EXPECT_NEAR(filter.look_up(1 - step, along, box, box).r,
                            filter.look_up(step, along, box, box).r, 0.02f);
                EXPECT_NEAR(filter.look_up(along, 1 - step, box, box).r,
                            filter.look_up(along, step, box, box).r, 0.02f);
                // Whole tiles further, in powers of two so that no digit is lost.
                EXPECT_EQ(filter.look_up(0.25f, 0.5f, box), filter.look_up(-1.75f, 4.5f, box));
            }
    }
    for (const int width : {8, 9}) { // black on the left, white on the right
        stage::ImageMemory image =
            make_image(width, 8, miIMG_TYPE_RGBA, [&](int x, int) { return grey(x < width / 2 ? 0 : 255); });
        const Filter filter(renderer, image, false);
        for (const float box : {0.0f, 0.4f}) {
            EXPECT_EQ(filter.look_up(0.001f, 0.5f, box, box), grey(0)) << width;
            EXPECT_EQ(filter.look_up(0.999f, 0.5f, box, box), grey(255)) << width;
        }
    }
}

// ---- what may go wrong

TEST_F(BitmapFilter, WithoutMemoryTheLevelsBuiltSoFarServe) {
    stage::ImageMemory image = make_image(64, 64, miIMG_TYPE_RGBA, [](int, int) { return grey(255); });
    const miTag tag = renderer.add(miSCENE_IMAGE, image.image());
    // The filter, the first level, its rows, then the levels.
    constexpr int expected_levels[] = {0, 1, 1, 2, 3, 4, 5, 6, 7, 7};
    for (int successes = 0; successes < 10; ++successes) {
        stage::fail_allocations_after(successes);
        orl::BitmapFilter* const filter = orl::create_filter(state, tag, 1, true);
        EXPECT_EQ(filter == nullptr, successes == 0);
        miColor color{-1, -1, -1, -1};
        for (const float box : {0.0f, 0.1f, 0.7f, 100.0f}) {
            EXPECT_EQ(orl::look_up(&color, state, filter, 0.3f, 0.9f, box, box), filter != nullptr);
            EXPECT_EQ(color, grey(filter != nullptr ? 255 : 0)) << successes << " successes, box " << box;
        }
        stage::fail_allocations_after(-1);
        if (filter != nullptr) {
            EXPECT_EQ(orl::level_count(filter), expected_levels[successes]);
        }
        orl::destroy_filter(filter);
    }
}

TEST_F(BitmapFilter, WhatIsNoImageIsBlack) {
    EXPECT_EQ(orl::create_filter(state, miNULLTAG, 1, true), nullptr);
    orl::destroy_filter(nullptr);
    stage::ImageMemory empty(1, 1, miIMG_TYPE_RGBA), wrong(1, 1, miIMG_TYPE_RGBA);
    empty.image()->width = 0;
    wrong.image()->height = -7;
    for (const miTag tag :
         {renderer.add_material({}), miTag{9999}, renderer.add(miSCENE_IMAGE, empty.image()),
          renderer.add(miSCENE_IMAGE, wrong.image())}) {
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
                const Filter filter(renderer, image, tiles);
                for (const float u : bad)
                    for (const float v : bad)
                        for (const float box : bad) {
                            const miColor color = filter.look_up(u, v, box, -box);
                            ASSERT_TRUE(color.r >= 0 && color.r <= 1.3f && color.a >= 0 && color.a <= 1.3f)
                                << u << ", " << v << ", " << box;
                        }
                for (const float none : {not_a_number, infinite, -infinite})
                    EXPECT_EQ(filter.look_up(none, 0.3f), filter.look_up(0, 0.3f));
            }
}

TEST_F(BitmapFilter, APixelThatIsNoNumberIsBlackAround) {
    stage::ImageMemory image = make_image(8, 8, miIMG_TYPE_RGBA_FP, [](int x, int y) {
        return x == 3 && y == 4 ? miColor{not_a_number, -not_a_number, not_a_number, 1} : miColor{2, 2, 2, 2};
    });
    const Filter filter(renderer, image);
    for (int i = 0; i < 32 * 32; ++i)
        for (const float box : {0.0f, 0.4f, 9.0f}) {
            const miColor color =
                filter.look_up(static_cast<float>(i % 32) / 32, static_cast<float>(i / 32) / 32, box);
            ASSERT_FALSE(std::isnan(color.r) || std::isnan(color.g) || std::isnan(color.b)) << i;
        }
    EXPECT_EQ(filter.look_up(3.5f / 8, 4.5f / 8).r, 0);
    EXPECT_NEAR(filter.look_up(6.5f / 8, 0.5f / 8).r, 2, 1e-6f);
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
    std::array<int, 2> differences{};
    const auto look_up = [&](int& different) {
        for (int i = 0; i < 3000; ++i) {
            const float u = static_cast<float>(i) * 0.013f, box = static_cast<float>(i % 7) * 0.01f;
            miColor color;
            orl::look_up(&color, nullptr, shared, u, 1 - u, box, 0);
            different += !(color == alone.look_up(u, 1 - u, box, 0));
        }
    };
    std::thread other(look_up, std::ref(differences[1]));
    look_up(differences[0]);
    other.join();
    EXPECT_EQ(differences, (std::array{0, 0}));
    EXPECT_EQ(renderer.mi_db_access.calls(), 1);
    EXPECT_EQ(waiting, 2) << "no thread locks again";
    orl::destroy_filter(shared);
}

} // namespace
