// The spaces of volume fog and fire: where rays are in them, how far out points lie, and nodes that are no
// gizmos.
#include "gizmo_fixture.h"

#include <cmath>
#include <random>

namespace {

using namespace orl;

constexpr GizmoUse for_fog{1, GizmoShape::centred_cylinder, {}},
    for_fire{1, GizmoShape::standing_cylinder, {}};

struct Case {
    const char* name;
    orl_GizmoData data;
    GizmoUse use;
    miVector centre; // a point of falloff 0
    float steepest;  // how fast the falloff may change
};
// The point of the hemisphere lies just within its core, which begins at 0.26 and ends 0.52 from the origin;
// the steepest way there is up from the ground.
const Case cases[] = {{"sphere", GizmoTest::sphere, for_fog, {0, 0, 0}, 1 / 1.5f},
                      {"cylinder", GizmoTest::cylinder, for_fog, {0, 0, 0}, 1 / 0.8f},
                      {"standing cylinder", GizmoTest::cylinder, for_fire, {0, 0, 1.2f}, 1 / 0.8f},
                      {"box", GizmoTest::box, for_fog, {0, 0, 0}, 1 / 0.6f},
                      {"hemisphere", GizmoTest::hemisphere, for_fog, {0.44f, 0, 0.265f}, 5 / 1.3f}};

// By hand, from the data of the fixture.
bool inside(const Case& which, const miVector& p) {
    const float wide = std::hypot(p.x, p.y), out = std::hypot(p.x, p.y, p.z);
    switch (&which - cases) {
    case 0:
        return out < 1.5f;
    case 1:
        return wide < 0.8f && std::fabs(p.z) < 1.2f;
    case 2:
        return wide < 0.8f && p.z > 0 && p.z < 2.4f;
    case 3:
        return std::fabs(p.x) < 0.6f && std::fabs(p.y) < 1.3f && std::fabs(p.z) < 0.9f;
    default:
        return out < 1.3f && p.z > 0;
    }
}

struct Random {
    std::mt19937 generator{7};
    float operator()(float extent) {
        return std::uniform_real_distribution<float>(-extent, extent)(generator);
    }
    miVector vector(float extent) { return {(*this)(extent), (*this)(extent), (*this)(extent)}; }
};

miVector along(const miVector& org, const miVector& dir, float t) {
    return {org.x + t * dir.x, org.y + t * dir.y, org.z + t * dir.z};
}

// Rays from inside and outside, ended at 6, beside points of the ray every 1/500 that are inside.
TEST(Gizmo, SpansOfRaysAreWhatLiesInside) {
    constexpr float spacing = 0.002f, limit = 6.0f;
    Random random;
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        const Gizmo gizmo = shape_gizmo(each.data, each.use);
        int hits = 0;
        for (int ray = 0; ray < 400; ++ray) {
            const miVector org = random.vector(2.5f);
            miVector dir = random.vector(1.0f);
            mi_vector_normalize(&dir);
            float first = -1.0f, last = -1.0f;
            for (float t = 0.0f; t <= limit; t += spacing) {
                const miVector p = along(org, dir, t);
                if (inside(each, p)) {
                    first = first < 0.0f ? t : first;
                    last = t;
                }
            }
            RaySpan span{0.0f, limit};
            const bool hit = clip(gizmo, org, dir, span);
            hits += hit;
            if (first < 0.0f) {
                EXPECT_TRUE(!hit || span.leave - span.enter < 2 * spacing);
                continue;
            }
            ASSERT_TRUE(hit);
            EXPECT_NEAR(span.enter, first, 1.5f * spacing);
            EXPECT_NEAR(span.leave, last, 1.5f * spacing);
        }
        EXPECT_GT(hits, 30);
    }
}

TEST(Gizmo, FalloffRisesFromCentreToSurface) {
    Random random;
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        const Gizmo gizmo = shape_gizmo(each.data, each.use);
        EXPECT_EQ(falloff(gizmo, each.centre), 0.0f);
        for (int k = 0; k < 1000; ++k) {
            const miVector p = random.vector(1.6f), step = random.vector(0.05f);
            const float f = falloff(gizmo, p);
            EXPECT_TRUE(f >= 0.0f && f <= 1.0f);
            EXPECT_EQ(f < 1.0f, inside(each, p)) << p.x << ' ' << p.y << ' ' << p.z;
            EXPECT_LE(std::fabs(falloff(gizmo, along(p, step, 1)) - f),
                      each.steepest * mi_vector_norm(&step) + 1e-5f);
        }
    }
}

TEST(Gizmo, RaysThatHardlyMeetIt) {
    const auto meets = [](const Case& each, miVector org, miVector dir) {
        RaySpan span{0.0f, 100.0f};
        return clip(shape_gizmo(each.data, each.use), org, dir, span);
    };
    const Case &round = cases[0], &cylinder = cases[1], &standing = cases[2], &dome = cases[4];
    EXPECT_FALSE(meets(round, {-5, 0, 1.5f}, {1, 0, 0}));                        // grazes
    EXPECT_GT(falloff(shape_gizmo(dome.data, dome.use), {0.47f, 0, 0.265f}), 0); // just out of the core
    EXPECT_TRUE(meets(cylinder, {0.7f, 0, 5}, {0, 0, -1}));                      // along the axis
    EXPECT_FALSE(meets(standing, {0.7f, 0, 5}, {0, 0, -1}));                     // which fires do not show
    EXPECT_FALSE(meets(standing, {0, 0, 5}, {0.003f, 0, -1}));                   // 0.003^2 < 1e-5
    EXPECT_TRUE(meets(standing, {0, 0, 5}, {0.0032f, 0, -1}));                   // 0.0032^2 > 1e-5
    for (const Case& each : cases) {
        EXPECT_FALSE(meets(each, {not_a_number, 0, 0}, {1, 0, 0})) << each.name;
        EXPECT_FALSE(meets(each, {0, 0, 0.5f}, {not_a_number, not_a_number, not_a_number})) << each.name;
    }
    // From far away the chord through the centre still is 3 long, to the digits of the distance.
    RaySpan span{0.0f, 1e6f};
    ASSERT_TRUE(clip(shape_gizmo(round.data, round.use), {-1e5f, 0, 0}, {1, 0, 0}, span));
    EXPECT_NEAR(span.leave - span.enter, 3.0f, 0.02f);
}

TEST(Gizmo, SizesThatAreNoneLeaveNoSpace) {
    for (const float bad : {0.0f, -1.0f, not_a_number, infinite, 3e38f})
        for (miInteger kind = -1; kind <= 4; ++kind) {
            const orl_GizmoData all_bad{kind, bad, bad, bad, bad, bad, 0},
                one_bad{kind, bad, 1, 1, bad, 1, 0};
            if (bad == 3e38f && kind == orl_gizmo_box)
                continue; // a large box is a box
            EXPECT_EQ(shape_gizmo(all_bad, for_fog).shape, GizmoShape::none) << kind << ' ' << bad;
            EXPECT_EQ(shape_gizmo(one_bad, for_fire).shape, GizmoShape::none) << kind << ' ' << bad;
        }
    EXPECT_EQ(shape_gizmo(GizmoTest::sphere, {0.0f, GizmoShape::centred_cylinder, {}}).shape,
              GizmoShape::none);
}

// A light 1e7 units away, where a float has steps of 1: neighbouring points still see smooth chords of the
// ball of radius 1.5. A ray through the point (x, 0, -5) along (0.6, 0, 0.8) has the distance 0.8 x + 3 from
// the middle.
TEST_F(GizmoTest, LightFromAfarIsSmooth) {
    Gizmo gizmo = shape_gizmo(sphere, {1, GizmoShape::standing_cylinder, {}});
    gizmo.to_gizmo = {{1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}};
    state->type = miRAY_LIGHT, state->dist = 1e7;
    for (float x = -4.5f; x < -3.0f; x += 0.037f) {
        state->point = {x, 0, -5};
        state->org = {x + 6e6f, 0, -5 + 8e6f};
        WorldRay ray;
        GizmoPassage passage;
        ASSERT_TRUE(world_ray(state, ray) && pass_through_gizmo(gizmo, ray, passage));
        const float off = 0.8f * x + 3;
        EXPECT_NEAR(passage.length, 2 * std::sqrt(2.25f - off * off), 0.01f) << x;
    }
}

struct Nodes {
    decl::Array<miTag> list;
};

TEST_F(GizmoTest, NodesThatAreNoGizmosAreEmptyAndReportedOnce) {
    orl_GizmoData unknown = sphere;
    unknown.kind = 17;
    constexpr miMatrix flat{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    constexpr miMatrix moved{0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 5, 6, 7, 1};
    scripted::ShaderInstance<Nodes> instance;
    const auto read = [&](const std::vector<miTag>& tags) {
        instance.set_array(instance->list.first, instance->list.count, instance->list.elements, tags);
        state.run(instance);
        renderer.clear_logs();
        return read_gizmos(state, span(state, &instance.params(), &Nodes::list), for_fog);
    };
    const auto before = renderer.resources().live_blocks;
    EXPECT_EQ(read({}), nullptr);

    const miTag bad[] = {
        renderer.add_string("no node"), add_instance_with(miNULLTAG), 9999, add_node(unknown),
        add_node(miInteger{0}),         add_node(sphere, flat)};
    for (const miTag tag : bad) {
        Gizmo* const gizmos = read({tag, tag, miNULLTAG, add_node(sphere, moved)});
        EXPECT_EQ(errors().size(), 1u) << tag;
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(gizmos[k].shape, GizmoShape::none) << tag;
        EXPECT_EQ(gizmos[3].shape, GizmoShape::sphere);
        // The x axis of the gizmo is y of the world, of twice the length: (0, 2, 0) from its place is (1, 0,
        // 0).
        const miVector there = transform_point(gizmos[3].to_gizmo, {5, 8, 7});
        EXPECT_NEAR(mi_vector_norm(&there), 1.0f, 1e-6f);
        EXPECT_NEAR(there.x, 1.0f, 1e-6f);
        EXPECT_NEAR(transform_point(gizmos[3].to_world, {1, 0, 0}).y, 8.0f, 1e-6f);
        release_gizmos(gizmos);
    }
    Gizmo* const gizmos = read({miNULLTAG});
    EXPECT_TRUE(errors().empty());
    release_gizmos(gizmos);
    EXPECT_EQ(renderer.resources().live_blocks, before);
}

} // namespace
