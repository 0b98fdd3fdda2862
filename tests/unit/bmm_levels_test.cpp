// Levels of image filters beside those of another library.
#include "image_filter_fixture.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <array>
#include <cmath>

namespace {

using Levels = ImageFilterTest;

// Each level is the mean of 2 x 2 texels of the one before: half of it through a box filter of two texels. It
// rounds down, the library to the nearest.
TEST_F(Levels, AreHalvesOfTheOneBeforeThroughABoxFilter) {
    constexpr int width = 128, height = 64;
    stage::ImageMemory image = noise_image(width, height, miIMG_TYPE_RGBA);
    const Filter filter(renderer, image);
    ASSERT_EQ(orl::level_count(filter.filter), 7); // until the height is 1
    OIIO::ImageBuf finer(OIIO::ImageSpec(width, height, 4, OIIO::TypeDesc::UINT8));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const miColor color = stage::image_color(image.image(), x, y);
            finer.setpixel(x, y, &color.r, 4);
        }
    for (int n = 1; n < 7; ++n) {
        const OIIO::ROI size(0, width >> n, 0, height >> n, 0, 1, 0, 4);
        const OIIO::ImageBuf box = OIIO::ImageBufAlgo::resize(finer, "box", 0.0f, size);
        const orl::FilterLevel level = orl::filter_level(filter.filter, n);
        ASSERT_EQ((std::array{level.width, level.height, level.bits}),
                  (std::array{width >> n, height >> n, 8}));
        finer = OIIO::ImageBuf(OIIO::ImageSpec(level.width, level.height, 4, OIIO::TypeDesc::UINT8),
                               level.texels);
        for (int y = 0; y < level.height; ++y)
            for (int x = 0; x < level.width; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_NEAR(filter.texel(n, x, y, c), std::round(255.0f * box.getchannel(x, y, 0, c)), 1)
                        << "level " << n << " at " << x << ", " << y;
    }
}

} // namespace
