// Pixels of the interface's image records: 8 or 16 bit fixed point or 32 bit float, one to four components,
// each scanline of each component on its own.
//
// Components: 1 is a scalar (grey, alpha 1) or, for the alpha types, coverage (all four); 2 is grey and
// alpha; 3 is red, green, blue with alpha 1; 4 has all. Fixed point spans 0 to 1.
#pragma once

#include <cstddef>
#include <vector>

#include "shader.h"

namespace stage {

// Transparent black for a null image, a place outside of it or an unknown layout.
[[nodiscard]] miColor image_color(const miImg_image* image, int x, int y);

// Clamps to what the image can hold; does nothing where image_color gives transparent black. Grey images
// get the luminance.
void put_image_color(miImg_image* image, const miColor& color, int x, int y);

// Level 0 is the image itself; null for levels that it does not have.
[[nodiscard]] miImg_image* image_level(miImg_image* image, int level);

// Memory for an image and, on request, its pyramid, each level half the size of the one before (rounded
// down, at least 1). Pixels are 0.
class ImageMemory {
public:
    ImageMemory(int width, int height, miImg_type type, int levels = 1);

    [[nodiscard]] miImg_image* image() { return reinterpret_cast<miImg_image*>(memory_.data()); }

private:
    std::vector<std::byte> memory_; // operator new aligns it for every member of the record
};

} // namespace stage
