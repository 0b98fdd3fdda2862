// Images of the scripted renderer and filters over them, for the tests of image filters.
#pragma once

#include "bmm_filter.h"
#include "geoshader.h"
#include "kit/image.h"
#include "shader_fixture.h"

#include <cstdint>
#include <random>

// Functions that read images get them from memory.
inline void read_images(scripted::Renderer& renderer) {
    renderer.mi_img_get_color = [](miImg_image* image, miColor* color, int x, int y) {
        *color = stage::image_color(image, x, y);
    };
    renderer.mi_img_get_width = [](miImg_image* image) { return image->width; };
    renderer.mi_img_get_height = [](miImg_image* image) { return image->height; };
}

// One image with its filter. The constructor makes the levels.
struct Filter {
    orl::BitmapFilter* filter;

    Filter(scripted::Renderer& renderer, stage::ImageMemory& memory, bool tiles = true, float gamma = 1)
        : filter(orl::create_filter(nullptr, renderer.add(miSCENE_IMAGE, memory.image()), gamma, tiles)) {
        look_up(0, 0);
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() { orl::destroy_filter(filter); }

    miColor look_up(float u, float v, float du = 0, float dv = 0) const {
        miColor color{-1, -1, -1, -1};
        EXPECT_TRUE(orl::look_up(&color, nullptr, filter, u, v, du, dv));
        return color;
    }
    // A component of a texel, 1 for the largest of fixed point.
    double texel(int level, int x, int y, int component = 0) const {
        const orl::FilterLevel found = orl::filter_level(filter, level);
        const int i = 4 * (y * found.width + x) + component;
        return found.bits == 8    ? static_cast<const std::uint8_t*>(found.texels)[i] / 255.0
               : found.bits == 16 ? static_cast<const std::uint16_t*>(found.texels)[i] / 65535.0
                                  : static_cast<double>(static_cast<const float*>(found.texels)[i]);
    }
};

class ImageFilterTest : public ShaderTest {
protected:
    ImageFilterTest() {
        read_images(renderer);
        renderer.mi_img_pyramid_get_level = stage::image_level;
    }

    // Every filter gives back what it took.
    ~ImageFilterTest() override {
        const scripted::Resources after = scripted::Renderer::resources();
        EXPECT_EQ(after.live_blocks, before_.live_blocks);
        EXPECT_EQ(after.bad_releases, before_.bad_releases);
        EXPECT_EQ(after.live_locks, before_.live_locks);
        EXPECT_EQ(renderer.pins(), 0);
        EXPECT_EQ(renderer.bad_accesses(), 0);
    }

private:
    const scripted::Resources before_ = scripted::Renderer::resources();
};

// Pixels by a function of x and y.
template <class Color> stage::ImageMemory make_image(int width, int height, miImg_type type, Color color) {
    stage::ImageMemory memory(width, height, type);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            stage::put_image_color(memory.image(), color(x, y), x, y);
    return memory;
}

inline stage::ImageMemory noise_image(int width, int height, miImg_type type, float largest = 1.0f) {
    std::mt19937 random(7);
    const auto number = [&] { return largest * static_cast<float>(random() >> 8) * 0x1p-24f; };
    return make_image(width, height, type, [&](int, int) {
        return miColor{number(), number(), number(), number()};
    });
}
