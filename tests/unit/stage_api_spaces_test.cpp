// Conversions between spaces, and the current triangle.
#include <cstring>

#include "stage_api_scene.h"

namespace {

using namespace stage_test;

using Conversion = void (*)(miState*, miVector*, miVector*);

// A space, and its conversions to and from internal space.
struct Space {
    Matrix4 to_world, from_world;
    Conversion point_to, point_from, vector_to, vector_from, normal_to, normal_from;
};

Matrix4 transposed(const Matrix4& m) {
    Matrix4 r;
    for (std::size_t i = 0; i < 16; ++i)
        r[i] = m[4 * (i % 4) + i / 4];
    return r;
}

class Spaces : public testing::TestWithParam<bool> {
protected:
    const Matrix4 internal_to_world = GetParam() ? camera_place.to_world() : unit;
    const Matrix4 world_to_internal = GetParam() ? camera_place.from_world() : unit;
};

TEST_P(Spaces, ConversionsAgreeWithAProductOfMatrices) {
    Stage stage(GetParam());
    const Space spaces[] = {
        {unit, unit, mi_point_to_world, mi_point_from_world, mi_vector_to_world, mi_vector_from_world,
         mi_normal_to_world, mi_normal_from_world},
        {camera_place.to_world(), camera_place.from_world(), mi_point_to_camera, mi_point_from_camera,
         mi_vector_to_camera, mi_vector_from_camera, mi_normal_to_camera, mi_normal_from_camera},
        {object_place.to_world(), object_place.from_world(), mi_point_to_object, mi_point_from_object,
         mi_vector_to_object, mi_vector_from_object, mi_normal_to_object, mi_normal_from_object},
        {light_place.to_world(), light_place.from_world(), mi_point_to_light, mi_point_from_light,
         mi_vector_to_light, mi_vector_from_light, mi_normal_to_light, nullptr},
    };
    const miVector v = {0.75f, -1.25f, 2.5f};
    const Vector3 v3 = {0.75, -1.25, 2.5};
    for (const Space& space : spaces) {
        const Matrix4 to = internal_to_world * space.from_world, from = space.to_world * world_to_internal;
        // A normal goes with the transposed matrix of the way back.
        const std::pair<Conversion, Vector3> cases[] = {{space.point_to, times(v3, 1, to)},
                                                        {space.point_from, times(v3, 1, from)},
                                                        {space.vector_to, times(v3, 0, to)},
                                                        {space.vector_from, times(v3, 0, from)},
                                                        {space.normal_to, times(v3, 0, transposed(from))},
                                                        {space.normal_from, times(v3, 0, transposed(to))}};
        for (const auto& [convert, expected] : cases)
            if (convert) {
                miVector r = v; // the result may stand in the place of the argument
                convert(&stage.state, &r, &r);
                // Coordinates of some 30 in single precision, after two products.
                expect_near(r, expected, 3e-5,
                            "space " + std::to_string(&space - spaces) + ", conversion " +
                                std::to_string(&convert - &cases[0].first));
            }
    }
    miVector before = v, after = v;
    mi_point_to_object(&stage.state, &before, &before);
    stage.state.pri = nullptr; // a shader may clear the primitive
    mi_point_to_object(&stage.state, &after, &after);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof after), 0);
}

// Half-way to time 1 the blend of both matrices is a plain mean here: only the
// translation differs.
TEST_P(Spaces, ObjectSpaceMovesWithTheShutter) {
    Stage stage(GetParam(), true);
    stage.state.time = 0.5f;
    Placement middle = object_place;
    middle.move = {5.5, 0.0, 2.0};
    const Matrix4 to_internal = middle.to_world() * world_to_internal;
    miVector v = {0.5f, -0.5f, 1.0f};
    mi_point_from_object(&stage.state, &v, &v);
    expect_near(v, times({0.5, -0.5, 1.0}, 1, to_internal), 3e-5, "from object space");
    mi_point_to_object(&stage.state, &v, &v);
    expect_near(v, {0.5, -0.5, 1.0}, 3e-5, "and back");
    const miScalar* matrix = nullptr;
    ASSERT_TRUE(mi_query(miQ_TRANS_OBJECT_TO_INTERNAL, &stage.state, miNULLTAG, &matrix));
    EXPECT_THAT(std::vector<double>(matrix, matrix + 16),
                testing::Pointwise(testing::DoubleNear(1e-5), to_internal));
}

// A light that measures points in its own space does not see its origin (7, 8, 9) there, and is told so with
// its place, once. A light that takes directions alone has seen it: its rays start there.
TEST(LightSpace, TellsOnceOfAnOriginThatIsNotSeen) {
    Stage stage;
    const Told told;
    miVector v = {1, 2, 3};
    mi_vector_to_light(&stage.state, &v, &v);
    EXPECT_EQ(told.text, "");
    mi_point_to_light(&stage.state, &v, &v);
    mi_point_from_light(&stage.state, &v, &v);
    stage["lamp"].as<miLight>()->origin = {0, 0, 0};
    stage["lamp"].origin_missed = false;
    mi_point_to_light(&stage.state, &v, &v);
    EXPECT_THAT(told.text, testing::MatchesRegex("scene.mi:6:7: light \"lamp\": [^\n]*origin[^\n]*\n"));
}

INSTANTIATE_TEST_SUITE_P(InternalSpace, Spaces, testing::Bool());

// Triangle 1 has the corners 0, 2 and 3.
TEST(Triangle, CornerValuesPointIntoTheTessellation) {
    Stage stage;
    const miTriangles& t = *stage["square"].as<miObject>()->triangles;
    struct Row {
        int which, space, offset;
    };
    for (const auto& [which, space, offset] : {Row{'p', 0, 0},
                                               {'n', 0, t.normal_offset},
                                               {'t', 0, t.texture_offset},
                                               {'t', 1, t.texture_offset + 3},
                                               {'x', 0, t.bump_offset},
                                               {'y', 0, t.bump_offset + 3}}) {
        miVector *a = nullptr, *b = nullptr, *c = nullptr;
        ASSERT_TRUE(mi_tri_vectors(&stage.state, which, space, &a, &b, &c)) << static_cast<char>(which);
        EXPECT_EQ(&a->x, t.vertices + offset);
        EXPECT_EQ(&b->x, t.vertices + 2 * t.vertex_stride + offset);
        EXPECT_EQ(&c->x, t.vertices + 3 * t.vertex_stride + offset);
    }
    miVector sentinel, *a = &sentinel;
    for (const auto& [which, space] : {std::pair{'m', 0}, {'t', 2}, {'t', -1}, {'x', 1}, {'q', 0}})
        EXPECT_FALSE(mi_tri_vectors(&stage.state, which, space, &a, &a, &a)) << which << space;
    mi_state_set_pri(&stage.state, &stage.hit, 2);
    EXPECT_FALSE(mi_tri_vectors(&stage.state, 'p', 0, &a, &a, &a)) << "beyond the last triangle";
    EXPECT_EQ(a, &sentinel);
    mi_state_set_pri(&stage.state, &stage.hit, 0);
    ASSERT_TRUE(mi_tri_vectors(&stage.state, 'p', 0, &a, &a, &a));
    EXPECT_EQ(&a->x, t.vertices + 2 * t.vertex_stride);
    EXPECT_EQ(stage.hit.triangle, 1u) << "the primitive that was given is not changed";
}

} // namespace
