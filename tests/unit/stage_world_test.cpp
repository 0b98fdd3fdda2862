// The instance graph as one frame sees it, and rays against it.
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <optional>
#include <string>

#include "mi/parser.h"
#include "render/affine.h"
#include "render/world.h"
#include "scene/scene.h"

namespace {

using stage::RayMask;
using stage::RenderCommand;
using stage::Scene;
using stage::SceneError;
using stage::World;
using stage::WorldInstance;

constexpr float infinity = std::numeric_limits<float>::infinity();

// A square of 2 by 2 in the plane z = 0, seen from +z; materials without shaders are enough here.
const std::string square = R"(
material "red" end material
material "blue" end material
object "square" visible shadow trace
    group
        -1 -1 0  1 -1 0  1 1 0  -1 1 0
        v 0  v 1  v 2  v 3
        p 0 1 2 3
    end group
end object
)";

// The camera stands at z = 10.
const std::string view = R"(
camera "cam" focal 1 aperture 1 aspect 1 resolution 8 8 end camera
instance "cam_inst" "cam" transform 1 0 0 0  0 1 0 0  0 0 1 0  0 0 -10 1 end instance
)";

// Reads a scene whose root is "root" and hands its world to `look`.
void with_world(const std::string& text, const std::function<void(World&)>& look, bool camera_space = false,
                const std::string& options = {}) {
    Scene scene;
    bool rendered = false;
    const std::string source = "options \"opt\" " + options + " end options\n" + view + text +
                               "\nrender \"root\" \"cam_inst\" \"opt\"\n";
    stage::parse_text(scene, source, "test.mi", [&](Scene& read, const RenderCommand& command) {
        World world(read, command, camera_space);
        look(world);
        rendered = true;
    });
    EXPECT_TRUE(rendered);
}

const WorldInstance& instance_named(const World& world, const std::string& name) {
    for (const WorldInstance& w : world.instances)
        if (world.scene.database.find(w.tag)->name == name)
            return w;
    throw std::runtime_error("no instance " + name);
}

std::string name_of(const World& world, miTag tag) {
    const stage::Element* element = world.scene.database.find(tag);
    return element ? element->name : "";
}

miVector to_internal(const WorldInstance& w, const miVector& p) {
    const miScalar* m = w.to_internal.m;
    return {p.x * m[0] + p.y * m[4] + p.z * m[8] + m[12], p.x * m[1] + p.y * m[5] + p.z * m[9] + m[13],
            p.x * m[2] + p.y * m[6] + p.z * m[10] + m[14]};
}

// Distance of the first hit below (x, y) from z = 10, in world space.
std::optional<double> look_down(const World& world, float x, float y, RayMask mask = RayMask::primary,
                                float time = 0.0f, double near = 0.0) {
    miRc_intersection hit;
    if (!world.intersect({x, y, 10.0f}, {0.0f, 0.0f, -1.0f}, near, infinity, time,
                         static_cast<std::uint32_t>(mask), hit))
        return std::nullopt;
    return hit.distance;
}

TEST(StageAffine, InverseUndoes) {
    // A scale, a shear, a turn and a shift.
    const miMatrix m = {2, 0.5f, 0, 0, -1, 3, 0.25f, 0, 0, 0.125f, -4, 0, 7, -8, 9, 1};
    const std::optional<stage::Affine> a = stage::Affine::from(m);
    ASSERT_TRUE(a);
    const auto inverse = a->inverse();
    ASSERT_TRUE(inverse);
    const stage::Affine product = *a * *inverse;
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            EXPECT_NEAR(product.rows[row][column], row == column ? 1.0 : 0.0, 1e-14);
    EXPECT_NEAR(a->determinant() * inverse->determinant(), 1.0, 1e-12);
}

TEST(StageAffine, RefusesWhatIsNoSpace) {
    const miMatrix projective = {1, 0, 0, 0.5f, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const miMatrix null = {};
    const miMatrix flat = {1, 2, 3, 0, 2, 4, 6, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const miMatrix tiny = {1e-12f, 0, 0, 0, 0, 1e-12f, 0, 0, 0, 0, 1e-12f, 0, 0, 0, 0, 1};
    const miMatrix infinite = {infinity, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    EXPECT_FALSE(stage::Affine::from(projective));
    EXPECT_FALSE(stage::Affine::from(null));
    EXPECT_FALSE(stage::Affine::from(infinite));
    EXPECT_FALSE(stage::Affine::from(flat)->inverse());
    EXPECT_TRUE(stage::Affine::from(tiny)->inverse()); // small is not flat
}

// The outer matrix takes world x to local x / 2, so its contents appear twice as large; the inner one shifts
// by -3 into local space, so the object stands at +3 inside the group: at x = 6 in the world.
const std::string nested = square + R"(
instance "leaf" "square" transform 1 0 0 0  0 1 0 0  0 0 1 0  -3 0 0 1 end instance
instgroup "inner" "leaf" end instgroup
instance "outer" "inner" transform 0.5 0 0 0  0 0.5 0 0  0 0 0.5 0  0 0 0 1 end instance
instgroup "root" "cam_inst" "outer" end instgroup
)";

TEST(StageWorld, TransformsNest) {
    with_world(nested, [](World& world) {
        ASSERT_EQ(world.instances.size(), 1u);
        const miVector p = to_internal(world.instances[0], {1, 1, 0.5f});
        EXPECT_FLOAT_EQ(p.x, 8.0f); // (1 + 3) * 2
        EXPECT_FLOAT_EQ(p.y, 2.0f);
        EXPECT_FLOAT_EQ(p.z, 1.0f);
        EXPECT_FALSE(look_down(world, 0, 0));
        ASSERT_TRUE(look_down(world, 6, 0));
        EXPECT_FLOAT_EQ(static_cast<float>(*look_down(world, 7.9f, -1.9f)), 10.0f);
        EXPECT_FALSE(look_down(world, 8.1f, 0));
    });
}

TEST(StageWorld, CameraSpaceIsSeenFromTheCamera) {
    with_world(
        nested,
        [](World& world) {
            const miVector p = to_internal(world.instances[0], {1, 1, 0.5f});
            EXPECT_FLOAT_EQ(p.x, 8.0f);
            EXPECT_FLOAT_EQ(p.z, 1.0f - 10.0f);
            EXPECT_EQ(world.world_to_internal.m[14], -10.0f);
            EXPECT_EQ(world.internal_to_world.m[14], 10.0f);
            EXPECT_EQ(world.camera_to_internal.m[14], 0.0f);
            miRc_intersection hit;
            EXPECT_TRUE(world.intersect({6, 0, 0}, {0, 0, -1}, 0, infinity, 0, 1, hit));
            EXPECT_FLOAT_EQ(static_cast<float>(hit.distance), 10.0f);
        },
        true);
    with_world(nested, [](World& world) { EXPECT_EQ(world.camera_to_internal.m[14], 10.0f); });
}

TEST(StageWorld, AnInstanceReachedTwiceHasTwoElements) {
    with_world(square + R"(
instance "leaf" "square" tag 7 end instance
instgroup "pair" "leaf" end instgroup
instance "left" "pair" transform 1 0 0 0  0 1 0 0  0 0 1 0  3 0 0 1 end instance
instance "right" "pair" transform 1 0 0 0  0 1 0 0  0 0 1 0  -3 0 0 1 end instance
instgroup "root" "cam_inst" "left" "right" end instgroup
)",
               [](World& world) {
                   ASSERT_EQ(world.instances.size(), 2u);
                   const WorldInstance &a = world.instances[0], &b = world.instances[1];
                   EXPECT_NE(a.tag, b.tag);
                   EXPECT_EQ(a.tag, world.scene.database.find("leaf")->tag);
                   for (const WorldInstance* w : {&a, &b}) {
                       EXPECT_EQ(name_of(world, w->tag), "leaf");
                       EXPECT_EQ(w->label, 7u);
                       EXPECT_EQ(world.find_instance(w->tag), w);
                       EXPECT_EQ(world.scene.database.find(w->tag)->as<miInstance>()->item, w->object_tag);
                   }
                   EXPECT_TRUE(look_down(world, -3, 0));
                   EXPECT_FALSE(look_down(world, 0, 0));
                   EXPECT_TRUE(look_down(world, 3, 0));
               });
}

TEST(StageWorld, MaterialsAreInherited) {
    with_world(square + R"(
object "coated" visible group
    -1 -1 0  1 -1 0  1 1 0  v 0 v 1 v 2  p "red" 0 1 2
end group end object
instance "plain" "square" end instance
instance "own" "square" material "red" end instance
instance "object_own" "coated" end instance
instance "forced" "coated" override material "blue" end instance
instgroup "inner" "plain" "own" "object_own" "forced" end instgroup
instance "outer" "inner" material "blue" end instance
instance "plain_2" "square" material "red" end instance
instgroup "inner_2" "plain_2" end instgroup
instance "outer_2" "inner_2" override material "blue" end instance
instgroup "root" "cam_inst" "outer" "outer_2" end instgroup
)",
               [](World& world) {
                   const std::pair<const char*, const char*> expected[] = {
                       {"plain", "blue"},     // from the group's instance
                       {"own", "red"},        // the nearer one
                       {"object_own", "red"}, // the object's own before any instance's
                       {"forced", "blue"},    // but for override
                       {"plain_2", "blue"},   // which reaches down
                   };
                   for (const auto& [instance, material] : expected)
                       EXPECT_EQ(name_of(world, instance_named(world, instance).material_of(0)), material)
                           << instance;
               });
}

TEST(StageWorld, LabelsChooseFromAListOfMaterials) {
    const std::string tagged = square + R"(
object "pieces" visible tagged group
    -1 -1 0  1 -1 0  1 1 0  -1 1 0  v 0 v 1 v 2 v 3  p 1 0 1 2  p 0 0 2 3
end group end object
instance "leaf" "pieces" material ["red", "blue"] end instance
instance "poor" "pieces" material ["red"] end instance
)";
    with_world(tagged + "instgroup \"root\" \"cam_inst\" \"leaf\" end instgroup", [](World& world) {
        EXPECT_EQ(name_of(world, world.instances[0].material_of(0)), "blue");
        EXPECT_EQ(name_of(world, world.instances[0].material_of(1)), "red");
    });
    EXPECT_THROW(with_world(tagged + "instgroup \"root\" \"cam_inst\" \"poor\" end instgroup", [](World&) {}),
                 SceneError);
}

TEST(StageWorld, FlagsDecideWhichRaysMeetAnInstance) {
    with_world(square + R"(
object "ghost" visible off shadow trace group
    -1 -1 0  1 -1 0  1 1 0  v 0 v 1 v 2  p 0 1 2
end group end object
instance "ghost_inst" "ghost" end instance
instance "shown_again" "ghost" visible on shadow off end instance
instance "hidden" "square" hide on end instance
instance "untraced" "square" trace off end instance
instance "below" "square" end instance
instgroup "group" "below" end instgroup
instance "group_inst" "group" shadow off end instance
instgroup "root" "cam_inst" "ghost_inst" "shown_again" "hidden" "untraced" "group_inst" end instgroup
)",
               [](World& world) {
                   ASSERT_EQ(world.instances.size(), 4u);
                   const auto meets = [&](const char* name, RayMask mask) {
                       return (instance_named(world, name).mask & static_cast<std::uint32_t>(mask)) != 0;
                   };
                   EXPECT_FALSE(meets("ghost_inst", RayMask::primary));
                   EXPECT_TRUE(meets("ghost_inst", RayMask::shadow));
                   EXPECT_TRUE(meets("shown_again", RayMask::primary));
                   EXPECT_FALSE(meets("shown_again", RayMask::shadow));
                   EXPECT_TRUE(meets("untraced", RayMask::primary));
                   EXPECT_FALSE(meets("untraced", RayMask::trace));
                   EXPECT_FALSE(meets("untraced", RayMask::reflection));
                   EXPECT_FALSE(meets("below", RayMask::shadow));
                   EXPECT_TRUE(meets("below", RayMask::primary));
               });
}

// Three squares, one above the other: a ray meets what it may meet, between near and far.
TEST(StageWorld, RaysHonourMasksAndDistances) {
    with_world(square + R"(
instance "top" "square" visible off transform 1 0 0 0  0 1 0 0  0 0 1 0  0 0 -4 1 end instance
instance "middle" "square" shadow off transform 1 0 0 0  0 1 0 0  0 0 1 0  0 0 -2 1 end instance
instance "bottom" "square" end instance
instgroup "root" "cam_inst" "top" "middle" "bottom" end instgroup
)",
               [](World& world) {
                   EXPECT_EQ(look_down(world, 0.2f, 0.1f, RayMask::primary), 8.0);
                   EXPECT_EQ(look_down(world, 0.2f, 0.1f, RayMask::shadow), 6.0);
                   EXPECT_EQ(look_down(world, 0.2f, 0.1f, RayMask::shadow, 0.0f, 7.0), 10.0);
                   miRc_intersection hit;
                   EXPECT_FALSE(world.intersect({0, 0.1f, 10}, {0, 0, -1}, 0, 7.9, 0,
                                                static_cast<std::uint32_t>(RayMask::primary), hit));
                   EXPECT_EQ(hit.instance, UINT32_MAX);
               });
}

TEST(StageWorld, SidesThatAreNotShownLetRaysPass) {
    with_world(square + R"(
instance "back_only" "square" face back transform 1 0 0 0  0 1 0 0  0 0 1 0  0 0 -4 1 end instance
instance "turned" "square" face front transform -1 0 0 0  0 1 0 0  0 0 -1 0  0 0 3 1 end instance
instance "mirrored" "square" face front transform -1 0 0 0  0 1 0 0  0 0 1 0  0 0 -2 1 end instance
instance "front_only" "square" face front end instance
instgroup "root" "cam_inst" "back_only" "turned" "mirrored" "front_only" end instgroup
)",
               [](World& world) {
                   // From above: the one at 4 shows its back only, that at 3 has its back up; mirroring in x
                   // leaves the front up at 2.
                   EXPECT_EQ(look_down(world, 0.2f, 0.1f), 8.0);
                   EXPECT_TRUE(instance_named(world, "mirrored").mirrored);
                   EXPECT_FALSE(instance_named(world, "turned").mirrored);
                   // From below only those two.
                   miRc_intersection hit;
                   ASSERT_TRUE(world.intersect({0.2f, 0.1f, -10}, {0, 0, 1}, 0, infinity, 0, 1, hit));
                   EXPECT_EQ(hit.distance, 13.0);
               });
}

TEST(StageWorld, MotionTransformsMoveWithTheShutter) {
    // World to local at the end: shifted by -4, so the square ends at x = 4.
    const std::string moving = square + R"(
instance "leaf" "square" motion transform 1 0 0 0  0 1 0 0  0 0 1 0  -4 0 0 1 end instance
instgroup "root" "cam_inst" "leaf" end instgroup
)";
    with_world(
        moving,
        [](World& world) {
            EXPECT_TRUE(world.moving);
            EXPECT_TRUE(look_down(world, 0, 0.1f, RayMask::primary, 0.0f));
            EXPECT_FALSE(look_down(world, 2, 0.1f, RayMask::primary, 0.0f));
            EXPECT_TRUE(look_down(world, 2, 0.1f, RayMask::primary, 0.5f));
            EXPECT_TRUE(look_down(world, 4, 0.1f, RayMask::primary, 1.0f));
            EXPECT_FALSE(look_down(world, 0, 0.1f, RayMask::primary, 1.0f));
        },
        false, "motion on shutter 1");
    with_world(moving, [](World& world) {
        EXPECT_FALSE(world.moving);
        EXPECT_TRUE(look_down(world, 0, 0.1f, RayMask::primary, 1.0f));
    });
}

TEST(StageWorld, LightsComeInOrder) {
    with_world(square + R"(
light "lamp" origin 0 0 0 end light
instance "first" "lamp" transform 1 0 0 0  0 1 0 0  0 0 1 0  0 -5 0 1 end instance
instance "off" "lamp" hide on end instance
instance "second" "lamp" end instance
instgroup "root" "cam_inst" "first" "off" "second" end instgroup
)",
               [](World& world) {
                   ASSERT_EQ(world.light_tags.size(), 2u);
                   EXPECT_EQ(name_of(world, world.light_tags[0]), "first");
                   EXPECT_EQ(name_of(world, world.light_tags[1]), "second");
                   EXPECT_EQ(world.find_light(world.light_tags[0])->to_internal.m[13], 5.0f);
                   EXPECT_EQ(world.find_light(world.scene.database.find("off")->tag), nullptr);
               });
}

TEST(StageWorld, MistakesNameTheElement) {
    const std::pair<std::string, const char*> cases[] = {
        {R"(instance "flat" "square" transform 1 0 0 0  0 1 0 0  0 0 0 0  0 0 0 1 end instance
            instgroup "root" "cam_inst" "flat" end instgroup)",
         "flat"},
        {R"(instance "some" "square" end instance instgroup "root" "some" end instgroup)", "cam_inst"},
    };
    for (const auto& [text, word] : cases) {
        try {
            with_world(square + text, [](World&) {});
            ADD_FAILURE() << text;
        } catch (const SceneError& error) {
            const std::string what = error.what();
            EXPECT_NE(what.find(word), std::string::npos) << what;
            EXPECT_NE(what.find("test.mi:"), std::string::npos) << what;
        }
    }
}

} // namespace
