// Raster positions to rays and back, against positions worked out by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "render/camera.h"

namespace {

miCamera camera(bool orthographic, float x_offset, float y_offset) {
    miCamera c{};
    c.orthographic = orthographic;
    c.focal = 3.0f;
    c.aperture = 4.0f;
    c.aspect = 2.0f; // the image plane is 4 by 2
    c.x_resolution = 400;
    c.y_resolution = 100; // pixels of 0.01 by 0.02
    c.x_offset = x_offset;
    c.y_offset = y_offset;
    return c;
}

struct Case {
    float x_offset, y_offset;
    double raster_x, raster_y;
    double plane_x, plane_y; // on the image plane at z = -3
};

const Case cases[] = {
    {0, 0, 200, 50, 0, 0},           // the middle
    {0, 0, 0, 0, -2, -1},            // lower left corner
    {0, 0, 400, 100, 2, 1},          // upper right corner
    {0, 0, 0.5, 99.5, -1.995, 0.99}, // centre of the upper left pixel
    {10, -5, 210, 45, 0, 0},         // the picture moves right and down
    {10, -5, 200, 50, -0.1, 0.1},
};

TEST(StageCamera, PinholeRays) {
    for (const Case& c : cases) {
        const stage::Projection projection(camera(false, c.x_offset, c.y_offset));
        const stage::CameraRay ray = projection.ray(c.raster_x, c.raster_y);
        const double length = std::sqrt(c.plane_x * c.plane_x + c.plane_y * c.plane_y + 9.0);
        EXPECT_EQ(ray.org.x, 0.0f);
        EXPECT_EQ(ray.org.y, 0.0f);
        EXPECT_EQ(ray.org.z, 0.0f);
        EXPECT_NEAR(ray.dir.x, c.plane_x / length, 1e-6);
        EXPECT_NEAR(ray.dir.y, c.plane_y / length, 1e-6);
        EXPECT_NEAR(ray.dir.z, -3.0 / length, 1e-6);
    }
}

TEST(StageCamera, OrthographicRays) {
    for (const Case& c : cases) {
        const stage::Projection projection(camera(true, c.x_offset, c.y_offset));
        const stage::CameraRay ray = projection.ray(c.raster_x, c.raster_y);
        EXPECT_NEAR(ray.org.x, c.plane_x, 1e-6);
        EXPECT_NEAR(ray.org.y, c.plane_y, 1e-6);
        EXPECT_EQ(ray.org.z, 0.0f);
        EXPECT_EQ(ray.dir.x, 0.0f);
        EXPECT_EQ(ray.dir.y, 0.0f);
        EXPECT_EQ(ray.dir.z, -1.0f);
    }
}

TEST(StageCamera, RasterIsTheWayBack) {
    for (const bool orthographic : {false, true}) {
        const stage::Projection projection(camera(orthographic, 7.0f, 3.0f));
        for (const double x : {-20.0, 0.0, 133.25, 399.5})
            for (const double y : {0.5, 71.0, 130.0}) {
                const stage::CameraRay ray = projection.ray(x, y);
                const float t = 17.0f;
                const miVector point = {ray.org.x + t * ray.dir.x, ray.org.y + t * ray.dir.y,
                                        ray.org.z + t * ray.dir.z};
                miVector raster{};
                ASSERT_TRUE(projection.raster(point, raster));
                EXPECT_NEAR(raster.x, x, 1e-3);
                EXPECT_NEAR(raster.y, y, 1e-3);
            }
    }
    miVector untouched{1.0f, 2.0f, 3.0f};
    EXPECT_FALSE(stage::Projection(camera(false, 0, 0)).raster({1.0f, 1.0f, 0.0f}, untouched));
    EXPECT_EQ(untouched.x, 1.0f);
}

} // namespace
