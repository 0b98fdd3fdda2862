// Polygon objects: vertices with all their parts, groups, materials, labels, data words, comments within.
#include "mi_test_support.h"

namespace stage {
namespace {

using Floats = std::vector<float>;
using Indices = std::vector<miUint>;

class MiObject : public SceneFixture {
protected:
    MiObject() {
        parse(R"(declare shader "tint" () end declare material "m" "tint" () end material
material "m2" "tint" () end material
)");
    }
    const miTriangles& read(const std::string& text) {
        parse(R"(object "o" )" + text + " end object");
        return *record<miObject>("o").triangles;
    }
    static Indices indices(const miTriangles& t) { return {t.indices, t.indices + 3 * t.triangle_count}; }
    static Indices materials(const miTriangles& t) { return {t.materials, t.materials + t.triangle_count}; }
    static Floats at(const miTriangles& t, std::size_t vertex, int offset) {
        const float* first = t.vertices + vertex * static_cast<std::size_t>(t.vertex_stride) + offset;
        return {first, first + 3};
    }
};

TEST_F(MiObject, EveryPartOfAVertex) {
    // Vector k is (k, 10 k, 100 k), so that every mistaken index shows.
    std::string text = "group ";
    for (int k = 0; k < 12; ++k)
        text += std::to_string(k) + ' ' + std::to_string(10 * k) + ' ' + std::to_string(100 * k) + "e0 ";
    text += "v 0 n 1 t 2 x 3 y 4 t 5 x 6 y 7 t 8 m 9 v 1 n 1 t 2 x 3 y 4 t 5 x 6 y 7 t 8 m 9 "
            "v 2 n 11 t 10 x 9 y 8 t 7 x 6 y 5 t 4 m 3 c 0 1 2 end group";
    const miTriangles& t = read(text);
    EXPECT_EQ(t.texture_count, 3);
    EXPECT_EQ(t.bump_count, 2);
    for (const auto& [offset, k] : {std::pair{0, 2},
                                    {t.normal_offset, 11},
                                    {t.motion_offset, 3},
                                    {t.texture_offset, 10},
                                    {t.texture_offset + 3, 7},
                                    {t.texture_offset + 6, 4},
                                    {t.bump_offset, 9},
                                    {t.bump_offset + 3, 8},
                                    {t.bump_offset + 6, 6},
                                    {t.bump_offset + 9, 5}})
        EXPECT_EQ(at(t, 2, offset), (Floats{float(k), float(10 * k), float(100 * k)})) << k;
}

TEST_F(MiObject, GroupsAreJoinedAndMaterialsLastUntilTheNext) {
    const miTriangles& t = read(R"(group 0 0 0 1 0 0 1 1 0 0 1 0 v 0 v 1 v 2 v 3
p "m" 0 1 2
p 0 1 2 3
c "m2" 0 1 2 3
cp 0 1 2 end group
group 5 0 0 6 0 0 5 1 0 v 0 v 1 v 2 p "m" 2 0 1 end group)");
    EXPECT_EQ(indices(t), (Indices{0, 1, 2, 0, 1, 2, 0, 2, 3, 0, 1, 2, 0, 2, 3, 0, 1, 2, 6, 4, 5}));
    EXPECT_EQ(at(t, 6, 0), (Floats{5, 1, 0}));
    const miTag m = element("m").tag, m2 = element("m2").tag;
    EXPECT_EQ(materials(t), (Indices{m, m, m, m2, m2, m2, m}));
    parse(R"(incremental object "o" visible off end object)");
    EXPECT_EQ(record<miObject>("o").triangles->triangle_count, 7u);
    EXPECT_EQ(record<miObject>("o").visible, 0);
    parse(R"(incremental object "o" group 0 0 0 1 0 0 1 1 0 v 0 v 1 v 2 c 0 1 2 end group end object)");
    EXPECT_EQ(record<miObject>("o").triangles->triangle_count, 1u);
}

TEST_F(MiObject, LabelsAndDataWords) {
    const miTriangles& t = read("tagged on group 0 0 0 1 0 0 1 1 0 0 1 0 v 0 v 1 v 2 v 3\n"
                                "p 7 0 1 2 data 65540 7 -1\nc 9 0 1 2 3 data 1 2 4294967295 end group");
    EXPECT_EQ(t.data_count, 3);
    EXPECT_EQ(Indices(t.data, t.data + 9),
              (Indices{65540, 7, 0xffffffff, 1, 2, 0xffffffff, 1, 2, 0xffffffff}));
    EXPECT_EQ(materials(t), (Indices{7, 9, 9}));
}

} // namespace
} // namespace stage
