// Raster positions to rays and back, against positions worked out by hand.
#include <gtest/gtest.h>

#include "render/camera.h"

TEST(StageCamera, RaysAndTheWayBack) {
    // The image plane at z = -3 is 4 by 2, its pixels are 0.01 by 0.02.
    miCamera camera{};
    camera.focal = 3.0f;
    camera.aperture = 4.0f;
    camera.aspect = 2.0f;
    camera.x_resolution = 400;
    camera.y_resolution = 100;
    const struct {
        float x_offset, y_offset;
        double raster_x, raster_y;
        double x, y; // on the image plane
    } cases[] = {
        {0, 0, 200, 50, 0, 0},           // the middle
        {0, 0, 0, 0, -2, -1},            // lower left corner
        {0, 0, 0.5, 99.5, -1.995, 0.99}, // centre of the upper left pixel
        {10, -5, 210, 45, 0, 0},         // the picture moves right and down
        {10, -5, 200, 50, -0.1, 0.1},
    };
    for (const auto& c : cases)
        for (const bool orthographic : {false, true}) {
            camera.orthographic = orthographic;
            camera.x_offset = c.x_offset;
            camera.y_offset = c.y_offset;
            const stage::Projection projection(camera);
            const auto [org, dir] = projection.ray(c.raster_x, c.raster_y);
            // Where the ray is 3 in front of the camera, it is on the image plane.
            const float way = -3.0f / dir.z;
            EXPECT_NEAR(org.x + way * dir.x, c.x, 1e-6);
            EXPECT_NEAR(org.y + way * dir.y, c.y, 1e-6);
            EXPECT_EQ(org.z, 0.0f);
            EXPECT_EQ(org.x == 0.0f && org.y == 0.0f, !orthographic || (c.x == 0.0 && c.y == 0.0));
            EXPECT_NEAR(mi_vector_norm(&dir), 1.0f, 1e-6f);
            miVector raster{};
            ASSERT_TRUE(projection.raster({org.x + 17 * dir.x, org.y + 17 * dir.y, 17 * dir.z}, raster));
            EXPECT_NEAR(raster.x, c.raster_x, 1e-3);
            EXPECT_NEAR(raster.y, c.raster_y, 1e-3);
        }
}
