// Picture files, read back with the image library.
#include <OpenImageIO/imageio.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "image/picture_file.h"
#include "test_paths.h"

namespace {

namespace fs = std::filesystem;
using stage::FrameBuffer;

class StagePicture : public testing::Test {
protected:
    StagePicture() {
        fs::remove_all(base);
        fs::create_directories(base);
    }
    // One image, 3 by 2.
    static std::vector<FrameBuffer> make() {
        stage::FramebufferDesc desc;
        desc.primary = true;
        desc.name = "main";
        desc.datatype = "rgba";
        return stage::make_framebuffers({&desc, 1}, 3, 2, {});
    }
    static void write(const fs::path& path, const std::vector<FrameBuffer>& buffers) {
        const FrameBuffer* const pointer = &buffers[0];
        stage::write_picture(path.string(), {&pointer, 1});
    }
    const fs::path base = fs::path(orl_test_output_dir) / "stage_picture";
};

// sRGB of 0.18 is 1.055 * 0.18^(1/2.4) - 0.055 = 0.4614, times 255 117.6; of 0.002 it is 12.92 * 0.002,
// times 255 6.59; of 0.5 it is 0.7354, times 255 187.5 (187.516).
TEST_F(StagePicture, PngIsDisplayReferredWithStraightAlpha) {
    auto buffers = make();
    const float top[3][4] = {
        {0.18f, 0.002f, 1.0f, 1.0f}, {0.25f, 0.5f, 0.125f, 0.5f}, {7.0f, -1.0f, 0.18f, 0.0f}};
    for (int x = 0; x < 3; ++x)
        std::copy_n(top[x], 4, buffers[0].pixel(x, 1).begin());
    write(base / "display.png", buffers);
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1); // as it is in the file
    const auto input = OIIO::ImageInput::open((base / "display.png").string(), &config);
    ASSERT_TRUE(input) << OIIO::geterror();
    std::vector<std::uint8_t> bytes(3 * 2 * 4);
    ASSERT_TRUE(input->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, bytes.data()));
    const std::vector<std::uint8_t> expected = {118, 7,   255, 255, // opaque
                                                188, 255, 137, 128, // half covered: 0.5, 1 and 0.25 in front
                                                255, 0,   118, 0,   // nothing to divide by: as it is, clipped
                                                0,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 0}; // the lower row
    EXPECT_EQ(bytes, expected);
}

TEST_F(StagePicture, AFailureNamesThePathAndLeavesNothingHalfWritten) {
    const auto buffers = make();
    std::ofstream(base / "old.tga") << "precious";
    fs::create_directories(base / "taken.png" / "inside");
    for (const char* name : {"missing/a.png", "missing/a.exr", "old.tga", "none", "taken.png"})
        EXPECT_THAT([&] { write(base / name, buffers); },
                    testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr((base / name).string())));
    std::string text;
    std::ifstream(base / "old.tga") >> text;
    EXPECT_EQ(text, "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(base), fs::directory_iterator()), 2);
}

} // namespace
