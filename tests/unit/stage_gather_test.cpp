// Final gathering: what the interface's functions make of it, and what is below its rays.
#include "stage_scene.h"

namespace {

using namespace stage_test;

// Above: the cosine with the zenith in red; everywhere: 1 and a slope along x in green; below: blue.
void sky(miState* state, miColor& c) {
    const miVector& d = state->dir;
    c = {std::max(0.0f, d.z), 1.0f + 0.5f * d.x, d.z < 0.0f ? 1.0f : 0.0f, 1.0f};
}

// Over a hemisphere, for cos / pi in each direction: the integral of z is 2/3, of z^2 1/2, of x^2 1/4. The
// luminance is 0.299 of red and 0.587 of green.
TEST(StageGather, LightOfASkyOnBothSides) {
    const char up = 'f', down = 'b', both = 'x';
    const struct {
        std::function<miBoolean(miState*, miColor&)> call;
        miColor light;
    } cases[] = {
        {[](miState* s, miColor& c) { return mi_compute_irradiance(&c, s); }, {2.0f / 3, 1, 0, 1}},
        {[](miState* s, miColor& c) { return mi_compute_irradiance_backside(&c, s); }, {0, 1, 1, 1}},
        {[](miState* s, miColor& c) { return mi_compute_avg_radiance(&c, s, up, nullptr); },
         {2.0f / 3, 1, 0, 1}},
        {[](miState* s, miColor& c) { return mi_compute_avg_radiance(&c, s, down, nullptr); }, {0, 1, 1, 1}},
        {[](miState* s, miColor& c) { return mi_compute_avg_radiance(&c, s, both, nullptr); },
         {1.0f / 3, 1, 0.5f, 1}},
        {[](miState* s, miColor& c) {
             miVector dir;
             const miBoolean found = mi_compute_directional_irradiance(&c, &dir, s);
             const float x = 0.587f / 8, z = 0.299f / 2 + 0.587f * 2 / 3; // the light's mean direction
             const float length = found ? std::hypot(x, z) : 0.0f;
             EXPECT_NEAR(dir.x, found ? x / length : 0.0f, 2e-3);
             EXPECT_NEAR(dir.z, found ? z / length : 1.0f, 2e-3);
             return found;
         },
         {2.0f / 3, 1, 0, 1}},
    };
    for (const auto& c : cases)
        for (const char* flags : {"", "finalgather off"}) {
            TestScene s;
            s.shader("sky", sky);
            s.shader("floor", c.call);
            s.square("ground", {}, "shader floor", flags);
            s.build("environment sky");
            s.options->finalgather_rays = 4096;
            EXPECT_EQ(show(s.shade()), "0 0 0 0"); // nobody asks
            EXPECT_FALSE(s.lit);
            s.options->finalgather = 1;
            const miColor light = s.shade();
            const bool gathers = *flags == '\0';
            EXPECT_EQ(s.lit != miFALSE, gathers);
            EXPECT_NEAR(light.r, gathers ? c.light.r : 0.0f, 1e-3);
            EXPECT_NEAR(light.g, gathers ? c.light.g : 0.0f, 1e-3);
            EXPECT_NEAR(light.b, gathers ? c.light.b : 0.0f, 1e-3);
        }
}

// A roof over the floor, and a mirror in it: neither gathers for a floor that does.
TEST(StageGather, DoesNotGatherBelowItsRays) {
    TestScene s;
    std::map<std::string, int> seen;
    s.shader("sky", sky);
    const auto look = [&](const char* what) {
        return [&seen, what](miState* state, miColor& c) {
            int below = -1;
            mi_query(miQ_FINALGATHER_STATE, state, miNULLTAG, &below);
            const miBoolean lit = mi_compute_irradiance(&c, state);
            ++seen[show(what, state->type, state->reflection_level, below, lit)];
        };
    };
    s.shader("floor", look("floor"));
    const auto seen_in_mirror = look("roof");
    s.shader("roof", [&](miState* state, miColor& c) {
        seen_in_mirror(state, c);
        miVector down{0.1f, 0.0f, -1.0f};
        mi_vector_normalize(&down);
        mi_trace_reflection(&c, state, &down);
    });
    s.square("ground", {}, "shader floor");
    s.square("lid", {0, 0, 1}, "shader roof", "visible off");
    s.build("environment sky");
    s.options->finalgather = 1;
    s.options->finalgather_rays = 16;
    s.shade();
    ASSERT_EQ(seen.size(), 3u) << seen.begin()->first;
    EXPECT_EQ(seen["floor 0 0 0 1"], 1);                     // the eye's own
    EXPECT_GT(seen["roof 20 1 1 0"], 0);                     // met by a gathering ray
    EXPECT_EQ(seen["floor 2 2 1 0"], seen["roof 20 1 1 0"]); // and what that sees in it
    EXPECT_EQ(s.context.statistics.gathering_rays, 16u);
}

} // namespace
