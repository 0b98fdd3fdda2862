// A small scene for tests of the published functions: one textured square that is scaled, turned, mirrored
// and perhaps moving, a light and a camera, each with a place of its own, and a state on the square. Matrices
// in double precision beside it give expected values.
#pragma once

#include <array>
#include <cmath>
#include <sstream>
#include <string>

#include "../support/stage_scene.h"

namespace stage_test {

using Matrix4 = std::array<double, 16>;
using Vector3 = std::array<double, 3>;

inline Matrix4 operator*(const Matrix4& a, const Matrix4& b) {
    Matrix4 r{};
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            for (std::size_t k = 0; k < 4; ++k)
                r[4 * i + j] += a[4 * i + k] * b[4 * k + j];
    return r;
}

inline Matrix4 scaling(double x, double y, double z) {
    return {x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1};
}
inline Matrix4 translation(double x, double y, double z) {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1};
}
inline Matrix4 turn_x(double a) {
    return {1, 0, 0, 0, 0, std::cos(a), std::sin(a), 0, 0, -std::sin(a), std::cos(a), 0, 0, 0, 0, 1};
}
inline Matrix4 turn_y(double a) {
    return {std::cos(a), 0, -std::sin(a), 0, 0, 1, 0, 0, std::sin(a), 0, std::cos(a), 0, 0, 0, 0, 1};
}
const Matrix4 unit = scaling(1, 1, 1);

// (x, y, z, w) times the matrix.
inline Vector3 times(const Vector3& v, double w, const Matrix4& m) {
    Vector3 r;
    for (std::size_t j = 0; j < 3; ++j)
        r[j] = v[0] * m[j] + v[1] * m[4 + j] + v[2] * m[8 + j] + w * m[12 + j];
    return r;
}

// A space in its parent, with the way back: scaled, turned about x, then y, then moved.
struct Placement {
    Vector3 scale, move;
    double about_x, about_y;
    [[nodiscard]] Matrix4 to_world() const {
        return scaling(scale[0], scale[1], scale[2]) * turn_x(about_x) * turn_y(about_y) *
               translation(move[0], move[1], move[2]);
    }
    [[nodiscard]] Matrix4 from_world() const {
        return translation(-move[0], -move[1], -move[2]) * turn_y(-about_y) * turn_x(-about_x) *
               scaling(1 / scale[0], 1 / scale[1], 1 / scale[2]);
    }
    [[nodiscard]] std::string transform() const { // as a scene says it
        std::ostringstream text;
        text.precision(17);
        text << std::fixed << " transform";
        for (const double value : from_world())
            text << ' ' << value;
        return text.str();
    }
};

inline constexpr Placement object_place = {{-2.0, 3.0, 0.5}, {5.0, -1.0, 2.0}, 0.7, -0.4};
inline constexpr Placement object_end = {{-2.0, 3.0, 0.5}, {6.0, 1.0, 2.0}, 0.7, -0.4}; // at time 1
inline constexpr Placement light_place = {{1.5, 1.5, 2.5}, {0.0, 8.0, 1.0}, -1.2, 0.3};
inline constexpr Placement camera_place = {{1.0, 1.0, 1.0}, {1.0, 2.0, 9.0}, -0.2, 0.5};

class Stage : public SceneText {
public:
    explicit Stage(bool camera_space = false, bool moving = false) {
        define(
            "tint", +[](void*, miState*, void*, void*) { return miBoolean{miTRUE}; });
        parse(R"(
declare shader color "tint" ( scalar "a", color "b", array integer "c" ) version 7 end declare
options "opt" luminance weight 0.25 0.5 0.125 )" +
                  std::string(moving ? "motion on shutter 0.5" : "") + R"( end options
camera "cam" focal 2 aperture 1.5 aspect 1.25 resolution 320 240 offset 3 -5 end camera
instance "cam_inst" "cam" )" +
                  camera_place.transform() + R"( end instance
light "lamp" "tint" () origin 7 8 9 direction 0 0 -1 spread 0.75 exponent 2 energy 1 2 3 disc 0 0 1 1 end light
instance "lamp_inst" "lamp" )" +
                  light_place.transform() + R"( end instance
material "m" "tint" () end material
object "square" visible shadow trace group
    -1 -1 0  1 -1 0  1 1 0  -1 1 0  0 0 1  1 0 0  0 1 0  -1 10 -1  1 10 -1  1 10 1  -1 10 1
    v 0 n 4 t 0 x 5 y 6 t 7  v 1 n 4 t 1 x 5 y 6 t 8  v 2 n 4 t 2 x 5 y 6 t 9  v 3 n 4 t 3 x 5 y 6 t 10
    c 0 1 2 data 11 12  c 0 2 3 data 21 22
end group end object
instance "square_inst" "square" tag 77 material "m" )" +
                  object_place.transform() + (moving ? " motion" + object_end.transform() : "") +
                  R"( end instance
instgroup "world" "cam_inst" "lamp_inst" "square_inst" end instgroup
render "world" "cam_inst" "opt")",
              camera_space);
        fill_state();
    }
    miRc_intersection hit;
    miState state{};

private:
    void fill_state() {
        hit.instance = 0;
        hit.triangle = 1;
        hit.u = 0.25f;
        hit.v = 0.5f;
        state.renderer = &context;
        state.camera = (*this)["cam"].as<miCamera>();
        state.options = (*this)["opt"].as<miOptions>();
        state.camera_inst = tag("cam_inst");
        state.instance = tag("square_inst");
        state.light_instance = tag("lamp_inst");
        state.pri = &hit;
        state.bary[0] = 0.25f;
        state.bary[1] = 0.25f;
        state.normal = state.normal_geom = {0, 0, 1};
        state.dir = {0.6f, 0, -0.8f};
        state.dot_nd = -0.8f;
    }
};

inline void expect_near(const miVector& got, const Vector3& want, double tolerance,
                        const std::string& what = {}) {
    EXPECT_NEAR(got.x, want[0], tolerance) << what;
    EXPECT_NEAR(got.y, want[1], tolerance) << what;
    EXPECT_NEAR(got.z, want[2], tolerance) << what;
}

inline void expect_color(const miColor& got, const miColor& want, double tolerance,
                         const std::string& what = {}) {
    expect_near({got.r, got.g, got.b}, {want.r, want.g, want.b}, tolerance, what);
    EXPECT_NEAR(got.a, want.a, tolerance) << what;
}

} // namespace stage_test
