// Rays: what a state holds after a hit and a miss, what is called and in which order, depths, lens shaders.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "stage_scene.h"

namespace {

using stage_test::color;
using stage_test::TestScene;

void expect_vector(const miVector& v, float x, float y, float z) {
    EXPECT_NEAR(v.x, x, 1e-6f);
    EXPECT_NEAR(v.y, y, 1e-6f);
    EXPECT_NEAR(v.z, z, 1e-6f);
}

const miVector origin{0.0f, 0.0f, 0.0f};

TEST(StageIntersection, FrontOfASquare) {
    TestScene s;
    miTag material = miNULLTAG;
    miTag square = miNULLTAG;
    bool seen = false;
    material = s.add_material(s.add_shader([&](void*, miState* state, void*, void*) {
        seen = true;
        expect_vector(state->point, 0.5f, -0.25f, 0.0f);
        expect_vector(state->normal, 0.0f, 0.0f, 1.0f);
        expect_vector(state->normal_geom, 0.0f, 0.0f, 1.0f);
        EXPECT_FALSE(state->inv_normal);
        EXPECT_NEAR(state->dot_nd, -1.0f, 1e-6f);
        EXPECT_NEAR(state->dist, 10.0, 1e-5);
        EXPECT_EQ(state->type, miRAY_EYE);
        EXPECT_EQ(state->call_type, miSHADER_MATERIAL);
        EXPECT_EQ(state->material, material);
        EXPECT_EQ(state->instance, square);
        EXPECT_EQ(state->parent, nullptr);
        EXPECT_NE(state->pri, nullptr);
        // The square's coordinates rise from 0 to 1 over a length of 2.
        expect_vector(state->tex_list[0], 0.75f, 0.375f, 0.0f);
        expect_vector(*state->derivs[0], 2.0f, 0.0f, 0.0f);
        expect_vector(*state->derivs[1], 0.0f, 2.0f, 0.0f);
        EXPECT_EQ(state->derivs[2], nullptr);
        EXPECT_EQ(state->bump_x_list, nullptr);
        // Of the corners (-1, -1), (1, -1), (1, 1): 0.25 a + 0.375 b + 0.375 c = (0.5, -0.25).
        EXPECT_NEAR(state->bary[0], 0.25f, 1e-6f);
        EXPECT_NEAR(state->bary[1], 0.375f, 1e-6f);
        EXPECT_NEAR(state->bary[2], 0.375f, 1e-6f);
        return miTRUE;
    }));
    square = s.add_square(origin, material);
    s.build();
    s.shade(0.5f, -0.25f);
    EXPECT_TRUE(seen);
}

TEST(StageIntersection, BackOfASquareByProbe) {
    TestScene s;
    const miTag square = s.add_square(origin, s.add_material(miNULLTAG));
    s.build();
    miState state = s.eye();
    miVector org{0.5f, 0.25f, -3.0f};
    miVector dir{0.0f, 0.0f, 1.0f};
    ASSERT_TRUE(mi_trace_probe(&state, &dir, &org));
    const miState& child = *state.child;
    EXPECT_EQ(child.type, miRAY_PROBE);
    EXPECT_EQ(child.instance, square);
    EXPECT_TRUE(child.inv_normal);
    expect_vector(child.normal, 0.0f, 0.0f, -1.0f);
    expect_vector(child.normal_geom, 0.0f, 0.0f, -1.0f);
    EXPECT_NEAR(child.dot_nd, -1.0f, 1e-6f);
    EXPECT_NEAR(child.dist, 3.0, 1e-6);
    dir.z = -1.0f;
    EXPECT_FALSE(mi_trace_probe(&state, &dir, &org));
    EXPECT_EQ(state.child->pri, nullptr);
    EXPECT_EQ(state.child->dist, 0.0);
}

// The outside of an object stays the outside when it is mirrored.
TEST(StageIntersection, MirroredInstances) {
    TestScene s;
    const miTag square = s.add_square(origin, s.add_material(miNULLTAG));
    auto& tf = s.record<miInstance>(square)->tf;
    tf.global_to_local[0] = tf.local_to_global[0] = -1.0f;
    s.build();
    miState state = s.eye();
    miVector org{0.5f, 0.0f, 5.0f};
    miVector dir{0.0f, 0.0f, -1.0f};
    ASSERT_TRUE(mi_trace_probe(&state, &dir, &org));
    EXPECT_FALSE(state.child->inv_normal);
    expect_vector(state.child->normal, 0.0f, 0.0f, 1.0f);
    expect_vector(state.child->tex_list[0], 0.25f, 0.5f, 0.0f);
    expect_vector(*state.child->derivs[0], -2.0f, 0.0f, 0.0f);
}

// A smooth normal that leans away from the viewer is bent back: (sin 80, 0, cos 80) seen along (0, 0, -1)
// stays; seen along (0.8, 0, -0.6) it looks away by 0.8 sin 80 - 0.6 cos 80 > 0.
TEST(StageIntersection, SmoothNormalsNeverLookAway) {
    TestScene s;
    const miTag square = s.add_square(origin, s.add_material(miNULLTAG));
    stage::Geometry& g = *s.scene.database.find(s.record<miInstance>(square)->item)->geometry;
    const miVector lean{0.98480775f, 0.0f, 0.17364818f};
    std::vector<float> vertices;
    for (std::size_t v = 0; v < 4; ++v) {
        vertices.insert(vertices.end(), g.vertices.begin() + static_cast<std::ptrdiff_t>(6 * v),
                        g.vertices.begin() + static_cast<std::ptrdiff_t>(6 * v + 6));
        // Half of the meshes in the world have their normals the wrong way round.
        vertices.insert(vertices.end(), {-lean.x, -lean.y, -lean.z});
    }
    g.vertices = vertices;
    g.view.vertices = g.vertices.data();
    g.view.vertex_stride = 9;
    g.view.normal_offset = 6;
    s.build();
    miState state = s.eye();
    miVector org{0.0f, 0.0f, 5.0f};
    miVector dir{0.0f, 0.0f, -1.0f};
    ASSERT_TRUE(mi_trace_probe(&state, &dir, &org));
    expect_vector(state.child->normal, lean.x, 0.0f, lean.z);
    EXPECT_NEAR(state.child->dot_nd, -lean.z, 1e-6f);

    org = {-0.8f, 0.0f, 0.6f};
    dir = {0.8f, 0.0f, -0.6f};
    ASSERT_TRUE(mi_trace_probe(&state, &dir, &org));
    EXPECT_FALSE(state.child->inv_normal); // the geometry decides
    expect_vector(state.child->normal, 0.6f, 0.0f, 0.8f);
    EXPECT_LE(state.child->dot_nd, 0.0f);
    EXPECT_NEAR(state.child->dot_nd, 0.0f, 1e-6f);
}

TEST(StageShade, EnvironmentThenVolumeWithOneState) {
    TestScene s;
    std::vector<std::string> log;
    const miState* environment_state = nullptr;
    s.camera->environment = s.add_shader([&](void* r, miState* state, void*, void*) {
        log.push_back("environment");
        environment_state = state;
        EXPECT_EQ(state->dist, 0.0);
        EXPECT_EQ(state->pri, nullptr);
        color(r).r = 3.0f;
        return miTRUE;
    });
    s.camera->volume = s.add_shader([&](void* r, miState* state, void*, void*) {
        log.push_back("volume");
        EXPECT_EQ(state, environment_state);
        EXPECT_EQ(state->dist, 0.0);
        color(r).r *= 10.0f;
        return miFALSE;
    });
    s.add_square({50.0f, 0.0f, 0.0f}, s.add_material(miNULLTAG));
    s.build();
    miBoolean lit = miFALSE;
    EXPECT_EQ(s.shade(0.0f, 0.0f, &lit).r, 30.0f);
    EXPECT_TRUE(lit);
    EXPECT_EQ(log, (std::vector<std::string>{"environment", "volume"}));
    s.options->no_volume = 1;
    EXPECT_EQ(s.shade().r, 3.0f);
}

TEST(StageShade, OpaqueMaterialsHaveFullAlpha) {
    TestScene s;
    const miTag material = s.add_material(s.add_shader([](void* r, miState*, void*, void*) {
        color(r) = {1.0f, 1.0f, 1.0f, 0.25f};
        return miTRUE;
    }));
    s.add_square(origin, material);
    s.build();
    EXPECT_EQ(s.shade().a, 0.25f);
    s.record<miMaterial>(material)->opaque = miTRUE;
    EXPECT_EQ(s.shade().a, 1.0f);
}

// A surface whose material has a volume but no shader, and one with a shader below.
TEST(StageShade, HullsOnlyChangeTheVolume) {
    TestScene s;
    std::vector<double> inside;
    std::vector<double> outside;
    const auto record = [](std::vector<double>& list) {
        return [&list](void*, miState* state, void*, void*) {
            list.push_back(state->dist);
            return miTRUE;
        };
    };
    const miTag volume = s.add_shader(record(inside));
    s.camera->volume = s.add_shader(record(outside));
    const miTag ground = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->volume, volume);
        EXPECT_EQ(state->refraction_level, 0);
        color(r).r = 1.0f;
        return miTRUE;
    });
    s.add_square(origin, s.add_material(ground));
    s.add_square({0.0f, 0.0f, 2.0f}, s.add_material(miNULLTAG, miNULLTAG, volume));
    s.build();
    EXPECT_EQ(s.shade().r, 1.0f);
    ASSERT_EQ(inside.size(), 1u);
    EXPECT_NEAR(inside[0], 2.0, 1e-4);
    ASSERT_EQ(outside.size(), 1u);
    EXPECT_NEAR(outside[0], 8.0, 1e-4);
}

// ---- secondary rays ----

// Two squares that face each other and reflect straight back.
TEST(StageTrace, DepthLimits) {
    const struct {
        int reflection_depth, refraction_depth, trace_depth;
        miRay_type type;
        int calls; // of the material
    } cases[] = {
        {3, 0, 8, miRAY_REFLECT, 4},     {3, 0, 2, miRAY_REFLECT, 3}, {0, 5, 8, miRAY_REFLECT, 1},
        {0, 2, 8, miRAY_REFRACT, 3},     {5, 0, 8, miRAY_REFRACT, 1}, {0, 9, 1, miRAY_TRANSPARENT, 2},
        {0, 1, 8, miRAY_TRANSPARENT, 2},
    };
    for (const auto& c : cases) {
        TestScene s;
        int calls = 0;
        const miTag material = s.add_material(s.add_shader([&](void* r, miState* state, void*, void*) {
            const int level = c.type == miRAY_REFLECT ? state->reflection_level : state->refraction_level;
            EXPECT_EQ(level, calls);
            EXPECT_EQ(state->type, calls ? c.type : miRAY_EYE);
            ++calls;
            miVector back{0.0f, 0.0f, -state->dir.z};
            miBoolean lit = miFALSE;
            if (c.type == miRAY_REFLECT)
                lit = mi_trace_reflection(static_cast<miColor*>(r), state, &back);
            else if (c.type == miRAY_REFRACT)
                lit = mi_trace_refraction(static_cast<miColor*>(r), state, &back);
            else
                lit = mi_trace_transparent(static_cast<miColor*>(r), state);
            return lit;
        }));
        s.add_square(origin, material);
        // Straight on there must be something as well.
        for (const float z : {20.0f, -5.0f, -10.0f, -15.0f})
            s.add_square({0.0f, 0.0f, z}, material);
        s.options->reflection_depth = c.reflection_depth;
        s.options->refraction_depth = c.refraction_depth;
        s.options->trace_depth = c.trace_depth;
        s.build();
        miBoolean lit = miTRUE;
        s.shade(0.0f, 0.0f, &lit);
        EXPECT_EQ(calls, c.calls) << "type " << c.type << " depth " << c.trace_depth;
        EXPECT_FALSE(lit);
    }
}

TEST(StageTrace, OptionsOfTheStateAreInForce) {
    TestScene s;
    int calls = 0;
    const miTag material = s.add_material(s.add_shader([&](void* r, miState* state, void*, void*) {
        ++calls;
        miOptions copy = *state->options;
        copy.reflection_depth = 1;
        miOptions* before = state->options;
        state->options = &copy;
        miVector back{0.0f, 0.0f, -state->dir.z};
        mi_trace_reflection(static_cast<miColor*>(r), state, &back);
        state->options = before;
        return miTRUE;
    }));
    s.add_square(origin, material);
    s.add_square({0.0f, 0.0f, 20.0f}, material);
    s.build();
    s.shade();
    EXPECT_EQ(calls, 2);
}

TEST(StageTrace, SurfacesThatDoNotReceiveAndObjectsThatAreNotSeen) {
    TestScene s;
    s.camera->environment = s.add_shader([](void* r, miState* state, void*, void*) {
        color(r).r = state->type == miRAY_REFLECT ? 5.0f : 6.0f;
        return miTRUE;
    });
    const miTag mirror = s.add_material(s.add_shader([](void* r, miState* state, void*, void*) {
        miVector up{0.0f, 0.0f, 1.0f};
        return mi_trace_reflection(static_cast<miColor*>(r), state, &up);
    }));
    const miTag plain = s.add_material(s.add_shader([](void* r, miState*, void*, void*) {
        color(r).r = 1.0f;
        return miTRUE;
    }));
    const miTag below = s.add_square(origin, mirror);
    const miTag above = s.add_square({0.0f, 0.0f, 20.0f}, plain);
    const auto object = [&](miTag instance) {
        return s.record<miObject>(s.record<miInstance>(instance)->item);
    };
    object(above)->reflection = 2; // shows reflections, but is in none
    s.build();
    EXPECT_EQ(s.shade().r, 5.0f);

    TestScene t;
    t.camera->environment = t.add_shader([](void*, miState*, void*, void*) { return miTRUE; });
    miBoolean traced = miTRUE;
    const miTag dull =
        t.add_square(origin, t.add_material(t.add_shader([&](void* r, miState* state, void*, void*) {
            miVector up{0.0f, 0.0f, 1.0f};
            traced = mi_trace_reflection(static_cast<miColor*>(r), state, &up);
            return miTRUE;
        })));
    t.record<miObject>(t.record<miInstance>(dull)->item)->reflection = 1;
    t.build();
    t.shade();
    EXPECT_FALSE(traced);
    EXPECT_NE(below, miNULLTAG);
}

TEST(StageTrace, RaysThroughASurfaceComeIntoItsVolume) {
    TestScene s;
    std::vector<std::string> log;
    const miTag inside = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->type, miRAY_TRANSPARENT);
        EXPECT_NEAR(state->dist, 4.0, 1e-4);
        color(r).g = 2.0f;
        return miTRUE;
    });
    const miTag ground = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->volume, inside);
        EXPECT_EQ(state->parent->call_type, miSHADER_MATERIAL); // still readable
        expect_vector(state->dir, 0.0f, 0.0f, -1.0f);
        color(r).r = 1.0f;
        return miTRUE;
    });
    const miTag surface = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->refraction_volume, inside);
        return mi_trace_transparent(static_cast<miColor*>(r), state);
    });
    s.add_square(origin, s.add_material(ground));
    s.add_square({0.0f, 0.0f, 4.0f}, s.add_material(surface, miNULLTAG, inside));
    s.build();
    const miColor result = s.shade();
    EXPECT_EQ(result.r, 1.0f);
    EXPECT_EQ(result.g, 2.0f);
}

TEST(StageTrace, ContinuedRaysAreTheSameRay) {
    TestScene s;
    std::vector<double> volume_lengths;
    s.camera->volume = s.add_shader([&](void*, miState* state, void*, void*) {
        volume_lengths.push_back(state->dist);
        return miTRUE;
    });
    const miTag ground = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->type, miRAY_EYE);
        EXPECT_EQ(state->parent, nullptr);
        EXPECT_EQ(state->refraction_level, 0);
        expect_vector(state->org, 0.0f, 0.0f, 10.0f);
        EXPECT_NEAR(state->dist, 10.0, 1e-4);
        color(r).r = 1.0f;
        return miTRUE;
    });
    const miTag pass = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_NEAR(state->dist, 6.0, 1e-4);
        const miBoolean lit = mi_trace_continue(static_cast<miColor*>(r), state);
        EXPECT_NEAR(state->dist, 10.0, 1e-4);
        expect_vector(state->point, 0.0f, 0.0f, 0.0f);
        return lit;
    });
    s.options->trace_depth = s.options->refraction_depth = 0;
    s.add_square(origin, s.add_material(ground));
    s.add_square({0.0f, 0.0f, 4.0f}, s.add_material(pass));
    s.build();
    miBoolean lit = miFALSE;
    EXPECT_EQ(s.shade(0.0f, 0.0f, &lit).r, 1.0f);
    EXPECT_TRUE(lit);
    ASSERT_EQ(volume_lengths.size(), 1u); // one ray, one volume
    EXPECT_NEAR(volume_lengths[0], 10.0, 1e-4);
}

TEST(StageTrace, EnvironmentRays) {
    TestScene s;
    s.camera->environment = s.add_shader([](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->type, miRAY_ENVIRONMENT);
        EXPECT_EQ(state->dist, 0.0);
        expect_vector(state->dir, 0.0f, 1.0f, 0.0f);
        expect_vector(state->parent->point, 0.0f, 0.0f, 0.0f);
        color(r).r = 1.0f;
        return miTRUE;
    });
    const miTag own = s.add_shader([](void* r, miState*, void*, void*) {
        color(r).r = 2.0f;
        return miTRUE;
    });
    const miTag material = s.add_material(s.add_shader([](void* r, miState* state, void*, void*) {
        miVector dir{0.0f, 1.0f, 0.0f};
        const miBoolean lit = mi_trace_environment(static_cast<miColor*>(r), state, &dir);
        expect_vector(state->point, 0.0f, 0.0f, 0.0f); // nothing but lens shaders and continued rays lose it
        return lit;
    }));
    s.add_square(origin, material);
    s.build();
    EXPECT_EQ(s.shade().r, 1.0f);
    s.record<miMaterial>(material)->environment = own;
    EXPECT_EQ(s.shade().r, 2.0f);
}

// Neither near the origin nor far from it, where points are rounded to 1/16384, does a ray meet its own
// start.
TEST(StageTrace, RaysDoNotMeetTheirOwnStart) {
    for (const float place : {0.7f, -333.3f}) {
        TestScene s;
        int met = 0;
        const miTag mirror = s.add_material(s.add_shader([&](void* r, miState* state, void*, void*) {
            for (int k = -4; k <= 4; ++k) {
                miVector up{static_cast<float>(k) * 0.3f, 0.1f, 1.0f};
                mi_vector_normalize(&up);
                met += mi_trace_reflection(static_cast<miColor*>(r), state, &up);
            }
            return miTRUE;
        }));
        const miTag square = s.add_square({place, place, place}, mirror);
        // Turned by 30 degrees about y: local = world turned back.
        auto& tf = s.record<miInstance>(square)->tf;
        const float c = 0.8660254f;
        const miMatrix turned = {
            c, 0, 0.5f, 0, 0, 1, 0, 0, -0.5f, 0, c, 0, -place * (c - 0.5f), -place, -place * (0.5f + c), 1};
        std::copy(std::begin(turned), std::end(turned), tf.global_to_local);
        s.build();
        int hits = 0;
        for (float x = -0.8f; x <= 0.8f; x += 0.07f) {
            miState state = s.eye(place + x, place + 0.5f * x);
            miColor result{};
            const stage::ArenaScope scope(s.context.arena);
            hits += stage::shade_eye_sample(&result, &state);
        }
        EXPECT_GT(hits, 20);
        EXPECT_EQ(met, 0) << place;
    }
}

TEST(StageTrace, LoopsOfRaysNeedNoMoreMemoryThanOne) {
    TestScene s;
    std::size_t after_one = 0;
    std::size_t after_many = 0;
    const miTag mirror = s.add_material(s.add_shader([&](void* r, miState* state, void*, void*) {
        miVector up{0.0f, 0.0f, 1.0f};
        for (int k = 0; k < 100; ++k) {
            mi_trace_reflection(static_cast<miColor*>(r), state, &up);
            (k ? after_many : after_one) = s.context.arena.mark().used;
        }
        return miTRUE;
    }));
    s.add_square(origin, mirror);
    s.build();
    s.shade();
    EXPECT_EQ(after_one, after_many);
}

// A shader may cast from its parent's state while its own ray is still on its way.
TEST(StageTrace, RaysInFlightAreLeftAlone) {
    TestScene s;
    const miTag mirror = s.add_material(s.add_shader([&](void* r, miState* state, void*, void*) {
        miVector up{0.0f, 0.0f, 1.0f};
        mi_trace_reflection(static_cast<miColor*>(r), state, &up);
        EXPECT_NEAR(state->child->point.z, 20.0f, 1e-5f);
        return miTRUE;
    }));
    const miTag other = s.add_material(s.add_shader([&](void*, miState* state, void*, void*) {
        miVector down{0.0f, 0.0f, -1.0f};
        miVector org{0.0f, 0.0f, 5.0f};
        EXPECT_TRUE(mi_trace_probe(state->parent, &down, &org));
        EXPECT_NEAR(state->parent->child->point.z, 0.0f, 1e-6f);
        EXPECT_NEAR(state->point.z, 20.0f, 1e-5f);
        EXPECT_EQ(state->type, miRAY_REFLECT);
        return miTRUE;
    }));
    s.add_square(origin, mirror);
    s.add_square({0.0f, 0.0f, 20.0f}, other);
    s.build();
    s.shade();
}

// ---- lens shaders ----

TEST(StageLens, ChainsHandTheHitBack) {
    TestScene s;
    std::vector<std::string> log;
    miState* first_state = nullptr;
    miState* second_state = nullptr;
    const auto check_hit = [&](const miState* state) {
        ASSERT_NE(state->pri, nullptr);
        EXPECT_NEAR(state->dist, 10.0, 1e-4);
        expect_vector(state->point, 0.5f, 0.0f, 0.0f);
        expect_vector(state->normal, 0.0f, 0.0f, 1.0f);
        expect_vector(state->tex_list[0], 0.75f, 0.5f, 0.0f);
        EXPECT_EQ(state->label, 17u);
        EXPECT_NE(state->instance, miNULLTAG);
        EXPECT_NE(state->material, miNULLTAG);
        EXPECT_EQ(state->bary[2], 0.5f);
    };
    const miTag first = s.add_shader([&](void* r, miState* state, void*, void*) {
        first_state = state;
        EXPECT_EQ(state->parent, nullptr);
        miVector org = state->org;
        org.x = 0.5f; // the second one gets this ray
        const miBoolean lit = mi_trace_eye(static_cast<miColor*>(r), state, &org, &state->dir);
        log.push_back("first");
        check_hit(state);
        color(r).r += 1.0f;
        return lit;
    });
    const miTag second = s.add_shader([&](void* r, miState* state, void*, void*) {
        second_state = state;
        EXPECT_EQ(state->parent, first_state);
        EXPECT_EQ(state->call_type, miSHADER_LENS);
        EXPECT_EQ(state->org.x, 0.5f);
        const miBoolean lit = mi_trace_eye(static_cast<miColor*>(r), state, &state->org, &state->dir);
        log.push_back("second");
        check_hit(state);
        color(r).r *= 10.0f;
        return lit;
    });
    s.record<miFunction>(first)->next_function = second;
    s.camera->lens = first;
    const miTag square =
        s.add_square(origin, s.add_material(s.add_shader([&](void* r, miState* state, void*, void*) {
            log.push_back("material");
            EXPECT_EQ(state->parent, second_state);
            color(r).r = 3.0f;
            return miTRUE;
        })));
    s.record<miInstance>(square)->label = 17;
    s.build();
    miBoolean lit = miFALSE;
    EXPECT_EQ(s.shade(0.0f, 0.0f, &lit).r, 31.0f);
    EXPECT_TRUE(lit);
    EXPECT_EQ(log, (std::vector<std::string>{"material", "second", "first"}));
}

TEST(StageLens, CanTraceAgainAndSeesMisses) {
    TestScene s;
    s.camera->lens = s.add_shader([&](void* r, miState* state, void*, void*) {
        miColor one{};
        miVector org = state->org;
        EXPECT_TRUE(mi_trace_eye(&one, state, &org, &state->dir));
        EXPECT_NE(state->pri, nullptr);
        org.x = 30.0f;
        EXPECT_FALSE(mi_trace_eye(&one, state, &org, &state->dir));
        EXPECT_EQ(state->pri, nullptr);
        EXPECT_EQ(state->dist, 0.0);
        EXPECT_EQ(one.r, 0.0f);
        org.x = 0.0f;
        EXPECT_TRUE(mi_trace_eye(static_cast<miColor*>(r), state, &org, &state->dir));
        return miTRUE;
    });
    s.add_square(origin, s.add_material(s.add_shader([](void* r, miState*, void*, void*) {
        color(r).r = 3.0f;
        return miTRUE;
    })));
    s.build();
    EXPECT_EQ(s.shade().r, 3.0f);
}

TEST(StageLens, ClippingPlanesCutEyeRays) {
    TestScene s;
    s.add_square(origin, s.add_material(s.add_shader([](void* r, miState*, void*, void*) {
        color(r).r = 1.0f;
        return miTRUE;
    })));
    s.build();
    s.camera->clip = {9.0f, 11.0f};
    EXPECT_EQ(s.shade().r, 1.0f);
    s.camera->clip = {10.5f, 11.0f};
    EXPECT_EQ(s.shade().r, 0.0f);
    s.camera->clip = {1.0f, 9.5f};
    EXPECT_EQ(s.shade().r, 0.0f);
}

} // namespace
