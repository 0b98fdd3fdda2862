// Pixels of image records, luminance and the render colour space.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "kit/color.h"
#include "kit/image.h"

namespace {

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
        {miIMG_TYPE_RGBA_FP, color, 0},
        {miIMG_TYPE_RGB, {0.2f, 0.4f, 0.6f, 1}, 0.5f / 255},
        {miIMG_TYPE_RGB_16, {0.2f, 0.4f, 0.6f, 1}, 0.5f / 65535},
        {miIMG_TYPE_A, {0.8f, 0.8f, 0.8f, 0.8f}, 0.5f / 255},
        {miIMG_TYPE_S_16, {0.363f, 0.363f, 0.363f, 1}, 0.5f / 65535},
        {miIMG_TYPE_S_FP, {0.363f, 0.363f, 0.363f, 1}, 1e-7f},
        {miIMG_TYPE_VTS, {0.363f, 0.363f, 0.363f, 0.8f}, 0.5f / 65535},
    };
    for (const auto& test : cases) {
        stage::ImageMemory memory(3, 2, test.type);
        stage::put_image_color(memory.image(), color, 1, 1);
        SCOPED_TRACE(test.type);
        expect_color(stage::image_color(memory.image(), 1, 1), test.expected, test.tolerance + 1e-7f);
        for (const auto& [x, y] : {std::pair{0, 1}, {2, 1}, {1, 0}}) // no neighbour was touched
            EXPECT_EQ(stage::image_color(memory.image(), x, y).r, 0.0f);
    }
}

TEST(Image, FixedPointClampsAndRounds) {
    stage::ImageMemory bytes(1, 1, miIMG_TYPE_RGBA);
    for (const auto& [value, stored] : {std::pair{-1.0f, 0.0f},
                                        {2.0f, 1.0f},
                                        {NAN, 0.0f},
                                        {0.5f, 128 / 255.0f},
                                        {0.4f / 255, 0.0f},
                                        {254.6f / 255, 1.0f}}) {
        stage::put_image_color(bytes.image(), {value, 0, 0, 0}, 0, 0);
        EXPECT_FLOAT_EQ(stage::image_color(bytes.image(), 0, 0).r, stored) << value;
    }
}

TEST(Image, WhatIsOutsideIsHarmless) {
    stage::ImageMemory memory(4, 3, miIMG_TYPE_RGBA_FP);
    miImg_image* image = memory.image();
    const int big = std::numeric_limits<int>::max();
    for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {4, 0}, {0, 3}, {big, big}, {-big - 1, 0}})
        for (miImg_image* to : {image, static_cast<miImg_image*>(nullptr)}) {
            stage::put_image_color(to, {1, 1, 1, 1}, x, y);
            expect_color(stage::image_color(to, x, y), {0, 0, 0, 0}, 0);
        }
}

TEST(Color, LuminanceAndRenderSpace) {
    EXPECT_FLOAT_EQ(stage::luminance({1, 2, 3, 9}, {0.5f, 0.25f, 0.125f, 1}), 1.375f);
    // White D65 and the red primary's chromaticity x = 0.64, y = 0.33 at the luminance 0.2126.
    expect_color(stage::color_of_ciexyz({0.95047f, 1, 1.08883f, 0.5f}), {1, 1, 1, 0.5f}, 3e-4f);
    expect_color(stage::color_of_ciexyz({0.2126f * 0.64f / 0.33f, 0.2126f, 0.2126f * 0.03f / 0.33f, 1}),
                 {1, 0, 0, 1}, 3e-4f);
}

} // namespace
