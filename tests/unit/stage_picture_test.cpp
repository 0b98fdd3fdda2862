// Picture files, read back with the image library.
#include <OpenImageIO/imageio.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
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
    // The main image and depth, 3 by 2.
    static std::vector<FrameBuffer> make() {
        stage::FramebufferDesc descs[2];
        descs[0].primary = true;
        descs[0].name = "main";
        descs[0].datatype = "rgba";
        descs[1].name = "depth";
        descs[1].datatype = "z";
        return stage::make_framebuffers(descs, 3, 2, {});
    }
    // The picture of all buffers (PNG takes the first alone).
    static stage::Picture picture(const fs::path& path, const std::vector<FrameBuffer>& buffers) {
        return stage::pictures_of(buffers, std::vector{path.string()}, "").front();
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
    stage::write_picture(picture(base / "display.png", buffers));
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1); // as it is in the file
    const auto input = OIIO::ImageInput::open((base / "display.png").string(), &config);
    ASSERT_TRUE(input) << OIIO::geterror();
    std::vector<std::uint8_t> bytes(3 * 2 * 4);
    ASSERT_TRUE(input->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, bytes.data()));
    const std::vector<std::uint8_t> expected = {
        118, 7,   255, 255,                          // opaque
        188, 255, 137, 128,                          // half covered: 0.5, 1 and 0.25 in front
        255, 0,   118, 255,                          // brighter than covered: alpha is raised to 1
        0,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 0}; // the lower row
    EXPECT_EQ(bytes, expected);
}

TEST_F(StagePicture, AFailureNamesThePathAndLeavesNothingHalfWritten) {
    const auto buffers = make();
    std::ofstream(base / "old.tga") << "precious";
    fs::create_directories(base / "taken.png" / "inside");
    for (const char* name :
         {"missing/a.png", "missing/a.exr", "old.tga/a.png", "old.tga", "none", "taken.png"}) {
        const stage::Picture bad = picture(base / name, buffers);
        const auto names_it = testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(bad.path));
        EXPECT_THAT([&] { stage::check_picture_path(bad.path); }, names_it);
        EXPECT_THAT([&] { stage::write_picture(bad); }, names_it);
    }
    // A disk that is full while the file is being written.
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{100, limit.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_THROW(stage::write_picture(picture(base / "full.exr", buffers)), std::runtime_error);
    setrlimit(RLIMIT_FSIZE, &limit);
    std::string text;
    std::ifstream(base / "old.tga") >> text;
    EXPECT_EQ(text, "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(base), fs::directory_iterator()), 2);
}

TEST_F(StagePicture, AFrameWritesWhatIsAskedForOrElseWhatTheBuffersNameOrElseTheDefault) {
    auto buffers = make();
    const auto listed = [&](const std::vector<std::string>& outputs) {
        std::string list;
        for (const auto& p : stage::pictures_of(buffers, outputs, "scene.png"))
            list += p.path + ":" + p.format + ":" + std::to_string(p.buffers.size()) + " ";
        return list;
    };
    EXPECT_EQ(listed({}), "scene.png:png:2 ");
    buffers[0].desc.filename = "main.data";
    buffers[0].desc.filetype = "exr";
    buffers[1].desc.filename = "depth.EXR";
    buffers[1].desc.filetype = "zt"; // not one that can be written: the ending decides
    EXPECT_EQ(listed({}), "main.data:exr:2 depth.EXR:exr:1 ");
    EXPECT_EQ(listed({"a.png", "b.exr"}), "a.png:png:2 b.exr:exr:2 ");
}

} // namespace
