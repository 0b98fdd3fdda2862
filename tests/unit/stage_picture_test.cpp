// Picture files, read back with the image library.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <fstream>
#include <vector>

#include "image/picture_file.h"
#include "test_paths.h"

namespace {

namespace fs = std::filesystem;
using stage::FrameBuffer;
using stage::FramebufferDesc;

FramebufferDesc desc(const char* name, const char* type, bool primary = false) {
    FramebufferDesc d;
    d.name = name;
    d.datatype = type;
    d.primary = primary;
    return d;
}

// An own folder for each test.
fs::path folder() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const fs::path path = fs::path(orl_test_output_dir) / "stage_picture" / test->name();
    fs::remove_all(path);
    fs::create_directories(path);
    return path;
}

std::vector<const FrameBuffer*> pointers(const std::vector<FrameBuffer>& buffers) {
    std::vector<const FrameBuffer*> result;
    for (const FrameBuffer& buffer : buffers)
        result.push_back(&buffer);
    return result;
}

TEST(StagePicture, EveryBufferIsALayerOfAnExr) {
    const FramebufferDesc descs[] = {desc("main", "rgba", true), desc("depth", "z"), desc("id", "tag"),
                                     desc("speed", "m"), desc("light", "rgb_fp")};
    auto buffers = stage::make_framebuffers(descs, 2, 3, {});
    buffers[0].pixel(1, 2)[0] = 0.25f;
    buffers[0].pixel(1, 2)[3] = 1e9f; // beyond a half
    buffers[1].pixel(0, 0)[0] = 1234.567f;
    buffers[2].pixel(1, 0)[0] = std::bit_cast<float>(0x7FC00001u); // a tag whose bits are a NaN
    buffers[3].pixel(0, 1)[2] = -3.0f;
    buffers[4].pixel(1, 1)[1] = 100000.5f;
    const std::string path = (folder() / "layers.exr").string();
    stage::write_picture(path, pointers(buffers), {}, "piz");

    const auto input = OIIO::ImageInput::open(path);
    ASSERT_TRUE(input) << OIIO::geterror();
    const OIIO::ImageSpec& spec = input->spec();
    EXPECT_EQ(spec.get_string_attribute("compression"), "piz");
    const auto value = [&](const std::string& channel, int x, int y) { // y from the bottom
        const int c = spec.channelindex(channel);
        EXPECT_GE(c, 0) << channel;
        std::vector<float> pixels(6);
        EXPECT_TRUE(input->read_image(0, 0, c, c + 1, OIIO::TypeDesc::FLOAT, pixels.data()));
        return pixels[static_cast<std::size_t>((2 - y) * 2 + x)];
    };
    EXPECT_EQ(spec.nchannels, 4 + 1 + 1 + 3 + 3);
    EXPECT_EQ(value("R", 1, 2), 0.25f);
    EXPECT_EQ(value("R", 1, 1), 0.0f);
    EXPECT_EQ(value("A", 1, 2), 65504.0f);
    EXPECT_EQ(value("depth", 0, 0), 1234.567f);
    EXPECT_EQ(value("speed.Z", 0, 1), -3.0f);
    EXPECT_EQ(value("light.G", 1, 1), 100000.5f);

    const int id = spec.channelindex("id");
    ASSERT_GE(id, 0);
    EXPECT_EQ(spec.channelformat(id), OIIO::TypeDesc(OIIO::TypeDesc::UINT32));
    std::vector<std::uint32_t> ids(6);
    ASSERT_TRUE(input->read_image(0, 0, id, id + 1, OIIO::TypeDesc::UINT32, ids.data()));
    EXPECT_EQ(ids[2 * 2 + 1], 0x7FC00001u);
}

// sRGB of 0.18 is 1.055 * 0.18^(1/2.4) - 0.055 = 0.4614, times 255 117.6; of 0.002 it is 12.92 * 0.002,
// times 255 6.59; of 0.5 it is 0.7354, times 255 187.5 (187.516).
TEST(StagePicture, PngIsDisplayReferredWithStraightAlpha) {
    const FramebufferDesc descs[] = {desc("main", "rgba", true)};
    auto buffers = stage::make_framebuffers(descs, 3, 2, {});
    const float top[3][4] = {
        {0.18f, 0.002f, 1.0f, 1.0f}, {0.25f, 0.5f, 0.125f, 0.5f}, {7.0f, -1.0f, 0.18f, 0.0f}};
    for (int x = 0; x < 3; ++x)
        std::copy_n(top[x], 4, buffers[0].pixel(x, 1).begin());
    const std::string path = (folder() / "display.png").string();
    stage::write_picture(path, pointers(buffers));

    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1); // as it is in the file
    const auto input = OIIO::ImageInput::open(path, &config);
    ASSERT_TRUE(input) << OIIO::geterror();
    ASSERT_EQ(input->spec().nchannels, 4);
    std::vector<std::uint8_t> bytes(3 * 2 * 4);
    ASSERT_TRUE(input->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, bytes.data()));
    const std::vector<std::uint8_t> expected = {118, 7,   255, 255, // opaque
                                                188, 255, 137, 128, // half covered: 0.5, 1 and 0.25 in front
                                                255, 0,   118, 0};  // nothing to divide by: as it is, clipped
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 12), expected);
    EXPECT_TRUE(std::all_of(bytes.begin() + 12, bytes.end(), [](std::uint8_t b) { return b == 0; }));
}

TEST(StagePicture, AFailureNamesThePathAndLeavesOldFilesAlone) {
    const FramebufferDesc descs[] = {desc("main", "rgba", true), desc("id", "tag")};
    const auto buffers = stage::make_framebuffers(descs, 2, 2, {});
    const fs::path base = folder();
    const fs::path old = base / "old.tga";
    std::ofstream(old) << "precious";
    const std::string paths[] = {(base / "missing" / "a.png").string(), (base / "missing" / "a.exr").string(),
                                 old.string(), (base / "none").string()};
    for (const std::string& path : paths) {
        try {
            stage::write_picture(path, pointers(buffers));
            ADD_FAILURE() << path << " was written";
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
        }
    }
    const FrameBuffer* id[] = {&buffers[1]};
    EXPECT_THROW(stage::write_picture((base / "id.png").string(), id), std::runtime_error);

    std::string text;
    std::ifstream(old) >> text;
    EXPECT_EQ(text, "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(base), fs::directory_iterator()),
              1); // nothing half written
}

TEST(StagePicture, AFolderInTheWayIsAnError) {
    const FramebufferDesc descs[] = {desc("main", "rgba", true)};
    const auto buffers = stage::make_framebuffers(descs, 2, 2, {});
    const fs::path base = folder();
    fs::create_directories(base / "taken.png" / "inside");
    EXPECT_THROW(stage::write_picture((base / "taken.png").string(), pointers(buffers)), std::runtime_error);
    EXPECT_EQ(std::distance(fs::directory_iterator(base), fs::directory_iterator()), 1);
}

} // namespace
