// Light samples and shadows, with light shaders and shadow shaders of the test.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <vector>

#include "stage_scene.h"

namespace {

using stage_test::color;
using stage_test::TestScene;

void expect_vector(const miVector& v, float x, float y, float z) {
    EXPECT_NEAR(v.x, x, 1e-5f);
    EXPECT_NEAR(v.y, y, 1e-5f);
    EXPECT_NEAR(v.z, z, 1e-5f);
}

// What a surface at z = 0 below the camera got from a light.
struct Received {
    std::vector<miColor> colors;
    std::vector<miVector> dirs;
    std::vector<miScalar> cosines;
    miInteger samples = 0;
    float sum = 0.0f;
};

// Puts a surface at z = 0 into the scene that takes all samples of `light` into `received`.
void add_receiver(TestScene& s, const miTag& light, Received& received) {
    s.add_square({0.0f, 0.0f, 0.0f}, s.add_material(s.add_shader([&](void*, miState* state, void*, void*) {
        miColor c;
        miVector dir;
        miScalar cosine;
        while (mi_sample_light(&c, &dir, &cosine, state, light, &received.samples)) {
            received.colors.push_back(c);
            received.dirs.push_back(dir);
            received.cosines.push_back(cosine);
            received.sum += c.r;
        }
        return miTRUE;
    })));
}

miBoolean white(void* r, miState*, void*, void*) {
    color(r) = {1.0f, 1.0f, 1.0f, 1.0f};
    return miTRUE;
}

// ---- states of light rays ----

struct LightCase {
    const char* name;
    miVector place;
    miLight_type type;
    miVector direction;
    bool has_plane;
    miVector expected_dir; // from the light
    double expected_dist;
    float expected_cosine;
};

// The illuminated point is (0.6, 0, 0), its normal (0, 0, 1).
const LightCase light_cases[] = {
    {"point", {0.0f, 0.0f, 0.8f}, miLIGHT_ORIGIN, {}, false, {0.6f, 0.0f, -0.8f}, 1.0, 0.8f},
    {"below", {0.6f, 0.0f, -2.0f}, miLIGHT_ORIGIN, {}, false, {0.0f, 0.0f, 1.0f}, 2.0, -1.0f},
    {"spot that looks away", {0.0f, 0.0f, 0.8f}, miLIGHT_SPOT, {0, 0, 1}, false, {0.6f, 0, -0.8f}, 1.0, 0.8f},
    {"far away", {5.0f, 0.0f, 3.0f}, miLIGHT_DIRECTION, {0.6f, 0, -0.8f}, false, {0.6f, 0, -0.8f}, 1e7, 0.8f},
    {"plane", {0.0f, 0.0f, 3.0f}, miLIGHT_DIRECTION, {0.0f, 0, -2.0f}, true, {0, 0, -1.0f}, 3.0, 1.0f},
    {"behind its plane", {0.0f, 0.0f, -3.0f}, miLIGHT_DIRECTION, {0, 0, -1.0f}, true, {0, 0, -1}, 1e7, 1.0f},
};

TEST(StageLights, StatesOfLightRays) {
    for (const LightCase& c : light_cases) {
        SCOPED_TRACE(c.name);
        TestScene s;
        int calls = 0;
        miTag light = miNULLTAG;
        Received received;
        const miTag shader = s.add_shader([&](void* r, miState* state, void*, void*) {
            ++calls;
            EXPECT_EQ(state->type, miRAY_LIGHT);
            EXPECT_EQ(state->call_type, miSHADER_LIGHT);
            EXPECT_EQ(state->light_instance, light);
            EXPECT_EQ(state->parent->type, miRAY_EYE);
            EXPECT_EQ(state->parent->call_type, miSHADER_MATERIAL);
            EXPECT_EQ(state->parent->child, state);
            expect_vector(state->point, 0.6f, 0.0f, 0.0f);
            expect_vector(state->normal, 0.0f, 0.0f, 1.0f);
            expect_vector(state->dir, c.expected_dir.x, c.expected_dir.y, c.expected_dir.z);
            EXPECT_NEAR(state->dist, c.expected_dist, 1e-6 * c.expected_dist);
            EXPECT_NEAR(state->dot_nd, c.expected_cosine, 1e-6f);
            if (c.expected_dist < 100.0) {
                expect_vector(state->org, 0.6f - c.expected_dir.x * static_cast<float>(c.expected_dist),
                              -c.expected_dir.y * static_cast<float>(c.expected_dist),
                              -c.expected_dir.z * static_cast<float>(c.expected_dist));
            }
            return white(r, state, nullptr, nullptr);
        });
        light = s.add_light(shader, c.place, [&](miLight& record) {
            record.type = c.type;
            record.direction = c.direction;
            record.dirlight_has_org = c.has_plane;
        });
        add_receiver(s, light, received);
        s.build();
        s.shade(0.6f, 0.0f);
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(received.samples, 1);
        ASSERT_EQ(received.dirs.size(), 1u);
        expect_vector(received.dirs[0], -c.expected_dir.x, -c.expected_dir.y, -c.expected_dir.z);
        EXPECT_NEAR(received.cosines[0], c.expected_cosine, 1e-6f);
    }
}

// What the light shader leaves as cosine is what the surface gets; FALSE means no light.
TEST(StageLights, TheShaderDecides) {
    TestScene s;
    Received received;
    const miTag ambient = s.add_light(s.add_shader([](void* r, miState* state, void*, void*) {
        state->dot_nd = 1.0f;
        color(r).r = 0.0f;
        return miTRUE;
    }),
                                      {0.0f, 0.0f, -1.0f});
    add_receiver(s, ambient, received);
    s.build();
    s.shade();
    ASSERT_EQ(received.cosines.size(), 1u); // black light is light all the same
    EXPECT_EQ(received.cosines[0], 1.0f);
}

TEST(StageLights, SurfacesInVolumesAreLitFromTheFront) {
    TestScene s;
    miTag light = miNULLTAG;
    std::vector<float> cosines;
    light = s.add_light(s.add_shader([&](void*, miState* state, void*, void*) {
        cosines.push_back(state->dot_nd);
        return miTRUE;
    }),
                        {0.0f, 0.0f, -4.0f});
    s.camera->volume = s.add_shader([&](void*, miState* state, void*, void*) {
        state->pri = nullptr;
        state->volume = miNULLTAG;
        miColor c;
        miVector dir;
        miScalar cosine;
        miInteger samples = 0;
        while (mi_sample_light(&c, &dir, &cosine, state, light, &samples)) {
        }
        return miTRUE;
    });
    s.add_square({0.0f, 0.0f, 0.0f}, s.add_material(s.add_shader(white)));
    s.build();
    s.shade();
    EXPECT_EQ(cosines, std::vector<float>{1.0f}); // the light is below
}

TEST(StageLights, VolumeOfTheLightRay) {
    for (const bool clears : {false, true}) {
        TestScene s;
        Received received;
        s.camera->volume = s.add_shader([&](void* r, miState* state, void*, void*) {
            if (state->type == miRAY_LIGHT) {
                EXPECT_NEAR(state->dist, 4.0, 1e-6);
                color(r).r *= 0.25f;
            }
            return miTRUE;
        });
        const miTag light = s.add_light(s.add_shader([&](void* r, miState* state, void*, void*) {
            if (clears)
                state->volume = miNULLTAG;
            return white(r, state, nullptr, nullptr);
        }),
                                        {0.0f, 0.0f, 4.0f});
        add_receiver(s, light, received);
        s.build();
        s.shade();
        ASSERT_EQ(received.colors.size(), 1u);
        EXPECT_EQ(received.colors[0].r, clears ? 1.0f : 0.25f);
    }
}

// ---- areas ----

// Starts of the light's rays, relative to its centre.
std::vector<miVector> area_points(const std::function<void(miLight&)>& fill, int reflection_level = 0) {
    TestScene s;
    Received received;
    std::vector<miVector> points;
    const miTag light = s.add_light(s.add_shader([&](void*, miState* state, void*, void*) {
        points.push_back({state->org.x, state->org.y, state->org.z - 4.0f});
        return miTRUE;
    }),
                                    {0.0f, 0.0f, 4.0f}, fill);
    s.add_square({0.0f, 0.0f, 0.0f}, s.add_material(s.add_shader([&](void*, miState* state, void*, void*) {
        state->reflection_level = reflection_level;
        miColor c;
        miVector dir;
        miScalar cosine;
        while (mi_sample_light(&c, &dir, &cosine, state, light, &received.samples)) {
        }
        return miTRUE;
    })));
    s.build();
    s.shade();
    EXPECT_EQ(received.samples, static_cast<int>(points.size()));
    return points;
}

TEST(StageAreaLights, RectangleHasOneSampleInEachCell) {
    const auto rectangle = [](miLight& light) {
        light.area = miLIGHT_RECTANGLE;
        light.primitive.rectangle.edge_u = {2.0f, 0.0f, 0.0f};
        light.primitive.rectangle.edge_v = {0.0f, 1.0f, 0.0f};
        light.samples_u = 4;
        light.samples_v = 3;
        light.low_samples_u = 2;
        light.low_samples_v = 1;
        light.low_level = 2;
    };
    std::set<std::pair<int, int>> cells;
    for (const miVector& p : area_points(rectangle)) {
        EXPECT_NEAR(p.z, 0.0f, 1e-6f);
        ASSERT_TRUE(std::fabs(p.x) <= 2.0f && std::fabs(p.y) <= 1.0f);
        cells.emplace(static_cast<int>((p.x + 2.0f) / 4.0f * 4.0f),
                      static_cast<int>((p.y + 1.0f) / 2.0f * 3.0f));
    }
    EXPECT_EQ(cells.size(), 12u);
    EXPECT_EQ(area_points(rectangle, 1).size(), 12u);
    EXPECT_EQ(area_points(rectangle, 2).size(), 2u);
}

// Means and mean squares of evenly spread points: disc r^2 / 2, sphere z^2 = r^2 / 3, cylinder h^2 / 3.
// Stratified samples scatter far less than independent ones, so 3 per cent is wide.
TEST(StageAreaLights, RoundAreasAreEvenlyCovered) {
    const auto grid = [](miLight& light) { light.samples_u = light.samples_v = 24; };
    double squared = 0.0;
    std::vector<miVector> points = area_points([&](miLight& light) {
        grid(light);
        light.area = miLIGHT_DISC;
        light.primitive.disc.normal = {0.0f, 3.0f, 0.0f};
        light.primitive.disc.radius = 2.0f;
    });
    for (const miVector& p : points) {
        EXPECT_NEAR(p.y, 0.0f, 1e-6f);
        squared += (p.x * p.x + p.z * p.z) / 576.0;
    }
    EXPECT_NEAR(squared, 2.0, 0.06);

    squared = 0.0;
    points = area_points([&](miLight& light) {
        grid(light);
        light.area = miLIGHT_SPHERE;
        light.primitive.sphere.radius = 3.0f;
    });
    for (const miVector& p : points) {
        EXPECT_NEAR(std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z), 3.0f, 1e-5f);
        squared += p.z * p.z / 576.0;
    }
    EXPECT_NEAR(squared, 3.0, 0.09);

    squared = 0.0;
    points = area_points([&](miLight& light) {
        grid(light);
        light.area = miLIGHT_CYLINDER;
        light.primitive.cylinder.axis = {3.0f, 0.0f, 0.0f};
        light.primitive.cylinder.radius = 0.5f;
    });
    for (const miVector& p : points) {
        EXPECT_NEAR(std::sqrt(p.y * p.y + p.z * p.z), 0.5f, 1e-5f);
        squared += p.x * p.x / 576.0;
    }
    EXPECT_NEAR(squared, 3.0, 0.09);
}

TEST(StageAreaLights, DarkSamplesCount) {
    TestScene s;
    Received received;
    int calls = 0;
    const miTag light = s.add_light(s.add_shader([&](void* r, miState* state, void*, void*) {
        white(r, state, nullptr, nullptr);
        return ++calls % 4 ? miFALSE : miTRUE;
    }),
                                    {0.0f, 0.0f, 4.0f}, [](miLight& record) {
                                        record.area = miLIGHT_SPHERE;
                                        record.primitive.sphere.radius = 1.0f;
                                        record.samples_u = 4;
                                        record.samples_v = 4;
                                    });
    add_receiver(s, light, received);
    s.build();
    s.shade();
    EXPECT_EQ(received.colors.size(), 4u);
    EXPECT_EQ(received.samples, 16);
}

// The average over the samples of a group is the sum of its lights: 1 + 3, though one takes four samples.
TEST(StageLights, GroupsStandForTheirMembers) {
    TestScene s;
    Received received;
    const auto shader = [&](float value) {
        return s.add_shader([value](void* r, miState*, void*, void*) {
            color(r).r = value;
            return miTRUE;
        });
    };
    const miTag one = s.add_light(shader(1.0f), {0.0f, 0.0f, 4.0f});
    const miTag three = s.add_light(shader(3.0f), {0.0f, 1.0f, 4.0f}, [](miLight& record) {
        record.area = miLIGHT_SPHERE;
        record.primitive.sphere.radius = 1.0f;
        record.samples_u = record.samples_v = 2;
    });
    const miTag group = s.add(miSCENE_GROUP, sizeof(miGroup) + 2 * sizeof(miTag)).tag;
    auto* members = s.record<miGroup>(group);
    members->no_kids = 2;
    members->kids[0] = one;
    members->kids[1] = three;
    add_receiver(s, group, received);
    s.build();
    s.shade();
    EXPECT_EQ(received.samples, 5);
    EXPECT_NEAR(received.sum / 5.0f, 4.0f, 1e-5f);

    int count = 0;
    miTag* lights = nullptr;
    miState state = s.eye();
    ASSERT_TRUE(mi_global_lights_info(&state, &count, &lights));
    ASSERT_EQ(count, 2);
    EXPECT_EQ(lights[0], one);
    EXPECT_EQ(lights[1], three);
}

// ---- shadows ----

// A surface at z = 0, a point light at z = 5 that starts with `color` and casts a shadow ray, and whatever
// the test puts between them, left of the camera's view.
class Shadows {
public:
    TestScene s;
    Received received;
    miBoolean answer = miTRUE;
    miColor light_color{8.0f, 8.0f, 8.0f, 1.0f};
    std::vector<float> order; // heights at which shadow shaders were called
    std::function<void(miState*)> before_shadow = [](miState*) {};

    Shadows() {
        light = s.add_light(s.add_shader([this](void* r, miState* state, void*, void*) {
            color(r) = light_color;
            before_shadow(state);
            answer = mi_trace_shadow(static_cast<miColor*>(r), state);
            return miTRUE;
        }),
                            {0.0f, 0.0f, 5.0f});
        add_receiver(s, light, received);
        surface_shader = s.add_shader(white);
    }

    // A surface that is seen by shadow rays only.
    miTag add_occluder(float height, miTag material) {
        const miTag instance = s.add_square({0.0f, 0.0f, height}, material);
        s.record<miInstance>(instance)->visible = 0;
        return material;
    }

    // One whose shadow shader does c -> c / 2 + height in red, after the rest of the way in segment mode.
    miTag add_filter(float height) {
        const miTag shadow = s.add_shader([this, height](void* r, miState* state, void*, void*) {
            order.push_back(height);
            check(state, height);
            if (state->options->shadow == 's' && !mi_trace_shadow_seg(static_cast<miColor*>(r), state))
                return miFALSE;
            color(r).r = color(r).r * 0.5f + height;
            return miTRUE;
        });
        return add_occluder(height, s.add_material(surface_shader, shadow));
    }

    // Traces one shadow ray; the light's red arrives.
    float trace(int mode) {
        if (!s.world)
            s.build();
        s.options->shadow = mode;
        order.clear();
        received = {};
        s.shade(0.3f, 0.2f);
        return received.colors.at(0).r;
    }

    std::function<void(const miState*, float)> check = [](const miState*, float) {};
    miTag light = miNULLTAG;
    miTag surface_shader = miNULLTAG;
};

TEST(StageShadows, OrderAndResultOfEachMode) {
    Shadows t;
    for (const float height : {2.0f, 1.0f, 3.0f})
        t.add_filter(height);
    // From the light: 8 -> 7 -> 5.5 -> 3.75; from the point: 8 -> 5 -> 4.5 -> 5.25.
    EXPECT_EQ(t.trace(0), 8.0f);
    EXPECT_TRUE(t.order.empty());
    EXPECT_FLOAT_EQ(t.trace('l'), 3.75f);
    EXPECT_EQ(t.order, (std::vector<float>{3.0f, 2.0f, 1.0f}));
    EXPECT_FLOAT_EQ(t.trace('s'), 3.75f);
    EXPECT_EQ(t.order, (std::vector<float>{1.0f, 2.0f, 3.0f}));
    EXPECT_FLOAT_EQ(t.trace(1), 5.25f); // any order is right; this is ours
    EXPECT_TRUE(t.answer);
}

TEST(StageShadows, StatesOfShadowRays) {
    Shadows t;
    t.add_filter(1.0f);
    t.add_filter(3.0f);
    int checked = 0;
    t.check = [&](const miState* state, float height) {
        ++checked;
        EXPECT_EQ(state->type, miRAY_SHADOW);
        EXPECT_EQ(state->call_type, miSHADER_SHADOW);
        EXPECT_NEAR(state->point.z, height, 1e-5f);
        EXPECT_FALSE(state->inv_normal);
        expect_vector(state->normal, 0.0f, 0.0f, 1.0f);
        EXPECT_EQ(state->light_instance, t.light);
        const bool segments = state->options->shadow == 's';
        // Sorted: from the light at z = 5 down. Segments: up, from the surface or the one before.
        EXPECT_NEAR(state->org.z, !segments ? 5.0f : height == 1.0f ? 0.0f : 1.0f, 1e-5f);
        EXPECT_EQ(state->dir.z > 0.0f, segments);
        const double way = std::fabs(static_cast<double>(state->point.z - state->org.z));
        EXPECT_NEAR(state->dist, way / std::fabs(static_cast<double>(state->dir.z)), 1e-4);
        EXPECT_EQ(state->parent->type, segments && height == 3.0f ? miRAY_SHADOW : miRAY_LIGHT);
    };
    t.trace('l');
    t.trace('s');
    EXPECT_EQ(checked, 4);
}

TEST(StageShadows, WhatBlocks) {
    enum class Kind { no_shadow_shader, opaque, black, refuses, hull };
    for (const Kind kind : {Kind::no_shadow_shader, Kind::opaque, Kind::black, Kind::refuses, Kind::hull}) {
        for (const int mode : {1, int{'l'}, int{'s'}}) {
            Shadows t;
            const miTag shadow = t.s.add_shader([&](void* r, miState*, void*, void*) {
                if (kind == Kind::black)
                    color(r) = {};
                return kind == Kind::refuses ? miFALSE : miTRUE;
            });
            const bool has_shadow = kind != Kind::no_shadow_shader && kind != Kind::hull;
            const miTag material = t.s.add_material(kind == Kind::hull ? miNULLTAG : t.surface_shader,
                                                    has_shadow ? shadow : miNULLTAG);
            t.s.record<miMaterial>(material)->opaque = kind == Kind::opaque;
            t.add_occluder(2.0f, material);
            t.add_filter(1.0f);
            const float arrives = t.trace(mode);
            if (kind == Kind::hull) {
                EXPECT_FLOAT_EQ(arrives, 5.0f) << "mode " << mode; // 8 / 2 + 1, by the filter alone
                EXPECT_TRUE(t.answer);
            } else {
                EXPECT_EQ(arrives, 0.0f) << "kind " << static_cast<int>(kind) << " mode " << mode;
                EXPECT_FALSE(t.answer);
            }
            if (mode == 'l' && (kind == Kind::opaque || kind == Kind::no_shadow_shader)) {
                EXPECT_TRUE(t.order.empty()); // nothing is shaded in vain
            }
        }
    }
}

TEST(StageShadows, OptionsAndToleranceOfTheCastingState) {
    Shadows t;
    t.add_filter(1.0f);
    t.add_filter(3.0f);
    miOptions off;
    t.before_shadow = [&](miState* state) {
        off = *state->options;
        off.shadow = 0;
        state->options = &off;
    };
    EXPECT_EQ(t.trace('l'), 8.0f);
    t.before_shadow = [](miState* state) { state->shadow_tol = 2.0; };
    EXPECT_FLOAT_EQ(t.trace('l'), 7.0f); // 8 / 2 + 3
    EXPECT_FLOAT_EQ(t.trace('s'), 7.0f);
}

TEST(StageShadows, VolumesActOnEachSegment) {
    Shadows t;
    std::vector<std::pair<char, double>> pieces;
    const auto volume = [&](char name) {
        return t.s.add_shader([&pieces, name](void* r, miState* state, void*, void*) {
            if (state->type != miRAY_EYE) {
                pieces.emplace_back(name, std::fabs(static_cast<double>(state->point.z - state->org.z)));
                color(r).r *= 0.5f;
            }
            return miTRUE;
        });
    };
    t.s.camera->volume = volume('a');
    const miTag inside = volume('b');
    const miTag lower = t.s.add_shader([&](void* r, miState* state, void*, void*) {
        state->refraction_volume = inside;
        return mi_trace_shadow_seg(static_cast<miColor*>(r), state);
    });
    const miTag upper = t.s.add_shader([&](void* r, miState* state, void*, void*) {
        state->refraction_volume = t.s.camera->volume;
        return mi_trace_shadow_seg(static_cast<miColor*>(r), state);
    });
    t.add_occluder(1.0f, t.s.add_material(t.surface_shader, lower));
    t.add_occluder(3.0f, t.s.add_material(t.surface_shader, upper));
    // Pieces of 2, 2 and 1, from the light: each halves the light, and the light ray as a whole does not
    // again.
    EXPECT_FLOAT_EQ(t.trace('s'), 1.0f);
    ASSERT_EQ(pieces.size(), 3u);
    const std::pair<char, double> expected[] = {{'a', 2.0}, {'b', 2.0}, {'a', 1.0}};
    for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(pieces[k].first, expected[k].first);
        EXPECT_NEAR(pieces[k].second, expected[k].second, 1e-4);
    }
}

// The start of the way does not meet the surface itself, and the light's own place does not count.
TEST(StageShadows, NeitherEndShadowsItself) {
    Shadows t;
    t.add_occluder(5.0f, t.s.add_material(t.surface_shader));
    for (const int mode : {1, int{'l'}, int{'s'}})
        EXPECT_EQ(t.trace(mode), 8.0f);
}

} // namespace
