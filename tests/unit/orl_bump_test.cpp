// The bump shader: what it makes of the normal.
#include "orl_bump.h"
#include "output_request.h"
#include "shader_fixture.h"

ENTRY_POINT(orl_Bump, miColor, orl::BumpParams);
INIT_AND_EXIT(orl_Bump, orl::BumpParams);

namespace {

using namespace orl;

TEST_F(ShaderTest, ABumpBendsTheNormal) {
    miColor given{};
    miBoolean answer = miTRUE;
    const miTag map = renderer.add_shader([&](void* result, miState*, void* arg) {
        EXPECT_EQ(*static_cast<OutputRequest*>(arg), OutputRequest::vector);
        *static_cast<miColor*>(result) = given;
        return answer;
    });
    LiveShader<BumpParams> bump{state, orl_Bump_init, orl_Bump_exit};
    bump.start();
    const struct {
        const char* name;
        miTag map;
        miScalar amount;
        miColor vector;
        miBoolean answer;
        miVector normal, expected;
    } cases[] = {
        {"no map", miNULLTAG, 1, {}, 1, {0, 0, 2}, {0, 0, 2}},
        // A height of 0.75 for each unit of x: the normal of z = 0.75 x is (-0.75, 0, 1) / 1.25. A map gives
        // a hundredth of the slope.
        {"ramp", map, 100, {-0.0075f, 0, 0, 9}, 1, {0, 0, 1}, {-0.6f, 0, 0.8f}},
        {"ramp downwards", map, -100, {-0.0075f, 0, 0, 9}, 1, {0, 0, 1}, {0.6f, 0, 0.8f}},
        {"amount 0 makes it a unit vector", map, 0, {5, 5, 5, 0}, 1, {0, 3, 4}, {0, 0.6f, 0.8f}},
        {"nothing left", map, 1, {0, 0, -1, 0}, 1, {0, 0, 1}, {0, 0, 0}},
        {"a map that fails", map, 1, {5, 5, 5, 0}, 0, {0, 0, 2}, {0, 0, 2}},
        {"no number", map, 1, {not_a_number, 0, 0, 0}, 1, {0, 0, 1}, {0, 0, 1}},
        {"infinite", map, infinite, {1, 0, 0, 0}, 1, {0, 0, 1}, {0, 0, 1}},
    };
    for (const auto& test : cases) {
        bump->bumpMap = test.map;
        bump->bumpAmount = test.amount;
        given = test.vector;
        answer = test.answer;
        state->normal = test.normal;
        state->dot_nd = mi_vector_dot(&state->normal, &state->dir);
        EXPECT_TRUE(orl_Bump(nullptr, state, &bump.params())) << test.name;
        EXPECT_LE(mi_vector_dist(&state->normal, &test.expected), 1e-6f) << test.name;
        EXPECT_NEAR(state->dot_nd, -test.expected.z, 1e-6f) << test.name; // the ray points along -z
        EXPECT_EQ(state->normal_geom.z, 1.0f) << test.name;
    }
    EXPECT_TRUE(errors().empty());
}

} // namespace
