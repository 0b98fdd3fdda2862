// Colours in images of 8 and 16 bits, and what the formats of picture files hold.
#include <OpenImageIO/imageio.h>
#include <gmock/gmock.h>

#include <bit>
#include <filesystem>

#include "image/picture_file.h"
#include "test_paths.h"

namespace {

namespace fs = std::filesystem;
using stage::Grading;
using Clip = Grading::Clip;

// 8 bits: 0.25 is 63.75 steps, 0.5 is 127.5; with gamma 2 they are 0.5 and 0.7071 (180.3).
TEST(StageGrading, OfImagesThatShadersWrite) {
    const struct {
        Grading grading;
        miColor put;
        std::array<int, 4> steps;
    } cases[] = {
        {{}, {0.25f, 0.5f, 2.0f, 1.0f}, {64, 128, 255, 255}},
        {{.gamma = 2.0f}, {0.25f, 0.5f, 0.0f, 0.25f}, {128, 180, 0, 128}}, // alpha raised to 0.5, no curve
        {{.clip = Clip::alpha}, {0.25f, 0.5f, -1.0f, 0.25f}, {64, 64, 0, 64}},
        {{.clip = Clip::raw}, {0.25f, 0.5f, 7.0f, 0.25f}, {64, 128, 255, 64}},
        {{.premultiply = false}, {0.25f, 0.5f, 0.0f, 0.5f}, {128, 255, 0, 128}}, // divided by 0.5
        {{.dither = true}, {0.25f, 0.5f, 0.0f, 1.0f}, {63, 127, 0, 255}},        // at (0, 0) 1 / 128 is added
        {{.desaturate = true, .luminance_weight = {0.5f, 0.5f, 0.0f, 0.0f}},
         {1.5f, 0.0f, 0.75f, 1.0f}, // grey 0.75; a third of the way remains: 1, 0.5, 0.75
         {255, 128, 191, 255}},
    };
    for (const auto& c : cases) {
        stage::ImageMemory memory(1, 1, miIMG_TYPE_RGBA);
        stage::put_graded_color(memory.image(), c.put, 0, 0, c.grading);
        const miColor got = stage::image_color(memory.image(), 0, 0);
        const std::array channels = {got.r, got.g, got.b, got.a};
        for (std::size_t k = 0; k < 4; ++k)
            EXPECT_EQ(std::lround(channels[k] * 255.0f), c.steps[k]) << &c - cases << " " << k;
    }
    // Reading takes back what writing did, and images of floats keep what lies outside of [0, 1].
    const Grading grading{.gamma = 2.2f, .premultiply = false};
    for (const miImg_type type : {miIMG_TYPE_RGBA_16, miIMG_TYPE_RGBA_FP}) {
        stage::ImageMemory memory(1, 1, type);
        stage::put_graded_color(memory.image(), {0.1f, 0.3f, 0.0f, 0.5f}, 0, 0, grading);
        const miColor got = stage::graded_color(memory.image(), 0, 0, grading);
        EXPECT_NEAR(got.r, 0.1f, 1e-4f);
        EXPECT_NEAR(got.g, 0.3f, 1e-4f);
    }
}

// A pixel of 1 in each type, and what its file says of itself: the value's type, the number of channels, and
// the first channel's value where it is read as in [0, 1].
TEST(StagePictureFormats, EachDataTypeInEachFormat) {
    const fs::path folder = fs::path(orl_test_output_dir) / "stage_formats";
    fs::create_directories(folder);
    const struct {
        const char *datatype, *format, *expected;
    } cases[] = {
        {"rgba", "png", "uint8 4 1"},
        {"rgba_16", "png", "uint16 4 1"},
        {"rgb_fp", "png", "uint8 3 1"},
        {"a", "png", "uint8 1 1"},
        {"s_16", "png", "uint16 1 1"},
        {"n", "png", "uint8 3 1"},
        {"vta", "png", "uint8 3 1"},
        {"bit", "png", "uint8 1 1"},
        {"tag", "png", "uint16 1 1.5259e-05"},
        {"rgba", "jpg", "uint8 3 1"},
        {"coverage", "jpg", "uint8 1 1"},
        {"rgba", "tif", "uint8 4 1"},
        {"rgba_16", "tif", "uint16 4 1"},
        {"rgba_fp", "tif", "float 4 1"},
        {"z", "tif", "float 1 1"},
        {"rgba_h", "hdr", "float 3 1"},
        {"s", "hdr", "float 3 1"},
        {"m", "exr", "float 3 1"},
        {"rgb_16", "exr", "half 3 1"},
        {"vts", "exr", "float 2 1"},
        {"tag", "exr", "uint 1 2.3283e-10"},
    };
    for (const auto& c : cases) {
        stage::FramebufferDesc desc;
        desc.name = "b";
        desc.datatype = c.datatype;
        desc.user = true;
        auto buffers = stage::make_framebuffers(std::vector{desc}, 2, 2, {});
        stage::FrameBuffer& buffer = buffers.back();
        const bool integer = buffer.type->storage == stage::FrameBufferType::Storage::integer;
        std::ranges::fill(buffer.pixels, integer ? std::bit_cast<float>(1u) : 1.0f);
        const std::string path = (folder / ("a." + std::string(c.format))).string();
        stage::write_picture({path, c.format, {&buffer}});
        const auto file = OIIO::ImageInput::open(path);
        ASSERT_TRUE(file) << path << OIIO::geterror();
        std::vector<float> pixels(file->spec().image_pixels() *
                                  static_cast<std::size_t>(file->spec().nchannels));
        ASSERT_TRUE(file->read_image(0, 0, 0, -1, OIIO::TypeDesc::FLOAT, pixels.data()));
        std::ostringstream got;
        got.precision(5);
        got << file->spec().format << ' ' << file->spec().nchannels << ' ' << pixels[0];
        EXPECT_EQ(got.str(), c.expected) << c.datatype << ' ' << c.format;
    }
}

TEST(StagePictureFormats, WhatABufferSaysAboutItsFile) {
    const fs::path folder = fs::path(orl_test_output_dir) / "stage_formats";
    fs::create_directories(folder);
    stage::FramebufferDesc desc;
    desc.name = "main";
    desc.tiled = desc.dod = true;
    desc.dpi = 72;
    desc.compression = "pxr24";
    auto buffers = stage::make_framebuffers(std::vector{desc}, 8, 6, {});
    buffers[0].pixel(2, 1)[0] = 1.0f; // from the lower left: row 4 of a file
    buffers[0].pixel(4, 3)[3] = 1.0f; // row 2
    const std::string path = (folder / "window.exr").string();
    stage::write_picture({path, "exr", {&buffers[0]}});
    const OIIO::ImageSpec spec = OIIO::ImageInput::open(path)->spec();
    EXPECT_EQ((std::array{spec.x, spec.y, spec.width, spec.height, spec.full_width, spec.full_height}),
              (std::array{2, 2, 3, 3, 8, 6}));
    EXPECT_EQ(spec.tile_width, 64);
    EXPECT_EQ(spec.get_string_attribute("compression"), "pxr24");
    EXPECT_EQ(spec.get_float_attribute("XResolution"), 72.0f);
    for (std::size_t i = 0; i < buffers[0].pixels.size(); ++i)
        buffers[0].pixels[i] = static_cast<float>(i * 7919 % 101) / 100.0f;
    std::vector<std::uintmax_t> sizes;
    for (const int quality : {10, 100}) {
        buffers[0].desc.quality = quality;
        const std::string jpg = (folder / "quality.jpg").string();
        stage::write_picture({jpg, "jpg", {&buffers[0]}});
        sizes.push_back(fs::file_size(jpg));
    }
    EXPECT_LT(sizes[0], sizes[1]);
}

} // namespace
