// The instance graph as one frame sees it, and rays against it.
#include "stage_scene.h"

namespace {

using stage::RayMask;
using stage::WorldInstance;

// A scene and the world below its group "root", with a square and a triangle that have positions alone. AT is
// a transform to local space without its last row.
class Frame : public stage_test::TestScene {
public:
    explicit Frame(std::string text) {
        for (std::size_t at; (at = text.find("AT")) != std::string::npos;)
            text.replace(at, 2, "transform 1 0 0 0  0 1 0 0  0 0 1 0 ");
        parse(R"(material "red" end material material "blue" end material light "lamp" origin 0 0 0 end light
object "bare" visible shadow trace group -1 -1 0  1 -1 0  1 1 0  -1 1 0  v 0 v 1 v 2 v 3  p 0 1 2 3 end group end object
object "coated" visible off shadow trace group -1 -1 0  1 -1 0  1 1 0  v 0 v 1 v 2  p "red" 0 1 2 end group end object
)" + text + " render root cam_inst opt");
    }
    std::string name_of(miTag tag) const { return tag ? scene.database.find(tag)->name : ""; }
    const WorldInstance& operator[](const std::string& name) const {
        for (const WorldInstance& w : world->instances)
            if (name_of(w.tag) == name)
                return w;
        throw std::runtime_error("no instance " + name);
    }
    // Distance of the first hit below (x, 0.1) from z = 10, in world space; -1 for none.
    double look_down(float x, RayMask mask = RayMask::primary, double near = 0, double far = 1e30) const {
        miRc_intersection hit;
        const auto bits = static_cast<std::uint32_t>(mask);
        return world->intersect({x, 0.1f, 10}, {0, 0, -1}, near, far, 0, bits, hit) ? hit.distance : -1;
    }
};

TEST(StageWorld, MaterialsAreInherited) {
    const Frame frame(R"(
object "pieces" tagged group -1 -1 0  1 -1 0  1 1 0  v 0 v 1 v 2  p 1 0 1 2  p 0 0 1 2 end group end object
instance "plain" "bare" end instance
instance "own" "bare" material "red" end instance
instance "object_own" "coated" end instance
instance "forced" "coated" override material "blue" end instance
instance "list" "pieces" material ["red", "blue"] end instance
instgroup "inner" "plain" "own" "object_own" "forced" "list" end instgroup
instance "outer" "inner" material "blue" end instance
instgroup "root" "cam_inst" "outer" end instgroup)");
    // From the group's instance; the nearer one; the object's own before any instance's, but for override; by
    // the label 1 from a list.
    for (const auto& [name, material] : {std::pair{"plain", "blue"},
                                         {"own", "red"},
                                         {"object_own", "red"},
                                         {"forced", "blue"},
                                         {"list", "blue"}})
        EXPECT_EQ(frame.name_of(frame[name].material_of(0)), material) << name;
    EXPECT_EQ(frame.name_of(frame["list"].material_of(1)), "red");
}

TEST(StageWorld, FlagsAndDistancesDecideWhatRaysMeet) {
    const Frame frame(R"(
instance "ghost" "coated" end instance
instance "shown_again" "coated" visible on shadow off end instance
instance "hidden" "bare" hide on end instance
instance "untraced" "bare" trace off AT 0 0 -2 1 end instance
instance "below" "bare" end instance instgroup "group" "below" end instgroup
instance "group_inst" "group" shadow off end instance
instance "top" "bare" visible off AT 0 0 -4 1 end instance
instance "off" "lamp" hide on end instance
instance "second" "lamp" AT 0 -5 0 1 end instance instance "first" "lamp" end instance
instgroup "root" "cam_inst" "ghost" "shown_again" "hidden" "untraced" "group_inst" "top" "first" "off" "second"
end instgroup)");
    ASSERT_EQ(frame.world->instances.size(), 5u);
    const struct {
        const char* name;
        RayMask mask;
        bool meets;
    } cases[] = {{"ghost", RayMask::primary, false},      {"ghost", RayMask::shadow, true},
                 {"shown_again", RayMask::primary, true}, {"shown_again", RayMask::shadow, false},
                 {"untraced", RayMask::primary, true},    {"untraced", RayMask::reflection, false},
                 {"below", RayMask::primary, true},       {"below", RayMask::shadow, false}};
    for (const auto& c : cases)
        EXPECT_EQ((frame[c.name].mask & static_cast<std::uint32_t>(c.mask)) != 0, c.meets) << c.name;
    EXPECT_EQ(frame.look_down(0.2f), 8);
    EXPECT_EQ(frame.look_down(0.2f, RayMask::shadow), 6);
    EXPECT_EQ(frame.look_down(0.2f, RayMask::shadow, 7), 8);
    EXPECT_EQ(frame.look_down(0.2f, RayMask::primary, 0, 7.9), -1);
    const auto& lights = frame.world->light_tags;
    ASSERT_EQ(lights.size(), 2u);
    EXPECT_EQ(frame.name_of(lights[0]) + frame.name_of(lights[1]), "firstsecond");
    EXPECT_EQ(frame.world->find_light(lights[1])->to_internal.m[13], 5.0f);
}

// From above: the one at 4 shows its back only, that at 3 has its back up; mirroring in x leaves the front up
// at 2. From below only those two.
TEST(StageWorld, SidesThatAreNotShownLetRaysPass) {
    const Frame frame(R"(instance "back_only" "bare" face back AT 0 0 -4 1 end instance
instance "turned" "bare" face front transform -1 0 0 0  0 1 0 0  0 0 -1 0  0 0 3 1 end instance
instance "mirrored" "bare" face front transform -1 0 0 0  0 1 0 0  0 0 1 0  0 0 -2 1 end instance
instance "front_only" "bare" face front end instance
instgroup "root" "cam_inst" "back_only" "turned" "mirrored" "front_only" end instgroup)");
    EXPECT_EQ(frame.look_down(0.2f), 8.0);
    miRc_intersection hit;
    ASSERT_TRUE(frame.world->intersect({0.2f, 0.1f, -10}, {0, 0, 1}, 0, 1e30, 0, 1, hit));
    EXPECT_EQ(hit.distance, 13.0);
}

} // namespace
