// Colour profiles: how the numbers of a picture lead to the linear colours that the renderer computes in, and
// back.
#pragma once

#include <array>

#include "shader.h"

namespace stage {

// CIE 1931 chromaticity coordinates.
struct Chromaticity {
    double x, y;
};

// The renderer computes in the primaries of ITU-R BT.709-6 (2015), with white D65.
inline constexpr std::array<Chromaticity, 3> render_primaries{{{0.64, 0.33}, {0.30, 0.60}, {0.15, 0.06}}};
inline constexpr Chromaticity render_white{0.3127, 0.3290};

using Matrix3 =
    std::array<double, 9>; // rows one after another, for columns of red, green, blue or of X, Y, Z

// Linear components to CIE 1931 XYZ, so that all of them at 1 give white with Y = 1. Not finite when the
// primaries lie on a line.
[[nodiscard]] Matrix3 ciexyz_of_primaries(const std::array<Chromaticity, 3>& primaries, Chromaticity white);

// What a `colorprofile` says: the record of its element. Without any statement, the render space.
struct ColorProfile {
    std::array<Chromaticity, 3> primaries = render_primaries;
    Chromaticity white = render_white;
    bool has_matrix = false; // in place of the primaries
    Matrix3 matrix{};        // linear components to CIE XYZ
    double gamma = 1.0;      // linear component = stored component to this power; 0: the curve of sRGB

    Matrix3 to_render{}, from_render{}; // of linear components; made by settle()

    // Makes the matrices. A white of its own becomes the white of the render space, by the Bradford transform
    // (K. M. Lam, "Metamerism and colour constancy", 1985). False when the statements give no matrix that has
    // an inverse.
    [[nodiscard]] bool settle();

    // A stored colour in the render space, and back. Negative components go through the curve as positive
    // ones do; alpha stays.
    [[nodiscard]] miColor decoded(const miColor& stored) const;
    [[nodiscard]] miColor encoded(const miColor& color) const;
};

} // namespace stage
