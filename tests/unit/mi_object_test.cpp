// Polygon objects: vertices with all their parts, polygons of all kinds, groups, data words, comments within.
#include "mi_test_support.h"

#include <cmath>

namespace stage {
namespace {

class MiObject : public SceneFixture {
protected:
    const miTriangles& read(const std::string& text) {
        parse("declare shader \"tint\" () end declare material \"m\" \"tint\" () end material\n"
              "material \"m2\" \"tint\" () end material\nobject \"o\" " +
              text + " end object");
        return *record<miObject>("o").triangles;
    }
    static std::vector<miUint> indices(const miTriangles& t) {
        return {t.indices, t.indices + 3 * t.triangle_count};
    }
    static std::vector<float> at(const miTriangles& t, std::size_t vertex, int offset,
                                 std::size_t count = 3) {
        const float* first = t.vertices + vertex * static_cast<std::size_t>(t.vertex_stride) + offset;
        return {first, first + count};
    }
};

using Floats = std::vector<float>;
using Indices = std::vector<miUint>;

TEST_F(MiObject, SquareOfTheManual) {
    const miTriangles& t = read("visible shadow trace\n group\n"
                                "  -1 -1 0  1 -1 0  1 1 0  -1 1 0  0 0 1  0 0 0  1 1 0\n"
                                "  v 0 n 4 t 5  v 1 n 4 t 6  v 2 n 4 t 6  v 3 n 4 t 5\n"
                                "  p \"m\" 0 1 2 3\n end group");
    EXPECT_EQ(t.triangle_count, 2u);
    EXPECT_EQ(indices(t), (Indices{0, 1, 2, 0, 2, 3}));
    EXPECT_EQ(t.vertex_count, 4u);
    EXPECT_EQ(t.motion_offset, -1);
    EXPECT_EQ(t.texture_count, 1);
    EXPECT_EQ(at(t, 2, 0), (Floats{1, 1, 0}));
    EXPECT_EQ(at(t, 3, t.normal_offset), (Floats{0, 0, 1}));
    EXPECT_EQ(at(t, 1, t.texture_offset), (Floats{1, 1, 0}));
    EXPECT_EQ(t.material, element("m").tag);
    EXPECT_EQ(t.materials, nullptr);
    const auto& o = record<miObject>("o");
    EXPECT_EQ(o.bbox_min.x, -1.0f);
    EXPECT_EQ(o.bbox_max.y, 1.0f);
    EXPECT_EQ(o.visible, 1);
}

TEST_F(MiObject, BarePositionsHaveNothingElse) {
    const miTriangles& t = read("group 0 0 0 1 0 0 0 1 0 v 0 v 1 v 2 p 0 1 2 end group");
    EXPECT_EQ(t.vertex_stride, 3);
    EXPECT_EQ(t.normal_offset, -1);
    EXPECT_EQ(t.texture_offset, -1);
    EXPECT_EQ(t.bump_offset, -1);
    EXPECT_EQ(t.texture_count, 0);
    EXPECT_EQ(t.material, miNULLTAG);
}

TEST_F(MiObject, EveryPartOfAVertex) {
    // Vector k is (k, 10 k, 100 k), so that every mistaken index shows.
    std::string text = "group ";
    for (int k = 0; k < 12; ++k)
        text += std::to_string(k) + ' ' + std::to_string(10 * k) + ' ' + std::to_string(100 * k) + "e0 ";
    text += "v 0 n 1 t 2 x 3 y 4 t 5 x 6 y 7 t 8 m 9 v 1 n 1 t 2 x 3 y 4 t 5 x 6 y 7 t 8 m 9 "
            "v 2 n 11 t 10 x 9 y 8 t 7 x 6 y 5 t 4 m 3 c 0 1 2 end group";
    const miTriangles& t = read(text);
    const auto vector = [](int k) { return Floats{float(k), float(10 * k), float(100 * k)}; };
    EXPECT_EQ(t.texture_count, 3);
    EXPECT_EQ(t.bump_count, 2);
    EXPECT_EQ(at(t, 2, 0), vector(2));
    EXPECT_EQ(at(t, 2, t.normal_offset), vector(11));
    EXPECT_EQ(at(t, 2, t.motion_offset), vector(3));
    EXPECT_EQ(at(t, 2, t.texture_offset + 3), vector(7));
    EXPECT_EQ(at(t, 2, t.texture_offset + 6), vector(4));
    EXPECT_EQ(at(t, 2, t.bump_offset), vector(9));
    EXPECT_EQ(at(t, 2, t.bump_offset + 3), vector(8));
    EXPECT_EQ(at(t, 2, t.bump_offset + 6), vector(6));
    EXPECT_EQ(at(t, 2, t.bump_offset + 9), vector(5));
}

TEST_F(MiObject, GroupsAreJoined) {
    const miTriangles& t = read("group 0 0 0 1 0 0 0 1 0 v 0 v 1 v 2 p \"m\" 0 1 2 end group\n"
                                "group 5 0 0 6 0 0 5 1 0 v 0 v 1 v 2 p \"m2\" 2 0 1 end group");
    EXPECT_EQ(indices(t), (Indices{0, 1, 2, 5, 3, 4}));
    EXPECT_EQ(at(t, 5, 0), (Floats{5, 1, 0}));
    ASSERT_NE(t.materials, nullptr);
    EXPECT_EQ(t.materials[0], element("m").tag);
    EXPECT_EQ(t.materials[1], element("m2").tag);
}

TEST_F(MiObject, MaterialsLastUntilTheNext) {
    const miTriangles& t = read("group 0 0 0 1 0 0 1 1 0 0 1 0 v 0 v 1 v 2 v 3\n"
                                "p \"m\" 0 1 2\np 0 1 2 3\nc \"m2\" 0 1 2 3\ncp 0 1 2\np m 0 1 2 end group");
    const miTag m = element("m").tag, m2 = element("m2").tag;
    EXPECT_EQ(std::vector<miTag>(t.materials, t.materials + t.triangle_count),
              (std::vector<miTag>{m, m, m, m2, m2, m2, m}));
}

TEST_F(MiObject, LabelsAndDataWords) {
    const miTriangles& t = read("tagged on group 0 0 0 1 0 0 1 1 0 0 1 0 v 0 v 1 v 2 v 3\n"
                                "p 7 0 1 2 data 65540 7 -1\nc 9 0 1 2 3 data 1 2 4294967295 end group");
    EXPECT_EQ(t.data_count, 3);
    EXPECT_EQ(Indices(t.data, t.data + 9),
              (Indices{65540, 7, 0xffffffff, 1, 2, 0xffffffff, 1, 2, 0xffffffff}));
    EXPECT_EQ(std::vector<miTag>(t.materials, t.materials + 3), (std::vector<miTag>{7, 9, 9}));
}

TEST_F(MiObject, CommentsAnywhere) {
    const miTriangles& t =
        read("group 0 0 0 # a corner\n1 0 0 0 +1 # another\n0 # the last\n"
             "v # point\n 0 v 1 # and\n v 2\n# polygons\np # material\n 0 1 # two\n 2 end group");
    EXPECT_EQ(indices(t), (Indices{0, 1, 2}));
    EXPECT_EQ(at(t, 2, 0), (Floats{0, 1, 0}));
}

TEST_F(MiObject, NumbersAreTheNearestFloats) {
    const miTriangles& t = read("group 0.1 -.5 1.e2 1e-50 16777217 3.4028235e38 1E+2 123456789.123456789 -0 "
                                "v 0 v 1 v 2 p 0 1 2 end group");
    EXPECT_EQ(at(t, 0, 0), (Floats{0.1f, -0.5f, 100.0f}));
    EXPECT_EQ(at(t, 1, 0), (Floats{0.0f, 16777216.0f, 3.4028235e38f}));
    EXPECT_EQ(at(t, 2, 0), (Floats{100.0f, 123456792.0f, 0.0f}));
}

TEST_F(MiObject, IncrementalReplacesGroupsOrKeepsThem) {
    read("group 0 0 0 1 0 0 0 1 0 v 0 v 1 v 2 p \"m\" 0 1 2 end group");
    parse("incremental object \"o\" visible off end object");
    EXPECT_EQ(record<miObject>("o").triangles->triangle_count, 1u);
    EXPECT_EQ(record<miObject>("o").visible, 0);
    parse("incremental object \"o\" group 0 0 0 1 0 0 1 1 0 0 1 0 v 0 v 1 v 2 v 3 c 0 1 2 3 end group end "
          "object");
    EXPECT_EQ(record<miObject>("o").triangles->triangle_count, 2u);
    EXPECT_EQ(record<miObject>("o").visible, 0);
}

struct Bad {
    const char* text;
    const char* message;
};

class MiBadObject : public MiObject, public testing::WithParamInterface<Bad> {};

TEST_P(MiBadObject, IsReported) {
    const std::string report = mistake(std::string("object \"o\"\n") + GetParam().text);
    EXPECT_EQ(report.substr(0, report.find('\n')), std::string("test.mi:") + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MiBadObject,
    testing::Values(
        Bad{"group 0 0 end group", "2:11: the vectors of the group are 2 numbers, which is no multiple of 3"},
        Bad{"group 0 0 0 v 1", "2:15: there is no vector 1: the group has 1"},
        Bad{"group 0 0 0 v 0 n 7", "2:19: there is no vector 7: the group has 1"},
        Bad{"group 0 0 0 v 0 v 0 n 0",
            "2:23: this vertex has other parts than the object's first one; normals, motion "
            "vectors, texture spaces and bump basis vectors must be the same for all"},
        Bad{"group 0 0 0 v 0 p 0 0 1", "2:23: there is no vertex 1: the group has 1"},
        Bad{"group 0 0 0 v 0 p 0 0 end group",
            "2:23: a polygon needs at least 3 vertices, expected one more, found 'end'"},
        Bad{"group 0 0 0 v 0 c 0 0 0 hole 0 0 0 end",
            "2:34: a convex polygon has no holes: write p instead of c"},
        Bad{"group 0 0 0 v 0 p \"x\" 0 0 0", "2:19: there is no material \"x\""},
        Bad{"group 0 0 0 v 0 p 0 0 0 data 1 2 p 0 0 0 data 1 end",
            "2:47: every polygon of an object must have as many data words as the first, 2"},
        Bad{"group 0 0 0 v 0 p 0 0 0 data 1 p 0 0 0 end",
            "2:40: expected the polygon's data words, which the object's first polygon has, found 'end'"},
        Bad{"group 1e39 0 0", "2:7: the number is too large for a scalar"},
        Bad{"group inf 0 0", "2:7: expected a vertex (v), a polygon (c, cp, p) or 'end group', found 'inf'"},
        Bad{"group 1.2.3 0 0", "2:7: this is no number"},
        Bad{"group 0 0 0 v 99999999999", "2:15: the integer is outside the range 0 to 4294967295"},
        Bad{"group 0 0 0 v -1", "2:15: the integer is outside the range 0 to 4294967295"},
        Bad{"tagged group 0 0 0 v 0 p \"x\" 0 0 0",
            "2:26: expected the label of the polygon, since the object is tagged, found the string \"x\""},
        Bad{"group 0 0 0 v 0 t 0 x 0 t", "2:25: expected y and the second bump basis vector, found 't'"},
        Bad{"group 0 0 0",
            "2:12: expected a vertex (v), a polygon (c, cp, p) or 'end group', found the end of the file"},
        Bad{"motion box 0 0 0 1 1 1", "2:1: unknown statement 'motion' in an object; expected visible, "
                                      "shadow, trace, select, reflection, "
                                      "refraction, transparency, caustic, globillum, finalgather, tagged, "
                                      "face, tag, data, group or end object"}));

} // namespace
} // namespace stage
