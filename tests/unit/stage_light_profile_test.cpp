// Files of measured lamps: what a table says between its angles, and what a broken file is told.
#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

#include "scene/light_profile.h"
#include "scene/scene.h"

namespace stage {
namespace {

// Lines 1 and 2 are the header, 3 and 4 the numbers before the angles; tables begin in line 5.
std::string file(const std::string& size, const std::string& table, const std::string& format = "IESNA91",
                 const std::string& factors = "1 1 0") {
    return format + "\r\nTILT=NONE\r\n1 -1 2 " + size + " 1 1 0 0 0\n" + factors + "\n" + table;
}

float value(const LightProfile& profile, double theta, double phi) {
    const double t = theta * std::numbers::pi / 180.0, p = phi * std::numbers::pi / 180.0;
    return profile.value({static_cast<float>(std::sin(t) * std::cos(p)),
                          static_cast<float>(std::sin(t) * std::sin(p)), static_cast<float>(-std::cos(t))});
}

// The multiplier is 2. Rows are planes; the second vertical angle of each, 50 degrees, is looked at.
TEST(LightProfile, CompletesTheCircle) {
    const struct {
        std::string text;
        double phi;
        float candela;
    } cases[] = {
        {file("3 1", "0 50 90 0 1 2 3"), 77, 4},
        {file("3 2", "0 50 90 0 90 0 10 0 0 20 0"), 45, 30}, // quarters
        {file("3 2", "0 50 90 0 90 0 10 0 0 20 0"), 225, 30},
        {file("3 2", "0 50 90 0 90 0 10 0 0 20 0"), 180, 20},
        {file("3 2", "0 50 90 0 180 0 10 0 0 28 0"), 270, 38},        // halves
        {file("3 3", "0 50 90 90 180 270 0 1 0 0 2 0 0 4 0"), 45, 3}, // the other halves
        {file("3 3", "0 50 90 90 180 270 0 1 0 0 2 0 0 4 0"), 315, 6},
        {file("3 3", "0 50 90 0 270 360 0 1 0 0 4 0 0 1 0"), 315, 5}, // whole
        // The second factor counts in old files alone.
        {file("3 1", "0 50 90 0 1 2 3", "any lamp", "3 .5 0"), 0, 6},
        {file("3 1", "0 50 90 0 1 2 3", "IESNA:LM-63-1995", "3 .5 0"), 0, 12},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(value(read_light_profile(c.text, "x.ies"), 50.0, c.phi), c.candela, 1e-4)
            << c.text << " " << c.phi;
}

TEST(LightProfile, IsDarkWhereTheTableSaysNothing) {
    const LightProfile below = read_light_profile(file("3 1", "0,45,90\n0\n1,2,4"), "x.ies");
    const LightProfile above = read_light_profile(file("2 1", "90 180 0 1 3"), "x.ies");
    const double angles[] = {0, 22.5, 89.99, 90.01, 135, 180};
    const float expected[][2] = {{2, 0}, {3, 0}, {8, 0}, {0, 2}, {0, 4}, {0, 6}};
    for (int k = 0; k < 6; ++k) {
        EXPECT_NEAR(value(below, angles[k], 10), expected[k][0], 2e-3) << angles[k];
        EXPECT_NEAR(value(above, angles[k], 10), expected[k][1], 2e-3) << angles[k];
    }
}

TEST(LightProfile, TellsWhatIsWrongAndWhere) {
    const struct {
        std::string text, report;
    } cases[] = {
        {"", "x.ies:0: no line begins with TILT="},
        {"IESNA91\nTILT=INCLUDE\n", "x.ies:2: only TILT=NONE"},
        {"TILT=", "x.ies:1: only TILT=NONE"},
        {"TILT=NONE\n1 1000\n", "x.ies:3: the file ends where the multiplier is expected"},
        {"TILT=NONE\n1 1000 one", "x.ies:2: expected the multiplier, found \"one\""},
        {file("3.5 1", ""), "x.ies:3: the number of vertical angles must be a whole number"},
        {file("1 1", ""), "x.ies:3: the number of vertical angles must be a whole number from 2"},
        {file("3 -1", ""), "x.ies:3: the number of horizontal angles must be"},
        {file("3 2000000000", ""), "x.ies:3: the number of horizontal angles must be"},
        {"TILT=NONE\n1 1 1 2 1 2", "x.ies:2: only photometry of type C"},
        {file("3 1", "0 90\n45"), "x.ies:6: vertical angles must ascend"},
        {file("2 1", "0 190"), "x.ies:5: a vertical angle must lie from 0 to 180"},
        {file("2 2", "0 90\n0 120\n1 1 1 1"), "x.ies:6: horizontal angles must be 0 alone or"},
        {file("2 1", "0 90\n0\n1 nan"), "x.ies:7: expected a candela value, found \"nan\""},
        {file("2 1", "0 90\n0\n1 1e999"), "x.ies:7: expected a candela value"},
        {file("2 1", "0 90\n0\n1 -1"), "x.ies:7: a candela value must not be negative"},
        {file("2 1", "0 90\n0\n1"), "x.ies:7: the file ends where a candela value is expected"},
        {file("2 1", "0 90\n0\n1 2\n3"), "x.ies:8: there are more values than the 2 x 1 angles"},
        {file("2 1", "0 90\n0\n3e38 3e38"), "x.ies:7: the multiplier and the factors"},
    };
    for (const auto& c : cases) {
        std::string report;
        try {
            read_light_profile(c.text, "x.ies");
        } catch (const SceneError& error) {
            report = error.what();
        }
        EXPECT_THAT(report, testing::StartsWith(c.report)) << c.text;
    }
}

} // namespace
} // namespace stage
