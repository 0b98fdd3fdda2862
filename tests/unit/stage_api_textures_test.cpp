// Texture lookups and image files.
#include <OpenImageIO/imageio.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "image/texture.h"
#include "kit/image.h"
#include "kit/message.h"
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
    if (!output)
        throw std::runtime_error(OIIO::geterror());
    OIIO::ImageSpec spec(width, height, channels, OIIO::BaseTypeFromC<Sample>::value);
    spec["oiio:UnassociatedAlpha"] = 1;
    if (!output->open(path, spec) || !output->write_image(spec.format, pixels.data()) || !output->close())
        throw std::runtime_error(output->geterror());
    return path;
}

stage::Element& add_image(Stage& stage, const std::string& file, bool filter = false) {
    stage::Element& e = stage.add(miSCENE_IMAGE, "picture", sizeof(miImg_image));
    e.file = file;
    e.as<miImg_image>()->filter = filter;
    return e;
}

miColor look(Stage& stage, const stage::Element& image, float u, float v) {
    miVector coord = {u, v, 0};
    miColor c = {-1, -1, -1, -1};
    EXPECT_TRUE(mi_lookup_color_texture(&c, &stage.state, image.tag, &coord));
    return c;
}

void expect_color(const miColor& got, const miColor& want, float tolerance, const std::string& what) {
    EXPECT_NEAR(got.r, want.r, tolerance) << what;
    EXPECT_NEAR(got.g, want.g, tolerance) << what;
    EXPECT_NEAR(got.b, want.b, tolerance) << what;
    EXPECT_NEAR(got.a, want.a, tolerance) << what;
}

// Top row: black, green. Bottom row: red, blue.
const std::vector<unsigned char> four = {0, 0, 0, 0, 200, 0, 100, 0, 0, 0, 0, 255};

TEST(Texture, CentresAreExactAndRowsRunUp) {
    Stage stage(false);
    const stage::Element& image = add_image(stage, write("four.png", 2, 2, 3, four));
    expect_color(look(stage, image, 0.25f, 0.25f), {100 / 255.0f, 0, 0, 1}, 1e-6f, "lower left");
    expect_color(look(stage, image, 0.75f, 0.25f), {0, 0, 1, 1}, 1e-6f, "lower right");
    expect_color(look(stage, image, 0.25f, 0.75f), {0, 0, 0, 1}, 1e-6f, "upper left");
    expect_color(look(stage, image, 0.75f, 0.75f), {0, 200 / 255.0f, 0, 1}, 1e-6f, "upper right");
    expect_color(look(stage, image, 0.5f, 0.25f), {50 / 255.0f, 0, 0.5f, 1}, 1e-6f, "between two");
    expect_color(look(stage, image, 0.5f, 0.5f), {25 / 255.0f, 50 / 255.0f, 0.25f, 1}, 1e-6f, "between all");
    // The picture repeats: its border lies half-way between its outer columns.
    expect_color(look(stage, image, 0.0f, 0.25f), {50 / 255.0f, 0, 0.5f, 1}, 1e-6f, "left border");
    expect_color(look(stage, image, 0.75f, 0.0f), {0, 100 / 255.0f, 0.5f, 1}, 1e-6f, "lower border");
}

TEST(Texture, TheIntegerPartIsDropped) {
    Stage stage(false);
    const stage::Element& image = add_image(stage, write("four.png", 2, 2, 3, four));
    for (const auto& [u, v] : {std::pair{0.75f, 0.25f}, {3.75f, 0.25f}, {-0.25f, -0.75f}, {-7.25f, 5.25f}})
        expect_color(look(stage, image, u, v), {0, 0, 1, 1}, 1e-5f, std::to_string(u));
    // Just below 0 the fraction rounds to 1; a coordinate that is no number must not leave the image.
    expect_color(look(stage, image, -1e-9f, 0.25f), {50 / 255.0f, 0, 0.5f, 1}, 1e-6f, "just below 0");
    EXPECT_TRUE(std::isfinite(look(stage, image, NAN, INFINITY).r));
    EXPECT_TRUE(std::isfinite(look(stage, image, 3e38f, -3e38f).r));
}

TEST(Texture, FormatsKeepTheirValues) {
    Stage stage(false);
    const auto single = [&](const std::string& file) {
        return look(stage, add_image(stage, file), 0.5f, 0.5f);
    };
    using Bytes = std::vector<unsigned char>;
    expect_color(single(write("grey.png", 1, 1, 1, Bytes{51})), {0.2f, 0.2f, 0.2f, 1}, 1e-6f, "grey");
    expect_color(single(write("grey_alpha.png", 1, 1, 2, Bytes{51, 102})), {0.2f, 0.2f, 0.2f, 0.4f}, 1e-6f,
                 "grey with alpha");
    expect_color(single(write("rgba.png", 1, 1, 4, Bytes{255, 51, 0, 102})), {1, 0.2f, 0, 0.4f}, 1e-6f,
                 "colour is not multiplied by alpha");
    expect_color(single(write("word.png", 1, 1, 3, std::vector<unsigned short>{65535, 257, 13107})),
                 {1, 257 / 65535.0f, 0.2f, 1}, 1e-7f, "16 bit");
    expect_color(single(write("float.exr", 1, 1, 3, std::vector<float>{-2.5f, 1000.0f, 0.125f})),
                 {-2.5f, 1000.0f, 0.125f, 1}, 0.0f, "float");
}

TEST(Texture, TheRecordGivesThePixels) {
    Stage stage(false);
    stage::Element& image = add_image(stage, write("four.png", 2, 2, 3, four));
    auto* record = static_cast<miImg_image*>(mi_db_access(image.tag));
    EXPECT_EQ(mi_img_get_width(record), 2);
    EXPECT_EQ(mi_img_get_height(record), 2);
    EXPECT_EQ(record->bits, 8);
    EXPECT_EQ(record->comp, 3);
    // The green component of the upper row, by the list of scanlines.
    miIntptr offset;
    std::memcpy(&offset, reinterpret_cast<char*>(record) + offsetof(miImg_image, c) + 4 * sizeof offset,
                sizeof offset);
    EXPECT_EQ(*(reinterpret_cast<unsigned char*>(record) + offset + 1), 200);
    miColor c;
    mi_img_get_color(record, &c, 1, 1);
    EXPECT_FLOAT_EQ(c.g, 200 / 255.0f);
    miColor yellow = {1, 1, 0, 1};
    mi_img_put_color(record, &yellow, 0, 0);
    mi_img_get_color(record, &c, 0, 0);
    expect_color(c, yellow, 0.0f, "round trip");
    mi_db_unpin(image.tag);
    int width = 0, height = 0;
    EXPECT_TRUE(mi_query(miQ_IMAGE_WIDTH, &stage.state, image.tag, &width));
    EXPECT_TRUE(mi_query(miQ_IMAGE_HEIGHT, &stage.state, image.tag, &height));
    EXPECT_EQ(width * 10 + height, 22);
}

TEST(Texture, PyramidLevelsAreMeans) {
    Stage stage(false);
    std::vector<float> pixels(7 * 5);
    double mean = 0;
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<float>((i * 37) % 35);
        mean += static_cast<double>(pixels[i]) / 35;
    }
    stage::Element& element = add_image(stage, write("odd.exr", 7, 5, 1, pixels), true);
    stage::Image& image = stage::image_of(element);
    ASSERT_EQ(image.levels(), 3); // 7x5, 3x2, 1x1
    const miImg_image* small = mi_img_pyramid_get_level(image.record(), 1);
    EXPECT_EQ(small->width, 3);
    EXPECT_EQ(small->height, 2);
    // Pixel (0, 0) of the 3x2 level covers 7/3 x 5/2 pixels from the lower left corner.
    double sum = 0;
    const double across[3] = {1, 1, 1.0 / 3}, up[3] = {1, 1, 0.5};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            sum += across[x] * up[y] * static_cast<double>(pixels[static_cast<std::size_t>((4 - y) * 7 + x)]);
    EXPECT_NEAR(stage::image_color(small, 0, 0).r, sum / (7.0 / 3 * 2.5), 1e-4);
    EXPECT_NEAR(image.lookup(0.9f, 0.1f, 2.0f).r, mean, 1e-4);
    EXPECT_NEAR(image.lookup(0.9f, 0.1f, 50.0f).r, mean, 1e-4) << "beyond the last level";
    const float fine = image.lookup(0.4f, 0.3f, 1.0f).r, coarse = image.lookup(0.4f, 0.3f, 2.0f).r;
    EXPECT_NEAR(image.lookup(0.4f, 0.3f, 1.25f).r, 0.75f * fine + 0.25f * coarse, 1e-4f);
    EXPECT_EQ(mi_img_pyramid_get_level(image.record(), 3), nullptr);
}

// From far enough away a pixel sees the whole picture.
TEST(Texture, AFilteredLookupFollowsTheDistance) {
    Stage stage(false);
    std::vector<unsigned char> checks;
    for (int i = 0; i < 64 * 64; ++i)
        checks.push_back((i + i / 64) % 2 ? 255 : 0);
    const stage::Element& image = add_image(stage, write("checks.png", 64, 64, 1, checks), true);
    stage.state.dist = 1e-3;
    EXPECT_NEAR(look(stage, image, 0.5f / 64, 0.5f / 64).r, 1.0f, 1e-6f); // (0, 63) from the top: odd
    stage.state.dist = 1e4;
    EXPECT_NEAR(look(stage, image, 0.5f / 64, 0.5f / 64).r, 0.5f, 3e-3f);
}

TEST(Texture, PixelsOfTheSceneItself) {
    Stage stage(false);
    stage::ImageMemory memory(2, 1, miIMG_TYPE_RGB);
    miColor white = {1, 1, 1, 1};
    mi_img_put_color(memory.image(), &white, 1, 0);
    stage::Element& e = stage.add(miSCENE_IMAGE, "bytes", sizeof(miImg_image));
    e.record = memory.image();
    expect_color(look(stage, e, 0.5f, 0.0f), {0.5f, 0.5f, 0.5f, 1}, 1e-6f, "between black and white");
}

TEST(Texture, AMissingFileIsNamedOnceAndBlack) {
    Stage stage(false);
    std::vector<std::string> messages;
    stage::set_message_sink([&](stage::MessageLevel, std::string_view text) { messages.emplace_back(text); });
    // A format whose library does not leave its own strings behind when it gives up in the middle.
    const std::string broken = write("broken.exr", 2, 2, 1, std::vector<float>{1, 2, 3, 4});
    ASSERT_EQ(truncate(broken.c_str(), 20), 0);
    for (const std::string& file : {std::string("/no/such/file.png"), broken}) {
        stage::Element& e = add_image(stage, file);
        e.place.file = std::make_shared<std::string>("scene.mi");
        e.place.line = 12;
        messages.clear();
        for (int i = 0; i < 3; ++i) {
            miColor c = {1, 1, 1, 1};
            miVector coord = {};
            EXPECT_FALSE(mi_lookup_color_texture(&c, &stage.state, e.tag, &coord));
            expect_color(c, {0, 0, 0, 1}, 0.0f, file);
        }
        ASSERT_EQ(messages.size(), 1u) << file;
        EXPECT_NE(messages[0].find("\"picture\""), std::string::npos) << messages[0];
        EXPECT_NE(messages[0].find("scene.mi:12"), std::string::npos) << messages[0];
        EXPECT_NE(messages[0].find(file), std::string::npos) << messages[0];
        EXPECT_NE(mi_db_access(e.tag), nullptr);
        int width;
        EXPECT_FALSE(mi_query(miQ_IMAGE_WIDTH, &stage.state, e.tag, &width));
    }
    stage::set_message_sink(nullptr);
}

// A texture shader of the test: the coordinate, scaled, in the type of its result.
template <class Result> miBoolean coordinate_shader(void* result, miState* state, void*, void*) {
    static_assert(sizeof(Result) <= sizeof(miColor));
    const miColor value = {state->tex.x, 2 * state->tex.y, state->tex.z, 0.5f};
    std::memcpy(result, &value, sizeof(Result));
    return state->tex.x > 0 ? miTRUE : miFALSE;
}

TEST(Texture, AShaderStandsInForAnImage) {
    Stage stage(false);
    struct Row {
        miParam_type type;
        std::size_t size;
        stage::ShaderEntry entry;
        float scalar;
        miVector vector;
    };
    const Row rows[] = {
        {miTYPE_COLOR, sizeof(miColor), coordinate_shader<miColor>, 3.0f, {1, 4, 4}},
        {miTYPE_VECTOR, sizeof(miVector), coordinate_shader<miVector>, 3.0f, {1, 4, 4}},
        {miTYPE_SCALAR, sizeof(miScalar), coordinate_shader<miScalar>, 1.0f, {1, 1, 1}},
    };
    for (const Row& row : rows) {
        stage::Declaration declaration;
        declaration.result.type = row.type;
        declaration.result.size = static_cast<std::uint32_t>(row.size);
        stage::ShaderCode code;
        code.entry = row.entry;
        stage::Element& e = stage.add(miSCENE_FUNCTION, "map", sizeof(miFunction));
        e.shader = std::make_unique<stage::ShaderInstance>();
        e.shader->declaration = &declaration;
        e.shader->code = &code;

        stage.state.tex = {7, 8, 9};
        miVector coord = {1, 2, 4};
        miScalar scalar = 0;
        EXPECT_TRUE(mi_lookup_scalar_texture(&scalar, &stage.state, e.tag, &coord));
        EXPECT_FLOAT_EQ(scalar, row.scalar);
        miVector vector{};
        EXPECT_TRUE(mi_lookup_vector_texture(&vector, &stage.state, e.tag, &coord));
        expect_near(vector, {row.vector.x, row.vector.y, row.vector.z}, 0, "vector");
        EXPECT_EQ(stage.state.tex.y, 8.0f) << "the caller's coordinate is put back";
        miColor color{};
        miVector failing = {-1, 2, 4};
        EXPECT_FALSE(mi_lookup_color_texture(&color, &stage.state, e.tag, &failing))
            << "the shader's own answer";
        EXPECT_EQ(color.r, -1.0f);
    }
    miColor color{};
    miVector coord{};
    EXPECT_FALSE(mi_lookup_color_texture(&color, &stage.state, miNULLTAG, &coord));
    EXPECT_FALSE(mi_lookup_color_texture(&color, &stage.state, stage.object->tag, &coord));
}

} // namespace
