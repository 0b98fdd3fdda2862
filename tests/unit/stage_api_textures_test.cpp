// Texture lookups and image files.
#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "image/texture.h"
#include "kit/image.h"
#include "stage_api_scene.h"
#include "test_paths.h"

namespace {

using namespace stage_test;

// Writes a picture whose rows are given from the top, as files have them.
template <class Sample>
std::string write(const std::string& name, int width, int height, int channels,
                  const std::vector<Sample>& pixels) {
    const std::string path = std::string(orl_test_output_dir) + "/api_" + name;
    const auto output = OIIO::ImageOutput::create(path);
    OIIO::ImageSpec spec(width, height, channels, OIIO::BaseTypeFromC<Sample>::value);
    spec["oiio:UnassociatedAlpha"] = 1;
    if (!output || !output->open(path, spec) || !output->write_image(spec.format, pixels.data()) ||
        !output->close())
        throw std::runtime_error("cannot write " + path);
    return path;
}

stage::Element& add_image(Stage& stage, const std::string& file, bool filter = false) {
    stage.parse((filter ? "filter color texture \"" : "color texture \"") + file + "\" \"" + file + "\"");
    return stage[file];
}

miColor look(Stage& stage, const stage::Element& image, float u, float v, miBoolean found = miTRUE) {
    miVector coord = {u, v, 0};
    miColor c = {-1, -1, -1, -1};
    EXPECT_EQ(mi_lookup_color_texture(&c, &stage.state, image.tag, &coord), found);
    return c;
}

// Top row: black, green. Bottom row: red, blue.
std::string four() {
    return write("four.png", 2, 2, 3, std::vector<unsigned char>{0, 0, 0, 0, 200, 0, 100, 0, 0, 0, 0, 255});
}

TEST(Texture, LookupsAtCentresBordersAndBeyond) {
    Stage stage;
    const stage::Element& image = add_image(stage, four());
    const float red = 100 / 255.0f, green = 200 / 255.0f;
    const struct {
        float u, v;
        miColor expected;
    } cases[] = {
        {0.25f, 0.25f, {red, 0, 0, 1}}, // rows run up
        {0.75f, 0.25f, {0, 0, 1, 1}},
        {0.25f, 0.75f, {0, 0, 0, 1}},
        {0.75f, 0.75f, {0, green, 0, 1}},
        {0.5f, 0.25f, {red / 2, 0, 0.5f, 1}},
        {0.5f, 0.5f, {red / 4, green / 4, 0.25f, 1}},
        {0.0f, 0.25f, {red / 2, 0, 0.5f, 1}}, // the picture repeats: half-way between its outer columns
        {0.75f, 0.0f, {0, green / 2, 0.5f, 1}},
        {3.75f, 0.25f, {0, 0, 1, 1}}, // the integer part is dropped
        {-7.25f, -0.75f, {0, 0, 1, 1}},
        {-1e-9f, 0.25f, {red / 2, 0, 0.5f, 1}}, // the fraction rounds to 1
    };
    for (const auto& test : cases)
        expect_color(look(stage, image, test.u, test.v), test.expected, 1e-6, std::to_string(test.u));
    EXPECT_TRUE(std::isfinite(look(stage, image, NAN, INFINITY).r)); // must not leave the image
    EXPECT_TRUE(std::isfinite(look(stage, image, 3e38f, -3e38f).r));
}

TEST(Texture, FormatsKeepTheirValues) {
    Stage stage;
    using Bytes = std::vector<unsigned char>;
    const std::pair<std::string, miColor> cases[] = {
        {write("grey.png", 1, 1, 1, Bytes{51}), {0.2f, 0.2f, 0.2f, 1}},
        {write("grey_alpha.png", 1, 1, 2, Bytes{51, 102}), {0.2f, 0.2f, 0.2f, 0.4f}},
        {write("rgba.png", 1, 1, 4, Bytes{255, 51, 0, 102}), {1, 0.2f, 0, 0.4f}}, // not multiplied by alpha
        {write("word.png", 1, 1, 3, std::vector<unsigned short>{65535, 257, 13107}),
         {1, 257 / 65535.0f, 0.2f, 1}},
        {write("float.exr", 1, 1, 3, std::vector<float>{-2.5f, 1000.0f, 0.125f}),
         {-2.5f, 1000.0f, 0.125f, 1}},
    };
    for (const auto& [file, expected] : cases)
        expect_color(look(stage, add_image(stage, file), 0.5f, 0.5f), expected, 1e-6, file);
}

TEST(Texture, PyramidLevelsAreMeans) {
    Stage stage;
    std::vector<float> pixels(7 * 5);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<float>((i * 37) % 35); // 0 to 34, each once: 17 in the mean
    stage::Image& image = stage::image_of(add_image(stage, write("odd.exr", 7, 5, 1, pixels), true));
    ASSERT_EQ(image.levels(), 3); // 7x5, 3x2, 1x1
    const miImg_image* small = mi_img_pyramid_get_level(image.record(), 1);
    EXPECT_EQ((std::array{small->width, small->height}), (std::array{3, 2}));
    // Pixel (0, 0) of the 3x2 level covers 7/3 x 5/2 pixels from the lower left corner.
    double sum = 0;
    const double across[3] = {1, 1, 1.0 / 3}, up[3] = {1, 1, 0.5};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            sum += across[x] * up[y] * static_cast<double>(pixels[static_cast<std::size_t>((4 - y) * 7 + x)]);
    EXPECT_NEAR(stage::image_color(small, 0, 0).r, sum / (7.0 / 3 * 2.5), 1e-4);
    EXPECT_NEAR(image.lookup(0.9f, 0.1f, 50.0f).r, 17, 1e-4) << "beyond the last level";
    const float fine = image.lookup(0.4f, 0.3f, 1.0f).r, coarse = image.lookup(0.4f, 0.3f, 2.0f).r;
    EXPECT_NEAR(image.lookup(0.4f, 0.3f, 1.25f).r, 0.75f * fine + 0.25f * coarse, 1e-4f);
    EXPECT_EQ(mi_img_pyramid_get_level(image.record(), 3), nullptr);
}

TEST(Texture, ABrokenFileIsNamedOnceAndBlack) {
    Stage stage;
    const Told told;
    // A format whose library does not leave its own strings behind when it gives up in the middle.
    const std::string broken = write("broken.exr", 2, 2, 1, std::vector<float>{1, 2, 3, 4});
    ASSERT_EQ(truncate(broken.c_str(), 20), 0);
    const stage::Element& e = add_image(stage, broken);
    for (int i = 0; i < 3; ++i)
        expect_color(look(stage, e, 0, 0, miFALSE), {0, 0, 0, 1}, 0.0);
    EXPECT_THAT(told.text, testing::AllOf(testing::HasSubstr("scene.mi:1"), testing::HasSubstr(broken)));
    EXPECT_EQ(std::ranges::count(told.text, '\n'), 1);
    int width;
    EXPECT_FALSE(mi_query(miQ_IMAGE_WIDTH, &stage.state, e.tag, &width));
}

} // namespace
