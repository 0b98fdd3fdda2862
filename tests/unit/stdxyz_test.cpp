// Coordinates over three dimensions. The expected numbers are made by python in 64 bits: the point plus the
// offset, times the matrices of the rotations about x, y and z in their textbook form, times the tiling;
// widths without the offset, times 1.5 plus 0.01. The camera's pixel is 5 / 640 wide at the plane.
#include "orl_stdxyz.h"
#include "shader_fixture.h"

using namespace orl;

INIT_AND_EXIT(orl_base_XYZGenerator, XyzParams);
ENTRY_POINT(orl_XYZCoordinate, XyzCoordinateResult, XyzParams);
extern "C" miBoolean orl_base_XYZGenerator(XyzGeneratorResult*, miState*, const XyzParams*,
                                           const GeneratorRequest*);

namespace {

class Xyz : public ShaderTest {
protected:
    scripted::ShaderInstance<XyzParams> shader;
    const long long blocks = renderer.resources().live_blocks;
    // At (0, 1, 0), where the object sees the hit: the point, and the width of a pixel.
    const miVector at_hit{1.763668f, -2.171688f, 0.4869145f}, width{-0.01221517f, 0.01789567f, 0.01600735f};

    Xyz() {
        shader.params() = {xyz_object, 0, {1, -2, 0.5f}, {0.3f, -1.1f, 2}, {2, -3, 0.5f}, 1.5f, 0.01f};
        constexpr miMatrix up_one{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
        constexpr miMatrix twice{2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 3, 0, -1, 1};
        renderer.set_to_space(scripted::Space::object, up_one);
        renderer.set_to_space(scripted::Space::world, twice);
        set_textured_plane();
        state.run(shader, miSHADER_TEXTURE);
    }
    ~Xyz() override {
        orl_base_XYZGenerator_exit(state, &shader.params());
        EXPECT_EQ(renderer.resources().live_blocks, blocks);
    }

    miVector generate() {
        XyzGeneratorResult result{};
        EXPECT_TRUE(orl_base_XYZGenerator(&result, state, &shader.params(), nullptr));
        EXPECT_EQ(result.w, 1.0f);
        return result.point;
    }
};

TEST_F(Xyz, EverySourceIsPlaced) {
    const miVector at_null{3.281837f, -4.082814f, 0.4198911f}, no_width{0.01f, 0.01f, 0.01f};
    const miVector on_map{2.33399f, -3.745932f, 0.6762046f}; // (0.5, 0.5, 0)
    for (const auto& [source, channel, point, filtered] :
         {std::tuple{xyz_object, 0, at_hit, width},
          {xyz_map_channel, 0, on_map, width},
          {xyz_vertex_color, 0, on_map, width},
          {xyz_map_channel, 5, at_null, no_width}, // which the object does not have
          {xyz_world, 0, {0.9032129f, -9.748494f, 1.540034f}, {-0.03443033f, 0.02579134f, 0.0220147f}},
          {XyzSource{7}, 0, at_null, no_width}}) {
        shader->coordSource = source;
        shader->mapChannel = channel;
        XyzCoordinateResult result{};
        EXPECT_TRUE(orl_XYZCoordinate(&result, state, &shader.params()));
        expect_near(result.point, point, 1.5e-6f);
        expect_near(result.width, filtered);
        expect_near(generate(), point, 1.5e-6f);
    }
}

} // namespace
