// Pixels of image records, luminance and the render colour space.
#include <array>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "kit/color.h"
#include "kit/image.h"

namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

void expect_color(const miColor& actual, const miColor& expected, float tolerance) {
    EXPECT_NEAR(actual.r, expected.r, tolerance);
    EXPECT_NEAR(actual.g, expected.g, tolerance);
    EXPECT_NEAR(actual.b, expected.b, tolerance);
    EXPECT_NEAR(actual.a, expected.a, tolerance);
}

TEST(Image, KeepsWhatItsTypeCanHold) {
    const miColor color = {0.2f, 0.4f, 0.6f, 0.8f};
    // 0.299 * 0.2 + 0.587 * 0.4 + 0.114 * 0.6 = 0.363
    struct {
        miImg_type type;
        miColor expected;
        float tolerance; // half a step of the fixed point
    } const cases[] = {
        {miIMG_TYPE_RGBA, color, 0.5f / 255},
        {miIMG_TYPE_RGBA_16, color, 0.5f / 65535},
        {miIMG_TYPE_RGBA_FP, color, 0},
        {miIMG_TYPE_RGB, {0.2f, 0.4f, 0.6f, 1}, 0.5f / 255},
        {miIMG_TYPE_RGB_16, {0.2f, 0.4f, 0.6f, 1}, 0.5f / 65535},
        {miIMG_TYPE_RGB_FP, {0.2f, 0.4f, 0.6f, 1}, 0},
        {miIMG_TYPE_A, {0.8f, 0.8f, 0.8f, 0.8f}, 0.5f / 255},
        {miIMG_TYPE_A_FP, {0.8f, 0.8f, 0.8f, 0.8f}, 0},
        {miIMG_TYPE_S_16, {0.363f, 0.363f, 0.363f, 1}, 0.5f / 65535},
        {miIMG_TYPE_S_FP, {0.363f, 0.363f, 0.363f, 1}, 1e-7f},
        {miIMG_TYPE_VTS, {0.363f, 0.363f, 0.363f, 0.8f}, 0.5f / 65535},
    };
    for (const auto& test : cases) {
        stage::ImageMemory memory(3, 2, test.type);
        stage::put_image_color(memory.image(), color, 2, 1);
        SCOPED_TRACE(test.type);
        expect_color(stage::image_color(memory.image(), 2, 1), test.expected, test.tolerance + 1e-7f);
        for (int y = 0; y < 2; ++y) // no neighbour was touched
            for (int x = 0; x < 3; ++x)
                if (x != 2 || y != 1) {
                    EXPECT_EQ(stage::image_color(memory.image(), x, y).r, 0.0f);
                }
    }
}

TEST(Image, FixedPointClampsAndRoundsFloatsDoNot) {
    struct {
        float value, stored;
    } const cases[] = {{-1, 0}, {2, 1}, {nan, 0}, {0.5f, 128 / 255.0f}, {0.4f / 255, 0}, {254.6f / 255, 1}};
    stage::ImageMemory bytes(1, 1, miIMG_TYPE_RGBA), floats(1, 1, miIMG_TYPE_RGBA_FP);
    for (const auto& test : cases) {
        stage::put_image_color(bytes.image(), {test.value, 0, 0, 0}, 0, 0);
        EXPECT_FLOAT_EQ(stage::image_color(bytes.image(), 0, 0).r, test.stored) << test.value;
    }
    stage::put_image_color(floats.image(), {-5, 1e9f, nan, 1}, 0, 0);
    const miColor stored = stage::image_color(floats.image(), 0, 0);
    EXPECT_EQ(stored.r, -5);
    EXPECT_EQ(stored.g, 1e9f);
    EXPECT_TRUE(std::isnan(stored.b));
}

TEST(Image, WhatIsOutsideIsHarmless) {
    stage::ImageMemory memory(4, 3, miIMG_TYPE_RGBA_FP);
    miImg_image* image = memory.image();
    const int big = std::numeric_limits<int>::max();
    const std::array<std::array<int, 2>, 7> places = {
        {{-1, 0}, {0, -1}, {4, 0}, {0, 3}, {big, big}, {-big - 1, 0}, {0, -big - 1}}};
    for (const auto& [x, y] : places) {
        stage::put_image_color(image, {1, 1, 1, 1}, x, y);
        expect_color(stage::image_color(image, x, y), {0, 0, 0, 0}, 0);
        stage::put_image_color(nullptr, {1, 1, 1, 1}, x, y);
        expect_color(stage::image_color(nullptr, x, y), {0, 0, 0, 0}, 0);
    }
    for (const int comp : {0, 5, -1, big}) {
        image->comp = comp;
        stage::put_image_color(image, {1, 1, 1, 1}, 0, 0);
        expect_color(stage::image_color(image, 0, 0), {0, 0, 0, 0}, 0);
    }
    image->comp = 4;
    image->bits = 24;
    expect_color(stage::image_color(image, 0, 0), {0, 0, 0, 0}, 0);
}

TEST(Image, PyramidLevels) {
    stage::ImageMemory memory(5, 2, miIMG_TYPE_RGB, 3);
    const std::array<std::array<int, 2>, 3> sizes = {{{5, 2}, {2, 1}, {1, 1}}};
    for (int level = 0; level < 3; ++level) {
        miImg_image* image = stage::image_level(memory.image(), level);
        ASSERT_NE(image, nullptr);
        const auto [width, height] = sizes[static_cast<std::size_t>(level)];
        EXPECT_EQ(image->width, width);
        EXPECT_EQ(image->height, height);
        stage::put_image_color(image, {1, 0, 0, 0}, width - 1, height - 1);
    }
    for (const int level : {-1, 3, 20, 1000})
        EXPECT_EQ(stage::image_level(memory.image(), level), nullptr);
    EXPECT_EQ(stage::image_level(nullptr, 1), nullptr);
}

TEST(Color, Luminance) {
    EXPECT_FLOAT_EQ(stage::luminance({1, 1, 1, 0}), 1);
    EXPECT_FLOAT_EQ(stage::luminance({1, 2, 3, 9}, {0.5f, 0.25f, 0.125f, 1}), 1.375f);
}

TEST(Color, CiexyzToRender) {
    // White D65 and the red primary's chromaticity x = 0.64, y = 0.33 at the luminance 0.2126.
    expect_color(stage::color_of_ciexyz({0.95047f, 1, 1.08883f, 0.5f}), {1, 1, 1, 0.5f}, 3e-4f);
    expect_color(stage::color_of_ciexyz({0.2126f * 0.64f / 0.33f, 0.2126f, 0.2126f * 0.03f / 0.33f, 1}),
                 {1, 0, 0, 1}, 3e-4f);
}

} // namespace
